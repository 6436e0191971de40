// The command line of acl-agent:
//   acl-agent [--state FILE] [--plugin SO]... [--trace FACILITY/LEVELS] [--until-idle]
//             [--arptables auto|native|stock]
// Parsing only: nothing is applied here.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "agent/arptables/ArptablesDialect.h"

namespace Agent {

struct Options {
  std::string stateFile;             // empty: publish nothing, never reload
  std::vector<std::string> plugins;  // empty: the default plug-in
  std::vector<std::string> traces;   // each for Kiv::traceConfigIs, in order
  bool untilIdle = false;
  ArptablesDialect arptables = ArptablesDialect::automatic;
  bool help = false;
};

// Bad usage; what() tells what was wrong. The caller prints it with the
// usage text and exits 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes "--opt VALUE" and "--opt=VALUE" alike.
Options parseOptions(int argc, const char* const* argv);
const char* usageText();
// VirtualIpArpTablesPlugin.so in the folder of the running executable.
std::string defaultPluginPath();

}  // namespace Agent

// The command line of acl-agent. Two kinds of run:
//   acl-agent [OPTION]...                 the agent itself (see usageText())
//   acl-agent status|verify|metrics [OPTION]...   a client of a running agent's control socket
// Parsing only: nothing is applied here.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "agent/arptables/ArptablesDialect.h"

namespace Agent {

struct Options {
  enum class Mode { agent, status, verify, metrics };
  enum class Log { automatic, plain, journal };  // plain: stderr and syslog
  enum class Apply { perLine, batch, nft };

  Mode mode = Mode::agent;
  std::string stateFile;             // empty: publish nothing, never reload
  std::string redisAddress;          // unix:PATH or HOST:PORT; empty: no Redis source
  int redisDb = 6;                   // the state database's number by convention
  std::vector<std::string> plugins;  // empty: the default plug-in
  std::vector<std::string> traces;   // each for Kiv::traceConfigIs, in order
  bool untilIdle = false;
  bool help = false;
  Apply apply = Apply::perLine;
  ArptablesDialect arptables = ArptablesDialect::automatic;  // not used with Apply::nft
  bool dryRun = false;
  std::string dryRunFile;  // with dryRun: empty means stdout
  std::string controlPath = "/run/acl-agent/control.sock";
  // One agent per host, whatever its socket (service/HostLock.h).
  std::string lockPath = "/run/acl-agent.lock";
  double verifyEvery = 0;     // seconds; 0: never by itself
  bool repair = false;        // verify: repair drift too
  bool json = false;          // status: the JSON form
  std::string metricsListen;  // ADDRESS:PORT for GET /metrics; empty: none
  Log log = Log::automatic;   // automatic: the journal when $JOURNAL_STREAM is stderr
};

// Bad usage; what() tells what was wrong. The caller prints it with the
// usage text and exits 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes "--opt VALUE" and "--opt=VALUE" alike; --dry-run takes its file only
// as "--dry-run=FILE". A client mode is the first argument.
Options parseOptions(int argc, const char* const* argv);
const char* usageText();
// VirtualIpArpTablesPlugin.so in the folder of the running executable (the
// build tree), else in ../lib/acl-agent from it (installed).
std::string defaultPluginPath();

}  // namespace Agent

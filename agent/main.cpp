// acl-agent: loads the ACL plug-ins and publishes their inputs from a state
// document. See Agent.h and Options.h.
#include <iostream>

#include "agent/Agent.h"
#include "agent/control/Client.h"
#include "platform/kiv/Trace.h"

int main(int argc, char** argv) {
  Agent::Options options;
  try {
    options = Agent::parseOptions(argc, argv);
    if (options.help) {
      std::cout << Agent::usageText();
      return 0;
    }
    for (const std::string& t : options.traces) {
      try {
        Kiv::traceConfigIs(t);
      } catch (const std::invalid_argument& e) {
        throw Agent::UsageError("--trace " + t + ": " + e.what());
      }
    }
  } catch (const Agent::UsageError& e) {
    std::cerr << "acl-agent: " << e.what() << "\n" << Agent::usageText();
    return 2;
  }
  if (options.mode != Agent::Options::Mode::agent) return Agent::Control::runClient(options);
  if (options.plugins.empty()) options.plugins.push_back(Agent::defaultPluginPath());
  return Agent::AclAgent(std::move(options)).run();
}

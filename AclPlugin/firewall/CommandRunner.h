// The common ground of every host firewall command: the one runner, the
// namespace prefix that places a command into a VRF's namespace, and the
// one report of a failed rule command.
//
// Called only on the agent's event-loop thread; a command blocks it while
// it runs. Nothing here throws.
#pragma once

#include <string_view>

#include "platform/acl/CommandApplier.h"
#include "platform/dravo/IpGenAddr.h"
#include "platform/dravo/NamespaceName.h"
#include "platform/kiv/Log.h"
#include "platform/kiv/String8.h"

namespace Routing::Fhrp {

// Traces the command at level 6 and hands it to system() unchanged (never
// quoted, never retried). Returns system()'s result as it is: 0 is success,
// anything else (exit status, signal, -1) is failure.
// With a host applier in force the line goes to the applier instead; without
// a report it is still run at once and its status returned.
int runBashCmd(const char* command);
// The same for a rule line: an applier that takes the line for later returns
// 0 and calls `report` if the line fails when applied, so the failure is
// reported exactly as a failure at once would be.
int runBashCmd(const char* command, Acl::CommandApplier::FailureReport report);

// The host's applier (from the plug-in context); null: system() per line.
void commandApplierIs(Kiv::Ptr<Acl::CommandApplier> applier);

// "" for DEFAULT_NS and for the empty name, else "ip netns exec <ns> ".
Kiv::String8 namespacePrefix(const Dravo::NamespaceName& ns);

// Reports one failed rule command: a level-0 trace and a raise of `log`
// with (action, addr, devName). Silent when `ns` cannot be opened any more:
// a rule command fails routinely once its VRF's namespace is gone.
// The address a failure report names: the all-zero IPv6 value, then set
// from the text by the library's initialise-from-text.
Dravo::IpGenAddr failedRuleAddress(std::string_view text);

void doLogMessageIfNamespaceExists(Dravo::NamespaceName ns, const char* table, const char* action,
                                   Kiv::LogHandle& log, Dravo::IpGenAddr addr,
                                   Kiv::String8 devName);

}  // namespace Routing::Fhrp

#include "AclPlugin/firewall/CommandRunner.h"

#include <unistd.h>

#include <cstdlib>

#include "AclPlugin/diagnostics/Raise.h"
#include "AclPlugin/diagnostics/Trace.h"
#include "platform/dravo/NamespaceExec.h"
#include "platform/dravo/SocketAt.h"

namespace Routing::Fhrp {

namespace {
Kiv::Ptr<Acl::CommandApplier>& applier() {
  static Kiv::Ptr<Acl::CommandApplier> a;
  return a;
}
}  // namespace

void commandApplierIs(Kiv::Ptr<Acl::CommandApplier> a) {
  applier() = std::move(a);
}

int runBashCmd(const char* command) {
  return runBashCmd(command, nullptr);
}

int runBashCmd(const char* command, Acl::CommandApplier::FailureReport report) {
  FHRP_TRACE(6, command);
  if (applier()) return applier()->lineIs(command, std::move(report));
  return ::system(command);
}

Kiv::String8 namespacePrefix(const Dravo::NamespaceName& ns) {
  return Dravo::namespaceExecPrefix(ns);
}

Dravo::IpGenAddr failedRuleAddress(std::string_view text) {
  Dravo::IpGenAddr addr{Dravo::Ip6Addr()};
  addr.stringValueIs(text);
  return addr;
}

void doLogMessageIfNamespaceExists(Dravo::NamespaceName ns, const char* table, const char* action,
                                   Kiv::LogHandle& log, Dravo::IpGenAddr addr,
                                   Kiv::String8 devName) {
  // A raw routing-netlink socket opens only in a namespace that still exists.
  const int probe = Dravo::socketAt(16, 3, 0, ns);
  if (probe != -1) {
    FHRP_TRACE(0, "Failed to " << action << " " << table << " rule for virtual IP " << addr
                               << " on interface " << devName);
    raiseLog(log, action, addr, devName);
  }
  ::close(probe);
}

}  // namespace Routing::Fhrp

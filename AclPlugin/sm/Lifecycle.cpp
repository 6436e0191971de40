// Construction, start-up, notification switching and teardown.
#include "AclPlugin/diagnostics/LogMessages.h"
#include "AclPlugin/diagnostics/Raise.h"
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/firewall/CommandRunner.h"
#include "AclPlugin/sm/Reactors.h"
#include "platform/kiv/Assert.h"

namespace Routing::Fhrp {

namespace {

// The start-up flushes, in order. In a VRF namespace a failure is traced and
// logged; in the default namespace it is fatal at the given line.
struct ChainFlush {
  const char* command;
  const char* table;
  Kiv::LogHandle* log;  // ip6tables deliberately shares the iptables message
  int assertLine;
};
const ChainFlush chainFlushes[] = {
    {"iptables -t mangle -F PREROUTING", "iptables", &FHRP_IPTABLES_FLUSH_ERROR, 118},
    {"ip6tables -t mangle -F PREROUTING", "ip6tables", &FHRP_IPTABLES_FLUSH_ERROR, 120},
    {"arptables -F OUT", "arptables", &FHRP_ARPTABLES_FLUSH_ERROR, 122},
};

}  // namespace

VirtualIpArpTablesSm::VirtualIpArpTablesSm(
    const Kiv::Ptr<const VirtualIpStatus>& vip, const Kiv::Ptr<const VirtualIp6Status>& vip6,
    const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
    const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
    const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf)
    : allIntf_(allIntf) {
  virtualIpStatusIs(vip);
  virtualIp6StatusIs(vip6);
  virtualRouterMacStatusIs(vrMac);
  allVrfStatusLocalIs(allVrf);
  if (vip) doIntfReactorUpkeep(vip);
  if (vip6) doIntfReactorUpkeep(vip6);
  handleInitialized();
}

VirtualIpArpTablesSm::~VirtualIpArpTablesSm() {
  kivDoZombieReactors(true);
  if (virtualIpStatus_) virtualIpStatus_->virtualIpArpTablesSmIs(nullptr);
  if (virtualIp6Status_) virtualIp6Status_->virtualIpArpTablesSmIs(nullptr);
  if (virtualRouterMacStatus_) virtualRouterMacStatus_->virtualIpArpTablesSmIs(nullptr);
  if (allVrfStatusLocal_) allVrfStatusLocal_->virtualIpArpTablesSmIs(nullptr);
  for (auto& [key, r] : virtualIpIntfStatus_) r->virtualIpArpTablesSmIs(nullptr);
  for (auto& [key, r] : virtualIp6IntfStatus_) r->virtualIpArpTablesSmIs(nullptr);
  if (virtualIpTimerWheel_) virtualIpTimerWheel_->virtualIpArpTablesSmIs(nullptr);
  localVipDelAll();
  localVipSubnetDelAll();
  virtualIpTimerWheelDel();
  virtualIpBacklogCollectionDelAll();
  virtualIpIntfStatusDelAll();
  virtualIp6IntfStatusDelAll();
}

void VirtualIpArpTablesSm::handleInitialized() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleInitialized()");
  Kiv::Ptr<Kiv::ActivityManager> am = Kiv::activityManager();
  virtualIpTimerWheelIs(nullptr, am->clock(), timerWheelTickMsecs, timerWheelInitialMaxTicks,
                        timerWheelPreserveOrder, timerWheelBucketCount);
  initializedIs(true);
  purgeMangleTables();
  handleVirtualIp();
  handleVirtualIp6();
}

void VirtualIpArpTablesSm::purgeMangleTables() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::purgeMangleTables()");
  if (Kiv::Ptr<const Ip::AllVrfStatusLocal> vrfs = allVrfStatusLocal()) {
    for (auto it = vrfs->vrfIterator(); it; ++it) {
      const Kiv::Ptr<Ip::VrfStatusLocal>& vrf = it.value();
      if (vrf->state() != Ip::VrfState::active) continue;
      const Kiv::String8& ns = vrf->netNs().stringValue();
      // Pasted as it is: a VRF whose namespace is the default one goes
      // through "ip netns exec" too.
      for (const ChainFlush& f : chainFlushes) {
        const std::string command = "ip netns exec " + ns.stdString() + " " + f.command;
        if (runBashCmd(command.c_str()) == 0) continue;
        FHRP_TRACE(0, "Failed to flush " << f.table << " for network namespace " << ns);
        raiseLog(*f.log, ns);
      }
    }
  }
  for (const ChainFlush& f : chainFlushes) {
    int ret = runBashCmd(f.command);
    if (ret != 0)
      Kiv::assertionFailed("ret == 0", "AclPlugin/VirtualIpArpTablesPlugin", f.assertLine,
                           "void Routing::Fhrp::VirtualIpArpTablesSm::purgeMangleTables()");
  }
}

template <class F>
void VirtualIpArpTablesSm::forEachReactor(F&& f) {
  if (virtualIpStatus_) f(*virtualIpStatus_);
  if (virtualIp6Status_) f(*virtualIp6Status_);
  if (virtualRouterMacStatus_) f(*virtualRouterMacStatus_);
  if (allVrfStatusLocal_) f(*allVrfStatusLocal_);
  for (auto& [key, r] : virtualIpIntfStatus_) f(*r);
  for (auto& [key, r] : virtualIp6IntfStatus_) f(*r);
  if (virtualIpTimerWheel_) f(*virtualIpTimerWheel_);
}

void VirtualIpArpTablesSm::hasNotificationActiveIs(bool active) {
  notificationActive_ = active;
  forEachReactor([active](Kiv::NotifieeBase& r) { r.hasNotificationActiveIs(active); });
}

void VirtualIpArpTablesSm::kivDoZombieReactors(bool zombie) {
  forEachReactor([zombie](Kiv::NotifieeBase& r) { r.isDyingIs(zombie); });
  zombie_ = zombie;
}

// Inputs: keep the reactor when the object is the one watched, else replace it.
template <class Reactor, class Input>
static void replaceReactor(std::unique_ptr<Reactor>& reactor, const Kiv::Ptr<const Input>& input,
                           VirtualIpArpTablesSm* sm) {
  if (reactor && reactor->notifier() == input) return;
  if (reactor) reactor->virtualIpArpTablesSmIs(nullptr);
  reactor.reset();
  if (input) reactor = std::make_unique<Reactor>(input, sm);
}

template <class Reactor>
static void dropReactor(std::unique_ptr<Reactor>& reactor) {
  if (reactor) reactor->virtualIpArpTablesSmIs(nullptr);
  reactor.reset();
}

template <class Reactor>
static auto watched(const std::unique_ptr<Reactor>& reactor) {
  return reactor ? reactor->notifier() : nullptr;
}

Kiv::Ptr<const VirtualIpStatus> VirtualIpArpTablesSm::virtualIpStatus() const {
  return watched(virtualIpStatus_);
}
Kiv::Ptr<const VirtualIp6Status> VirtualIpArpTablesSm::virtualIp6Status() const {
  return watched(virtualIp6Status_);
}
Kiv::Ptr<const VirtualRouterMacStatus> VirtualIpArpTablesSm::virtualRouterMacStatus() const {
  return watched(virtualRouterMacStatus_);
}
Kiv::Ptr<const Ip::AllVrfStatusLocal> VirtualIpArpTablesSm::allVrfStatusLocal() const {
  return watched(allVrfStatusLocal_);
}
void VirtualIpArpTablesSm::virtualIpStatusIs(const Kiv::Ptr<const VirtualIpStatus>& p) {
  replaceReactor(virtualIpStatus_, p, this);
}
void VirtualIpArpTablesSm::virtualIpStatusDel() {
  dropReactor(virtualIpStatus_);
}
void VirtualIpArpTablesSm::virtualIp6StatusIs(const Kiv::Ptr<const VirtualIp6Status>& p) {
  replaceReactor(virtualIp6Status_, p, this);
}
void VirtualIpArpTablesSm::virtualIp6StatusDel() {
  dropReactor(virtualIp6Status_);
}
void VirtualIpArpTablesSm::virtualRouterMacStatusIs(
    const Kiv::Ptr<const VirtualRouterMacStatus>& p) {
  replaceReactor(virtualRouterMacStatus_, p, this);
}
void VirtualIpArpTablesSm::virtualRouterMacStatusDel() {
  dropReactor(virtualRouterMacStatus_);
}
void VirtualIpArpTablesSm::allVrfStatusLocalIs(const Kiv::Ptr<const Ip::AllVrfStatusLocal>& p) {
  replaceReactor(allVrfStatusLocal_, p, this);
}
void VirtualIpArpTablesSm::allVrfStatusLocalDel() {
  dropReactor(allVrfStatusLocal_);
}

}  // namespace Routing::Fhrp

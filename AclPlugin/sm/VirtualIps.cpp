// Virtual-IP handlers: every change becomes (virtual IP, interface) pairs in
// the backlog; nothing here runs a command.
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/sm/Reactors.h"
#include "platform/kiv/Assert.h"

namespace Routing::Fhrp {

namespace {

void requireInitialized(const VirtualIpArpTablesSm& sm, const char* function) {
  if (!sm.initialized())
    Kiv::assertionFailed("initialized()", "AclPlugin/VirtualIpArpTablesPlugin", __LINE__, function);
}

// Queues one pair per interface recorded for the virtual IP.
void doWriteRecordedIntfs(VirtualIpArpTablesSm& sm, const VrfIpWithMaskPair& key,
                          const VrfIpPair& vrfIp) {
  if (Kiv::Ptr<LocalVipStatus> local = sm.localVip(vrfIp))
    for (auto it = local->intfIdSetIterator(); it; ++it) sm.doWriteToBacklog(key, it.key());
}

}  // namespace

void VirtualIpArpTablesSm::handleVirtualIp(const VrfIpWithMaskPair& key) {
  static const char* const signature =
      "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIp(const "
      "Routing::Fhrp::VrfIpWithMaskPair&)";
  FHRP_TRACE(8, signature);
  requireInitialized(*this, signature);
  Kiv::Ptr<const VirtualIpStatus> input = virtualIpStatus();
  // A present virtual IP is handled by its own reactor.
  if (input && input->virtualIp(key)) return;
  doWriteRecordedIntfs(*this, key, key.vrfIp());
  const Dravo::IpGenAddr& address = key.ipWithMask().address();
  for (auto it = localVipSubnetIterator(); it; ++it) {
    const Kiv::Ptr<LocalVipSubnetStatus>& subnet = it.value();
    if (subnet->vrfName() == key.vrfName() && subnet->ipAddrs(address))
      doWriteToBacklog(key, subnet->intfSubnet().intfId());
  }
}

void VirtualIpArpTablesSm::handleVirtualIp6(const VrfIpPair& key) {
  static const char* const signature =
      "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIp6(const Routing::Fhrp::VrfIpPair&)";
  FHRP_TRACE(8, signature);
  requireInitialized(*this, signature);
  Kiv::Ptr<const VirtualIp6Status> input = virtualIp6Status();
  if (input && input->virtualIp(key)) return;
  // IPv6 virtual IPs take no part in the subnet records.
  doWriteRecordedIntfs(
      *this, VrfIpWithMaskPair(key.vrfName(), Dravo::IpGenAddrWithMask(key.ipAddr())), key);
}

// The sweep: the per-key pass queues nothing for present keys and is kept
// for symmetry with a single change; the second pass queues every interface.
template <class Key, class Input, class Reactors, class Handle>
static void doSweep(const Kiv::Ptr<const Input>& input, Reactors& reactors, Handle&& handle) {
  if (!input) return;
  for (auto it = input->virtualIpIterator(); it; ++it) handle(Key(it.key()));
  for (auto it = input->virtualIpIterator(); it; ++it)
    if (auto* r = reactors.find(it.key())) (*r)->handleIntfIdCol();
}

void VirtualIpArpTablesSm::handleVirtualIp() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIp()");
  doSweep<VrfIpWithMaskPair>(virtualIpStatus(), virtualIpIntfStatus_,
                             [this](const VrfIpWithMaskPair& k) { handleVirtualIp(k); });
}

void VirtualIpArpTablesSm::handleVirtualIp6() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIp6()");
  doSweep<VrfIpPair>(virtualIp6Status(), virtualIp6IntfStatus_,
                     [this](const VrfIpPair& k) { handleVirtualIp6(k); });
}

void VirtualIpArpTablesSm::handleLumoVirtualMac() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleLumoVirtualMac()");
  // The MAC is not compared here: the sweeps requeue every pair, and each
  // subnet rule is brought to the new MAC as its pair is decided.
  handleVirtualIp();
  handleVirtualIp6();
}

}  // namespace Routing::Fhrp

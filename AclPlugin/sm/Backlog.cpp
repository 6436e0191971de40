// The backlog of (virtual IP, interface) pairs and the timer wheel that
// drains it, so that no command runs inside an input notification.
#include "AclPlugin/diagnostics/Trace.h"
#include "AclPlugin/sm/Reactors.h"

namespace Routing::Fhrp {

void VirtualIpArpTablesSm::doWriteToBacklog(const VrfIpWithMaskPair& vrfIpWithMask,
                                            Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doWriteToBacklog(const "
             "Routing::Fhrp::VrfIpWithMaskPair&, Dravo::IntfId)");
  FHRP_TRACE(3, "Writing to backlog: " << vrfIpWithMask.ipWithMask() << " vrf "
                                       << vrfIpWithMask.vrfName() << " on interface " << intfId);
  virtualIpBacklogCollectionIs(VirtualIpBacklogKey(vrfIpWithMask, intfId), true);
  Kiv::validPtr(virtualIpTimerWheel_)->timeMinIs(Kiv::now());
}

void VirtualIpArpTablesSm::newVirtualIpBacklogCollection(const VirtualIpBacklogKey& key,
                                                         bool value) {
  backlog_.insert(key, value);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionIs(const VirtualIpBacklogKey& key,
                                                        bool value) {
  if (bool* v = backlog_.find(key))
    *v = value;
  else
    newVirtualIpBacklogCollection(key, value);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionDel(const VirtualIpBacklogKey& key) {
  backlog_.erase(key);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionDel(VirtualIpBacklogIterator& it) {
  backlog_.erase(it);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionDelAll() {
  backlog_.clear();
}

Kiv::Ptr<const Oru::TimerWheel> VirtualIpArpTablesSm::virtualIpTimerWheelIs(
    const Kiv::Ptr<Kiv::ActivityConfig>& config, const Kiv::Ptr<const Kiv::Clock>& clock,
    unsigned tickMsecs, unsigned initialMaxTicks, bool preserveOrder, unsigned defaultBucketSize) {
  if (virtualIpTimerWheel_) return Kiv::validPtr(virtualIpTimerWheel_->notifier());
  Kiv::Ptr<const Oru::TimerWheel> wheel = new Oru::TimerWheel(
      config, clock, tickMsecs, initialMaxTicks, preserveOrder, defaultBucketSize);
  virtualIpTimerWheel_ = std::make_unique<KivVirtualIpTimerWheel>(wheel, this);
  handleVirtualIpTimerWheel();
  return wheel;
}

void VirtualIpArpTablesSm::virtualIpTimerWheelDel() {
  if (virtualIpTimerWheel_) virtualIpTimerWheel_->virtualIpArpTablesSmIs(nullptr);
  virtualIpTimerWheel_.reset();
}

Kiv::Ptr<const Oru::TimerWheel> VirtualIpArpTablesSm::virtualIpTimerWheel() const {
  return virtualIpTimerWheel_ ? virtualIpTimerWheel_->notifier() : nullptr;
}

void VirtualIpArpTablesSm::handleVirtualIpTimerWheel() {
  FHRP_TRACE(8, "void Routing::Fhrp::VirtualIpArpTablesSm::handleVirtualIpTimerWheel()");
  if (!initialized()) return;
}

}  // namespace Routing::Fhrp

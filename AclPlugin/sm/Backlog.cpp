// The backlog of (virtual IP, interface) pairs and the timer wheel that
// drains it, so that no command runs inside an input notification.
#include <algorithm>
#include <limits>

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
  backlogQueuedAt_.insert(key, Kiv::now());
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
  backlogQueuedAt_.erase(key);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionDel(VirtualIpBacklogIterator& it) {
  if (it) backlogQueuedAt_.erase(it.key());
  backlog_.erase(it);
}
void VirtualIpArpTablesSm::virtualIpBacklogCollectionDelAll() {
  backlog_.clear();
  backlogQueuedAt_.clear();
}
double VirtualIpArpTablesSm::virtualIpBacklogOldestQueuedAt() const {
  double oldest = std::numeric_limits<double>::infinity();
  for (auto it = backlogQueuedAt_.iterator(); it; ++it) oldest = std::min(oldest, it.value());
  return oldest;
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
  const double start = Kiv::now();
  for (auto it = backlog_.iterator(); it; ++it) {
    const VirtualIpBacklogKey key = it.key();
    const VrfIpWithMaskPair& vrfIpWithMask = key.vrfIpWithMask();
    const L3::VrfName vrfName = vrfIpWithMask.vrfName();
    if (doesNetNsExistsForVrf(vrfName)) {
      const Dravo::IpGenAddr& addr = vrfIpWithMask.ipWithMask().address();
      if (addr.family() == Dravo::IpGenAddr::ipv6)
        doHandleBacklogIp6(VrfIpPair(vrfName, addr), key.intfId());
      else
        doHandleBacklogIp(vrfIpWithMask, key.intfId());
    } else {
      // Dropped, not retried: only a new input change brings the pair back.
      FHRP_TRACE(7, "Vrf " << vrfName << " does not exist!");
    }
    virtualIpBacklogCollectionDel(key);
    // Checked after the entry, so every slice makes progress.
    if (Kiv::now() - start >= maxProcessTime_) {
      FHRP_TRACE(
          3, "Early exit from processing a large vips after " << Kiv::now() - start << " seconds ");
      virtualIpTimerWheel_->timeMinIs(Kiv::now());
      codefCounterInc(1);
      return;
    }
  }
}

namespace {

// The decision both families share: a wanted pair is (re)installed, an
// unwanted one with a record is removed, and an emptied record goes.
template <class Entry, class Add, class Delete>
void doDecide(const char* function, VirtualIpArpTablesSm& sm, const VrfIpPair& vrfIp,
              Dravo::IntfId intfId, const Kiv::Ptr<Entry>& input, const Kiv::String8& shownAddr,
              Add add, Delete del) {
  Kiv::Ptr<LocalVipStatus> local = sm.localVip(vrfIp);
  const Kiv::String8* value = input ? input->intfIdSet(intfId) : nullptr;
  // A value on the set entry makes the pair unwanted.
  const bool wanted = value && value->empty();
  FHRP_TRACE_IN(function, 3,
                "Virtual ip " << shownAddr << " on vrf " << vrfIp.vrfName() << " with interface "
                              << intfId << " changed");
  if (wanted && !local) {
    FHRP_TRACE_IN(function, 4,
                  "Adding to LocalVipStatus with " << shownAddr << " on vrf " << vrfIp.vrfName());
    sm.localVipIs(vrfIp, input->netNs());
    add();
  } else if (wanted) {
    // Always removed and written again: how a changed mask or namespace is taken up.
    FHRP_TRACE_IN(function, 4,
                  "LocalVipStatus for " << vrfIp.ipAddr() << " with vrf " << vrfIp.vrfName()
                                        << " on interface " << intfId
                                        << " exists, cleaning up first");
    del();
    add();
  } else if (local) {
    del();
    if (local->intfIdSetSize() == 0) {
      FHRP_TRACE_IN(
          function, 4,
          "Deleting from LocalVipStatus with " << vrfIp.ipAddr() << " on vrf " << vrfIp.vrfName());
      sm.localVipDel(vrfIp);
    }
  }
}

}  // namespace

void VirtualIpArpTablesSm::doHandleBacklogIp(const VrfIpWithMaskPair& vrfIpWithMask,
                                             Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doHandleBacklogIp(const "
             "Routing::Fhrp::VrfIpWithMaskPair&, Dravo::IntfId)");
  const VrfIpPair vrfIp = vrfIpWithMask.vrfIp();
  Kiv::Ptr<const VirtualIpStatus> status = virtualIpStatus();
  Kiv::Ptr<VirtualIpIntfStatus> input = status ? status->virtualIp(vrfIpWithMask) : nullptr;
  doDecide(
      "doHandleBacklogIp", *this, vrfIp, intfId, input, vrfIpWithMask.ipWithMask().stringValue(),
      [&] { doAddVirtualIpForIntfId(vrfIpWithMask, intfId); },
      [&] { doDeleteVirtualIpForIntfId(vrfIp, intfId); });

  // The virtual-router subnet of the pair.
  const Dravo::IpGenAddrWithMask& withMask = vrfIpWithMask.ipWithMask();
  const Dravo::IpGenPrefix subnet = withMask.address().family() == Dravo::IpGenAddr::unset
                                        ? Dravo::IpGenPrefix()
                                        : withMask.subnet();
  // 32 for both families, as it always was; only IPv4 pairs come here.
  if (subnet.length() == 32) {
    FHRP_TRACE(7, subnet << " is default subnet");
    return;
  }
  const IntfSubnetPair pair(intfId, subnet);
  // On the entry's existence alone, not on the interface's membership.
  if (input)
    doAddVirtualIpSubnet(vrfIpWithMask, pair);
  else
    doDeleteVirtualIpSubnet(withMask.address(), pair);
}

void VirtualIpArpTablesSm::doHandleBacklogIp6(const VrfIpPair& vrfIp, Dravo::IntfId intfId) {
  FHRP_TRACE(8,
             "void Routing::Fhrp::VirtualIpArpTablesSm::doHandleBacklogIp6(const "
             "Routing::Fhrp::VrfIpPair&, Dravo::IntfId)");
  Kiv::Ptr<const VirtualIp6Status> status = virtualIp6Status();
  doDecide(
      "doHandleBacklogIp6", *this, vrfIp, intfId, status ? status->virtualIp(vrfIp) : nullptr,
      vrfIp.ipAddr().stringValue(), [&] { doAddVirtualIp6ForIntfId(vrfIp, intfId); },
      [&] { doDeleteVirtualIp6ForIntfId(vrfIp, intfId); });
}

}  // namespace Routing::Fhrp

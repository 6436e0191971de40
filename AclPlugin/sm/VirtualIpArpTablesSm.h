// VirtualIpArpTablesSm: the plug-in's one state machine. It watches the five
// inputs through reactors, queues (virtual IP, interface) pairs in a backlog
// drained by a timer wheel, keeps records of the rules it installed, and
// runs the packet-filter commands.
//
// Ownership: the state machine owns its reactors, its records, its backlog
// and its timer wheel; the inputs belong to the state database and are only
// read. Construction flushes the chains of every active VRF namespace and of
// the default namespace (a default-namespace failure is fatal) and sweeps all
// virtual IPs. Teardown runs no command: rules stay on the host until the
// next start-up flush.
// Threading: everything runs on the agent's event-loop thread; nothing locks.
#pragma once

#include <cstdint>
#include <memory>

#include "AclPlugin/keys/IntfSubnetPair.h"
#include "AclPlugin/keys/VirtualIpBacklogKey.h"
#include "AclPlugin/records/LocalVipCollection.h"
#include "AclPlugin/records/LocalVipSubnetCollection.h"
#include "platform/dravo/EthAddr.h"
#include "platform/interface/IntfStatus.h"
#include "platform/ip/VrfStatus.h"
#include "platform/kiv/ActivityManager.h"
#include "platform/oru/TimerWheel.h"
#include "platform/routing/VirtualIpStatus.h"
#include "platform/routing/VirtualRouterMacStatus.h"

namespace Routing::Fhrp {

class VirtualIpArpTablesSm : public Kiv::PtrInterface {
 public:
  // Reactors: one per input, one per virtual IP (per family), one for the wheel.
  template <class Key>
  class KivVipStatusT;
  template <class Key>
  class KivVipIntfStatusT;
  class KivVirtualRouterMacStatus;
  class KivAllVrfStatusLocal;
  class KivVirtualIpTimerWheel;
  using KivVirtualIpStatus = KivVipStatusT<VrfIpWithMaskPair>;
  using KivVirtualIp6Status = KivVipStatusT<VrfIpPair>;
  using KivVirtualIpIntfStatus = KivVipIntfStatusT<VrfIpWithMaskPair>;
  using KivVirtualIp6IntfStatus = KivVipIntfStatusT<VrfIpPair>;

  using VirtualIpIntfStatusMap =
      Kiv::HashMap<VrfIpWithMaskPair, std::unique_ptr<KivVirtualIpIntfStatus>>;
  using VirtualIp6IntfStatusMap = Kiv::HashMap<VrfIpPair, std::unique_ptr<KivVirtualIp6IntfStatus>>;
  using VirtualIpIntfStatusIterator = VirtualIpIntfStatusMap::Iterator;
  using VirtualIp6IntfStatusIterator = VirtualIp6IntfStatusMap::Iterator;
  using VirtualIpBacklogMap = Kiv::HashMap<VirtualIpBacklogKey, bool>;
  using VirtualIpBacklogIterator = VirtualIpBacklogMap::Iterator;

  // The slice budget of one timer-wheel pass, and the wheel's configuration.
  static constexpr double defaultMaxProcessTime = 1.0;
  static constexpr unsigned timerWheelTickMsecs = 10;
  static constexpr unsigned timerWheelInitialMaxTicks = 255;
  static constexpr bool timerWheelPreserveOrder = false;
  static constexpr unsigned timerWheelBucketCount = 1024;

  // Any input may be null. Runs handleInitialized before returning.
  VirtualIpArpTablesSm(const Kiv::Ptr<const VirtualIpStatus>& vip,
                       const Kiv::Ptr<const VirtualIp6Status>& vip6,
                       const Kiv::Ptr<const VirtualRouterMacStatus>& vrMac,
                       const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntf,
                       const Kiv::Ptr<const Ip::AllVrfStatusLocal>& allVrf);
  VirtualIpArpTablesSm(const VirtualIpArpTablesSm&) = delete;
  VirtualIpArpTablesSm& operator=(const VirtualIpArpTablesSm&) = delete;

  // Inputs. A setter given the object already watched does nothing; otherwise
  // the old reactor is detached and released and a new one made for a
  // non-null object. Neither setter nor deleter runs a handler.
  Kiv::Ptr<const VirtualIpStatus> virtualIpStatus() const;
  Kiv::Ptr<const VirtualIp6Status> virtualIp6Status() const;
  Kiv::Ptr<const VirtualRouterMacStatus> virtualRouterMacStatus() const;
  Kiv::Ptr<const Ip::AllVrfStatusLocal> allVrfStatusLocal() const;
  const Kiv::Ptr<const Interface::AllIntfStatusDir>& allIntfStatusDir() const { return allIntf_; }
  void virtualIpStatusIs(const Kiv::Ptr<const VirtualIpStatus>& p);
  void virtualIpStatusDel();
  void virtualIp6StatusIs(const Kiv::Ptr<const VirtualIp6Status>& p);
  void virtualIp6StatusDel();
  void virtualRouterMacStatusIs(const Kiv::Ptr<const VirtualRouterMacStatus>& p);
  void virtualRouterMacStatusDel();
  void allVrfStatusLocalIs(const Kiv::Ptr<const Ip::AllVrfStatusLocal>& p);
  void allVrfStatusLocalDel();
  void allIntfStatusDirIs(const Kiv::Ptr<const Interface::AllIntfStatusDir>& p) { allIntf_ = p; }

  // Per-virtual-IP reactors, kept in step with the inputs' collections.
  KivVirtualIpIntfStatus* virtualIpIntfStatus(const VrfIpWithMaskPair& key) const;
  KivVirtualIp6IntfStatus* virtualIp6IntfStatus(const VrfIpPair& key) const;
  VirtualIpIntfStatusIterator virtualIpIntfStatusIterator() const;
  VirtualIp6IntfStatusIterator virtualIp6IntfStatusIterator() const;
  KivVirtualIpIntfStatus* virtualIpIntfStatusIs(const Kiv::Ptr<const VirtualIpIntfStatus>& input);
  KivVirtualIp6IntfStatus* virtualIp6IntfStatusIs(
      const Kiv::Ptr<const VirtualIp6IntfStatus>& input);
  void virtualIpIntfStatusDel(const VrfIpWithMaskPair& key);
  void virtualIpIntfStatusDel(VirtualIpIntfStatusIterator& it);
  void virtualIpIntfStatusDelAll();
  void virtualIp6IntfStatusDel(const VrfIpPair& key);
  void virtualIp6IntfStatusDel(VirtualIp6IntfStatusIterator& it);
  void virtualIp6IntfStatusDelAll();

  // Records of what is installed.
  Kiv::Ptr<LocalVipStatus> localVip(const VrfIpPair& key) const;
  LocalVipIterator localVipIterator() const { return localVip_.iterator(); }
  Kiv::Ptr<LocalVipStatus> localVipIs(const VrfIpPair& key, Dravo::NamespaceName netNs);
  Kiv::Ptr<LocalVipStatus> newLocalVip(const VrfIpPair& key, Dravo::NamespaceName netNs);
  void localVipDel(const VrfIpPair& key);
  void localVipDel(LocalVipIterator& it);
  void localVipDelAll();
  Kiv::Ptr<LocalVipSubnetStatus> localVipSubnet(const IntfSubnetPair& key) const;
  LocalVipSubnetIterator localVipSubnetIterator() const { return localVipSubnet_.iterator(); }
  Kiv::Ptr<LocalVipSubnetStatus> localVipSubnetIs(const IntfSubnetPair& key,
                                                  Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                  Dravo::NamespaceName netNs);
  Kiv::Ptr<LocalVipSubnetStatus> newLocalVipSubnet(const IntfSubnetPair& key,
                                                   Kiv::String8 intfDevName, L3::VrfName vrfName,
                                                   Dravo::NamespaceName netNs);
  void localVipSubnetDel(const IntfSubnetPair& key);
  void localVipSubnetDel(LocalVipSubnetIterator& it);
  void localVipSubnetDelAll();

  // Backlog of pairs waiting for a decision, drained by the timer wheel.
  VirtualIpBacklogIterator virtualIpBacklogCollectionIterator() const {
    return backlog_.iterator();
  }
  std::size_t virtualIpBacklogCollectionSize() const { return backlog_.size(); }
  bool virtualIpBacklogCollectionHas(const VirtualIpBacklogKey& key) const {
    return backlog_.contains(key);
  }
  void newVirtualIpBacklogCollection(const VirtualIpBacklogKey& key, bool value);
  void virtualIpBacklogCollectionIs(const VirtualIpBacklogKey& key, bool value);
  void virtualIpBacklogCollectionDel(const VirtualIpBacklogKey& key);
  void virtualIpBacklogCollectionDel(VirtualIpBacklogIterator& it);
  void virtualIpBacklogCollectionDelAll();
  // When the oldest entry was first queued (loop clock); +infinity when the
  // backlog is empty. Kept beside the backlog, whose values stay plain flags.
  double virtualIpBacklogOldestQueuedAt() const;
  // Returns the existing wheel if there is one.
  Kiv::Ptr<const Oru::TimerWheel> virtualIpTimerWheelIs(
      const Kiv::Ptr<Kiv::ActivityConfig>& config, const Kiv::Ptr<const Kiv::Clock>& clock,
      unsigned tickMsecs, unsigned initialMaxTicks, bool preserveOrder, unsigned defaultBucketSize);
  void virtualIpTimerWheelDel();
  Kiv::Ptr<const Oru::TimerWheel> virtualIpTimerWheel() const;

  double maxProcessTime() const { return maxProcessTime_; }
  void maxProcessTimeIs(double seconds) { maxProcessTime_ = seconds; }
  std::uint32_t codefCounter() const { return codefCounter_; }
  void codefCounterInc(std::uint32_t n) { codefCounter_ += n; }
  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }

  // Switches every reactor's notifications.
  void hasNotificationActiveIs(bool active);
  bool hasNotificationActive() const { return notificationActive_; }
  // Marks every reactor as dying, then the state machine for deletion.
  void kivDoZombieReactors(bool zombie);
  bool isZombie() const { return zombie_; }

  // Start-up.
  void handleInitialized();
  void purgeMangleTables();

  // Input handlers.
  void handleVirtualIp(const VrfIpWithMaskPair& key);
  void handleVirtualIp();
  void handleVirtualIp6(const VrfIpPair& key);
  void handleVirtualIp6();
  void handleLumoVirtualMac();
  void handleVrfStatus(L3::VrfName vrfName);
  bool doesNetNsExistsForVrf(L3::VrfName vrfName);
  // doesNetNsExistsForVrf's answer, without its trace.
  bool netNsUsable(const L3::VrfName& vrfName) const;

  // Backlog pacing: queue a pair; drain one slice of at most maxProcessTime.
  void doWriteToBacklog(const VrfIpWithMaskPair& vrfIpWithMask, Dravo::IntfId intfId);
  void handleVirtualIpTimerWheel();
  // Decide one pair from the inputs as they stand now, and act.
  void doHandleBacklogIp(const VrfIpWithMaskPair& vrfIpWithMask, Dravo::IntfId intfId);
  void doHandleBacklogIp6(const VrfIpPair& vrfIp, Dravo::IntfId intfId);

  // Workers for one virtual IP on one interface. Adding records the
  // interface with its device name; deleting uses only what the record holds.
  void doAddVirtualIpForIntfId(const VrfIpWithMaskPair& vrfIpWithMask, Dravo::IntfId intfId);
  void doDeleteVirtualIpForIntfId(const VrfIpPair& vrfIp, Dravo::IntfId intfId);
  void doAddVirtualIp6ForIntfId(const VrfIpPair& vrfIp, Dravo::IntfId intfId);
  void doDeleteVirtualIp6ForIntfId(const VrfIpPair& vrfIp, Dravo::IntfId intfId);
  // Virtual-router subnets: one arptables rule per (interface, subnet).
  void doAddVirtualIpSubnet(const VrfIpWithMaskPair& vrfIpWithMask,
                            const IntfSubnetPair& intfSubnet);
  void doDeleteVirtualIpSubnet(const Dravo::IpGenAddr& ip, const IntfSubnetPair& intfSubnet);

  // Packet-filter rules of one virtual IP (or subnet) on one device.
  void addIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev);
  void dropIptablesRules(Dravo::NamespaceName ns, Dravo::IpAddr ip, Kiv::String8 dev);
  void addIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev);
  void dropIp6tablesRules(Dravo::NamespaceName ns, const Dravo::Ip6Addr& ip, Kiv::String8 dev);
  void addArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                        const Dravo::IpGenAddr& srcIp, Kiv::String8 dev, const Dravo::EthAddr& mac);
  void dropArptablesRule(Dravo::NamespaceName ns, const Dravo::IpGenPrefix& subnet,
                         const Dravo::IpGenAddr& srcIp, Kiv::String8 dev,
                         const Dravo::EthAddr& mac);

 protected:
  ~VirtualIpArpTablesSm() override;

 private:
  template <class Key>
  friend class KivVipStatusT;
  template <class Key>
  friend class KivVipIntfStatusT;

  // The IPv4 and IPv6 paths share their reactor plumbing; these overloads
  // pick the family's collection and handlers.
  VirtualIpIntfStatusMap& intfReactors(const VrfIpWithMaskPair*) { return virtualIpIntfStatus_; }
  VirtualIp6IntfStatusMap& intfReactors(const VrfIpPair*) { return virtualIp6IntfStatus_; }
  void handleVirtualIpOf(const VrfIpWithMaskPair& key) { handleVirtualIp(key); }
  void handleVirtualIpOf(const VrfIpPair& key) { handleVirtualIp6(key); }
  void handleSweepOf(const VrfIpWithMaskPair*) { handleVirtualIp(); }
  void handleSweepOf(const VrfIpPair*) { handleVirtualIp6(); }
  template <class Key>
  KivVipIntfStatusT<Key>* doIntfReactorIs(const Kiv::Ptr<const VirtualIpIntfStatusT<Key>>& input);
  template <class Key>
  void doIntfReactorDel(const Key& key);
  template <class Key>
  void doIntfReactorUpkeep(const Kiv::Ptr<const VirtualIpStatusT<Key>>& input);
  template <class F>
  void forEachReactor(F&& f);
  // The namespace carried by a virtual IP's input entry, through its reactor.
  Dravo::NamespaceName inputNetNs(const VrfIpWithMaskPair& key) const;
  Dravo::NamespaceName inputNetNs(const VrfIpPair& key) const;
  // The shared steps of the IPv4 and IPv6 workers and decisions.
  // `function` names the worker in trace records.
  template <class Key>
  void doAddVipIntf(const char* function, const Key& key, const VrfIpPair& vrfIp,
                    Dravo::IntfId intfId, const Kiv::String8& shownAddr);
  void doDeleteVipIntf(const char* function, const VrfIpPair& vrfIp, Dravo::IntfId intfId);

  std::unique_ptr<KivVirtualIpStatus> virtualIpStatus_;
  std::unique_ptr<KivVirtualIp6Status> virtualIp6Status_;
  std::unique_ptr<KivVirtualRouterMacStatus> virtualRouterMacStatus_;
  Kiv::Ptr<const Interface::AllIntfStatusDir> allIntf_;
  std::unique_ptr<KivAllVrfStatusLocal> allVrfStatusLocal_;
  VirtualIpIntfStatusMap virtualIpIntfStatus_;
  VirtualIp6IntfStatusMap virtualIp6IntfStatus_;
  LocalVipMap localVip_;
  LocalVipSubnetMap localVipSubnet_;
  std::unique_ptr<KivVirtualIpTimerWheel> virtualIpTimerWheel_;
  VirtualIpBacklogMap backlog_;
  Kiv::HashMap<VirtualIpBacklogKey, double> backlogQueuedAt_;  // in step with backlog_
  double maxProcessTime_ = defaultMaxProcessTime;
  std::uint32_t codefCounter_ = 0;
  bool initialized_ = false;
  bool notificationActive_ = false;
  bool zombie_ = false;
};

}  // namespace Routing::Fhrp

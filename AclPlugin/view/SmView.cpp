#include "AclPlugin/view/SmView.h"

#include <map>
#include <set>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/CommandRunner.h"
#include "AclPlugin/firewall/IptablesRules.h"

namespace Routing::Fhrp {

namespace {

std::string nsName(const Dravo::NamespaceName& ns) {
  return ns.empty() ? std::string("default") : ns.stringValue().stdString();
}
Dravo::NamespaceName nsOf(const std::string& name) {
  return name == "default" ? Dravo::DEFAULT_NS : Dravo::NamespaceName(name);
}
std::string toolOf(const Dravo::IpGenAddr& a) {
  return a.isV6() ? "ip6tables" : "iptables";
}

// The same test the backlog makes before a decision, without its trace.
bool netNsUsable(const VirtualIpArpTablesSm& sm, const L3::VrfName& vrf) {
  if (vrf == L3::DEFAULT_VRF) return true;
  Kiv::Ptr<const Ip::AllVrfStatusLocal> all = sm.allVrfStatusLocal();
  Kiv::Ptr<const Ip::VrfStatusLocal> entry = all ? all->vrf(vrf) : nullptr;
  return entry && entry->state() != Ip::VrfState::deleting;
}

// One virtual IP as the inputs and the records know it, either family.
struct VipFacts {
  VrfIpWithMaskPair key;  // the backlog's key (IPv6: the full-length mask)
  Dravo::NamespaceName inputNs;
  bool hasInput = false;
  std::map<std::string, const Kiv::String8*> inputIntfs;  // id -> value
};

// Every virtual IP of the inputs, then every record without an input.
std::map<VrfIpPair, VipFacts> vipFacts(const VirtualIpArpTablesSm& sm) {
  std::map<VrfIpPair, VipFacts> out;
  auto take = [&](const VrfIpWithMaskPair& key, const auto& entry) {
    VipFacts& f = out[key.vrfIp()];
    f.key = key;
    f.inputNs = entry->netNs();
    f.hasInput = true;
    for (auto it = entry->intfIdSetIterator(); it; ++it)
      f.inputIntfs[it.key().stringValue().stdString()] = &it.value();
  };
  if (Kiv::Ptr<const VirtualIpStatus> v4 = sm.virtualIpStatus())
    for (auto it = v4->virtualIpIterator(); it; ++it) take(it.key(), it.value());
  if (Kiv::Ptr<const VirtualIp6Status> v6 = sm.virtualIp6Status())
    for (auto it = v6->virtualIpIterator(); it; ++it)
      take(VrfIpWithMaskPair(it.key().vrfName(), Dravo::IpGenAddrWithMask(it.key().ipAddr())),
           it.value());
  for (auto it = sm.localVipIterator(); it; ++it) {
    if (out.contains(it.key())) continue;
    out[it.key()].key =
        VrfIpWithMaskPair(it.key().vrfName(), Dravo::IpGenAddrWithMask(it.key().ipAddr()));
  }
  return out;
}

// The backlog's keys, taken once per view call: looking each pair up by
// walking the backlog made a view of N pairs cost N x backlog (seconds at
// 5,000 queued pairs, with the loop waiting).
std::set<VirtualIpBacklogKey> backlogKeys(const VirtualIpArpTablesSm& sm) {
  std::set<VirtualIpBacklogKey> keys;
  for (auto it = sm.virtualIpBacklogCollectionIterator(); it; ++it) keys.insert(it.key());
  return keys;
}

bool queued(const std::set<VirtualIpBacklogKey>& backlog, const VrfIpWithMaskPair& key,
            const std::string& intf) {
  return backlog.contains(VirtualIpBacklogKey(key, Dravo::IntfId(intf)));
}

std::string currentDev(const VirtualIpArpTablesSm& sm, const std::string& intf) {
  const auto& all = sm.allIntfStatusDir();
  Kiv::Ptr<const Interface::IntfStatus> s = all ? all->intfStatus(Dravo::IntfId(intf)) : nullptr;
  return s ? s->deviceName().stdString() : std::string();
}

}  // namespace

std::vector<Acl::VipView> SmView::virtualIps() const {
  std::vector<Acl::VipView> out;
  const std::set<VirtualIpBacklogKey> backlog = backlogKeys(*sm_);
  for (const auto& [vrfIp, f] : vipFacts(*sm_)) {
    Kiv::Ptr<LocalVipStatus> local = sm_->localVip(vrfIp);
    Acl::VipView v;
    v.vrf = vrfIp.vrfName().stringValue().stdString();
    v.ns = nsName(local ? local->netNs() : f.inputNs);
    v.prefix = vrfIp.ipAddr().isV6() ? vrfIp.ipAddr().stringValue().stdString()
                                     : f.key.ipWithMask().stringValue().stdString();
    std::set<std::string> intfs;
    for (const auto& [id, value] : f.inputIntfs) intfs.insert(id);
    if (local)
      for (auto it = local->intfIdSetIterator(); it; ++it)
        intfs.insert(it.key().stringValue().stdString());
    for (const std::string& id : intfs) {
      Acl::VipIntfView i;
      i.intf = id;
      i.installed = local && local->intfIdSetHas(Dravo::IntfId(id));
      i.dev = i.installed ? local->intfIdSet(Dravo::IntfId(id)).stdString() : currentDev(*sm_, id);
      i.queued = queued(backlog, f.key, id);
      auto in = f.inputIntfs.find(id);
      i.unwanted = in == f.inputIntfs.end() || !in->second->empty();
      v.intfs.push_back(std::move(i));
    }
    out.push_back(std::move(v));
  }
  return out;
}

std::vector<Acl::SubnetView> SmView::subnets() const {
  std::vector<Acl::SubnetView> out;
  for (auto it = sm_->localVipSubnetIterator(); it; ++it) {
    const LocalVipSubnetStatus& r = *it.value();
    out.push_back({r.intfSubnet().intfId().stringValue().stdString(),
                   r.intfSubnet().subnet().stringValue().stdString(), r.intfDevName().stdString(),
                   r.vrfName().stringValue().stdString(), nsName(r.netNs()),
                   r.srcIp().stringValue().stdString(), r.vmac().stringValue().stdString()});
  }
  return out;
}

Acl::BacklogView SmView::backlog() const {
  Acl::BacklogView b;
  b.size = sm_->virtualIpBacklogCollectionSize();
  if (b.size > 0) b.oldestAge = Kiv::now() - sm_->virtualIpBacklogOldestQueuedAt();
  b.overruns = sm_->codefCounter();
  return b;
}

std::vector<Acl::ExpectedPair> SmView::expectedPairs() const {
  std::vector<Acl::ExpectedPair> out;
  const std::set<VirtualIpBacklogKey> backlog = backlogKeys(*sm_);
  for (const auto& [vrfIp, f] : vipFacts(*sm_)) {
    Kiv::Ptr<LocalVipStatus> local = sm_->localVip(vrfIp);
    const bool usable = netNsUsable(*sm_, vrfIp.vrfName());
    std::set<std::string> intfs;
    for (const auto& [id, value] : f.inputIntfs)
      if (value->empty() && usable) intfs.insert(id);
    if (local)
      for (auto it = local->intfIdSetIterator(); it; ++it)
        intfs.insert(it.key().stringValue().stdString());
    for (const std::string& id : intfs) {
      Acl::ExpectedPair p;
      p.tool = toolOf(vrfIp.ipAddr());
      const bool recorded = local && local->intfIdSetHas(Dravo::IntfId(id));
      // What is installed follows the record; what is still to come, the inputs.
      p.ns = nsName(recorded ? local->netNs() : f.inputNs);
      p.dev = recorded ? local->intfIdSet(Dravo::IntfId(id)).stdString() : currentDev(*sm_, id);
      if (p.dev.empty()) continue;  // no such interface: the add would skip it too
      p.address = vrfIp.ipAddr().stringValue().stdString();
      p.vrf = vrfIp.vrfName().stringValue().stdString();
      p.prefix = f.key.ipWithMask().stringValue().stdString();
      p.intf = id;
      p.queued = queued(backlog, f.key, id);
      out.push_back(std::move(p));
    }
  }
  return out;
}

std::vector<Acl::RuleView> SmView::expectedArpRules() const {
  std::vector<Acl::RuleView> out;
  for (const Acl::SubnetView& s : subnets())
    out.push_back({"arptables", s.ns, "", "", s.dev, s.subnet, s.srcIp, s.mac});
  return out;
}

bool SmView::pairQueueIs(const Acl::ExpectedPair& pair) {
  const VrfIpWithMaskPair key(L3::VrfName(std::string_view(pair.vrf)),
                              Dravo::IpGenAddrWithMask(pair.prefix));
  const Dravo::IntfId intf(pair.intf);
  Kiv::Ptr<LocalVipStatus> local = sm_->localVip(key.vrfIp());
  const bool known = (local && local->intfIdSetHas(intf)) || vipFacts(*sm_).contains(key.vrfIp());
  if (!known) return false;
  sm_->doWriteToBacklog(key, intf);
  return true;
}

void SmView::arpRuleIs(const Acl::RuleView& r) {
  Firewall::addArptablesRule(nsOf(r.ns), Dravo::IpGenPrefix(r.subnet), Dravo::IpGenAddr(r.srcIp),
                             Kiv::String8(r.dev), Dravo::EthAddr(r.mac));
}

int SmView::ruleDel(const Acl::RuleView& r) {
  Kiv::String8 line;
  if (r.tool == "arptables")
    line = Firewall::arptablesRuleLine(nsOf(r.ns), Firewall::Verb::drop,
                                       Dravo::IpGenPrefix(r.subnet), Dravo::IpGenAddr(r.srcIp),
                                       Kiv::String8(r.dev), Dravo::EthAddr(r.mac));
  else
    line = Firewall::iptablesRuleLine(
        nsOf(r.ns), r.tool == "ip6tables" ? Firewall::Family::v6 : Firewall::Family::v4,
        Firewall::Verb::drop,
        r.target == "ACCEPT" ? Firewall::Target::accept : Firewall::Target::drop,
        Kiv::String8(r.address), Kiv::String8(r.dev));
  return runBashCmd(line.charPtr());
}

}  // namespace Routing::Fhrp

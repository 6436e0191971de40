#include "AclPlugin/view/SmView.h"

#include <algorithm>
#include <set>

#include "AclPlugin/firewall/ArptablesRules.h"
#include "AclPlugin/firewall/IptablesRules.h"
#include "AclPlugin/firewall/RuleListing.h"

namespace Routing::Fhrp {

namespace {

std::string nsName(const Dravo::NamespaceName& ns) {
  return ns.empty() ? std::string("default") : ns.stringValue().stdString();
}
std::string toolOf(const Dravo::IpGenAddr& a) {
  return a.isV6() ? "ip6tables" : "iptables";
}

// One virtual IP as the inputs and the records know it, either family.
struct VipFacts {
  VrfIpPair vrfIp;
  VrfIpWithMaskPair key;  // the backlog's key (IPv6: the full-length mask)
  Dravo::NamespaceName inputNs;
  std::vector<std::pair<std::string, const Kiv::String8*>> inputIntfs;  // id -> value
};

// Every virtual IP of the inputs, then every record without an input, in
// the order of their VRF and address. One pass each: status and verify
// stay linear in the number of virtual IPs.
std::vector<VipFacts> vipFacts(const VirtualIpArpTablesSm& sm) {
  std::vector<VipFacts> out;
  Kiv::HashMap<VrfIpPair, bool> seen;
  auto take = [&](const VrfIpWithMaskPair& key, const auto& entry) {
    if (!seen.insert(key.vrfIp(), true).second) return;
    VipFacts f{key.vrfIp(), key, entry->netNs(), {}};
    for (auto it = entry->intfIdSetIterator(); it; ++it)
      f.inputIntfs.emplace_back(it.key().stringValue().stdString(), &it.value());
    out.push_back(std::move(f));
  };
  if (Kiv::Ptr<const VirtualIpStatus> v4 = sm.virtualIpStatus())
    for (auto it = v4->virtualIpIterator(); it; ++it) take(it.key(), it.value());
  if (Kiv::Ptr<const VirtualIp6Status> v6 = sm.virtualIp6Status())
    for (auto it = v6->virtualIpIterator(); it; ++it)
      take(VrfIpWithMaskPair(it.key().vrfName(), Dravo::IpGenAddrWithMask(it.key().ipAddr())),
           it.value());
  for (auto it = sm.localVipIterator(); it; ++it)
    if (!seen.contains(it.key()))
      out.push_back(
          {it.key(),
           VrfIpWithMaskPair(it.key().vrfName(), Dravo::IpGenAddrWithMask(it.key().ipAddr())),
           {},
           {}});
  std::sort(out.begin(), out.end(),
            [](const VipFacts& a, const VipFacts& b) { return a.vrfIp < b.vrfIp; });
  return out;
}

// The interfaces of a virtual IP: its input's and its record's, sorted.
std::vector<std::string> intfsOf(const VipFacts& f, const LocalVipStatus* local, bool inputs,
                                 bool unwantedToo) {
  std::vector<std::string> out;
  if (inputs)
    for (const auto& [id, value] : f.inputIntfs)
      if (unwantedToo || value->empty()) out.push_back(id);
  if (local)
    for (auto it = local->intfIdSetIterator(); it; ++it)
      out.push_back(it.key().stringValue().stdString());
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

bool queued(const VirtualIpArpTablesSm& sm, const VrfIpWithMaskPair& key, const std::string& intf) {
  return sm.virtualIpBacklogCollectionHas(VirtualIpBacklogKey(key, Dravo::IntfId(intf)));
}

bool hasInput(const VirtualIpArpTablesSm& sm, const VrfIpWithMaskPair& key) {
  if (key.ipWithMask().address().isV6()) {
    Kiv::Ptr<const VirtualIp6Status> v6 = sm.virtualIp6Status();
    return v6 && v6->virtualIp(key.vrfIp());
  }
  Kiv::Ptr<const VirtualIpStatus> v4 = sm.virtualIpStatus();
  return v4 && v4->virtualIp(key);
}

Kiv::String8 arpLine(const LocalVipSubnetStatus& r, Firewall::Verb verb) {
  return Firewall::arptablesRuleLine(r.netNs(), verb, r.intfSubnet().subnet(), r.srcIp(),
                                     r.intfDevName(), r.vmac());
}

std::string currentDev(const VirtualIpArpTablesSm& sm, const std::string& intf) {
  const auto& all = sm.allIntfStatusDir();
  Kiv::Ptr<const Interface::IntfStatus> s = all ? all->intfStatus(Dravo::IntfId(intf)) : nullptr;
  return s ? s->deviceName().stdString() : std::string();
}

}  // namespace

std::vector<Acl::VipView> SmView::virtualIps() const {
  std::vector<Acl::VipView> out;
  for (const VipFacts& f : vipFacts(*sm_)) {
    const VrfIpPair& vrfIp = f.vrfIp;
    Kiv::Ptr<LocalVipStatus> local = sm_->localVip(vrfIp);
    Acl::VipView v;
    v.vrf = vrfIp.vrfName().stringValue().stdString();
    v.ns = nsName(local ? local->netNs() : f.inputNs);
    v.prefix = vrfIp.ipAddr().isV6() ? vrfIp.ipAddr().stringValue().stdString()
                                     : f.key.ipWithMask().stringValue().stdString();
    for (const std::string& id : intfsOf(f, local.ptr(), true, true)) {
      Acl::VipIntfView i;
      i.intf = id;
      i.installed = local && local->intfIdSetHas(Dravo::IntfId(id));
      i.dev = i.installed ? local->intfIdSet(Dravo::IntfId(id)).stdString() : currentDev(*sm_, id);
      i.queued = queued(*sm_, f.key, id);
      auto in = std::find_if(f.inputIntfs.begin(), f.inputIntfs.end(),
                             [&](const auto& x) { return x.first == id; });
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

Acl::Expected SmView::expected() const {
  Acl::Expected out;
  std::set<std::string> namespaces = {"default"};
  if (Kiv::Ptr<const Ip::AllVrfStatusLocal> vrfs = sm_->allVrfStatusLocal())
    for (auto it = vrfs->vrfIterator(); it; ++it)
      if (it.value()->state() == Ip::VrfState::active)
        namespaces.insert(nsName(it.value()->netNs()));
  for (const VipFacts& f : vipFacts(*sm_)) {
    const VrfIpPair& vrfIp = f.vrfIp;
    Kiv::Ptr<LocalVipStatus> local = sm_->localVip(vrfIp);
    const bool usable = sm_->netNsUsable(vrfIp.vrfName());
    const auto family = vrfIp.ipAddr().isV6() ? Firewall::Family::v6 : Firewall::Family::v4;
    const Kiv::String8 address = vrfIp.ipAddr().stringValue();
    for (const std::string& id : intfsOf(f, local.ptr(), usable, false)) {
      Acl::ExpectedPair p;
      p.installed = local && local->intfIdSetHas(Dravo::IntfId(id));
      // What is installed follows the record; what is still to come, the inputs.
      const Dravo::NamespaceName ns = p.installed ? local->netNs() : f.inputNs;
      p.ns = nsName(ns);
      p.dev = p.installed ? local->intfIdSet(Dravo::IntfId(id)).stdString() : currentDev(*sm_, id);
      if (p.dev.empty()) continue;  // no such interface: the add would skip it too
      p.vrf = vrfIp.vrfName().stringValue().stdString();
      p.prefix = f.key.ipWithMask().stringValue().stdString();
      p.intf = id;
      p.queued = queued(*sm_, f.key, id);
      const int index = int(out.pairs.size());
      for (Firewall::Target t : {Firewall::Target::accept, Firewall::Target::drop}) {
        const Kiv::String8 dev(p.dev);
        Acl::ExpectedRule r;
        r.tool = toolOf(vrfIp.ipAddr());
        r.ns = p.ns;
        r.key = Firewall::ruleKeyOfLine(
            Firewall::iptablesRuleLine(ns, family, Firewall::Verb::add, t, address, dev).view());
        r.deleteLine = Firewall::iptablesRuleLine(ns, family, Firewall::Verb::drop, t, address, dev)
                           .stdString();
        r.pair = index;
        r.first = t == Firewall::Target::accept;
        out.rules.push_back(std::move(r));
      }
      namespaces.insert(p.ns);
      out.pairs.push_back(std::move(p));
    }
  }
  for (auto it = sm_->localVipSubnetIterator(); it; ++it) {
    const LocalVipSubnetStatus& rec = *it.value();
    Acl::ExpectedRule r;
    r.tool = "arptables";
    r.ns = nsName(rec.netNs());
    r.key = Firewall::ruleKeyOfLine(arpLine(rec, Firewall::Verb::add).view());
    r.deleteLine = arpLine(rec, Firewall::Verb::drop).stdString();
    namespaces.insert(r.ns);
    out.rules.push_back(std::move(r));
  }
  out.namespaces.assign(namespaces.begin(), namespaces.end());
  return out;
}

std::vector<std::string> SmView::tools() const {
  return {"iptables", "ip6tables", "arptables"};
}

std::vector<std::string> SmView::listingArgv(const std::string& tool) const {
  return Firewall::listingArgv(tool);
}

std::vector<Acl::ListedRule> SmView::listedRules(const std::string& tool,
                                                 const std::string& listing) const {
  return Firewall::listedRules(tool, listing);
}

bool SmView::pairQueueIs(const Acl::ExpectedPair& pair) {
  const VrfIpWithMaskPair key(L3::VrfName(std::string_view(pair.vrf)),
                              Dravo::IpGenAddrWithMask(pair.prefix));
  const Dravo::IntfId intf(pair.intf);
  Kiv::Ptr<LocalVipStatus> local = sm_->localVip(key.vrfIp());
  if (!(local && local->intfIdSetHas(intf)) && !hasInput(*sm_, key)) return false;
  sm_->doWriteToBacklog(key, intf);
  return true;
}

bool SmView::ruleIs(const Acl::ExpectedRule& rule) {
  for (auto it = sm_->localVipSubnetIterator(); it; ++it) {
    const LocalVipSubnetStatus& r = *it.value();
    if (nsName(r.netNs()) != rule.ns ||
        Firewall::ruleKeyOfLine(arpLine(r, Firewall::Verb::add).view()) != rule.key)
      continue;
    Firewall::addArptablesRule(r.netNs(), r.intfSubnet().subnet(), r.srcIp(), r.intfDevName(),
                               r.vmac());
    return true;
  }
  return false;
}

}  // namespace Routing::Fhrp

#include "AclPlugin/view/SmView.h"

#include <algorithm>
#include <iterator>
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

using IntfIdSetIterator = Kiv::HashMap<Dravo::IntfId, Kiv::String8>::Iterator;

// One virtual IP as the inputs and the records know it, either family.
struct VipFacts {
  VrfIpPair vrfIp;
  const VirtualIpIntfStatus* input4 = nullptr;
  const VirtualIp6IntfStatus* input6 = nullptr;
  const LocalVipStatus* local = nullptr;  // its record

  const Dravo::NamespaceName& inputNs() const {
    static const Dravo::NamespaceName none;
    return input4 ? input4->netNs() : input6 ? input6->netNs() : none;
  }
  // The address as the backlog keys it (IPv6: with the full-length mask).
  Dravo::IpGenAddrWithMask ipWithMask() const {
    return input4 ? input4->key().ipWithMask() : Dravo::IpGenAddrWithMask(vrfIp.ipAddr());
  }
  VrfIpWithMaskPair key() const { return VrfIpWithMaskPair(vrfIp.vrfName(), ipWithMask()); }
  IntfIdSetIterator inputIntfs() const {
    return input4   ? input4->intfIdSetIterator()
           : input6 ? input6->intfIdSetIterator()
                    : IntfIdSetIterator();
  }
};

// Every virtual IP of the inputs and of the records, once, in the order of
// their VRF and address. Both sides are sorted and merged rather than looked
// up in each other: random lookups cost cache misses that grew faster than
// the number of virtual IPs.
std::vector<VipFacts> vipFacts(const VirtualIpArpTablesSm& sm) {
  std::vector<VipFacts> inputs;
  Kiv::Ptr<const VirtualIpStatus> v4 = sm.virtualIpStatus();
  Kiv::Ptr<const VirtualIp6Status> v6 = sm.virtualIp6Status();
  inputs.reserve((v4 ? v4->virtualIpSize() : 0) + (v6 ? v6->virtualIpSize() : 0));
  if (v4)
    for (auto it = v4->virtualIpIterator(); it; ++it)
      inputs.push_back({it.key().vrfIp(), it.value().ptr(), nullptr, nullptr});
  if (v6)
    for (auto it = v6->virtualIpIterator(); it; ++it)
      inputs.push_back({it.key(), nullptr, it.value().ptr(), nullptr});
  const auto byVrfIp = [](const VipFacts& a, const VipFacts& b) { return a.vrfIp < b.vrfIp; };
  // One address under two masks: the first one walked stands.
  std::stable_sort(inputs.begin(), inputs.end(), byVrfIp);
  inputs.erase(std::unique(inputs.begin(), inputs.end(),
                           [](const VipFacts& a, const VipFacts& b) { return a.vrfIp == b.vrfIp; }),
               inputs.end());

  std::vector<VipFacts> records;
  for (auto it = sm.localVipIterator(); it; ++it)
    records.push_back({it.key(), nullptr, nullptr, it.value().ptr()});
  std::sort(records.begin(), records.end(), byVrfIp);

  std::vector<VipFacts> out;
  out.reserve(inputs.size() + records.size());
  auto record = records.begin();
  for (VipFacts& f : inputs) {
    while (record != records.end() && record->vrfIp < f.vrfIp) out.push_back(std::move(*record++));
    if (record != records.end() && record->vrfIp == f.vrfIp) f.local = (record++)->local;
    out.push_back(std::move(f));
  }
  std::move(record, records.end(), std::back_inserter(out));
  return out;
}

// An interface of a virtual IP, from its input, its record or both.
struct IntfFacts {
  const Dravo::IntfId* id;
  const Kiv::String8* value = nullptr;      // the input's; null: not in the input
  const Kiv::String8* installed = nullptr;  // the record's device; null: not recorded
};

// The interfaces of `f`, sorted, into `out`: a buffer the caller reuses from
// one virtual IP to the next.
void intfFacts(const VipFacts& f, std::vector<IntfFacts>& out) {
  out.clear();
  for (auto it = f.inputIntfs(); it; ++it) out.push_back({&it.key(), &it.value(), nullptr});
  if (f.local)
    for (auto it = f.local->intfIdSetIterator(); it; ++it)
      out.push_back({&it.key(), nullptr, &it.value()});
  std::sort(out.begin(), out.end(),
            [](const IntfFacts& a, const IntfFacts& b) { return *a.id < *b.id; });
  std::size_t n = 0;
  for (const IntfFacts& x : out) {
    if (n > 0 && *out[n - 1].id == *x.id) {
      if (x.installed) out[n - 1].installed = x.installed;
      if (x.value) out[n - 1].value = x.value;
    } else {
      out[n++] = x;
    }
  }
  out.resize(n);
}

bool queued(const VirtualIpArpTablesSm& sm, const VipFacts& f, const Dravo::IntfId& intf) {
  return sm.virtualIpBacklogCollectionSize() > 0 &&
         sm.virtualIpBacklogCollectionHas(VirtualIpBacklogKey(f.key(), intf));
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

std::string currentDev(const VirtualIpArpTablesSm& sm, const Dravo::IntfId& intf) {
  const auto& all = sm.allIntfStatusDir();
  Kiv::Ptr<const Interface::IntfStatus> s = all ? all->intfStatus(intf) : nullptr;
  return s ? s->deviceName().stdString() : std::string();
}

}  // namespace

std::vector<Acl::VipView> SmView::virtualIps() const {
  const std::vector<VipFacts> all = vipFacts(*sm_);
  std::vector<Acl::VipView> out;
  out.reserve(all.size());
  std::vector<IntfFacts> intfs;
  for (const VipFacts& f : all) {
    Acl::VipView& v = out.emplace_back();
    v.vrf = f.vrfIp.vrfName().stringValue().stdString();
    v.ns = nsName(f.local ? f.local->netNs() : f.inputNs());
    v.prefix = f.vrfIp.ipAddr().isV6() ? f.vrfIp.ipAddr().stringValue().stdString()
                                       : f.ipWithMask().stringValue().stdString();
    intfFacts(f, intfs);
    v.intfs.reserve(intfs.size());
    for (const IntfFacts& x : intfs) {
      Acl::VipIntfView& i = v.intfs.emplace_back();
      i.intf = x.id->stringValue().stdString();
      i.installed = x.installed != nullptr;
      i.dev = x.installed ? x.installed->stdString() : currentDev(*sm_, *x.id);
      i.queued = queued(*sm_, f, *x.id);
      i.unwanted = !x.value || !x.value->empty();
    }
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
  std::vector<IntfFacts> intfs;
  for (const VipFacts& f : vipFacts(*sm_)) {
    const VrfIpPair& vrfIp = f.vrfIp;
    const bool usable = sm_->netNsUsable(vrfIp.vrfName());
    const auto family = vrfIp.ipAddr().isV6() ? Firewall::Family::v6 : Firewall::Family::v4;
    const Kiv::String8 address = vrfIp.ipAddr().stringValue();
    intfFacts(f, intfs);
    for (const IntfFacts& x : intfs) {
      // Every recorded pair; of the inputs, the wanted ones where they can go.
      if (!x.installed && !(usable && x.value && x.value->empty())) continue;
      Acl::ExpectedPair p;
      p.installed = x.installed != nullptr;
      // What is installed follows the record; what is still to come, the inputs.
      const Dravo::NamespaceName& ns = p.installed ? f.local->netNs() : f.inputNs();
      p.ns = nsName(ns);
      p.dev = p.installed ? x.installed->stdString() : currentDev(*sm_, *x.id);
      if (p.dev.empty()) continue;  // no such interface: the add would skip it too
      p.vrf = vrfIp.vrfName().stringValue().stdString();
      p.prefix = f.ipWithMask().stringValue().stdString();
      p.intf = x.id->stringValue().stdString();
      p.queued = queued(*sm_, f, *x.id);
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

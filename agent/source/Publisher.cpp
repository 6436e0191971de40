#include "agent/source/Publisher.h"

namespace Agent {

namespace {

// Calls f(key, value) for each entry of `to` that `from` lacks or holds
// with another value.
template <class Map, class F>
void forEachChanged(const Map& from, const Map& to, F f) {
  for (const auto& [key, value] : to) {
    auto it = from.find(key);
    if (it == from.end() || !(it->second == value)) f(key, value);
  }
}

// Calls f(key) for each key of `from` that `to` lacks.
template <class Map, class F>
void forEachRemoved(const Map& from, const Map& to, F f) {
  for (const auto& [key, value] : from)
    if (!to.contains(key)) f(key);
}

// Steps 4 and 5 of the order for one family; returns the mutations made.
template <class Status, class Key>
std::size_t publishVipRemovals(Status& status, const std::map<Key, VipEntry>& from,
                               const std::map<Key, VipEntry>& to) {
  std::size_t n = 0;
  forEachRemoved(from, to, [&](const Key& key) {
    status.virtualIpDel(key);
    ++n;
  });
  return n;
}

template <class Status, class Key>
std::size_t publishVipChanges(Status& status, const std::map<Key, VipEntry>& from,
                              const std::map<Key, VipEntry>& to) {
  std::size_t n = 0;
  forEachChanged(from, to, [&](const Key& key, const VipEntry& next) {
    auto found = from.find(key);
    const VipEntry old = found == from.end() ? VipEntry() : found->second;
    n += found == from.end() || old.netNs != next.netNs;
    auto entry = status.virtualIpIs(key, next.netNs);
    forEachRemoved(old.interfaces, next.interfaces, [&](const Dravo::IntfId& id) {
      entry->intfIdSetDel(id);
      ++n;
    });
    forEachChanged(old.interfaces, next.interfaces,
                   [&](const Dravo::IntfId& id, const Kiv::String8& value) {
                     entry->intfIdSetIs(id, value);
                     ++n;
                   });
  });
  return n;
}

// Drops from `vips` each entry that `next` lacks (an IPv4 key with another
// mask is another key) or places in another namespace.
template <class Key>
void withdrawFrom(std::map<Key, VipEntry>& vips, const std::map<Key, VipEntry>& next) {
  std::erase_if(vips, [&](const auto& entry) {
    auto it = next.find(entry.first);
    return it == next.end() || it->second.netNs != entry.second.netNs;
  });
}

}  // namespace

std::optional<StateDocument> reloadPhaseOne(const StateDocument& current,
                                            const StateDocument& next) {
  StateDocument first = current;
  withdrawFrom(first.virtualIps, next.virtualIps);
  withdrawFrom(first.virtualIps6, next.virtualIps6);
  if (first.virtualIps.size() == current.virtualIps.size() &&
      first.virtualIps6.size() == current.virtualIps6.size())
    return std::nullopt;
  return first;
}

Publisher::Publisher(Kiv::Ptr<Mirel::EntityManager> em)
    : vip_(new Routing::Fhrp::VirtualIpStatus("virtualIpStatus")),
      vip6_(new Routing::Fhrp::VirtualIp6Status("virtualIp6Status")),
      mac_(new Routing::Fhrp::VirtualRouterMacStatus("vrMacStatus")),
      intf_(new Interface::AllIntfStatusDir("allIntfStatusDir")),
      vrf_(new Ip::AllVrfStatusLocal("allVrfStatusLocal")) {
  em->entityIs("routing/fhrp/virtualIpStatus", vip_);
  em->entityIs("routing6/fhrp/virtualIpStatus", vip6_);
  em->entityIs("routing/fhrp/vrMacStatus", mac_);
  em->entityIs("interface/status/all", intf_);
  em->entityIs(Cell::path("ip/vrf/status/local", 0), vrf_);
}

std::size_t Publisher::publish(const StateDocument& next) {
  const StateDocument& cur = current_;
  std::size_t n = 0;
  forEachChanged(cur.interfaces, next.interfaces,
                 [&](const Dravo::IntfId& id, const Kiv::String8& device) {
                   intf_->intfStatusIs(id, device);
                   ++n;
                 });
  forEachChanged(cur.vrfs, next.vrfs, [&](const L3::VrfName& name, const VrfEntry& v) {
    vrf_->vrfIs(name, v.state, v.netNs);
    ++n;
  });
  if (cur.lumoMac != next.lumoMac) {
    mac_->lumoVirtualMacIs(next.lumoMac);
    ++n;
  }
  if (cur.vrrpMac != next.vrrpMac) {
    mac_->vrrpVirtualMacIs(next.vrrpMac);
    ++n;
  }
  n += publishVipRemovals(*vip_, cur.virtualIps, next.virtualIps);
  n += publishVipRemovals(*vip6_, cur.virtualIps6, next.virtualIps6);
  n += publishVipChanges(*vip_, cur.virtualIps, next.virtualIps);
  n += publishVipChanges(*vip6_, cur.virtualIps6, next.virtualIps6);
  forEachRemoved(cur.vrfs, next.vrfs, [&](const L3::VrfName& name) {
    vrf_->vrfDel(name);
    ++n;
  });
  forEachRemoved(cur.interfaces, next.interfaces, [&](const Dravo::IntfId& id) {
    intf_->intfStatusDel(id);
    ++n;
  });
  current_ = next;
  return n;
}

}  // namespace Agent

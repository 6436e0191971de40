#include "agent/source/redis/RedisRows.h"

#include <initializer_list>
#include <optional>
#include <type_traits>
#include <vector>

#include "agent/source/EntryChecks.h"

namespace Agent::Redis {

namespace {

using Checks::inQuotes;
using Checks::refuse;

std::vector<std::string> parts(std::string_view key) {
  std::vector<std::string> out;
  for (std::size_t at = 0;;) {
    const std::size_t bar = key.find('|', at);
    out.emplace_back(key.substr(at, bar - at));
    if (bar == std::string_view::npos) return out;
    at = bar + 1;
  }
}

const char* const kShapes[] = {"VRF|<vrf>",
                               "INTERFACE|<intfId>",
                               "VIRTUAL_ROUTER_MAC|GLOBAL",
                               "VIRTUAL_IP|<vrf>|<a.b.c.d/len>|<intfId>",
                               "VIRTUAL_IP6|<vrf>|<ipv6>|<intfId>",
                               "ACL_AGENT_INPUT|READY"};

// The fields of a row, each known, the NULL placeholder left out.
std::map<std::string, std::string> fields(const Row& row,
                                          std::initializer_list<std::string_view> known) {
  if (!row.hash) refuse("", "not a hash");
  std::map<std::string, std::string> out;
  for (const auto& [name, value] : row.fields) {
    if (name == "NULL" && value == "NULL") continue;
    bool ok = false;
    for (std::string_view k : known) ok = ok || k == name;
    if (!ok) refuse("", "unknown field " + inQuotes(name));
    out[name] = value;
  }
  return out;
}

std::string at(const char* field) {
  return std::string("field ") + field;
}

// One row of a virtual IP, checked on its own.
template <class Key>
struct VipRow {
  std::string rowKey;
  Key key;
  Dravo::IntfId intf;
  std::optional<Dravo::NamespaceName> netNs;
  std::string value;
};

class Builder {
 public:
  Builder(const Rows& rows, const StateDocument& inForce) : rows_(rows), inForce_(inForce) {}

  RowModel build() {
    // What virtual IPs refer to first.
    // (Pairs, not bindings: clang 14, which builds the fuzz targets, cannot
    // capture a structured binding.)
    for (const auto& kv : rows_) take(kv.first, [&] { plain(kv.first, kv.second); });
    for (const auto& kv : rows_) take(kv.first, [&] { vip(kv.first, kv.second); });
    settle(vips4_, out_.model.virtualIps, [](const auto& k) { return k.vrfIp(); });
    settle(vips6_, out_.model.virtualIps6, [](const auto& k) { return k; });
    return std::move(out_);
  }

 private:
  template <class F>
  void take(const std::string& key, F f) {
    try {
      f();
    } catch (const StateDocumentError& e) {
      out_.refused[key] = e.what();
    }
  }

  void plain(const std::string& key, const Row& row) {
    const std::vector<std::string> p = parts(key);
    if (p[0] == "INTERFACE" && p.size() == 2) {
      const Dravo::IntfId id = Checks::intfId(p[1], "");
      auto f = fields(row, {"device"});
      if (!f.contains("device")) refuse(at("device"), "required field missing");
      out_.model.interfaces[id] = Checks::deviceName(f["device"], at("device"));
    } else if (p[0] == "VRF" && p.size() == 2) {
      const L3::VrfName vrf = Checks::vrfName(p[1], "");
      auto f = fields(row, {"state", "namespace"});
      VrfEntry e;
      if (f.contains("state")) e.state = Checks::vrfState(f["state"], at("state"));
      if (vrf.isDefault() && !f.contains("namespace"))
        e.netNs = Dravo::DEFAULT_NS;
      else if (!f.contains("namespace"))
        refuse(at("namespace"), "required field missing");
      else
        e.netNs = Checks::namespaceName(f["namespace"], at("namespace"));
      out_.model.vrfs[vrf] = e;
    } else if (p[0] == "VIRTUAL_ROUTER_MAC" && key == "VIRTUAL_ROUTER_MAC|GLOBAL") {
      auto f = fields(row, {"lumo", "vrrp"});
      Dravo::EthAddr macs[2];
      const char* names[2] = {"lumo", "vrrp"};
      for (int i = 0; i < 2; ++i) {
        if (!f.contains(names[i])) continue;
        macs[i] = Checks::mac(f[names[i]], at(names[i]));
        if (macs[i].bytes()[0] & 1)
          refuse(at(names[i]), macs[i].stringValue().stdString() + " is multicast");
      }
      out_.model.lumoMac = macs[0];
      out_.model.vrrpMac = macs[1];
    } else if (key == kReadyKey) {
      if (!row.hash) refuse("", "not a hash");
      out_.ready = true;
      return;  // a mark, not part of the model
    } else if (p[0] == "VIRTUAL_IP" || p[0] == "VIRTUAL_IP6") {
      return;  // the second pass
    } else {
      refuse("", wrongShape(p[0]));
    }
    ++out_.accepted;
  }

  std::string wrongShape(const std::string& table) {
    for (const char* shape : kShapes)
      if (std::string_view(shape).starts_with(table + "|"))
        return std::string("not a key of the form ") + shape;
    return "not a key of the input tables";
  }

  template <class Key>
  VipRow<Key> vipRow(const std::string& key, const Row& row) {
    const std::vector<std::string> p = parts(key);
    if (p.size() != 4) refuse("", wrongShape(p[0]));
    const L3::VrfName vrf = Checks::vrfName(p[1], "");
    VipRow<Key> r{key, {}, {}, {}, {}};
    if constexpr (std::is_same_v<Key, Routing::Fhrp::VrfIpPair>)
      r.key = Checks::vip6Key(vrf, p[2], "");
    else
      r.key = Checks::vip4Key(vrf, p[2], "");
    r.intf = Checks::intfId(p[3], "");
    auto f = fields(row, {"namespace", "value"});
    if (f.contains("namespace")) r.netNs = Checks::namespaceName(f["namespace"], at("namespace"));
    if (f.contains("value")) r.value = Checks::noNul(f["value"], at("value"));
    if (!out_.model.vrfs.contains(vrf) && !vrf.isDefault())
      refuse("", "VRF " + inQuotes(vrf.stringValue().view()) +
                     " has no VRF row: its virtual IPs would never be installed");
    if (!out_.model.interfaces.contains(r.intf))
      refuse("", "unknown interface " + inQuotes(p[3]) + " (no INTERFACE row)");
    if constexpr (!std::is_same_v<Key, Routing::Fhrp::VrfIpPair>)
      if (r.key.ipWithMask().maskLen() < 32 && out_.model.lumoMac.isZero())
        refuse("",
               "no lumo MAC in VIRTUAL_ROUTER_MAC|GLOBAL, but this virtual IP needs it as "
               "the sender MAC of its ARP rule");
    return r;
  }

  void vip(const std::string& key, const Row& row) {
    const std::string table = key.substr(0, key.find('|'));
    if (table == "VIRTUAL_IP")
      vips4_.push_back(vipRow<Routing::Fhrp::VrfIpWithMaskPair>(key, row));
    else if (table == "VIRTUAL_IP6")
      vips6_.push_back(vipRow<Routing::Fhrp::VrfIpPair>(key, row));
  }

  // The rows of one virtual IP (one record key) agree, or the ones that
  // do not are refused; the others make the model's entries.
  template <class Key, class RecordKey>
  void settle(const std::vector<VipRow<Key>>& rows, std::map<Key, VipEntry>& out,
              RecordKey recordKey) {
    std::map<Routing::Fhrp::VrfIpPair, const VipRow<Key>*> chosen;
    std::map<Routing::Fhrp::VrfIpPair, Dravo::NamespaceName> netNs;
    auto nsOf = [&](const VipRow<Key>& r) {
      if (r.netNs) return *r.netNs;
      auto v = out_.model.vrfs.find(r.key.vrfName());
      return v != out_.model.vrfs.end() ? v->second.netNs : Dravo::DEFAULT_NS;
    };
    auto inForce = [&](const VipRow<Key>& r) {
      if constexpr (std::is_same_v<Key, Routing::Fhrp::VrfIpPair>) {
        auto it = inForce_.virtualIps6.find(r.key);
        return it != inForce_.virtualIps6.end() && it->second.netNs == nsOf(r);
      } else {
        auto it = inForce_.virtualIps.find(r.key);
        return it != inForce_.virtualIps.end() && it->second.netNs == nsOf(r);
      }
    };
    // The row that sets a virtual IP's mask and namespace: one in force, else the first.
    for (const VipRow<Key>& r : rows) {
      auto [it, fresh] = chosen.try_emplace(recordKey(r.key), &r);
      if (!fresh && !inForce(*it->second) && inForce(r)) it->second = &r;
    }
    for (const VipRow<Key>& r : rows) {
      const VipRow<Key>& first = *chosen[recordKey(r.key)];
      take(r.rowKey, [&] {
        if (!(first.key == r.key))
          refuse("", "the address is given at " + shownKey(first.rowKey) +
                         " with another prefix length (one record per VRF and address)");
        if (!(nsOf(first) == nsOf(r)))
          refuse("", "the virtual IP's namespace is " + inQuotes(nsOf(first).stringValue().view()) +
                         " at " + shownKey(first.rowKey) + " (one namespace per virtual IP)");
        VipEntry& e = out[r.key];
        e.netNs = nsOf(r);
        e.interfaces[r.intf] = Kiv::String8(r.value);
        ++out_.accepted;
      });
    }
  }

  const Rows& rows_;
  const StateDocument& inForce_;
  std::vector<VipRow<Routing::Fhrp::VrfIpWithMaskPair>> vips4_;
  std::vector<VipRow<Routing::Fhrp::VrfIpPair>> vips6_;
  RowModel out_;
};

}  // namespace

bool isInputKey(std::string_view key) {
  for (std::string_view table : {"VRF|", "INTERFACE|", "VIRTUAL_ROUTER_MAC|", "VIRTUAL_IP|",
                                 "VIRTUAL_IP6|", "ACL_AGENT_INPUT|"})
    if (key.starts_with(table)) return true;
  return false;
}

std::string shownKey(std::string_view key) {
  return Checks::oneLine(key, 128);
}

RowModel modelOfRows(const Rows& rows, const StateDocument& inForce) {
  return Builder(rows, inForce).build();
}

}  // namespace Agent::Redis

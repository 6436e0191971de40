#include "agent/apply/nft/NftTables.h"

#include <arpa/inet.h>

#include <cctype>
#include <nlohmann/json.hpp>

namespace Agent::Nft {

namespace {

std::string setOf(Verdict v) {
  return v == Verdict::accept ? "accept_icmp" : "drop_all";
}

std::string ensureText(Family f) {
  const std::string t = std::string(familyName(f)) + " " + kTable;
  if (f == Family::arp)
    return "add table " + t + "\nadd chain " + t +
           " output { type filter hook output priority filter; policy accept; }\n";
  const std::string key = f == Family::ip ? "ipv4_addr" : "ipv6_addr";
  const std::string addr = f == Family::ip ? "ip daddr" : "ip6 daddr";
  const std::string icmp = f == Family::ip ? "ip protocol icmp" : "meta l4proto ipv6-icmp";
  return "add table " + t + "\nadd set " + t + " accept_icmp { type " + key +
         " . ifname; }\nadd set " + t + " drop_all { type " + key + " . ifname; }\nadd chain " + t +
         " prerouting { type filter hook prerouting priority mangle; policy accept; }\n" +
         "flush chain " + t + " prerouting\nadd rule " + t + " prerouting " + icmp + " " + addr +
         " . iifname @accept_icmp counter accept\nadd rule " + t + " prerouting " + addr +
         " . iifname @drop_all counter drop\n";
}

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// "10.1.1.5/24" -> "10.1.1.0/24"; unparsable text as it is.
std::string subnetText(const std::string& s) {
  const std::size_t slash = s.find('/');
  in_addr a{};
  if (slash == std::string::npos || ::inet_pton(AF_INET, s.substr(0, slash).c_str(), &a) != 1)
    return s;
  const int len = std::atoi(s.c_str() + slash + 1);
  const std::uint32_t mask = len <= 0 ? 0 : len >= 32 ? ~0u : ~0u << (32 - len);
  a.s_addr = htonl(ntohl(a.s_addr) & mask);
  char out[INET_ADDRSTRLEN];
  return std::string(::inet_ntop(AF_INET, &a, out, sizeof out)) + "/" + std::to_string(len);
}

using nlohmann::json;

std::string str(const json& j) {
  return j.is_string() ? j.get<std::string>() : j.is_number() ? j.dump() : std::string();
}

// The ARP rule an expression list makes, if it is of our shape.
std::optional<Change> arpRuleOf(const json& expr) {
  Change c;
  c.family = Family::arp;
  bool request = false, hlen6 = false;
  for (const json& e : expr) {
    if (e.contains("match")) {
      const json& m = e["match"];
      const json& left = m.value("left", json());
      const json& right = m.value("right", json());
      if (m.value("op", "") != "==") return std::nullopt;
      if (left.contains("meta") && left["meta"].value("key", "") == "oifname") {
        c.dev = str(right);
        continue;
      }
      const std::string field = left.contains("payload") ? left["payload"].value("field", "") : "";
      if (field == "operation")
        request = str(right) == "request";
      else if (field == "hlen")
        hlen6 = str(right) == "6";
      else if (field == "daddr ip" && right.contains("prefix"))
        c.subnet = str(right["prefix"].value("addr", json())) + "/" +
                   str(right["prefix"].value("len", json()));
      else if (field == "daddr ip")
        c.subnet = str(right) + "/32";
      else
        return std::nullopt;
    } else if (e.contains("mangle")) {
      const json& key = e["mangle"].value("key", json());
      const std::string field = key.contains("payload") ? key["payload"].value("field", "") : "";
      if (field == "saddr ether")
        c.mac = lower(str(e["mangle"].value("value", json())));
      else if (field == "saddr ip")
        c.address = str(e["mangle"].value("value", json()));
      else
        return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (!request || !hlen6 || c.dev.empty() || c.subnet.empty() || c.mac.empty() || c.address.empty())
    return std::nullopt;
  return c;
}

json listed(const std::string& text) {
  json j = json::parse(text, nullptr, false);
  return j.is_object() && j.contains("nftables") && j["nftables"].is_array() ? j["nftables"]
                                                                             : json::array();
}

}  // namespace

void Script::flushIs(Family f) {
  const std::string t = std::string(familyName(f)) + " " + kTable;
  body_.push_back("add table " + t + "\ndelete table " + t + "\n");
  remade_.insert(f);
  touched_.insert(f);
  group_.clear();
}

void Script::elementIs(const Change& c) {
  touched_.insert(c.family);
  const std::string group = std::string(c.op == Op::add ? "add" : "delete") + " element " +
                            familyName(c.family) + " " + kTable + " " + setOf(c.verdict);
  const std::string element = c.address + " . \"" + c.dev + "\"";
  if (group == group_ && groupKeys_.insert(element).second) {
    body_.back().insert(body_.back().size() - 3, ", " + element);  // before " }\n"
    return;
  }
  group_ = group;
  groupKeys_ = {element};
  body_.push_back(group + " { " + element + " }\n");
}

std::size_t Script::arpRuleIs(const Change& c) {
  touched_.insert(Family::arp);
  group_.clear();
  body_.push_back(std::string("add rule arp ") + kTable +
                  " output arp operation request arp hlen 6 arp daddr ip " + c.subnet +
                  " oifname \"" + c.dev + "\" arp saddr ether set " + c.mac + " arp saddr ip set " +
                  c.address + "\n");
  return body_.size() - 1;
}

void Script::arpRuleDel(std::uint64_t handle) {
  touched_.insert(Family::arp);
  group_.clear();
  body_.push_back(std::string("delete rule arp ") + kTable + " output handle " +
                  std::to_string(handle) + "\n");
}

bool Script::empty() const {
  for (const std::string& c : body_)
    if (!c.empty()) return false;
  return true;
}

std::string Script::text(const std::set<Family>& ready) const {
  std::string ensured;
  for (Family f : touched_)
    if (!ready.count(f) || remade_.count(f)) ensured += ensureText(f);
  std::string body;
  for (const std::string& c : body_) body += c;
  // A flush deletes its table in the body: the table is made again after it.
  return remade_.empty() ? ensured + body : body + ensured;
}

std::string arpKey(const Change& c) {
  return subnetText(c.subnet) + " " + c.dev + " " + c.address + " " + lower(c.mac);
}

std::vector<ListedArpRule> arpRulesOf(const std::string& text) {
  std::vector<ListedArpRule> out;
  for (const json& item : listed(text)) {
    if (!item.contains("rule")) continue;
    const json& r = item["rule"];
    if (r.value("chain", "") != "output" || !r.contains("expr")) continue;
    std::optional<Change> c = arpRuleOf(r["expr"]);
    if (c) out.push_back({arpKey(*c), r.value("handle", std::uint64_t(0)), *c});
  }
  return out;
}

std::vector<Change> elementsOf(const std::string& text, Family f) {
  std::vector<Change> out[2];
  for (const json& item : listed(text)) {
    if (!item.contains("set")) continue;
    const json& s = item["set"];
    const std::string name = s.value("name", "");
    if ((name != "accept_icmp" && name != "drop_all") || !s.contains("elem")) continue;
    const Verdict v = name == "accept_icmp" ? Verdict::accept : Verdict::drop;
    for (const json& e : s["elem"]) {
      const json& concat = e.contains("elem") ? e["elem"].value("val", json()) : e;
      if (!concat.contains("concat") || concat["concat"].size() != 2) continue;
      Change c;
      c.family = f;
      c.verdict = v;
      c.address = str(concat["concat"][0]);
      c.dev = str(concat["concat"][1]);
      out[v == Verdict::accept ? 0 : 1].push_back(std::move(c));
    }
  }
  out[0].insert(out[0].end(), out[1].begin(), out[1].end());
  return out[0];
}

}  // namespace Agent::Nft

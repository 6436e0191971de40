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

// A member by reference (json::value copies), or null.
const json& at(const json& j, const char* key) {
  static const json none;
  if (!j.is_object()) return none;
  auto it = j.find(key);
  return it == j.end() ? none : *it;
}

std::string member(const json& j, const char* key) {
  const json& v = at(j, key);
  return v.is_string() ? v.get<std::string>() : std::string();
}

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
      const json& m = at(e, "match");
      const json& left = at(m, "left");
      const json& right = at(m, "right");
      if (member(m, "op") != "==") return std::nullopt;
      if (member(at(left, "meta"), "key") == "oifname") {
        c.dev = str(right);
        continue;
      }
      const std::string field = member(at(left, "payload"), "field");
      if (field == "operation")
        request = str(right) == "request";
      else if (field == "hlen")
        hlen6 = str(right) == "6";
      else if (field == "daddr ip" && right.contains("prefix"))
        c.subnet = str(at(at(right, "prefix"), "addr")) + "/" + str(at(at(right, "prefix"), "len"));
      else if (field == "daddr ip")
        c.subnet = str(right) + "/32";
      else
        return std::nullopt;
    } else if (e.contains("mangle")) {
      const json& mangle = at(e, "mangle");
      const std::string field = member(at(at(mangle, "key"), "payload"), "field");
      if (field == "saddr ether")
        c.mac = lower(str(at(mangle, "value")));
      else if (field == "saddr ip")
        c.address = str(at(mangle, "value"));
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

json listed(const std::string& listing) {
  json j = json::parse(listing, nullptr, false);
  json items = j.is_object() && j.contains("nftables") ? std::move(j["nftables"]) : json();
  return items.is_array() ? std::move(items) : json::array();
}

}  // namespace

void Script::flushIs(Family f) {
  const std::string t = std::string(familyName(f)) + " " + kTable;
  body_.push_back("add table " + t + "\ndelete table " + t + "\n");
  remade_.insert(f);
  touched_.insert(f);
}

void Script::elementIs(const Change& c) {
  touched_.insert(c.family);
  SetChanges& set =
      sets_[std::string(familyName(c.family)) + " " + kTable + " " + setOf(c.verdict)];
  std::string element = c.address + " . \"" + c.dev + "\"";
  const std::size_t round = set.changesOf[element]++;
  if (round == set.rounds.size()) set.rounds.emplace_back();
  Round& r = set.rounds[round];
  (c.op == Op::add ? r.adds : r.deletes).push_back(std::move(element));
}

std::size_t Script::arpRuleIs(const Change& c) {
  touched_.insert(Family::arp);
  body_.push_back(std::string("add rule arp ") + kTable +
                  " output arp operation request arp hlen 6 arp daddr ip " + c.subnet +
                  " oifname \"" + c.dev + "\" arp saddr ether set " + c.mac + " arp saddr ip set " +
                  c.address + " comment \"" + arpKey(c) + "\"\n");
  return body_.size() - 1;
}

void Script::arpRuleDel(std::uint64_t handle) {
  touched_.insert(Family::arp);
  body_.push_back(std::string("delete rule arp ") + kTable + " output handle " +
                  std::to_string(handle) + "\n");
}

std::string Script::text(const std::set<Family>& ready) const {
  std::string ensured;
  for (Family f : touched_)
    if (!ready.count(f) || remade_.count(f)) ensured += ensureText(f);
  std::string body;
  // Sets and ARP rules live in different tables: their changes commute.
  for (const auto& [set, changes] : sets_)
    for (const Round& r : changes.rounds)
      for (const auto* list : {&r.deletes, &r.adds}) {
        if (list->empty()) continue;
        body += std::string(list == &r.adds ? "add" : "delete") + " element " + set + " { ";
        for (std::size_t i = 0; i < list->size(); ++i) body += (i ? ", " : "") + (*list)[i];
        body += " }\n";
      }
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
    const json& r = at(item, "rule");
    if (member(r, "chain") != "output" || !r.contains("expr")) continue;
    std::optional<Change> c = arpRuleOf(at(r, "expr"));
    const json& handle = at(r, "handle");
    if (c)
      out.push_back(
          {arpKey(*c), handle.is_number_unsigned() ? handle.get<std::uint64_t>() : 0, *c});
  }
  return out;
}

std::vector<Change> elementsOf(const std::string& text, Family f) {
  std::vector<Change> out[2];
  for (const json& item : listed(text)) {
    if (!item.contains("set")) continue;
    const json& s = at(item, "set");
    const std::string name = member(s, "name");
    if ((name != "accept_icmp" && name != "drop_all") || !s.contains("elem")) continue;
    const Verdict v = name == "accept_icmp" ? Verdict::accept : Verdict::drop;
    for (const json& e : at(s, "elem")) {
      const json& concat = e.contains("elem") ? at(at(e, "elem"), "val") : e;
      const json& pair = at(concat, "concat");
      if (!pair.is_array() || pair.size() != 2) continue;
      Change c;
      c.family = f;
      c.verdict = v;
      c.address = str(pair[0]);
      c.dev = str(pair[1]);
      out[v == Verdict::accept ? 0 : 1].push_back(std::move(c));
    }
  }
  out[0].insert(out[0].end(), out[1].begin(), out[1].end());
  return out[0];
}

}  // namespace Agent::Nft

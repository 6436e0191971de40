#include "agent/control/Status.h"

#include "agent/control/ControlServer.h"
#include "agent/control/JsonText.h"

namespace Agent::Control {

using nlohmann::json;

namespace {

json orNull(double time) {
  return time > 0 ? json(time) : json(nullptr);
}

json sourceJson(const std::optional<SourceFacts>& s) {
  if (!s) return nullptr;
  json refused = json::array();
  for (const auto& [key, reason] : s->refused)
    refused.push_back({{"key", key}, {"reason", reason}});
  return {{"kind", s->kind},           {"name", s->name},
          {"connected", s->connected}, {"connectedSince", orNull(s->connectedSince)},
          {"ready", s->ready},         {"rows", s->rows},
          {"refused", refused},        {"lastApplied", orNull(s->lastApplied)}};
}

// One member: `nameColon` is its separator and quoted name, `,"name":`.
void put(std::string& out, std::string_view nameColon, const std::string& value) {
  out += nameColon;
  appendJsonString(out, value);
}
void put(std::string& out, std::string_view nameColon, bool value) {
  out += nameColon;
  out += value ? "true" : "false";
}

// The lists as dump() would write them: names in sorted order.
std::string virtualIpsText(const std::vector<Acl::VipView>& vips) {
  std::string out = "[";
  out.reserve(vips.size() * 192);
  for (const Acl::VipView& v : vips) {
    out += out.size() > 1 ? ",{\"interfaces\":[" : "{\"interfaces\":[";
    for (const Acl::VipIntfView& i : v.intfs) {
      put(out, &i == &v.intfs.front() ? "{\"device\":" : ",{\"device\":", i.dev);
      put(out, ",\"installed\":", i.installed);
      put(out, ",\"interface\":", i.intf);
      put(out, ",\"queued\":", i.queued);
      put(out, ",\"unwanted\":", i.unwanted);
      out += '}';
    }
    put(out, "],\"namespace\":", v.ns);
    put(out, ",\"prefix\":", v.prefix);
    put(out, ",\"vrf\":", v.vrf);
    out += '}';
  }
  return out += ']';
}

std::string subnetsText(const std::vector<Acl::SubnetView>& subnets) {
  std::string out = "[";
  out.reserve(subnets.size() * 160);
  for (const Acl::SubnetView& s : subnets) {
    put(out, out.size() > 1 ? ",{\"device\":" : "{\"device\":", s.dev);
    put(out, ",\"interface\":", s.intf);
    put(out, ",\"mac\":", s.mac);
    put(out, ",\"namespace\":", s.ns);
    put(out, ",\"sourceIp\":", s.srcIp);
    put(out, ",\"subnet\":", s.subnet);
    put(out, ",\"vrf\":", s.vrf);
    out += '}';
  }
  return out += ']';
}

}  // namespace

json statusJson(const Acl::PluginView* view, const ApplyStats& stats, const AgentFacts& facts) {
  const Acl::BacklogView backlog = view ? view->backlog() : Acl::BacklogView();
  json commands = json::object();
  for (const auto& [tool, c] : stats.perTool())
    commands[tool] = {{"run", c.run}, {"failed", c.failed}};
  json failures = json::array();
  for (const ApplyStats::Failure& f : stats.failures())
    failures.push_back(
        {{"time", f.time}, {"namespace", f.ns}, {"line", f.line}, {"status", f.status}});
  json document = nullptr;
  if (!facts.documentPath.empty())
    document = {{"path", facts.documentPath},
                {"sha256", facts.documentSha256},
                {"applied", orNull(facts.documentApplied)},
                {"lastRefused", orNull(facts.lastRefused)},
                {"lastRefusedReason", facts.lastRefusedWhy}};
  json out = {{"reply", "status"},
              {"uptime", facts.uptime},
              {"dryRun", facts.dryRun},
              {"pluginReady", view != nullptr}};
  out.update(json{{"backlog", {{"size", backlog.size}, {"oldestAge", backlog.oldestAge}}},
                  {"overruns", backlog.overruns},
                  {"commands", commands},
                  {"failures", failures},
                  {"document", document},
                  {"source", sourceJson(facts.source)}});
  return out;
}

std::string statusReply(const Acl::PluginView* view, const ApplyStats& stats,
                        const AgentFacts& facts) {
  std::map<std::string, std::string> lists = {{"subnets", "[]"}, {"virtualIps", "[]"}};
  if (view) {
    lists["virtualIps"] = virtualIpsText(view->virtualIps());
    lists["subnets"] = subnetsText(view->subnets());
  }
  return ControlServer::replyLine(statusJson(view, stats, facts), lists);
}

}  // namespace Agent::Control

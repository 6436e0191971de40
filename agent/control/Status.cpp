#include "agent/control/Status.h"

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

}  // namespace

json statusJson(const Acl::PluginView* view, const ApplyStats& stats, const AgentFacts& facts) {
  json vips = json::array(), subnets = json::array();
  Acl::BacklogView backlog;
  if (view) {
    // Built in place: nlohmann's initializer lists copy every value, which
    // at 20,000 virtual IPs costs more than reading the plug-in.
    for (const Acl::VipView& v : view->virtualIps()) {
      json& out = vips.emplace_back(json::object());
      out["vrf"] = v.vrf;
      out["namespace"] = v.ns;
      out["prefix"] = v.prefix;
      json& intfs = out["interfaces"] = json::array();
      for (const Acl::VipIntfView& i : v.intfs) {
        json& x = intfs.emplace_back(json::object());
        x["interface"] = i.intf;
        x["device"] = i.dev;
        x["installed"] = i.installed;
        x["queued"] = i.queued;
        x["unwanted"] = i.unwanted;
      }
    }
    for (const Acl::SubnetView& s : view->subnets()) {
      json& x = subnets.emplace_back(json::object());
      x["interface"] = s.intf;
      x["subnet"] = s.subnet;
      x["device"] = s.dev;
      x["vrf"] = s.vrf;
      x["namespace"] = s.ns;
      x["sourceIp"] = s.srcIp;
      x["mac"] = s.mac;
    }
    backlog = view->backlog();
  }
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
  out["virtualIps"] = std::move(vips);
  out["subnets"] = std::move(subnets);
  out.update(json{{"backlog", {{"size", backlog.size}, {"oldestAge", backlog.oldestAge}}},
                  {"overruns", backlog.overruns},
                  {"commands", commands},
                  {"failures", failures},
                  {"document", document},
                  {"source", sourceJson(facts.source)}});
  return out;
}

}  // namespace Agent::Control

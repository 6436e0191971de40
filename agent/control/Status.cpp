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
    for (const Acl::VipView& v : view->virtualIps()) {
      json intfs = json::array();
      for (const Acl::VipIntfView& i : v.intfs)
        intfs.push_back({{"interface", i.intf},
                         {"device", i.dev},
                         {"installed", i.installed},
                         {"queued", i.queued},
                         {"unwanted", i.unwanted}});
      vips.push_back(
          {{"vrf", v.vrf}, {"namespace", v.ns}, {"prefix", v.prefix}, {"interfaces", intfs}});
    }
    for (const Acl::SubnetView& s : view->subnets())
      subnets.push_back({{"interface", s.intf},
                         {"subnet", s.subnet},
                         {"device", s.dev},
                         {"vrf", s.vrf},
                         {"namespace", s.ns},
                         {"sourceIp", s.srcIp},
                         {"mac", s.mac}});
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
  return {{"reply", "status"},
          {"uptime", facts.uptime},
          {"dryRun", facts.dryRun},
          {"pluginReady", view != nullptr},
          {"virtualIps", vips},
          {"subnets", subnets},
          {"backlog", {{"size", backlog.size}, {"oldestAge", backlog.oldestAge}}},
          {"overruns", backlog.overruns},
          {"commands", commands},
          {"failures", failures},
          {"document", document},
          {"source", sourceJson(facts.source)}};
}

}  // namespace Agent::Control

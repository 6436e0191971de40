#include "agent/control/Render.h"

#include <cstdio>
#include <ctime>

namespace Agent::Control {

using nlohmann::json;

namespace {

std::string timeText(const json& t) {
  if (!t.is_number()) return "never";
  const std::time_t s = std::time_t(t.get<double>());
  std::tm tm;
  gmtime_r(&s, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%SZ", &tm);
  return buf;
}

std::string seconds(double s) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f s", s);
  return buf;
}

std::string str(const json& j, const char* key) {
  const auto it = j.find(key);
  if (it == j.end() || it->is_null()) return "";
  return it->is_string() ? it->get<std::string>() : it->dump();
}

std::string stateText(const json& i) {
  std::string s;
  for (const char* w : {"installed", "queued", "unwanted"})
    if (i.value(w, false)) s += (s.empty() ? "" : ",") + std::string(w);
  return s.empty() ? "not installed" : s;
}

// "source    redis unix:/run/redis.sock db 6" and its state, a refused row a line.
std::string sourceText(const json& src) {
  if (!src.is_object()) return "";
  std::string out = "source    " + str(src, "name") + "\n          ";
  out += src.value("connected", false)
             ? "connected since " + timeText(src["connectedSince"])
             : "not connected (last " + timeText(src["connectedSince"]) + ")";
  out += src.value("ready", false) ? ", ready" : ", not ready (changes held)";
  out += ", " + str(src, "rows") + " rows in force, last change applied " +
         timeText(src["lastApplied"]) + "\n";
  for (const json& r : src["refused"])
    out += "          refused " + str(r, "key") + ": " + str(r, "reason") + "\n";
  return out;
}

}  // namespace

std::string alignedTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> width;
  for (const auto& r : rows)
    for (std::size_t i = 0; i < r.size(); ++i) {
      if (width.size() <= i) width.push_back(0);
      width[i] = std::max(width[i], r[i].size());
    }
  std::string out;
  for (const auto& r : rows) {
    std::string line;
    for (std::size_t i = 0; i < r.size(); ++i) {
      line += r[i];
      if (i + 1 < r.size()) line += std::string(width[i] - r[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  }
  return out;
}

std::string statusText(const json& s) {
  std::string out = "uptime    " + seconds(s.value("uptime", 0.0)) +
                    (s.value("dryRun", false) ? " (dry run: no command is run)" : "") + "\n";
  const json& doc = s["document"];
  if (doc.is_object()) {
    out += "document  " + str(doc, "path") + "\n          sha256 " + str(doc, "sha256") +
           ", applied " + timeText(doc["applied"]) + "\n";
    if (doc["lastRefused"].is_number())
      out += "          last refused " + timeText(doc["lastRefused"]) + ": " +
             str(doc, "lastRefusedReason") + "\n";
  } else {
    out += "document  none\n";
  }
  if (s.contains("source")) out += sourceText(s["source"]);
  const json& b = s["backlog"];
  out += "backlog   " + str(b, "size") + " queued, oldest " + seconds(b.value("oldestAge", 0.0)) +
         "; " + str(s, "overruns") + " slices cut short\n";
  if (!s.value("pluginReady", false)) out += "plug-in   not ready (no state machine yet)\n";

  std::vector<std::vector<std::string>> vips = {
      {"VIRTUAL IP", "VRF", "NAMESPACE", "INTERFACE", "DEVICE", "STATE"}};
  for (const json& v : s["virtualIps"]) {
    if (v["interfaces"].empty())
      vips.push_back({str(v, "prefix"), str(v, "vrf"), str(v, "namespace"), "-", "-", "-"});
    for (const json& i : v["interfaces"])
      vips.push_back({str(v, "prefix"), str(v, "vrf"), str(v, "namespace"), str(i, "interface"),
                      str(i, "device"), stateText(i)});
  }
  out += "\n" + alignedTable(vips);

  std::vector<std::vector<std::string>> subnets = {
      {"INTERFACE", "SUBNET", "DEVICE", "SOURCE IP", "MAC", "NAMESPACE"}};
  for (const json& n : s["subnets"])
    subnets.push_back({str(n, "interface"), str(n, "subnet"), str(n, "device"), str(n, "sourceIp"),
                       str(n, "mac"), str(n, "namespace")});
  out += "\n" + alignedTable(subnets);

  std::vector<std::vector<std::string>> tools = {{"TOOL", "RUN", "FAILED"}};
  for (const auto& [tool, c] : s["commands"].items())
    tools.push_back({tool, str(c, "run"), str(c, "failed")});
  out += "\n" + alignedTable(tools);

  if (!s["failures"].empty()) {
    std::vector<std::vector<std::string>> f = {{"FAILED AT", "NAMESPACE", "STATUS", "LINE"}};
    for (const json& x : s["failures"])
      f.push_back({timeText(x["time"]), str(x, "namespace"), str(x, "status"), str(x, "line")});
    out += "\n" + alignedTable(f);
  }
  return out;
}

std::string verifyText(const json& v) {
  std::string out;
  for (const json& n : v["namespaces"]) {
    const std::string ns = str(n, "namespace");
    if (n.contains("error")) {
      out += ns + ": cannot read back: " + str(n, "error") + "\n";
      continue;
    }
    out += ns + (n.value("inStep", false) ? ": in step\n" : ": drift\n");
    std::vector<std::vector<std::string>> rows;
    auto pairOf = [](const json& m) {
      return m.contains("vrf") ? "(vrf " + str(m, "vrf") + ", " + str(m, "prefix") + " on " +
                                     str(m, "interface") + ")"
                               : std::string();
    };
    for (const json& m : n["missing"]) rows.push_back({"  missing", str(m, "rule"), pairOf(m)});
    for (const json& m : n["misordered"])
      rows.push_back({"  misordered", "DROP before ACCEPT on " + str(m, "device"), pairOf(m)});
    for (const json& m : n["extra"]) rows.push_back({"  extra", str(m, "rule"), ""});
    if (!rows.empty()) out += alignedTable(rows);
  }
  if (v["namespaces"].empty()) out += "no namespace holds rules of the plug-in\n";
  if (v.contains("repaired")) {
    const json& r = v["repaired"];
    out += "repair: " + str(r, "queued") + " pairs queued, " + str(r, "readded") +
           " arptables rules re-added, " + str(r, "removed") + " extra rules removed, " +
           str(r, "failed") + " failed\n";
  }
  return out;
}

}  // namespace Agent::Control

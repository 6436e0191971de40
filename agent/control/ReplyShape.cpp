#include "agent/control/ReplyShape.h"

namespace Agent::Control {

using nlohmann::json;
using Shape = nlohmann::ordered_json;  // fields checked in the order written

namespace {

// Shapes, written as JSON: a leaf is "string", "number" or "bool", with
// "|null" when null may stand in, or "=TEXT" for that very string; [SHAPE]
// is a list of SHAPE; an object lists its fields ("NAME?" when it may be
// missing), "*" gives the shape of every member of a map, and "$null": true
// lets null stand in for it.
const Shape& shapes() {
  static const Shape s = Shape::parse(R"({
    "error": { "reply": "=error", "error": "string" },
    "status": {
      "reply": "=status", "uptime": "number", "dryRun": "bool", "pluginReady": "bool",
      "virtualIps": [ { "vrf": "string", "namespace": "string", "prefix": "string",
                        "interfaces": [ { "interface": "string", "device": "string",
                                          "installed": "bool", "queued": "bool",
                                          "unwanted": "bool" } ] } ],
      "subnets": [ { "interface": "string", "subnet": "string", "device": "string",
                     "vrf": "string", "namespace": "string", "sourceIp": "string",
                     "mac": "string" } ],
      "backlog": { "size": "number", "oldestAge": "number" }, "overruns": "number",
      "commands": { "*": { "run": "number", "failed": "number" } },
      "failures": [ { "time": "number", "namespace": "string", "line": "string",
                      "status": "number" } ],
      "document": { "$null": true, "path": "string", "sha256": "string",
                    "applied": "number|null", "lastRefused": "number|null",
                    "lastRefusedReason": "string" },
      "source?": { "$null": true, "kind": "string", "name": "string", "connected": "bool",
                   "connectedSince": "number|null", "ready": "bool", "rows": "number",
                   "refused": [ { "key": "string", "reason": "string" } ],
                   "lastApplied": "number|null" } },
    "metrics": { "reply": "=metrics", "text": "string" },
    "verify": {
      "reply": "=verify", "inStep": "bool", "readFailed": "bool",
      "namespaces": [ { "namespace": "string", "inStep": "bool", "error?": "string",
                        "missing": [ { "rule": "string", "vrf?": "string", "prefix?": "string",
                                       "interface?": "string", "device?": "string" } ],
                        "misordered": [ { "vrf": "string", "prefix": "string",
                                          "interface": "string", "device": "string" } ],
                        "extra": [ { "rule": "string" } ] } ],
      "repaired?": { "queued": "number", "readded": "number", "removed": "number",
                     "failed": "number" } }
  })");
  return s;
}

std::string typeName(const json& j) {
  if (j.is_boolean()) return "a bool";
  if (j.is_number()) return "a number";
  if (j.is_string()) return "a string";
  if (j.is_array()) return "a list";
  if (j.is_object()) return "an object";
  return "null";
}

std::string at(const std::string& where, const std::string& name) {
  return where.empty() ? name : where + "." + name;
}

std::string problem(const json& j, const Shape& shape, const std::string& where) {
  const std::string place = where.empty() ? "the reply" : where;
  if (shape.is_string()) {
    const std::string& s = shape.get_ref<const std::string&>();
    if (s.starts_with("="))
      return j == s.substr(1) ? "" : place + ": want \"" + s.substr(1) + "\", not " + j.dump();
    if (j.is_null() && s.ends_with("|null")) return "";
    const std::string want = s.substr(0, s.find('|'));
    const bool ok = want == "bool"     ? j.is_boolean()
                    : want == "number" ? j.is_number()
                                       : j.is_string();
    return ok ? "" : place + ": want a " + want + ", not " + typeName(j);
  }
  if (shape.is_array()) {
    if (!j.is_array()) return place + ": want a list, not " + typeName(j);
    for (std::size_t i = 0; i < j.size(); ++i) {
      std::string p = problem(j[i], shape[0], where + "[" + std::to_string(i) + "]");
      if (!p.empty()) return p;
    }
    return "";
  }
  if (j.is_null() && shape.value("$null", false)) return "";
  if (!j.is_object()) return place + ": want an object, not " + typeName(j);
  for (const auto& [name, fieldShape] : shape.items()) {
    if (name == "$null") continue;
    if (name == "*") {
      for (const auto& [key, value] : j.items()) {
        std::string p = problem(value, fieldShape, at(where, key));
        if (!p.empty()) return p;
      }
      continue;
    }
    const bool optional = name.ends_with("?");
    const std::string field = optional ? name.substr(0, name.size() - 1) : name;
    const auto it = j.find(field);
    if (it == j.end()) {
      if (optional) continue;
      return at(where, field) + ": missing";
    }
    std::string p = problem(*it, fieldShape, at(where, field));
    if (!p.empty()) return p;
  }
  return "";
}

}  // namespace

std::string replyProblem(const json& reply, const std::string& request) {
  if (!reply.is_object()) return "the reply: want an object, not " + typeName(reply);
  const auto kind = reply.find("reply");
  const bool error = kind != reply.end() && *kind == "error";
  return problem(reply, shapes().at(error ? "error" : request), "");
}

}  // namespace Agent::Control

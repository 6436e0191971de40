#include "agent/control/JsonText.h"

#include <algorithm>

#include "agent/Utf8.h"

namespace Agent::Control {

namespace {

bool plain(char c) {
  const auto b = static_cast<unsigned char>(c);
  return b >= 0x20 && c != '"' && c != '\\';
}

// JSON escapes for valid UTF-8, as dump() writes them without ensure_ascii:
// short forms where JSON has them, \u00xx (lower-case) for other control
// characters, everything else as it is.
void appendEscaped(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  while (!text.empty()) {
    const std::size_t run =
        std::size_t(std::find_if_not(text.begin(), text.end(), plain) - text.begin());
    out.append(text.substr(0, run));
    if (run == text.size()) return;
    const auto c = static_cast<unsigned char>(text[run]);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
    }
    text.remove_prefix(run + 1);
  }
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  // Most text is ASCII: only text with other bytes needs the UTF-8 check.
  if (std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; }))
    appendEscaped(out, text);
  else
    appendEscaped(out, escapeInvalidUtf8(text));
  out += '"';
}

void appendJson(std::string& out, const nlohmann::json& j) {
  if (j.is_string()) return appendJsonString(out, j.get_ref<const std::string&>());
  if (j.is_object()) return appendJsonObject(out, j, {});
  if (!j.is_array()) {
    out += j.dump();
    return;
  }
  out += '[';
  for (auto it = j.begin(); it != j.end(); ++it) {
    if (it != j.begin()) out += ',';
    appendJson(out, *it);
  }
  out += ']';
}

void appendJsonObject(std::string& out, const nlohmann::json& members,
                      const std::map<std::string, std::string>& written) {
  out += '{';
  bool first = true;
  const auto name = [&](const std::string& key) {
    if (!first) out += ',';
    first = false;
    appendJsonString(out, key);
    out += ':';
  };
  auto w = written.begin();
  for (const auto& [key, value] : members.items()) {
    for (; w != written.end() && w->first < key; ++w) {
      name(w->first);
      out += w->second;
    }
    name(key);
    appendJson(out, value);
  }
  for (; w != written.end(); ++w) {
    name(w->first);
    out += w->second;
  }
  out += '}';
}

}  // namespace Agent::Control

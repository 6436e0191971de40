#include "platform/dravo/NamespaceExec.h"

namespace Dravo {

namespace {
constexpr std::string_view execWords = "ip netns exec ";
}

Kiv::String8 namespaceExecPrefix(const NamespaceName& ns) {
  if (ns == DEFAULT_NS) return Kiv::String8();
  if (ns.empty()) return Kiv::String8();
  return Kiv::String8(execWords) + ns.stringValue() + " ";
}

std::vector<std::string> namespaceExecArgv(const NamespaceName& ns) {
  if (ns == DEFAULT_NS || ns.empty()) return {};
  return {"ip", "netns", "exec", ns.stringValue().stdString()};
}

NamespacedCommand namespacedCommandOf(std::string_view line) {
  if (!line.starts_with(execWords)) return {DEFAULT_NS, line};
  line.remove_prefix(execWords.size());
  const std::size_t blank = line.find(' ');
  const std::string_view name = line.substr(0, blank);
  return {NamespaceName(name),
          blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1)};
}

}  // namespace Dravo

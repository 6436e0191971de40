#include "agent/apply/CommandLine.h"

#include "platform/dravo/NamespaceExec.h"

namespace Agent {

namespace {

std::string_view firstWord(std::string_view& s) {
  const std::size_t end = s.find(' ');
  std::string_view word = s.substr(0, end);
  s = end == std::string_view::npos ? std::string_view() : s.substr(end + 1);
  return word;
}

}  // namespace

CommandLine commandLineOf(std::string_view line) {
  const Dravo::NamespacedCommand n = Dravo::namespacedCommandOf(line);
  CommandLine c{n.ns.stringValue().stdString(), "", ""};
  line = n.command;
  c.tool = firstWord(line);
  c.rest = line;
  return c;
}

}  // namespace Agent

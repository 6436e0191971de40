#include "agent/apply/CommandLine.h"

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
  constexpr std::string_view prefix = "ip netns exec ";
  CommandLine c{"default", "", ""};
  if (line.starts_with(prefix)) {
    line.remove_prefix(prefix.size());
    c.ns = firstWord(line);
  }
  c.tool = firstWord(line);
  c.rest = line;
  return c;
}

}  // namespace Agent

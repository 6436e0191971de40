#include "agent/apply/RestoreInput.h"

#include "agent/apply/CommandLine.h"

namespace Agent {

std::optional<RestoreRule> restoreRuleOf(std::string_view line) {
  const CommandLine c = commandLineOf(line);
  if (c.tool != "iptables" && c.tool != "ip6tables") return std::nullopt;
  std::string_view rest = c.rest;
  // A delete's complaint about a missing rule is thrown away in a line; a
  // restore's own error output is dropped as a whole.
  constexpr std::string_view quiet = " 2>/dev/null";
  if (rest.ends_with(quiet)) rest.remove_suffix(quiet.size());
  constexpr std::string_view tableFlag = "-t ";
  if (!rest.starts_with(tableFlag)) return std::nullopt;
  rest.remove_prefix(tableFlag.size());
  const std::size_t blank = rest.find(' ');
  if (blank == 0 || blank == std::string_view::npos) return std::nullopt;
  RestoreRule r{std::string(rest.substr(0, blank)), std::string(rest.substr(blank + 1))};
  if (!r.rule.starts_with("-A ") && !r.rule.starts_with("-D ")) return std::nullopt;
  // Double quotes group words alike in the shell and in a restore; anything
  // else the shell would interpret keeps the line out of the batch.
  if (r.rule.find_first_of("'`$\\;&|<>()*?[]{}~#\n") != std::string::npos) return std::nullopt;
  return r;
}

std::string restoreInputOf(const std::string& table, const std::vector<std::string>& rules) {
  std::string input = "*" + table + "\n";
  for (const std::string& rule : rules) input += rule + "\n";
  return input + "COMMIT\n";
}

}  // namespace Agent

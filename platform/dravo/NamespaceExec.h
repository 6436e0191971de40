// How a command is placed into a network namespace: the one rule, shared by
// the plug-in's line builders and the agent's own commands, and the one
// reading of it back from a command line.
//
//   DEFAULT_NS or ""  -> nothing: the command runs in the caller's namespace;
//   any other name    -> "ip netns exec <name> " pasted before the first word.
//
// The name is pasted as it is (never quoted): callers pass names that were
// validated where they entered the system. Pure functions; any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/dravo/NamespaceName.h"

namespace Dravo {

// "" for DEFAULT_NS (tested first) and for the empty name, else
// "ip netns exec <ns> " with one trailing blank.
Kiv::String8 namespaceExecPrefix(const NamespaceName& ns);

// The same rule as words, for running a command without a shell:
// {} or {"ip", "netns", "exec", "<ns>"}.
std::vector<std::string> namespaceExecArgv(const NamespaceName& ns);

// A command line read back: the namespace its prefix names (DEFAULT_NS when
// it has none) and what follows the prefix.
struct NamespacedCommand {
  NamespaceName ns;
  std::string_view command;
};
NamespacedCommand namespacedCommandOf(std::string_view line);

}  // namespace Dravo

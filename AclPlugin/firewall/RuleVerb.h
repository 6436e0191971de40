// Whether a rule command adds or deletes its rule, and the pieces of a
// command line that follow from it.
#pragma once

namespace Routing::Fhrp::Firewall {

enum class Verb { add, drop };

// The tool's flag: append or delete.
inline const char* verbFlag(Verb v) {
  return v == Verb::add ? "-A" : "-D";
}
// A delete of a rule that is not there makes the tool complain; that noise
// is thrown away. An add keeps the tool's error output.
inline const char* verbTail(Verb v) {
  return v == Verb::add ? "" : " 2>/dev/null";
}
// The action word of the failure report.
inline const char* actionWord(Verb v) {
  return v == Verb::add ? "add" : "remove";
}

}  // namespace Routing::Fhrp::Firewall

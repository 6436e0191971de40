// Text that leaves the agent (a control reply, a log line echoing a file's
// contents or a command's output) must be valid UTF-8: JSON writers refuse
// anything else, and a terminal may misread it.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// `text` with every byte that is not part of a well-formed UTF-8 sequence
// (a stray continuation byte, a truncated or overlong sequence, a surrogate,
// a code point past U+10FFFF) written as the four characters \xHH, upper-case
// hex. Valid text comes back unchanged.
std::string escapeInvalidUtf8(std::string_view text);

}  // namespace Agent

// Fatal assertions: for states in which the process must not go on.
#pragma once

namespace Kiv {

// Writes "Assertion failed: <expr>" with the source position to stderr and
// aborts the process.
[[noreturn]] void assertionFailed(const char* expr, const char* file, int line,
                                  const char* function);

}  // namespace Kiv

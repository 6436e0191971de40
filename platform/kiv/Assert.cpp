#include "platform/kiv/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kiv {

void assertionFailed(const char* expr, const char* file, int line, const char* function) {
  std::fprintf(stderr, "Assertion failed: %s (%s:%d, %s)\n", expr, file, line, function);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kiv

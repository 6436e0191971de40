// Fuzz target for the two keys' text parsers. Any input may be refused, but
// only with Kiv::RangeException; whatever parses must print and parse back
// to an equal value with the same text. Any other outcome aborts.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "AclPlugin/keys/IntfSubnetPair.h"
#include "AclPlugin/keys/VirtualIpBacklogKey.h"

namespace {

[[noreturn]] void fail(const char* what, const std::string& text) {
  std::fprintf(stderr, "key parser fault: %s\ninput: %s\n", what, text.c_str());
  std::abort();
}

template <class T>
void checkParse(const Kiv::String8& text) {
  T value;
  try {
    value = Kiv::strepToValue<T>(text);
  } catch (const Kiv::RangeException&) {
    return;
  } catch (const std::exception& e) {
    fail(e.what(), text.stdString());
  } catch (...) {
    fail("non-standard exception", text.stdString());
  }
  const Kiv::String8 printed = Routing::Fhrp::valueToStrep(value);
  try {
    const T back = Kiv::strepToValue<T>(printed);
    if (back != value) fail("round trip gives another value", printed.stdString());
    if (Routing::Fhrp::valueToStrep(back) != printed)
      fail("round trip gives another text", printed.stdString());
  } catch (const std::exception& e) {
    fail(e.what(), printed.stdString());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Kiv::String8 text(std::string(reinterpret_cast<const char*>(data), size));
  checkParse<Routing::Fhrp::IntfSubnetPair>(text);
  checkParse<Routing::Fhrp::VirtualIpBacklogKey>(text);
  return 0;
}

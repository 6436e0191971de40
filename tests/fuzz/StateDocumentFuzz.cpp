// Fuzz target for the state-document parser. Any input may be refused, but
// only with Agent::StateDocumentError, on one line of bounded length; a
// document that is taken holds no NUL in any text. Any other outcome aborts.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "agent/source/StateDocument.h"

namespace {

[[noreturn]] void fail(const char* what, std::string_view text) {
  std::fprintf(stderr, "state document fault: %s\ninput (%zu bytes): %.*s\n", what, text.size(),
               static_cast<int>(std::min<std::size_t>(text.size(), 4096)), text.data());
  std::abort();
}

// Fails unless no text holds a NUL.
template <class... Texts>
void checkTexts(std::string_view input, const Texts&... texts) {
  if ((... || (Kiv::String8(texts).view().find('\0') != std::string_view::npos)))
    fail("a NUL in a taken text", input);
}

void checkTaken(const Agent::StateDocument& d, std::string_view input) {
  for (const auto& [id, device] : d.interfaces) checkTexts(input, id.stringValue(), device);
  for (const auto& [vrf, e] : d.vrfs) checkTexts(input, vrf.stringValue(), e.netNs.stringValue());
  auto checkVips = [&](const auto& vips) {
    for (const auto& [key, vip] : vips) {
      checkTexts(input, key.vrfName().stringValue(), vip.netNs.stringValue());
      for (const auto& [id, value] : vip.interfaces) checkTexts(input, id.stringValue(), value);
    }
  };
  checkVips(d.virtualIps);
  checkVips(d.virtualIps6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    checkTaken(Agent::parseStateDocument(text), text);
  } catch (const Agent::StateDocumentError& e) {
    const std::string_view message = e.what();
    if (message.find_first_of(std::string_view("\n\r\0", 3)) != std::string_view::npos)
      fail("a refusal that is not one line", text);
    if (message.size() > 1000) fail("a refusal over 1000 bytes", text);
  } catch (const std::exception& e) {
    fail(e.what(), text);
  } catch (...) {
    fail("non-standard exception", text);
  }
  return 0;
}

#include "agent/Utf8.h"

namespace Agent {

namespace {

// The length of the well-formed sequence at the start of `s`, or 0. The
// ranges of the second byte exclude overlong forms, surrogates and code
// points past U+10FFFF.
std::size_t sequenceLength(std::string_view s) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  const auto cont = [&](std::size_t i, unsigned lo = 0x80, unsigned hi = 0xBF) {
    return i < s.size() && byte(i) >= lo && byte(i) <= hi;
  };
  const unsigned b = byte(0);
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) return cont(1) ? 2 : 0;
  if (b >= 0xE0 && b <= 0xEF) {
    const bool second = b == 0xE0 ? cont(1, 0xA0) : b == 0xED ? cont(1, 0x80, 0x9F) : cont(1);
    return second && cont(2) ? 3 : 0;
  }
  if (b >= 0xF0 && b <= 0xF4) {
    const bool second = b == 0xF0 ? cont(1, 0x90) : b == 0xF4 ? cont(1, 0x80, 0x8F) : cont(1);
    return second && cont(2) && cont(3) ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::string escapeInvalidUtf8(std::string_view text) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t n = sequenceLength(text);
    if (n > 0) {
      out.append(text.substr(0, n));
    } else {
      const auto b = static_cast<unsigned char>(text[0]);
      out += {'\\', 'x', hex[b >> 4], hex[b & 0xF]};
    }
    text.remove_prefix(n > 0 ? n : 1);
  }
  return out;
}

}  // namespace Agent

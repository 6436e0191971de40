// Raising a structured log message: the rate-limit key is built from the
// texts of the first k = min(rateLimitArgs, N) arguments; the remaining
// arguments are turned into text only when the message is let through.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <string>

#include "platform/kiv/Hash.h"
#include "platform/kiv/Log.h"

namespace Routing::Fhrp {

inline Kiv::String8 logArgText(const char* s) {
  return Kiv::String8(s);
}
inline Kiv::String8 logArgText(const Kiv::String8& s) {
  return s;
}
template <std::integral T>
Kiv::String8 logArgText(T v) {
  return Kiv::String8(std::to_string(v));
}
template <class T>
requires requires(const T& t) {
  t.stringValue();
}
Kiv::String8 logArgText(const T& v) {
  return Kiv::String8(v.stringValue());
}

template <class... Args>
void raiseLog(Kiv::LogHandle& handle, const Args&... args) {
  constexpr unsigned n = sizeof...(Args);
  static_assert(n <= Kiv::LogHandle::maxArgs);
  std::array<Kiv::String8, Kiv::LogHandle::maxArgs> texts;
  const unsigned k = std::min(handle.rateLimitArgs(), n);
  std::string key;
  unsigned i = 0;
  auto keyPart = [&](const auto& a) {
    if (i < k) {
      texts[i] = logArgText(a);
      key += texts[i].stdString();
    }
    ++i;
  };
  (keyPart(args), ...);
  const std::uint32_t h = Kiv::hashBytes(key);
  if (!handle.okToLog(handle.idHash() ^ h)) return;
  i = 0;
  auto rest = [&](const auto& a) {
    if (i >= k) texts[i] = logArgText(a);
    ++i;
  };
  (rest(args), ...);
  handle.log(h, texts.data(), n);
}

}  // namespace Routing::Fhrp

// Hashing used by the framework's keyed collections. Hashes are fixed
// functions of the value (no seed), so iteration order is the same on every run.
#pragma once

#include <cstdint>
#include <string_view>

namespace Kiv {

constexpr std::uint32_t bitReverse(std::uint32_t v) {
  v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
  v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
  v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
  v = ((v >> 8) & 0x00FF00FFu) | ((v & 0x00FF00FFu) << 8);
  return (v >> 16) | (v << 16);
}

// FNV-1a over the bytes, finished with a murmur-style mix so that the low
// bits (the top bits after reversal) are well spread.
constexpr std::uint32_t hashBytes(std::string_view bytes) {
  std::uint32_t h = 2166136261u;
  for (char c : bytes) {
    h ^= static_cast<unsigned char>(c);
    h *= 16777619u;
  }
  h ^= h >> 16;
  h *= 0x85ebca6bu;
  h ^= h >> 13;
  return h;
}

constexpr std::uint32_t hashInt(std::uint32_t v) {
  v ^= v >> 16;
  v *= 0x7feb352du;
  v ^= v >> 15;
  v *= 0x846ca68bu;
  v ^= v >> 16;
  return v;
}

}  // namespace Kiv

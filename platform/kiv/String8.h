// Kiv::String8: the framework's byte string. A regular value (copy, compare,
// hash, print); bytes are not interpreted, so any encoding passes through.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/kiv/Hash.h"

namespace Kiv {

class String8 {
 public:
  using IteratorConst = std::string::const_iterator;

  String8() = default;
  String8(const char* s) : s_(s ? s : "") {}
  String8(std::string s) : s_(std::move(s)) {}
  String8(std::string_view s) : s_(s) {}
  String8(IteratorConst b, IteratorConst e) : s_(b, e) {}

  const std::string& stdString() const { return s_; }
  std::string_view view() const { return s_; }
  const char* charPtr() const { return s_.c_str(); }
  std::size_t size() const { return s_.size(); }
  bool empty() const { return s_.empty(); }
  IteratorConst begin() const { return s_.begin(); }
  IteratorConst end() const { return s_.end(); }
  std::uint32_t hash() const { return hashBytes(s_); }

  String8 operator+(const String8& o) const { return String8(s_ + o.s_); }
  String8 operator+(const char* o) const { return String8(s_ + o); }
  String8& operator+=(const String8& o) {
    s_ += o.s_;
    return *this;
  }

  friend bool operator==(const String8&, const String8&) = default;
  friend std::strong_ordering operator<=>(const String8& a, const String8& b) {
    return a.s_.compare(b.s_) <=> 0;
  }
  friend bool operator==(const String8& a, const char* b) { return a.s_ == b; }

 private:
  std::string s_;
};

inline std::ostream& operator<<(std::ostream& os, const String8& s) {
  return os << s.stdString();
}
inline String8 operator+(const char* a, const String8& b) {
  return String8(a + b.stdString());
}

using Name = String8;

}  // namespace Kiv

template <>
struct std::hash<Kiv::String8> {
  std::size_t operator()(const Kiv::String8& s) const { return s.hash(); }
};

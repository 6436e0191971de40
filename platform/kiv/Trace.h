// Kiv::TraceHandle: developer trace lines by facility and level (0-8).
//
// A handle is live for a level when its facility is on and the level is on.
// Trace statements (KIV_TRACE) build their text only when live, or when the
// coverage stream is set, in which case a statement that is not live is
// recorded there and writes no line. Levels are switched by text such as
// "VirtualIpArpMangleSm/0,3-8" (traceConfigIs), also before the handle exists.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/kiv/String8.h"

namespace Kiv {

struct TraceRecord {
  std::string_view facility;
  std::string_view tag;
  unsigned level;
  std::string_view text;
  const char* file;
  int line;
  const char* function;
};

class TraceHandle {
 public:
  static constexpr unsigned maxLevel = 8;

  explicit TraceHandle(String8 facility, bool flag = false);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const String8& facility() const { return facility_; }
  bool flag() const { return flag_; }
  bool enabled() const { return levels_ != 0; }
  bool isLive(unsigned level) const { return (levels_ >> level) & 1u; }
  std::uint32_t levels() const { return levels_; }
  void levelsIs(std::uint32_t mask) { levels_ = mask & ((1u << (maxLevel + 1)) - 1); }

  // Hands one statement to the facility: a line on the sink when live, a
  // coverage record when the coverage stream is set.
  void trace(const char* tag, unsigned level, bool live, const std::string& text, const char* file,
             int line, const char* function) const;

 private:
  String8 facility_;
  bool flag_;
  std::uint32_t levels_ = 0;
};

// Set to collect coverage of every trace statement reached, live or not.
extern std::ostream* coverageStream_;

// Applies "Facility/levels[;Facility/levels...]" where levels is a list of
// numbers and ranges ("0,3-8", "all", "none"). Throws std::invalid_argument
// with the reason for a malformed text.
void traceConfigIs(std::string_view spec);

// Where live lines go; the default writes "facility/level function: text"
// to stderr. Passing an empty function restores the default.
using TraceSink = std::function<void(const TraceRecord&)>;
void traceSinkIs(TraceSink sink);

}  // namespace Kiv

// Builds the text only when the statement is live or coverage is collected.
#define KIV_TRACE_AT(handle, level, file, function, expr)                                 \
  do {                                                                                    \
    const ::Kiv::TraceHandle& kivTh_ = (handle);                                          \
    const bool kivLive_ = kivTh_.isLive(level);                                           \
    if (kivLive_ || ::Kiv::coverageStream_) {                                             \
      std::ostringstream kivOs_;                                                          \
      kivOs_.precision(12);                                                               \
      kivOs_ << expr;                                                                     \
      kivTh_.trace("<unknown>", level, kivLive_, kivOs_.str(), file, __LINE__, function); \
    }                                                                                     \
  } while (0)

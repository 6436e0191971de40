// Kiv::LogHandle: one structured log message for operators: a name, a
// severity (syslog numbering: 4 is warning), a format with %s slots, an
// explanation and a recommended action.
//
// Rate limiting is per handle and per key (a hash of the first
// rateLimitArgs() argument texts, combined with idHash()): each key has a
// token bucket holding `burst` lines, refilled by one line every
// `minInterval` seconds of Kiv::now(). A minInterval of 0 never suppresses.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/kiv/String8.h"

namespace Kiv {

enum class LogSeverity : std::uint8_t {
  emergency = 0,
  alert = 1,
  critical = 2,
  error = 3,
  warning = 4,
  notice = 5,
  info = 6,
  debug = 7,
};

extern const char* const NoActionRequired;

// One raised message: its handle's name and severity, the formatted text,
// and the argument texts it was formatted from (in format order), so that a
// sink can give each argument a field of its own.
struct LogRecord {
  std::string_view name;
  LogSeverity severity;
  std::string_view text;
  const String8* args = nullptr;
  unsigned argCount = 0;
};

class LogHandle {
 public:
  static constexpr unsigned maxArgs = 14;

  LogHandle(const char* name, LogSeverity severity, const char* format, const char* explanation,
            const char* recommendedAction, double minInterval, double burst,
            std::uint8_t rateLimitArgs);
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const char* name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  const char* format() const { return format_; }
  const char* explanation() const { return explanation_; }
  const char* recommendedAction() const { return recommendedAction_; }
  double minInterval() const { return minInterval_; }
  double burst() const { return burst_; }

  unsigned rateLimitArgs() const { return rateLimitArgs_; }
  std::uint32_t idHash() const { return idHash_; }
  // Takes a line from the bucket of `key`; false when it is empty.
  bool okToLog(std::uint32_t key);
  // Formats the first n texts into the format and writes one line.
  void log(std::uint32_t key, const String8* texts, unsigned n);

  // The format with each %s replaced by the next text, in order.
  std::string formatted(const String8* texts, unsigned n) const;

 private:
  struct Bucket {
    double tokens;
    double last;
  };
  const char* name_;
  LogSeverity severity_;
  const char* format_;
  const char* explanation_;
  const char* recommendedAction_;
  double minInterval_;
  double burst_;
  unsigned rateLimitArgs_;
  std::uint32_t idHash_;
  std::unordered_map<std::uint32_t, Bucket> buckets_;
};

// Where log lines go; the default writes "%NAME: text" to stderr and to
// syslog. Passing an empty function restores the default. A sink that adds
// to the default (counting, say) calls defaultLogSink itself.
using LogSink = std::function<void(const LogRecord&)>;
void logSinkIs(LogSink sink);
void defaultLogSink(const LogRecord& r);

}  // namespace Kiv

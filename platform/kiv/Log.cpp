#include "platform/kiv/Log.h"

#include <syslog.h>

#include <algorithm>
#include <iostream>

#include "platform/kiv/ActivityManager.h"
#include "platform/kiv/Hash.h"

namespace Kiv {

const char* const NoActionRequired = "No action is required.";

namespace {

LogSink& sinkRef() {
  static LogSink* s = new LogSink();
  return *s;
}

}  // namespace

void defaultLogSink(const LogRecord& r) {
  std::cerr << '%' << r.name << ": " << r.text << '\n';
  ::syslog(static_cast<int>(r.severity), "%%%.*s: %.*s", static_cast<int>(r.name.size()),
           r.name.data(), static_cast<int>(r.text.size()), r.text.data());
}

LogHandle::LogHandle(const char* name, LogSeverity severity, const char* format,
                     const char* explanation, const char* recommendedAction, double minInterval,
                     double burst, std::uint8_t rateLimitArgs)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      minInterval_(minInterval),
      burst_(std::max(burst, 1.0)),
      rateLimitArgs_(rateLimitArgs),
      idHash_(hashBytes(name)) {}

bool LogHandle::okToLog(std::uint32_t key) {
  if (minInterval_ <= 0.0) return true;
  const double t = Kiv::now();
  auto [it, fresh] = buckets_.try_emplace(key, Bucket{burst_, t});
  Bucket& b = it->second;
  if (!fresh) {
    b.tokens = std::min(burst_, b.tokens + (t - b.last) / minInterval_);
    b.last = t;
  }
  if (b.tokens < 1.0) return false;
  b.tokens -= 1.0;
  return true;
}

std::string LogHandle::formatted(const String8* texts, unsigned n) const {
  std::string out;
  unsigned next = 0;
  for (const char* p = format_; *p; ++p) {
    if (p[0] == '%' && p[1] == 's') {
      if (next < n) out += texts[next].stdString();
      ++next;
      ++p;
    } else {
      out += *p;
    }
  }
  return out;
}

void LogHandle::log(std::uint32_t, const String8* texts, unsigned n) {
  const std::string text = formatted(texts, n);
  LogRecord rec{name_, severity_, text, texts, n};
  if (sinkRef())
    sinkRef()(rec);
  else
    defaultLogSink(rec);
}

void logSinkIs(LogSink sink) {
  sinkRef() = std::move(sink);
}

}  // namespace Kiv

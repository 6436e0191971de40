#include "platform/kiv/Trace.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <stdexcept>
#include <vector>

namespace Kiv {

std::ostream* coverageStream_ = nullptr;

namespace {

struct Registry {
  std::vector<TraceHandle*> handles;
  std::map<std::string, std::uint32_t> configured;  // facility -> level mask
  TraceSink sink;
};

Registry& registry() {
  static Registry* r = new Registry();  // outlives every handle, even at exit
  return *r;
}

void defaultSink(const TraceRecord& r) {
  std::cerr << r.facility << '/' << r.level << ' ' << r.function << ": " << r.text << '\n';
}

unsigned parseLevel(std::string_view s, std::string_view spec) {
  if (s.empty() || s.size() > 1 || s[0] < '0' || s[0] > '8')
    throw std::invalid_argument("bad trace level \"" + std::string(s) + "\" in \"" +
                                std::string(spec) + "\" (levels are 0 to 8)");
  return static_cast<unsigned>(s[0] - '0');
}

std::uint32_t parseLevels(std::string_view levels, std::string_view spec) {
  if (levels == "all") return (1u << (TraceHandle::maxLevel + 1)) - 1;
  if (levels == "none") return 0;
  std::uint32_t mask = 0;
  // Every item must name a level: "", "1," and "0,,3" are refused, not read as "none".
  for (bool more = true; more;) {
    std::size_t comma = levels.find(',');
    std::string_view item = levels.substr(0, comma);
    more = comma != std::string_view::npos;
    if (more) levels = levels.substr(comma + 1);
    std::size_t dash = item.find('-');
    unsigned lo = parseLevel(item.substr(0, dash), spec);
    unsigned hi = dash == std::string_view::npos ? lo : parseLevel(item.substr(dash + 1), spec);
    if (hi < lo)
      throw std::invalid_argument("empty trace level range in \"" + std::string(spec) + "\"");
    for (unsigned l = lo; l <= hi; ++l) mask |= 1u << l;
  }
  return mask;
}

}  // namespace

TraceHandle::TraceHandle(String8 facility, bool flag)
    : facility_(std::move(facility)), flag_(flag) {
  Registry& r = registry();
  auto it = r.configured.find(facility_.stdString());
  if (it != r.configured.end()) levels_ = it->second;
  r.handles.push_back(this);
}

TraceHandle::~TraceHandle() {
  auto& hs = registry().handles;
  hs.erase(std::remove(hs.begin(), hs.end(), this), hs.end());
}

void TraceHandle::trace(const char* tag, unsigned level, bool live, const std::string& text,
                        const char* file, int line, const char* function) const {
  if (coverageStream_)
    *coverageStream_ << facility_ << '/' << level << ' ' << file << ':' << line << ' ' << function
                     << (live ? " live" : "") << '\n';
  if (!live) return;
  TraceRecord rec{facility_.view(), tag, level, text, file, line, function};
  const TraceSink& sink = registry().sink;
  if (sink)
    sink(rec);
  else
    defaultSink(rec);
}

void traceConfigIs(std::string_view spec) {
  std::map<std::string, std::uint32_t> parsed;
  std::string_view rest = spec;
  while (!rest.empty()) {
    std::size_t semi = rest.find(';');
    std::string_view item = rest.substr(0, semi);
    rest = semi == std::string_view::npos ? std::string_view() : rest.substr(semi + 1);
    std::size_t slash = item.rfind('/');
    if (slash == std::string_view::npos || slash == 0)
      throw std::invalid_argument("trace setting \"" + std::string(item) +
                                  "\" is not FACILITY/LEVELS");
    parsed[std::string(item.substr(0, slash))] = parseLevels(item.substr(slash + 1), spec);
  }
  Registry& r = registry();
  for (auto& [facility, mask] : parsed) {
    r.configured[facility] = mask;
    for (TraceHandle* h : r.handles)
      if (h->facility() == facility.c_str()) h->levelsIs(mask);
  }
}

void traceSinkIs(TraceSink sink) {
  registry().sink = std::move(sink);
}

}  // namespace Kiv

// Captures of what the code under test writes: trace lines and log lines.
// Both install a sink for their lifetime and restore the default after.
#pragma once

#include <string>
#include <vector>

#include "platform/kiv/Log.h"
#include "platform/kiv/Trace.h"

struct TraceLine {
  std::string facility;
  unsigned level;
  std::string function;
  std::string text;
  std::string file;
  std::string tag;
};

class TraceCapture {
 public:
  // levels: as in "--trace", e.g. "VirtualIpArpMangleSm/0-8".
  explicit TraceCapture(const std::string& levels = "VirtualIpArpMangleSm/0-8");
  ~TraceCapture();
  const std::vector<TraceLine>& lines() const { return lines_; }
  // The texts of the lines at one level, in order.
  std::vector<std::string> at(unsigned level) const;
  void clear() { lines_.clear(); }

 private:
  std::string facility_;
  std::vector<TraceLine> lines_;
};

struct LogLine {
  std::string name;
  std::string text;
};

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  const std::vector<LogLine>& lines() const { return lines_; }
  void clear() { lines_.clear(); }

 private:
  std::vector<LogLine> lines_;
};

#include "tests/support/Capture.h"

TraceCapture::TraceCapture(const std::string& levels)
    : facility_(levels.substr(0, levels.rfind('/'))) {
  Kiv::traceConfigIs(levels);
  Kiv::traceSinkIs([this](const Kiv::TraceRecord& r) {
    lines_.push_back({std::string(r.facility), r.level, r.function, std::string(r.text), r.file,
                      std::string(r.tag)});
  });
}

TraceCapture::~TraceCapture() {
  Kiv::traceSinkIs(nullptr);
  Kiv::traceConfigIs(facility_ + "/none");
}

std::vector<std::string> TraceCapture::at(unsigned level) const {
  std::vector<std::string> out;
  for (const TraceLine& l : lines_)
    if (l.level == level) out.push_back(l.text);
  return out;
}

LogCapture::LogCapture() {
  Kiv::logSinkIs([this](const Kiv::LogRecord& r) {
    lines_.push_back({std::string(r.name), std::string(r.text)});
  });
}

LogCapture::~LogCapture() {
  Kiv::logSinkIs(nullptr);
}

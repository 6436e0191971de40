// A small metric registry rendered in the Prometheus text format (version
// 0.0.4): families of counters, gauges and histograms, each with its HELP
// and TYPE, declared once in the order they are rendered. A series is a
// family plus its label values; label names are fixed per family, so no
// series can carry a label the family did not declare.
//
// Values are plain doubles; counters only grow (add), gauges are set.
// Not thread-safe: the event loop updates and renders it; what other
// threads read is the rendered text (MetricsService publishes it).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Agent::Metrics {

class Registry {
 public:
  enum class Type { counter, gauge, histogram };
  using Values = std::vector<std::string>;  // label values, in declared order

  // Declares a family; `buckets` (upper bounds, ascending) for histograms.
  void familyIs(const std::string& name, Type type, const std::string& help,
                std::vector<std::string> labels = {}, std::vector<double> buckets = {});
  // Counter: adds `d`. Gauge: sets (setIs) or adds. Unknown names are a
  // programming error and throw std::out_of_range.
  void add(const std::string& name, const Values& values = {}, double d = 1);
  void setIs(const std::string& name, const Values& values, double v);
  void observe(const std::string& name, const Values& values, double v);
  // Drops every series of the family (gauges recomputed from scratch).
  void seriesDelAll(const std::string& name);
  double value(const std::string& name, const Values& values = {}) const;

  std::string text() const;

 private:
  struct Series {
    double value = 0;
    std::vector<std::uint64_t> counts;  // histogram: per bucket, not cumulative
    std::uint64_t count = 0;
  };
  struct Family {
    std::string name, help;
    Type type;
    std::vector<std::string> labels;
    std::vector<double> buckets;
    std::map<Values, Series> series;
  };
  Family& family(const std::string& name);
  Series& series(const std::string& name, const Values& values);

  std::vector<Family> families_;
  std::map<std::string, std::size_t> index_;
};

// A sample value as Prometheus reads it: integers without a fraction,
// others in the shortest form that reads back exactly, "+Inf" and "NaN".
std::string sampleText(double v);
// A label value with \, " and newline escaped.
std::string labelText(const std::string& v);

}  // namespace Agent::Metrics

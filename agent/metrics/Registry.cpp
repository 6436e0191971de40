#include "agent/metrics/Registry.h"

#include <charconv>
#include <cmath>
#include <stdexcept>

namespace Agent::Metrics {

namespace {

const char* typeName(Registry::Type t) {
  switch (t) {
    case Registry::Type::counter:
      return "counter";
    case Registry::Type::gauge:
      return "gauge";
    case Registry::Type::histogram:
      return "histogram";
  }
  return "untyped";
}

// {a="x",b="y"} with `extra` (already rendered, e.g. le="0.1") last.
std::string labelSet(const std::vector<std::string>& names, const Registry::Values& values,
                     const std::string& extra = {}) {
  std::string out;
  for (std::size_t i = 0; i < names.size(); ++i)
    out += (out.empty() ? "" : ",") + names[i] + "=\"" + labelText(values.at(i)) + "\"";
  if (!extra.empty()) out += (out.empty() ? "" : ",") + extra;
  return out.empty() ? out : "{" + out + "}";
}

}  // namespace

std::string sampleText(double v) {
  if (std::isnan(v)) return "NaN";
  if (std::isinf(v)) return v > 0 ? "+Inf" : "-Inf";
  char buf[32];
  if (v == std::floor(v) && std::fabs(v) < 9e15) {
    auto r = std::to_chars(buf, buf + sizeof buf, static_cast<long long>(v));
    return std::string(buf, r.ptr);
  }
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, r.ptr);
}

std::string labelText(const std::string& v) {
  std::string out;
  for (char c : v) {
    if (c == '\\' || c == '"')
      out += '\\', out += c;
    else if (c == '\n')
      out += "\\n";
    else
      out += c;
  }
  return out;
}

void Registry::familyIs(const std::string& name, Type type, const std::string& help,
                        std::vector<std::string> labels, std::vector<double> buckets) {
  index_[name] = families_.size();
  families_.push_back({name, help, type, std::move(labels), std::move(buckets), {}});
}

Registry::Family& Registry::family(const std::string& name) {
  return families_.at(index_.at(name));
}

Registry::Series& Registry::series(const std::string& name, const Values& values) {
  Family& f = family(name);
  if (values.size() != f.labels.size())
    throw std::out_of_range(name + ": wrong number of label values");
  Series& s = f.series[values];
  if (f.type == Type::histogram && s.counts.empty()) s.counts.assign(f.buckets.size(), 0);
  return s;
}

void Registry::add(const std::string& name, const Values& values, double d) {
  series(name, values).value += d;
}

void Registry::setIs(const std::string& name, const Values& values, double v) {
  series(name, values).value = v;
}

void Registry::observe(const std::string& name, const Values& values, double v) {
  Series& s = series(name, values);
  const std::vector<double>& b = family(name).buckets;
  for (std::size_t i = 0; i < b.size(); ++i)
    if (v <= b[i]) {
      ++s.counts[i];
      break;
    }
  ++s.count;
  s.value += v;  // the sum
}

void Registry::seriesDelAll(const std::string& name) {
  family(name).series.clear();
}

double Registry::value(const std::string& name, const Values& values) const {
  const Family& f = families_.at(index_.at(name));
  auto it = f.series.find(values);
  return it == f.series.end() ? 0 : it->second.value;
}

std::string Registry::text() const {
  std::string out;
  for (const Family& f : families_) {
    out += "# HELP " + f.name + " " + f.help + "\n# TYPE " + f.name + " " + typeName(f.type) + "\n";
    for (const auto& [values, s] : f.series) {
      if (f.type != Type::histogram) {
        out += f.name + labelSet(f.labels, values) + " " + sampleText(s.value) + "\n";
        continue;
      }
      std::uint64_t cumulative = 0;
      for (std::size_t i = 0; i < f.buckets.size(); ++i) {
        cumulative += s.counts[i];
        out += f.name + "_bucket" +
               labelSet(f.labels, values, "le=\"" + sampleText(f.buckets[i]) + "\"") + " " +
               std::to_string(cumulative) + "\n";
      }
      out += f.name + "_bucket" + labelSet(f.labels, values, "le=\"+Inf\"") + " " +
             std::to_string(s.count) + "\n";
      out += f.name + "_sum" + labelSet(f.labels, values) + " " + sampleText(s.value) + "\n";
      out += f.name + "_count" + labelSet(f.labels, values) + " " + std::to_string(s.count) + "\n";
    }
  }
  return out;
}

}  // namespace Agent::Metrics

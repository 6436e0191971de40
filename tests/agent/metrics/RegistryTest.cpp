#include "agent/metrics/Registry.h"

#include <gtest/gtest.h>

namespace Agent::Metrics {
namespace {

TEST(RegistryTest, SampleTexts) {
  const std::pair<double, const char*> cases[] = {
      {0, "0"}, {42, "42"}, {-3, "-3"}, {0.25, "0.25"}, {1e300, "1e+300"}, {1.0 / 0.0, "+Inf"}};
  for (const auto& [v, text] : cases) EXPECT_EQ(sampleText(v), text) << v;
}

TEST(RegistryTest, FamiliesInDeclaredOrderWithEscapedLabels) {
  Registry r;
  r.familyIs("b_total", Registry::Type::counter, "B things.", {"tool"});
  r.familyIs("a", Registry::Type::gauge, "A level.");
  r.add("b_total", {"ip\"6\\tables\n"}, 2);
  r.add("b_total", {"ip\"6\\tables\n"});
  r.setIs("a", {}, 7);
  EXPECT_EQ(r.text(),
            "# HELP b_total B things.\n# TYPE b_total counter\n"
            "b_total{tool=\"ip\\\"6\\\\tables\\n\"} 3\n"
            "# HELP a A level.\n# TYPE a gauge\na 7\n");
  EXPECT_THROW(r.add("b_total", {}), std::out_of_range);
}

TEST(RegistryTest, HistogramBucketsAreCumulative) {
  Registry r;
  r.familyIs("d_seconds", Registry::Type::histogram, "D.", {}, {0.1, 1});
  for (double v : {0.05, 0.5, 0.7, 5.0}) r.observe("d_seconds", {}, v);
  EXPECT_EQ(r.text(),
            "# HELP d_seconds D.\n# TYPE d_seconds histogram\n"
            "d_seconds_bucket{le=\"0.1\"} 1\nd_seconds_bucket{le=\"1\"} 3\n"
            "d_seconds_bucket{le=\"+Inf\"} 4\nd_seconds_sum 6.25\nd_seconds_count 4\n");
}

}  // namespace
}  // namespace Agent::Metrics

// Shared set-up of the firewall tests: system() is the recording fake,
// every trace level is captured and every log line too.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/dravo/NamespaceName.h"
#include "tests/support/Capture.h"
#include "tests/support/FakeSystem.h"

class FirewallTest : public ::testing::Test {
 protected:
  void SetUp() override { FakeSystem::reset(); }
  void TearDown() override { FakeSystem::reset(); }

  void clear() {
    FakeSystem::reset();
    traces.clear();
    logs.clear();
  }
  std::vector<std::string> logTexts(const std::string& name) const {
    std::vector<std::string> out;
    for (const LogLine& l : logs.lines()) {
      EXPECT_EQ(l.name, name);
      out.push_back(l.text);
    }
    return out;
  }

  // Named, but with no /run/netns entry: it cannot be opened.
  const Dravo::NamespaceName missingNs{"fhrp-test-no-such-ns"};
  TraceCapture traces;
  LogCapture logs;
};

// The namespaces every command line is checked in, with the prefix expected:
// the whole name is compared, case-sensitively, and pasted as it is.
struct NsCase {
  Dravo::NamespaceName ns;
  std::string prefix;
};
inline std::vector<NsCase> nsCases() {
  return {{Dravo::DEFAULT_NS, ""},
          {Dravo::NamespaceName(""), ""},
          {Dravo::NamespaceName("Default"), "ip netns exec Default "},
          {Dravo::NamespaceName("default "), "ip netns exec default  "},
          {Dravo::NamespaceName("blue"), "ip netns exec blue "}};
}

// raiseLog: which raises share a rate-limit bucket.
#include "AclPlugin/diagnostics/Raise.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/dravo/IpGenAddr.h"
#include "tests/support/Capture.h"
#include "tests/support/ManualLoop.h"

namespace {

using Routing::Fhrp::raiseLog;

constexpr const char* kFormat = "Failed to %s rule for %s on %s.";

// One line per 10 s of the manual clock for each bucket.
Kiv::LogHandle limited(const char* name, std::uint8_t rateLimitArgs) {
  return Kiv::LogHandle(name, Kiv::LogSeverity::warning, kFormat, "why", "what", 10.0, 1.0,
                        rateLimitArgs);
}

// A device name, as the plug-in passes one.
struct Device {
  const char* name;
  Kiv::String8 stringValue() const { return name; }
};

class RaiseLogTest : public ::testing::Test {
 protected:
  // How many lines the raise added.
  template <class... Args>
  std::size_t raised(Kiv::LogHandle& h, const Args&... args) {
    const std::size_t before = log_.lines().size();
    raiseLog(h, args...);
    return log_.lines().size() - before;
  }

  ManualLoop loop_{100.0};
  LogCapture log_;
  const Dravo::IpGenAddr a_{"10.0.0.1"};
  const Dravo::IpGenAddr b_{"10.0.0.2"};
  const Device vlan10_{"vlan10"};
  const Device vlan20_{"vlan20"};
};

TEST_F(RaiseLogTest, EachMessageAndEachCombinationOfTheFirstKArgumentsHasItsOwnBucket) {
  Kiv::LogHandle shared = limited("TEST_SHARED", 0);
  Kiv::LogHandle other = limited("TEST_OTHER", 0);
  EXPECT_EQ(raised(shared, "add", a_, vlan10_), 1u);
  EXPECT_EQ(raised(shared, "remove", b_, vlan20_), 0u) << "no key arguments: one bucket";
  EXPECT_EQ(raised(other, "add", a_, vlan10_), 1u) << "another message has its own bucket";

  Kiv::LogHandle perKey = limited("TEST_PER_KEY", 3);
  EXPECT_EQ(raised(perKey, "add", a_, vlan10_), 1u);
  EXPECT_EQ(raised(perKey, "add", a_, vlan10_), 0u);
  EXPECT_EQ(raised(perKey, "remove", a_, vlan10_), 1u);
  EXPECT_EQ(raised(perKey, "add", b_, vlan10_), 1u);
  EXPECT_EQ(raised(perKey, "add", a_, vlan20_), 1u);

  loop_.advance(9.9);
  EXPECT_EQ(raised(shared, "add", b_, vlan10_), 0u);
  EXPECT_EQ(raised(perKey, "add", a_, vlan10_), 0u);
  loop_.advance(0.1);
  EXPECT_EQ(raised(shared, "add", b_, vlan10_), 1u);
  EXPECT_EQ(raised(perKey, "add", a_, vlan10_), 1u);
}

}  // namespace

// raiseLog: which raises share a rate-limit bucket, and which arguments are
// turned into text when a raise is refused.
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

// A device name that counts its conversions to text.
struct Device {
  const char* name;
  int* conversions;
  Kiv::String8 stringValue() const {
    ++*conversions;
    return name;
  }
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
  int conversions_ = 0;
  const Dravo::IpGenAddr a_{"10.0.0.1"};
  const Dravo::IpGenAddr b_{"10.0.0.2"};
  const Device vlan10_{"vlan10", &conversions_};
  const Device vlan20_{"vlan20", &conversions_};
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

TEST_F(RaiseLogTest, ArgumentsBeyondTheKeyAreConvertedOnlyWhenAllowed) {
  Kiv::LogHandle none = limited("TEST_KEY0", 0);
  EXPECT_EQ(raised(none, "add", a_, vlan10_), 1u);
  EXPECT_EQ(conversions_, 1);
  EXPECT_EQ(raised(none, "add", a_, vlan10_), 0u);
  EXPECT_EQ(conversions_, 1);

  Kiv::LogHandle two = limited("TEST_KEY2", 2);
  EXPECT_EQ(raised(two, "add", a_, vlan10_), 1u);
  EXPECT_EQ(raised(two, "add", a_, vlan20_), 0u) << "the device is not part of the key";
  EXPECT_EQ(conversions_, 2);

  Kiv::LogHandle all = limited("TEST_KEY3", 3);
  EXPECT_EQ(raised(all, "add", a_, vlan10_), 1u);
  EXPECT_EQ(raised(all, "add", a_, vlan10_), 0u);
  EXPECT_EQ(conversions_, 4) << "a key argument is converted even when refused";

  // A key longer than the argument list takes all of it; integers print in decimal.
  Kiv::LogHandle capped = limited("TEST_KEY9", 9);
  EXPECT_EQ(raised(capped, 42, std::uint8_t{7}, Kiv::String8("x")), 1u);
  EXPECT_EQ(raised(capped, 43, std::uint8_t{7}, Kiv::String8("x")), 1u);
  EXPECT_EQ(log_.lines().back().text, "Failed to 43 rule for 7 on x.");
}

}  // namespace

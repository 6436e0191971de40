// The routing keys: the VRF name limit and the text forms of VrfIpPair and
// VrfIpWithMaskPair.
#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "platform/routing/VrfIpPair.h"

namespace {

using Routing::Fhrp::VrfIpPair;
using Routing::Fhrp::VrfIpWithMaskPair;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

TEST(VrfName, HoldsAtMostOneHundredBytes) {
  const std::string hundred(100, 'v'), tooLong(101, 'v');
  EXPECT_EQ(L3::VrfName(std::string_view(hundred)).stringValue(), hundred);
  const auto refused =
      ThrowsMessage<Kiv::RangeException>(StrEq("VrfName::bytes > 100 not allowed"));
  EXPECT_THAT([&] { L3::VrfName{std::string_view(tooLong)}; }, refused);
  EXPECT_THAT([&] { L3::VrfName{Kiv::String8(tooLong)}; }, refused);
}

// The exact text of a VrfIpPair is pinned by the records' refusal messages,
// the round trip of VrfIpWithMaskPair by the key parser's fuzz corpus.
TEST(VrfIpPair, TextFormRoundTrips) {
  const VrfIpPair odd(L3::VrfName("it's \\ odd"), Dravo::IpGenAddr("2001:db8::1"));
  EXPECT_EQ(Kiv::strepToValue<VrfIpPair>(valueToStrep(odd)), odd);
  // Attributes may come in any order.
  EXPECT_EQ(Kiv::strepToValue<VrfIpPair>(
                "Value('Routing::Fhrp::VrfIpPair', ** {'ipAddr': '10.0.0.1', 'vrfName': 'red'})"),
            VrfIpPair(L3::VrfName("red"), Dravo::IpGenAddr("10.0.0.1")));
  EXPECT_THROW(Kiv::strepToValue<VrfIpPair>(valueToStrep(VrfIpWithMaskPair())),
               Kiv::RangeException);
}

}  // namespace

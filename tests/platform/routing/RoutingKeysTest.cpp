// The routing keys' text forms. The VRF name limit is checked where the
// backlog key's parser reports it through its attribute.
#include <gtest/gtest.h>

#include <string>

#include "platform/routing/VrfIpPair.h"

namespace {

using Routing::Fhrp::VrfIpPair;
using Routing::Fhrp::VrfIpWithMaskPair;

// The exact text of a VrfIpPair is pinned by the records' refusal messages,
// the text of VrfIpWithMaskPair through the backlog key (KeysTest).
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

// The routing keys: the VRF name limit and the text forms of VrfIpPair and
// VrfIpWithMaskPair.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/routing/VrfIpPair.h"

namespace {

using Routing::Fhrp::VrfIpPair;
using Routing::Fhrp::VrfIpWithMaskPair;

template <class F>
std::string rangeError(F&& f) {
  try {
    f();
  } catch (const Kiv::RangeException& e) {
    return e.what();
  }
  return "";
}

TEST(VrfName, HoldsAtMostOneHundredBytes) {
  const std::string hundred(100, 'v'), tooLong(101, 'v');
  EXPECT_EQ(L3::VrfName(std::string_view(hundred)).stringValue(), hundred);
  EXPECT_EQ(rangeError([&] { L3::VrfName{std::string_view(tooLong)}; }),
            "VrfName::bytes > 100 not allowed");
  EXPECT_EQ(rangeError([&] { L3::VrfName{Kiv::String8(tooLong)}; }),
            "VrfName::bytes > 100 not allowed");
}

TEST(VrfIpPair, TextFormRoundTrips) {
  const VrfIpPair red(L3::VrfName("red"), Dravo::IpGenAddr("10.0.0.1"));
  EXPECT_EQ(valueToStrep(red),
            "Value('Routing::Fhrp::VrfIpPair', ** {'vrfName': 'red', 'ipAddr': '10.0.0.1'})");
  for (const VrfIpPair& v :
       {red, VrfIpPair(), VrfIpPair(L3::VrfName("it's \\ odd"), Dravo::IpGenAddr("2001:db8::1"))})
    EXPECT_EQ(Kiv::strepToValue<VrfIpPair>(valueToStrep(v)), v) << v;
  for (const VrfIpWithMaskPair& v :
       {VrfIpWithMaskPair(),
        VrfIpWithMaskPair(L3::VrfName("red"), Dravo::IpGenAddrWithMask("10.0.0.1/24")),
        VrfIpWithMaskPair(L3::DEFAULT_VRF,
                          Dravo::IpGenAddrWithMask(Dravo::IpGenAddr("2001:db8::5")))})
    EXPECT_EQ(Kiv::strepToValue<VrfIpWithMaskPair>(valueToStrep(v)), v) << v;
  // Attributes may come in any order.
  EXPECT_EQ(Kiv::strepToValue<VrfIpPair>(
                "Value('Routing::Fhrp::VrfIpPair', ** {'ipAddr': '10.0.0.1', 'vrfName': 'red'})"),
            red);
  EXPECT_THROW(Kiv::strepToValue<VrfIpPair>(valueToStrep(VrfIpWithMaskPair())),
               Kiv::RangeException);
}

}  // namespace

// Text forms of simple values, and the refusal of a bad quoted string.
#include "platform/kiv/Strep.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/dravo/EthAddr.h"
#include "platform/dravo/IntfId.h"
#include "platform/dravo/IpGenPrefix.h"

namespace {

using Kiv::String8;

template <class T>
void expectRoundTrip(const T& v, const char* strep) {
  EXPECT_EQ(Kiv::valueToStrep(v), strep);
  EXPECT_EQ(Kiv::strepToValue<T>(strep), v) << strep;
}

TEST(Strep, SimpleValuesRoundTrip) {
  expectRoundTrip(String8("it's a \\ test"), "'it\\'s a \\\\ test'");
  expectRoundTrip(Dravo::IntfId("Vlan10"), "'Vlan10'");
  expectRoundTrip(Dravo::IpGenAddr("2001:db8::1"), "'2001:db8::1'");
  expectRoundTrip(Dravo::IpGenAddr(), "''");
  expectRoundTrip(Dravo::IpGenPrefix("10.1.0.0/16"), "'10.1.0.0/16'");
  expectRoundTrip(Dravo::IpGenAddrWithMask("10.1.2.3/16"), "'10.1.2.3/16'");
  expectRoundTrip(Dravo::EthAddr("02:1c:73:00:00:99"), "'02:1c:73:00:00:99'");
}

TEST(Strep, UnterminatedOrUnquotedStringsAreRefused) {
  // Quoting and the column of junk are checked through the keys that use them.
  for (const char* bad : {"'unterminated", "'ends in escape\\'", "no quote'", ""})
    EXPECT_THROW(Kiv::strepToValue<String8>(bad), Kiv::RangeException) << bad;
}

}  // namespace

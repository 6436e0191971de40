// Text forms: quoting, token matching, and the errors a bad text gives.
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

TEST(Strep, TokensAndQuotedStrings) {
  // A blank in a token matches any run of white space, also none.
  for (const char* text : {",rest", "   ,rest", "\t\n ,rest"}) {
    const String8 s(text);
    Kiv::StrepIt pos = s.begin();
    Kiv::needString(pos, s.end(), " ,");
    EXPECT_EQ(String8(pos, s.end()), "rest") << '"' << text << '"';
  }
  const String8 s("Value ('x'");
  Kiv::StrepIt pos = s.begin();
  EXPECT_THROW(Kiv::needString(pos, s.end(), "Value("), Kiv::RangeException);
  EXPECT_EQ(pos, s.begin()) << "a failed match does not move";
  Kiv::needString(pos, s.end(), "Value (");
  EXPECT_EQ(*pos, '\'');

  const String8 quoted("'a\\'b\\\\c' tail");
  pos = quoted.begin();
  String8 out;
  Kiv::sequenceToValue(pos, quoted.end(), out);
  EXPECT_EQ(out, "a'b\\c");
  EXPECT_EQ(String8(pos, quoted.end()), " tail");
  for (const char* bad : {"'unterminated", "'ends in escape\\'", "no quote'", ""}) {
    const String8 b(bad);
    pos = b.begin();
    EXPECT_THROW(Kiv::sequenceToValue(pos, b.end(), out), Kiv::RangeException) << bad;
  }
}

TEST(Strep, JunkAfterTheValueIsReportedWithItsColumn) {
  auto error = [](auto parse) -> std::string {
    try {
      parse();
    } catch (const Kiv::RangeException& e) {
      return e.what();
    }
    return "";
  };
  EXPECT_EQ(error([] { Kiv::strepToValue<Dravo::IntfId>("'Vlan10'x"); }),
            "junk at column 8 deserializing 'Vlan10'x");
  EXPECT_EQ(error([] { Kiv::strepToValue<String8>("'a' 'b'"); }),
            "junk at column 3 deserializing 'a' 'b'");
}

}  // namespace

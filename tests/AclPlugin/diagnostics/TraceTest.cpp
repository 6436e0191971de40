// FHRP_TRACE: what a statement hands to the facility, and when it does not
// even build its text.
#include "AclPlugin/diagnostics/Trace.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "tests/support/Capture.h"

namespace {

// An operand that counts how often it is printed.
struct Counted {
  int* prints;
};
std::ostream& operator<<(std::ostream& os, const Counted& c) {
  ++*c.prints;
  return os << "counted";
}

void purgeMangleTables(int* prints) {
  FHRP_TRACE(0, "flush " << Counted{prints});
}

TEST(FhrpTrace, StatementsThatAreOffBuildNoText) {
  TraceCapture sink("VirtualIpArpMangleSm/none");
  int prints = 0;
  purgeMangleTables(&prints);
  Kiv::traceConfigIs("VirtualIpArpMangleSm/0,3-8");
  FHRP_TRACE(1, "unused level " << Counted{&prints});
  FHRP_TRACE(2, "unused level " << Counted{&prints});
  EXPECT_EQ(prints, 0);

  Kiv::traceConfigIs("VirtualIpArpMangleSm/none");
  std::ostringstream coverage;
  Kiv::coverageStream_ = &coverage;
  purgeMangleTables(&prints);
  Kiv::coverageStream_ = nullptr;
  EXPECT_EQ(prints, 1) << "coverage collection builds the text";
  EXPECT_TRUE(sink.lines().empty()) << "but writes no line";
  EXPECT_EQ(coverage.str().rfind("VirtualIpArpMangleSm/0 AclPlugin/VirtualIpArpTablesPlugin:", 0),
            0u)
      << coverage.str();
}

TEST(FhrpTrace, LiveStatementNamesItsFunctionAndPrintsTwelveDigits) {
  TraceCapture sink("VirtualIpArpMangleSm/0,3-8");
  int prints = 0;
  purgeMangleTables(&prints);
  FHRP_TRACE(3, "Early exit after " << 1.0 / 3.0 << " seconds " << 123456.789012345);
  ASSERT_EQ(sink.lines().size(), 2u);
  const TraceLine& f = sink.lines()[0];
  EXPECT_EQ(std::tie(f.facility, f.tag, f.level, f.file, f.function, f.text),
            std::tuple("VirtualIpArpMangleSm", "<unknown>", 0u,
                       "AclPlugin/VirtualIpArpTablesPlugin", "purgeMangleTables", "flush counted"));
  EXPECT_EQ(sink.at(3),
            std::vector<std::string>{"Early exit after 0.333333333333 seconds 123456.789012"});
}

}  // namespace

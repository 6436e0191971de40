// Switching trace levels by text.
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "platform/kiv/Trace.h"

namespace {

using Kiv::TraceHandle;

std::vector<unsigned> liveLevels(const TraceHandle& h) {
  std::vector<unsigned> out;
  for (unsigned l = 0; l <= TraceHandle::maxLevel; ++l)
    if (h.isLive(l)) out.push_back(l);
  return out;
}

TEST(TraceConfig, SwitchesExactlyTheNamedLevelsAlsoForLaterHandles) {
  TraceHandle before("VirtualIpArpMangleSm");
  TraceHandle other("SomethingElse");
  Kiv::traceConfigIs("VirtualIpArpMangleSm/0,3-8");
  TraceHandle after("VirtualIpArpMangleSm");
  const std::vector<unsigned> expected = {0, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(liveLevels(before), expected);
  EXPECT_EQ(liveLevels(after), expected);
  EXPECT_FALSE(other.enabled());

  Kiv::traceConfigIs("SomethingElse/all;VirtualIpArpMangleSm/5");
  EXPECT_EQ(liveLevels(after), (std::vector<unsigned>{5}));
  EXPECT_EQ(liveLevels(other).size(), 9u);
  Kiv::traceConfigIs("VirtualIpArpMangleSm/none;SomethingElse/none");
  EXPECT_FALSE(before.enabled());
  EXPECT_FALSE(TraceHandle("SomethingElse").enabled());
}

TEST(TraceConfig, MalformedSettingsThrowAndChangeNothing) {
  TraceHandle h("TraceConfigTest");
  Kiv::traceConfigIs("TraceConfigTest/2");
  for (const char* bad : {"TraceConfigTest", "/3", "TraceConfigTest/9", "TraceConfigTest/3-",
                          "TraceConfigTest/5-3", "TraceConfigTest/a", "TraceConfigTest/0,,3",
                          "TraceConfigTest/", "TraceConfigTest/1,", "TraceConfigTest/1;X/bad"}) {
    EXPECT_THROW(Kiv::traceConfigIs(bad), std::invalid_argument) << bad;
    EXPECT_EQ(liveLevels(h), (std::vector<unsigned>{2})) << bad;
  }
  Kiv::traceConfigIs("TraceConfigTest/none");
}

}  // namespace

// The event loop on a manual clock: timer order, cancellation, posted work.
#include "platform/kiv/ActivityManager.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/ManualLoop.h"

namespace {

using Fired = std::vector<std::string>;

TEST(ActivityManager, TimersFireInTimeOrderAndFifoForEqualTimes) {
  ManualLoop loop(100.0);
  Kiv::ActivityManager& am = loop.loop();
  EXPECT_EQ(Kiv::now(), 100.0);
  Fired fired;
  auto note = [&](std::string s) { return [&fired, s] { fired.push_back(s); }; };
  am.timerIs(105.0, note("late"));
  am.timerIs(103.0, note("b1"));
  am.timerIs(101.0, note("a"));
  const auto b2 = am.timerIs(103.0, note("b2"));
  am.timerIs(103.0, note("b3"));
  am.timerIs(99.0, note("past"));
  loop.runUntilIdle();
  EXPECT_EQ(fired, Fired{"past"});
  am.timerDel(b2);
  loop.advance(2.999);
  EXPECT_EQ(fired, (Fired{"past", "a"}));
  loop.advance(0.001);
  EXPECT_EQ(fired, (Fired{"past", "a", "b1", "b3"}));
  am.timerDel(b2);  // already gone: no effect
  loop.advance(10.0);
  EXPECT_EQ(fired, (Fired{"past", "a", "b1", "b3", "late"}));
  EXPECT_TRUE(am.idle());
}

TEST(ActivityManager, PostedWorkRunsOnALaterTurn) {
  ManualLoop loop(100.0);
  Kiv::ActivityManager& am = loop.loop();
  Fired ran;
  am.post([&] {
    ran.push_back("posted");
    am.post([&] { ran.push_back("posted by posted"); });
  });
  am.timerIs(100.0, [&] { ran.push_back("timer due now"); });
  EXPECT_TRUE(ran.empty()) << "post never runs inside the caller";
  EXPECT_EQ(am.runUntilIdle(), 3u);
  EXPECT_EQ(ran, (Fired{"posted", "timer due now", "posted by posted"}));
  EXPECT_TRUE(am.idle());
}

}  // namespace

namespace {

TEST(ActivityManager, ACallbacksExceptionGoesToTheHandlerAndTheLoopGoesOn) {
  ManualLoop loop(100.0);
  Kiv::ActivityManager& am = loop.loop();
  Fired fired;
  am.afterCallbackIs([&] { fired.push_back("after"); });
  am.callbackErrorIs([&](std::exception_ptr e) {
    try {
      std::rethrow_exception(e);
    } catch (const std::bad_alloc&) {
      fired.push_back("bad_alloc");
    }
  });
  am.post([] { throw std::bad_alloc(); });
  am.post([&] { fired.push_back("next"); });
  loop.runUntilIdle();
  EXPECT_EQ(fired, (Fired{"bad_alloc", "after", "next", "after"}));
  am.callbackErrorIs(nullptr);
  am.post([] { throw std::bad_alloc(); });
  EXPECT_THROW(loop.runUntilIdle(), std::bad_alloc) << "without a handler it leaves the loop";
  am.afterCallbackIs(nullptr);
}

}  // namespace

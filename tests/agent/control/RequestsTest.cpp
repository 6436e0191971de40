// The agent's answers on the control socket: one row per refused request,
// and a status before the plug-in is ready.
#include "agent/control/Requests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Agent::Control {
namespace {

std::string errorOf(const std::string& reply) {
  const nlohmann::json j = nlohmann::json::parse(reply);
  EXPECT_EQ(j["reply"], "error") << reply;
  return j.value("error", "");
}

TEST(RequestsTest, RefusesWhatItCannotAnswerWithAnErrorReply) {
  ApplyStats stats;
  Services s{nullptr, &stats, {}, {}};
  struct Row {
    const char* request;
    bool dryRun;
    const char* error;
  } rows[] = {
      {"garbage", false, "malformed request: want {\"request\": \"status\"|\"verify\"}"},
      {"[\"status\"]", false, "malformed request: want {\"request\": \"status\"|\"verify\"}"},
      {"{\"request\": 7}", false, "malformed request: want {\"request\": \"status\"|\"verify\"}"},
      {"{\"request\": \"frob\"}", false, "unknown request \"frob\""},
      {"{\"request\": \"verify\", \"repair\": \"yes\"}", false,
       "request failed: [json.exception.type_error.302] type must be boolean, but is string"},
      {"{\"request\": \"verify\"}", true, "dry run: nothing is installed to read back"},
      {"{\"request\": \"verify\"}", false, "the plug-in is not ready yet"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.request);
    s.facts.dryRun = r.dryRun;
    EXPECT_EQ(errorOf(answerRequest(r.request, s)), r.error);
  }
}

TEST(RequestsTest, StatusBeforeThePluginIsReady) {
  ApplyStats stats;
  stats.ranIs("ip netns exec ns-red iptables -t mangle -F PREROUTING", 256);
  AgentFacts facts;
  facts.uptime = 2.5;
  const nlohmann::json j = nlohmann::json::parse(
      answerRequest("{\"request\":\"status\"}", {nullptr, &stats, facts, {}}));
  EXPECT_EQ(j["reply"], "status");
  EXPECT_EQ(j["pluginReady"], false);
  EXPECT_EQ(j["uptime"], 2.5);
  EXPECT_EQ(j["document"], nullptr);
  EXPECT_EQ(j["backlog"], (nlohmann::json{{"size", 0}, {"oldestAge", 0.0}}));
  EXPECT_EQ(j["commands"], (nlohmann::json{{"iptables", {{"run", 1}, {"failed", 1}}}}));
  ASSERT_EQ(j["failures"].size(), 1u);
  EXPECT_EQ(j["failures"][0]["namespace"], "ns-red");
  EXPECT_EQ(j["failures"][0]["status"], 256);
}

}  // namespace
}  // namespace Agent::Control

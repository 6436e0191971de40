#include "agent/arptables/Translate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using Agent::Arptables::translate;

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(w);
  return out;
}

std::string joined(const std::vector<std::string>& args) {
  std::string out;
  for (const std::string& a : args) out += (out.empty() ? "" : " ") + a;
  return out;
}

// The stock form both Debian backends take; the plug-in's rule line with every
// option is pinned end to end (arptables_adapter), with a refusal.
TEST(TranslateTest, MapsThePluginsLinesTokenByToken) {
  // clang-format off
  const std::vector<std::pair<std::string, std::string>> rows{
      {"-D OUT -d 10.1.1.0/24 -o vlan10", "-D OUTPUT -d 10.1.1.0/24 -o vlan10"},
      {"-F OUT", "-F OUTPUT"}, {"-L OUT -n -v", "-L OUTPUT -n -v"}, {"-L", "-L"}, {"-S INPUT", "-S INPUT"},
  };
  // clang-format on
  for (const auto& [plugin, stock] : rows) {
    const auto t = translate(words(plugin));
    EXPECT_EQ(t.refusal, "") << plugin;
    EXPECT_EQ(joined(t.args), stock) << plugin;
  }
}

// A refusal leaves nothing to run.
TEST(TranslateTest, RefusesWhatItDoesNotKnow) {
  const std::vector<std::pair<std::string, std::string>> rows{
      {"-I OUT 1 -j ACCEPT", "unknown option \"-I\""},
      {"-A OUT -d 10.1.1.0/24 extra", "unexpected argument \"extra\""},
      {"-A OUT -a", "-a needs a value"},
      {"-A OUT --arpop", "--arpop needs a value"},
      {"-A OUT -j", "-j needs a value"},
      {"", "no command"},
  };
  for (const auto& [line, why] : rows) {
    const auto t = translate(words(line));
    EXPECT_EQ(t.refusal, why) << line;
    EXPECT_TRUE(t.args.empty()) << line;
  }
}

}  // namespace

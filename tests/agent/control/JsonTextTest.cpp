// Strings written as nlohmann's dump() writes them once made valid UTF-8
// (each byte outside a well-formed sequence becomes \xHH);
// members written ahead of time go in at their name's place.
#include "agent/control/JsonText.h"

#include <gtest/gtest.h>

#include "agent/Utf8.h"

namespace Agent::Control {
namespace {

TEST(JsonTextTest, EscapesStringsAsDumpDoesAfterMakingThemValidUtf8) {
  struct Row {
    const char* name;
    std::string in, out;
  } rows[] = {
      {"plain", "Vlan10", R"("Vlan10")"},
      {"quote and backslash", R"(a"b\c)", R"("a\"b\\c")"},
      {"short escapes", "\b\f\n\r\t", R"("\b\f\n\r\t")"},
      {"other controls", std::string("\0\x01\x1F", 3), R"("\u0000\u0001\u001f")"},
      {"DEL and UTF-8 as they are", "\x7F\xE2\x82\xAC", "\"\x7F\xE2\x82\xAC\""},
      {"a stray byte",
       "a\xC0"
       "b",
       R"("a\\xC0b")"},
      {"a truncated sequence, then a quote", "\xE2\x82\"", R"("\\xE2\\x82\"")"},
      {"U+10FFFF, then past it", "\xF4\x8F\xBF\xBF\xF4\x90\x80\x80",
       "\"\xF4\x8F\xBF\xBF\\\\xF4\\\\x90\\\\x80\\\\x80\""},
      {"four bytes, overlong, a surrogate, 0xF5", "\xF0\x9D\x84\x9E\xE0\x80\xAF\xED\xA0\x80\xF5",
       "\"\xF0\x9D\x84\x9E\\\\xE0\\\\x80\\\\xAF\\\\xED\\\\xA0\\\\x80\\\\xF5\""},
  };
  for (const Row& r : rows) {
    std::string text;
    appendJsonString(text, r.in);
    EXPECT_EQ(text, r.out) << r.name;
    EXPECT_EQ(text, nlohmann::json(escapeInvalidUtf8(r.in)).dump()) << r.name;
  }
}

TEST(JsonTextTest, PutsWrittenMembersInTheirNamesPlace) {
  std::string text;
  appendJsonObject(text, {{"b", 1.5}, {"d", {"x\xFF", nullptr}}},
                   {{"a", "[]"}, {"c", "true"}, {"e", "{}"}});
  EXPECT_EQ(text, R"({"a":[],"b":1.5,"c":true,"d":["x\\xFF",null],"e":{}})");
}

}  // namespace
}  // namespace Agent::Control

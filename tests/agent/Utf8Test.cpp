// Invalid bytes become \xHH, one per byte; well-formed sequences pass whole.
#include "agent/Utf8.h"

#include <gtest/gtest.h>

namespace Agent {
namespace {

struct Case {
  const char* name;
  std::string in, out;
};

TEST(Utf8Test, EscapesEachByteThatIsNotPartOfAWellFormedSequence) {
  const Case cases[] = {
      {"ascii and controls", "a\tb\n", "a\tb\n"},
      {"two, three and four bytes", "\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E",
       "\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"},
      {"highest code point", "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
      {"0xff", "x\xFFy", "x\\xFFy"},
      {"stray continuation", "\x80", "\\x80"},
      {"truncated at the end", "\xE2\x82", "\\xE2\\x82"},
      {"truncated, then ascii",
       "\xF0\x9D"
       "a",
       "\\xF0\\x9Da"},
      {"overlong two bytes", "\xC0\xAF", "\\xC0\\xAF"},
      {"overlong three bytes", "\xE0\x80\xAF", "\\xE0\\x80\\xAF"},
      {"surrogate", "\xED\xA0\x80", "\\xED\\xA0\\x80"},
      {"past U+10FFFF", "\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
      {"lead byte 0xF5", "\xF5", "\\xF5"},
  };
  for (const Case& c : cases) EXPECT_EQ(escapeInvalidUtf8(c.in), c.out) << c.name;
}

}  // namespace
}  // namespace Agent

#include "platform/kiv/Strep.h"

#include <cctype>
#include <cstdio>
#include <string>

namespace Kiv {

namespace {

std::string preview(StrepIt pos, StrepIt end) {
  std::string s(pos, end);
  if (s.size() > 24) s = s.substr(0, 24) + "...";
  return s;
}

}  // namespace

void needString(StrepIt& pos, StrepIt end, std::string_view token) {
  StrepIt p = pos;
  for (char c : token) {
    if (c == ' ') {
      while (p != end && std::isspace(static_cast<unsigned char>(*p))) ++p;
    } else if (p != end && *p == c) {
      ++p;
    } else {
      throw RangeException("expected \"" + std::string(token) + "\" at \"" + preview(pos, end) +
                           "\"");
    }
  }
  pos = p;
}

void sequenceToValue(StrepIt& pos, StrepIt end, String8& out) {
  StrepIt p = pos;
  if (p == end || *p != '\'')
    throw RangeException("expected a quoted string at \"" + preview(pos, end) + "\"");
  std::string s;
  for (++p; p != end && *p != '\''; ++p) {
    if (*p == '\\' && std::next(p) != end) ++p;
    s += *p;
  }
  if (p == end) throw RangeException("unterminated quoted string at \"" + preview(pos, end) + "\"");
  pos = ++p;
  out = String8(std::move(s));
}

String8 valueToStrep(const String8& s) {
  std::string q = "'";
  for (char c : s.view()) {
    if (c == '\'' || c == '\\') q += '\\';
    q += c;
  }
  q += '\'';
  return String8(std::move(q));
}

void rethrowFromDeserializeAttr(const char* attrName, const RangeException& e) {
  throw RangeException(std::string("error deserializing attribute '") + attrName +
                       "': " + e.what());
}

void checkNoJunk(const String8& text, StrepIt pos) {
  if (pos == text.end()) return;
  long long column = pos - text.begin();
  int n = std::snprintf(nullptr, 0, "junk at column %lld deserializing %s", column, text.charPtr());
  std::string msg(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(msg.data(), msg.size(), "junk at column %lld deserializing %s", column,
                text.charPtr());
  msg.pop_back();
  throw RangeException(msg);
}

void throwNoSuchAttribute(std::string_view shortName, const String8& name) {
  throw RangeException(std::string(shortName) + " has no such attribute: " + name.stdString());
}

}  // namespace Kiv

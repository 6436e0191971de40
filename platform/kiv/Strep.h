// Text forms ("strep") of framework values and the helpers that parse them.
//
// Simple values (a class with stringValue() and a constructor from text that
// throws RangeException on bad text) have the strep of their text quoted:
// 'Vlan10', '10.0.0.0/24'. Composite values write
//   Value('<type>', ** {'<attr>': <strep>, '<attr>': <strep>})
// and provide a parsing constructor T(IteratorConst& pos, IteratorConst end).
//
// needString(pos, end, token) matches a token: a blank in the token matches
// any run of white space (also none); any other character must match exactly.
#pragma once

#include <concepts>
#include <string_view>

#include "platform/kiv/Exception.h"
#include "platform/kiv/String8.h"

namespace Kiv {

using StrepIt = String8::IteratorConst;

template <class T>
concept SimpleValue = requires(const T& t, std::string_view text) {
  { t.stringValue() } -> std::convertible_to<String8>;
  T(text);
};

template <class T>
concept ParsedValue = std::constructible_from<T, StrepIt&, StrepIt>;

void needString(StrepIt& pos, StrepIt end, std::string_view token);

// Reads a single-quoted string ('a\'b' with backslash escapes).
void sequenceToValue(StrepIt& pos, StrepIt end, String8& out);

String8 valueToStrep(const String8& s);

template <SimpleValue T>
String8 valueToStrep(const T& v) {
  return valueToStrep(String8(v.stringValue()));
}

// Parses one attribute value in place.
template <class T>
void deserializeAttr(StrepIt& pos, StrepIt end, T& out) {
  if constexpr (std::same_as<T, String8>) {
    sequenceToValue(pos, end, out);
  } else if constexpr (ParsedValue<T>) {
    out = T(pos, end);
  } else {
    String8 text;
    sequenceToValue(pos, end, text);
    out = T(text.view());
  }
}

// Called from a catch block: rethrows the RangeException `e` with the name
// of the attribute that failed.
[[noreturn]] void rethrowFromDeserializeAttr(const char* attrName, const RangeException& e);

// Raises "junk at column %lld deserializing %s" unless pos is at the end.
void checkNoJunk(const String8& text, StrepIt pos);

// Parses a whole text into a value.
template <class T>
T strepToValue(const String8& text, const T* = nullptr) {
  StrepIt pos = text.begin();
  T v{};
  deserializeAttr(pos, text.end(), v);
  checkNoJunk(text, pos);
  return v;
}

// The composite form's frame. quotedType is the quoted type token as it
// must appear (" 'Routing::Fhrp::IntfSubnetPair'"), shortName names the
// type in errors; onAttr(name) parses the value of one attribute and throws
// for a name it does not know. Attributes may come in any order; a repeated
// one is parsed again.
template <class F>
void deserializeComposite(StrepIt& pos, StrepIt end, std::string_view quotedType,
                          std::string_view shortName, F&& onAttr) {
  needString(pos, end, " Value");
  needString(pos, end, " (");
  needString(pos, end, quotedType);
  needString(pos, end, " ,");
  needString(pos, end, " **");
  needString(pos, end, " {");
  for (bool first = true;; first = false) {
    needString(pos, end, " ");
    if (pos == end) throw RangeException("premature end of value type " + std::string(shortName));
    if (*pos == '}') break;
    if (!first) needString(pos, end, ", ");
    String8 name;
    sequenceToValue(pos, end, name);
    needString(pos, end, " : ");
    onAttr(name);
  }
  needString(pos, end, "} ");
  needString(pos, end, ") ");
}

[[noreturn]] void throwNoSuchAttribute(std::string_view shortName, const String8& name);

}  // namespace Kiv

// JSON written straight to text, for replies too large to build as a
// nlohmann::json tree first. The text is byte for byte what nlohmann's
// dump() writes for the same values (compact; an object's names in the
// sorted order dump() uses), so clients that parse with nlohmann see no
// difference.
//
// Every string and name is made valid UTF-8 as escapeInvalidUtf8 makes it
// (a stray byte becomes the four characters \xHH) before it is escaped, so
// the text always parses. Pure functions; any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace Agent::Control {

// `text` as a quoted JSON string, appended to `out`.
void appendJsonString(std::string& out, std::string_view text);

// `j` as dump() writes it, every string and name made valid UTF-8 first.
void appendJson(std::string& out, const nlohmann::json& j);

// The object `members` with the `written` ones (name -> JSON text already
// made, e.g. with appendJsonString) in their name's place. A name is in
// one of the two, not in both.
void appendJsonObject(std::string& out, const nlohmann::json& members,
                      const std::map<std::string, std::string>& written);

}  // namespace Agent::Control

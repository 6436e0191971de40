// The checks of one entry of the state, shared by every source: a state
// document checks its members with them, the Redis source its rows. Each
// takes a text and the place to name when it refuses, and returns the value
// or throws StateDocumentError(place, reason). The rules are those listed in
// StateDocument.h; messages are one line, escaped and bounded (see
// StateDocumentError). Pure functions; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "agent/source/StateDocument.h"

namespace Agent::Checks {

constexpr std::size_t kShownBytes = 64;     // of one echoed value
constexpr std::size_t kMessageBytes = 400;  // of a place or a reason
constexpr std::size_t kIntfIdBytes = 64;    // "Ethernet3/1/4.4094" and the like
constexpr std::size_t kNetNsBytes = 255;    // a file name under /run/netns

// s with control characters escaped as JSON escapes them (and, with quotes,
// '"' and '\\'), cut to at most max bytes, never inside an escape or a UTF-8
// character; *wasCut tells whether it was cut.
std::string escaped(std::string_view s, bool quotes, std::size_t max, bool* wasCut);
// Escaped and cut to max bytes with "...".
std::string oneLine(std::string_view s, std::size_t max);
// Quoted, escaped and cut to kShownBytes with "...".
std::string inQuotes(std::string_view s);

[[noreturn]] void refuse(const std::string& place, const std::string& reason);

const std::string& noNul(const std::string& s, const std::string& at);
// A name shown in trace lines and messages: no NUL, no control characters.
const std::string& printableName(const std::string& s, const std::string& at, const char* what);
// A name that goes unquoted into a shell command line.
std::string safeName(const std::string& s, const std::string& at, std::size_t maxLen,
                     const char* what);
std::string deviceName(const std::string& s, const std::string& at);
Dravo::NamespaceName namespaceName(const std::string& s, const std::string& at);
L3::VrfName vrfName(const std::string& s, const std::string& at);
Dravo::IntfId intfId(const std::string& s, const std::string& at);
Ip::VrfState vrfState(const std::string& s, const std::string& at);
Dravo::EthAddr mac(const std::string& s, const std::string& at);
// A virtual IP's key from its address text: IPv4 with a prefix length of 1
// to 32 (none: /32), IPv6 without; never an address a router cannot own.
Routing::Fhrp::VrfIpWithMaskPair vip4Key(const L3::VrfName& vrf, const std::string& text,
                                         const std::string& at);
Routing::Fhrp::VrfIpPair vip6Key(const L3::VrfName& vrf, const std::string& text,
                                 const std::string& at);

}  // namespace Agent::Checks

// Valid text forms of the two keys, the seed corpus of the key parser fuzzing.
#pragma once

#include <string>
#include <vector>

// Streps of a spread of values (IPv4, IPv6, defaults, quotes and escapes,
// 100-byte VRF names), each known to parse.
std::vector<std::string> keySeeds();

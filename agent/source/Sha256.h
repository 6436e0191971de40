// SHA-256 of a byte string, as 64 lower-case hex digits (FIPS 180-4). For
// the status report's fingerprint of the state document in force.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

std::string sha256Hex(std::string_view data);
// Of a file's contents; empty when it cannot be read.
std::string fileSha256Hex(const std::string& path);

}  // namespace Agent

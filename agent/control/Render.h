// The human forms of the control socket's JSON replies: aligned tables for
// status, one line per finding for verify.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace Agent::Control {

// Rows padded into columns two spaces apart; the first row is the header.
std::string alignedTable(const std::vector<std::vector<std::string>>& rows);
std::string statusText(const nlohmann::json& status);
std::string verifyText(const nlohmann::json& verify);

}  // namespace Agent::Control

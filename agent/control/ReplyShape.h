// The client's check of a reply before it prints anything from it: the
// reply must have the shape the README gives for its request (the kind of
// "reply", every field present with its type, the same down every list).
// Fields the shape does not name are let through, so an older client can
// read a newer agent's reply.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace Agent::Control {

// "" when `reply` is a well-formed reply to `request` ("status" or
// "verify"), an error reply included; else where and why it is not, e.g.
// "virtualIps[0].interfaces[1].installed: want a bool, not a string".
std::string replyProblem(const nlohmann::json& reply, const std::string& request);

}  // namespace Agent::Control

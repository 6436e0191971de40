#include "agent/control/Requests.h"

#include "agent/control/ControlServer.h"

namespace Agent::Control {

namespace {

std::string doAnswer(const std::string& text, const Services& s) {
  const nlohmann::json request = nlohmann::json::parse(text, nullptr, false);
  if (!request.is_object() || !request.contains("request") || !request["request"].is_string())
    return ControlServer::errorReply(
        "malformed request: want {\"request\": \"status\"|\"verify\"}");
  const std::string what = request["request"];
  if (what == "status") return statusReply(s.view, *s.stats, s.facts);
  if (what == "metrics" && s.metrics)
    return nlohmann::json{{"reply", "metrics"}, {"text", s.metrics()}}.dump() + "\n";
  if (what != "verify") return ControlServer::errorReply("unknown request \"" + what + "\"");
  const bool repair = request.value("repair", false);
  if (repair && s.peerUid != 0) return ControlServer::errorReply("repair is root's only");
  if (s.facts.dryRun)
    return ControlServer::errorReply("dry run: nothing is installed to read back");
  if (!s.view) return ControlServer::errorReply("the plug-in is not ready yet");
  const VerifyResult r = doVerify(*s.view, s.verify, repair);
  if (s.verified) s.verified(r);
  return ControlServer::replyLine(verifyJson(r));
}

}  // namespace

std::string answerRequest(const std::string& request, const Services& services) {
  try {
    return doAnswer(request, services);
  } catch (const std::exception& e) {
    return ControlServer::errorReply(std::string("request failed: ") + e.what());
  }
}

}  // namespace Agent::Control

#include "agent/control/Client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>

#include <nlohmann/json.hpp>

#include "agent/control/Render.h"
#include "agent/control/ReplyShape.h"
#include "agent/Utf8.h"

namespace Agent::Control {

namespace {

// verify reads back every namespace: it may take a while on a large host.
constexpr double replyTimeout = 120.0;
// Far above any real reply: a peer that never stops talking is not the agent.
constexpr std::size_t maxReply = 64 << 20;

int answered(const Options& options, const std::string& text) {
  const bool verify = options.mode == Options::Mode::verify;
  const bool metrics = options.mode == Options::Mode::metrics;
  const nlohmann::json reply = nlohmann::json::parse(text, nullptr, false);
  if (reply.is_discarded()) {
    std::cerr << "acl-agent: the agent's reply is not JSON (" << text.size() << " bytes)\n";
    return 2;
  }
  const std::string problem = replyProblem(reply, verify ? "verify" : metrics ? "metrics" : "status");
  if (!problem.empty()) {
    std::cerr << "acl-agent: malformed reply from the agent: " << problem << "\n";
    return 2;
  }
  if (reply["reply"] == "error") {
    std::cerr << "acl-agent: the agent says: " << reply["error"].get<std::string>() << "\n";
    return 2;
  }
  if (metrics) {
    std::cout << reply["text"].get<std::string>();
    return 0;
  }
  if (options.json)
    std::cout << reply.dump(2) << "\n";
  else
    std::cout << (verify ? verifyText(reply) : statusText(reply));
  if (!verify) return 0;
  if (reply["readFailed"].get<bool>()) return 2;
  return reply["inStep"].get<bool>() ? 0 : 1;
}

}  // namespace

std::optional<std::string> askAgent(const std::string& path, const std::string& request,
                                    double timeout, std::string& why) {
  sockaddr_un a;
  std::memset(&a, 0, sizeof a);
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) {
    why = path + ": path too long for a Unix socket";
    return std::nullopt;
  }
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) {
    why = "cannot reach the agent on " + path + ": " + std::strerror(errno);
    if (fd >= 0) ::close(fd);
    return std::nullopt;
  }
  const std::string line = request + "\n";
  if (::send(fd, line.data(), line.size(), MSG_NOSIGNAL) != ssize_t(line.size())) {
    why = "cannot send the request: " + std::string(std::strerror(errno));
    ::close(fd);
    return std::nullopt;
  }
  ::shutdown(fd, SHUT_WR);
  std::string reply;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    pollfd p{fd, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&p, 1, int(left.count())) <= 0) {
      why = "no reply from the agent within " + std::to_string(int(timeout)) + " s";
      ::close(fd);
      return std::nullopt;
    }
    char buf[4096];
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n > 0) {
      reply.append(buf, std::size_t(n));
      if (reply.size() > maxReply) {
        why = "the reply runs past " + std::to_string(maxReply >> 20) + " MiB";
        ::close(fd);
        return std::nullopt;
      }
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      why = "reading the reply: " + std::string(std::strerror(errno));
      ::close(fd);
      return std::nullopt;
    }
  }
  ::close(fd);
  return reply;
}

int runClient(const Options& options) {
  const bool verify = options.mode == Options::Mode::verify;
  const bool metrics = options.mode == Options::Mode::metrics;
  nlohmann::json request{{"request", verify ? "verify" : metrics ? "metrics" : "status"}};
  if (verify) request["repair"] = options.repair;
  std::string why;
  const std::optional<std::string> text =
      askAgent(options.controlPath, request.dump(), replyTimeout, why);
  if (!text) {
    std::cerr << "acl-agent: " << escapeInvalidUtf8(why) << "\n";
    return 2;
  }
  try {
    return answered(options, *text);
  } catch (const std::exception& e) {  // whatever the peer sent, no abort
    std::cerr << "acl-agent: cannot read the agent's reply: " << e.what() << "\n";
    return 2;
  }
}

}  // namespace Agent::Control

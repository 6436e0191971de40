#include "agent/control/ControlServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "agent/control/JsonText.h"

namespace Agent::Control {

namespace {

bool addressOf(const std::string& path, sockaddr_un& a) {
  std::memset(&a, 0, sizeof a);
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) return false;
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  return true;
}

// Whether something accepts connections on the socket file.
bool answers(const sockaddr_un& a) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
  ::close(fd);
  return ok;
}

// Why a client could be served a forged reply through `dir`, or "".
std::string folderProblem(const std::filesystem::path& dir) {
  struct stat st;
  if (::lstat(dir.c_str(), &st) != 0) return dir.string() + ": " + std::strerror(errno);
  if (S_ISLNK(st.st_mode)) return dir.string() + ": is a symbolic link; name the folder itself";
  if (!S_ISDIR(st.st_mode)) return dir.string() + ": not a directory";
  if (st.st_uid != 0 && st.st_uid != ::geteuid())
    return dir.string() + ": owned by uid " + std::to_string(st.st_uid) +
           ", not by root: its owner could replace the socket";
  if (st.st_mode & (S_IWGRP | S_IWOTH)) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", unsigned(st.st_mode & 07777));
    return dir.string() + ": writable by group or others (mode " + mode +
           "): they could replace the socket";
  }
  return "";
}

}  // namespace

ControlServer::ControlServer(Kiv::ActivityManager& loop, std::string path, Handler handler)
    : loop_(loop), path_(std::move(path)), handler_(std::move(handler)) {}

ControlServer::ControlServer(Kiv::ActivityManager& loop, std::string path, PeerHandler handler)
    : loop_(loop), path_(std::move(path)), peerHandler_(std::move(handler)) {}

ControlServer::~ControlServer() {
  while (!clients_.empty()) doClose(clients_.begin()->first);
  if (listenFd_ < 0) return;
  loop_.fdDel(listenFd_);
  ::close(listenFd_);
  ::unlink(path_.c_str());
}

std::string ControlServer::replyLine(const nlohmann::json& reply) {
  std::string out;
  appendJson(out, reply);
  return out += '\n';
}

std::string ControlServer::replyLine(const nlohmann::json& reply,
                                     const std::map<std::string, std::string>& written) {
  std::size_t size = 2;
  for (const auto& [name, text] : written) size += name.size() + text.size() + 4;
  std::string out;
  out.reserve(size + 4096);
  appendJsonObject(out, reply, written);
  return out += '\n';
}

std::string ControlServer::errorReply(const std::string& why) {
  return replyLine({{"reply", "error"}, {"error", why}});
}

bool ControlServer::doListen(std::string& why) {
  sockaddr_un a;
  if (!addressOf(path_, a)) {
    why = path_ + ": path too long for a Unix socket";
    return false;
  }
  std::filesystem::path dir = std::filesystem::path(path_).parent_path();
  if (dir.empty()) dir = ".";
  std::error_code ec;
  if (!std::filesystem::exists(dir, ec)) {
    std::filesystem::create_directories(dir, ec);
    if (ec || ::chmod(dir.c_str(), 0700) != 0) {
      why = dir.string() + ": cannot make the directory: " + ec.message();
      return false;
    }
  }
  why = folderProblem(dir);
  if (!why.empty()) return false;
  struct stat st;
  if (::lstat(path_.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      why = path_ + ": exists and is not a socket";
      return false;
    }
    if (answers(a)) {
      why = path_ + ": another agent answers on it";
      return false;
    }
    ::unlink(path_.c_str());  // stale: its agent is gone
  }
  listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  // Made 0600 from the start: no moment where others may connect.
  const mode_t old = ::umask(0177);
  const bool bound =
      listenFd_ >= 0 && ::bind(listenFd_, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
  ::umask(old);
  if (!bound || ::listen(listenFd_, 16) != 0) {
    why = path_ + ": " + std::strerror(errno);
    if (listenFd_ >= 0) ::close(listenFd_);
    listenFd_ = -1;
    return false;
  }
  loop_.fdIs(listenFd_, [this] { handleAccept(); });
  return true;
}

void ControlServer::handleAccept() {
  int fd;
  while ((fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0) {
    if (clients_.size() >= maxClients && !doMakeRoom()) {
      ::close(fd);
      continue;
    }
    Client& c = clients_[fd];
    c.order = ++accepted_;
    ucred cred{};
    socklen_t len = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) c.uid = cred.uid;
    c.deadline = loop_.timerIs(
        loop_.now() + timeout, [this, fd] { handleDeadline(fd); },
        Kiv::ActivityManager::Kind::background);
    loop_.fdIs(fd, [this, fd] { handleReadable(fd); });
    // A request already there is served before more accepts could evict it.
    handleReadable(fd);
  }
}

bool ControlServer::doMakeRoom() {
  auto oldest = clients_.end();
  for (auto it = clients_.begin(); it != clients_.end(); ++it)
    if (!it->second.replying &&
        (oldest == clients_.end() || it->second.order < oldest->second.order))
      oldest = it;
  if (oldest == clients_.end()) return false;
  // A courtesy line, if the socket takes it at once; never waited for.
  const std::string bye = errorReply("dropped: no request, and another client was waiting");
  [[maybe_unused]] ssize_t n =
      ::send(oldest->first, bye.data(), bye.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  doClose(oldest->first);
  return true;
}

void ControlServer::handleReadable(int fd) {
  Client& c = clients_.at(fd);
  char buf[1024];
  bool ended = false;
  for (;;) {
    const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (n > 0) {
      c.in.append(buf, std::size_t(n));
      if (c.in.size() > maxRequest) return doReply(fd, errorReply("request too large"));
      continue;
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (n < 0 && errno == EINTR) continue;
    ended = true;  // end of writing, or an error: what came is the request
    break;
  }
  const std::size_t newline = c.in.find('\n');
  if (newline == std::string::npos && !ended) return;
  std::string request = c.in.substr(0, newline);
  if (request.empty()) return doReply(fd, errorReply("empty request"));
  std::string reply;
  try {
    reply = peerHandler_ ? peerHandler_(request, c.uid) : handler_(request);
  } catch (const std::exception& e) {  // a client never ends the agent
    reply = errorReply(std::string("request failed: ") + e.what());
  }
  doReply(fd, reply);
}

void ControlServer::handleDeadline(int fd) {
  Client& c = clients_.at(fd);
  c.deadline = 0;
  if (c.replying) return doClose(fd);  // it does not read its reply
  doReply(fd, errorReply("no request within " + std::to_string(int(timeout)) + " s"));
}

void ControlServer::doReply(int fd, const std::string& reply) {
  Client& c = clients_.at(fd);
  loop_.fdDel(fd);
  c.replying = true;
  c.out = reply;
  loop_.timerDel(c.deadline);
  c.deadline = loop_.timerIs(
      loop_.now() + timeout, [this, fd] { handleDeadline(fd); },
      Kiv::ActivityManager::Kind::background);
  doFlush(fd);
}

void ControlServer::doFlush(int fd) {
  Client& c = clients_.at(fd);
  c.retry = 0;
  while (c.sent < c.out.size()) {
    const ssize_t n =
        ::send(fd, c.out.data() + c.sent, c.out.size() - c.sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n > 0) {
      c.sent += std::size_t(n);
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // The loop watches only readability: come back shortly.
      c.retry = loop_.timerIs(
          loop_.now() + writeRetry, [this, fd] { doFlush(fd); },
          Kiv::ActivityManager::Kind::background);
      return;
    } else if (!(n < 0 && errno == EINTR)) {
      break;  // the client went away
    }
  }
  doClose(fd);
}

void ControlServer::doClose(int fd) {
  auto it = clients_.find(fd);
  if (it == clients_.end()) return;
  loop_.timerDel(it->second.deadline);
  loop_.timerDel(it->second.retry);
  loop_.fdDel(fd);
  ::close(fd);
  clients_.erase(it);
}

}  // namespace Agent::Control

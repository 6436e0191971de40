// The agent's control socket: a Unix stream socket on the event loop that
// serves one request per connection. A request is one line of text (up to
// maxRequest bytes, ended by a newline or by the client's end of writing);
// the reply is what the handler returns, then the connection closes.
//
// Nothing here blocks the loop: accepts, reads and writes are non-blocking.
// A client that sends no complete request within `timeout` is idle: it gets
// an error reply and is dropped; one that sends too much gets an error reply
// at once; one that does not read its reply within `timeout` is dropped. At
// most maxClients are served at once. When full, a new client takes the
// place of the oldest idle one, so idle clients cannot shut others out; when
// every client is being answered, the new one is closed on accept.
//
// The socket's directory is made 0700 when missing. Whether made or found, it
// must be owned by root (or by the user the agent runs as) and writable by
// nobody else, since whoever may write it can replace the socket and answer
// in the agent's name. The socket is 0600: only root (the agent's user)
// connects. A PeerHandler is also told the connecting process's user id
// (SO_PEERCRED, taken at accept), for requests that need more than a
// connection. An existing socket file on which an agent answers makes
// doListen fail; a stale one is removed. The destructor closes everything
// and removes the socket file. Event-loop thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "platform/kiv/ActivityManager.h"

namespace Agent::Control {

class ControlServer {
 public:
  using Handler = std::function<std::string(const std::string& request)>;
  static constexpr std::size_t maxRequest = 4096;
  static constexpr std::size_t maxClients = 16;
  static constexpr double timeout = 2.0;  // seconds, on the loop's clock
  static constexpr double writeRetry = 0.01;

  using PeerHandler = std::function<std::string(const std::string& request, unsigned uid)>;
  ControlServer(Kiv::ActivityManager& loop, std::string path, Handler handler);
  ControlServer(Kiv::ActivityManager& loop, std::string path, PeerHandler handler);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // False, with the reason in `why`, when the socket cannot be made.
  bool doListen(std::string& why);
  std::size_t clientCount() const { return clients_.size(); }

  // A reply as it goes on the wire: one line of JSON. Every text in it is
  // made valid UTF-8 first (escapeInvalidUtf8), so writing it never throws.
  static std::string replyLine(const nlohmann::json& reply);
  // The same for the object `reply` with members the caller wrote as text
  // (JsonText.h), for replies too large to build as a tree.
  static std::string replyLine(const nlohmann::json& reply,
                               const std::map<std::string, std::string>& written);
  // The reply to a request that could not be read: {"reply":"error",...}.
  static std::string errorReply(const std::string& why);

 private:
  struct Client {
    std::string in, out;
    std::size_t sent = 0;
    bool replying = false;    // a complete request came: no longer idle
    std::uint64_t order = 0;  // accept order: the oldest idle one goes first
    unsigned uid = ~0u;       // unknown: never root
    Kiv::ActivityManager::TimerId deadline = 0, retry = 0;
  };
  void handleAccept();
  // Makes room for one more client; false when every one is being answered.
  bool doMakeRoom();
  void handleReadable(int fd);
  void handleDeadline(int fd);
  void doReply(int fd, const std::string& reply);
  void doFlush(int fd);
  void doClose(int fd);

  Kiv::ActivityManager& loop_;
  std::string path_;
  Handler handler_;
  PeerHandler peerHandler_;
  int listenFd_ = -1;
  std::map<int, Client> clients_;
  std::uint64_t accepted_ = 0;
};

}  // namespace Agent::Control

// One asynchronous connection to a Redis server (hiredis), driven by the
// agent's own event loop: hiredis's read and write hooks become the loop's
// file events, so no thread of its own and no blocking call.
//
// Lifetime: the owner makes one per connection attempt and drops it when
// told the connection is gone (Closed, always called on a later turn of the
// loop, never inside a call of the owner's, at most once). Reply callbacks
// run on the loop; a command's callback once with its reply, a
// subscription's for each message; none after the connection is gone or
// dropped. Never destroy a connection inside one of its own callbacks:
// post that to the loop. Event-loop thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/kiv/ActivityManager.h"

struct redisAsyncContext;
struct redisReply;

namespace Agent::Redis {

// "unix:PATH" or "HOST:PORT" ("[V6]:PORT" too).
struct Address {
  std::string path;  // set: a Unix socket
  std::string host;
  int port = 0;
  std::string text;  // as given
};
// Throws std::invalid_argument with the reason.
Address parseAddress(const std::string& text);

class Connection {
 public:
  using Reply = std::function<void(const redisReply& reply)>;
  using Closed = std::function<void(const std::string& why)>;

  Connection(Kiv::ActivityManager& loop, const Address& address, Closed closed);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Queues a command (each argument as bytes); sent when the socket takes it.
  void command(const std::vector<std::string>& argv, Reply reply);
  // PSUBSCRIBE: `reply` gets the confirmation and every message.
  void subscribe(const std::vector<std::string>& patterns, Reply reply);
  Kiv::ActivityManager& loop() { return loop_; }

 private:
  static void onReply(redisAsyncContext* ac, void* reply, void* privdata);
  static void onConnect(const redisAsyncContext* ac, int status);
  static void onDisconnect(const redisAsyncContext* ac, int status);
  void doSend(const std::vector<std::string>& argv, Reply reply, bool persistent);
  void handleGone(const std::string& why);

  struct Pending {
    Reply reply;
    bool persistent = false;
  };
  Kiv::ActivityManager& loop_;
  Closed closed_;
  redisAsyncContext* ac_ = nullptr;
  std::map<std::uintptr_t, Pending> pending_;
  std::uintptr_t nextId_ = 1;
  bool gone_ = false;
  std::shared_ptr<bool> alive_;  // false once destroyed: a posted Closed is dropped
};

}  // namespace Agent::Redis

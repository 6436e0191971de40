#include "agent/source/redis/RedisConnection.h"

#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include <memory>
#include <stdexcept>

namespace Agent::Redis {

namespace {

// hiredis's event hooks on our loop. privdata is the context.
void addRead(void* privdata) {
  auto* ac = static_cast<redisAsyncContext*>(privdata);
  static_cast<Agent::Redis::Connection*>(ac->data)->loop().fdIs(ac->c.fd,
                                                                [ac] { redisAsyncHandleRead(ac); });
}
void delRead(void* privdata) {
  auto* ac = static_cast<redisAsyncContext*>(privdata);
  static_cast<Agent::Redis::Connection*>(ac->data)->loop().fdDel(ac->c.fd);
}
void addWrite(void* privdata) {
  auto* ac = static_cast<redisAsyncContext*>(privdata);
  static_cast<Agent::Redis::Connection*>(ac->data)->loop().fdWriteIs(
      ac->c.fd, [ac] { redisAsyncHandleWrite(ac); });
}
void delWrite(void* privdata) {
  auto* ac = static_cast<redisAsyncContext*>(privdata);
  static_cast<Agent::Redis::Connection*>(ac->data)->loop().fdWriteDel(ac->c.fd);
}
void cleanup(void* privdata) {
  delRead(privdata);
  delWrite(privdata);
}

}  // namespace

Address parseAddress(const std::string& text) {
  Address a;
  a.text = text;
  if (text.starts_with("unix:")) {
    a.path = text.substr(5);
    if (a.path.empty()) throw std::invalid_argument("unix: needs a socket path");
    return a;
  }
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0)
    throw std::invalid_argument("expected unix:PATH or HOST:PORT");
  a.host = text.substr(0, colon);
  if (a.host.size() > 2 && a.host.front() == '[' && a.host.back() == ']')
    a.host = a.host.substr(1, a.host.size() - 2);
  const std::string port = text.substr(colon + 1);
  if (port.empty() || port.size() > 5 ||
      port.find_first_not_of("0123456789") != std::string::npos || std::stoi(port) < 1 ||
      std::stoi(port) > 65535)
    throw std::invalid_argument("port \"" + port + "\" is not 1 to 65535");
  a.port = std::stoi(port);
  return a;
}

Connection::Connection(Kiv::ActivityManager& loop, const Address& address, Closed closed)
    : loop_(loop), closed_(std::move(closed)), alive_(std::make_shared<bool>(true)) {
  ac_ = address.path.empty() ? redisAsyncConnect(address.host.c_str(), address.port)
                             : redisAsyncConnectUnix(address.path.c_str());
  if (!ac_ || ac_->err) {
    const std::string why = ac_ ? ac_->errstr : "cannot allocate a connection";
    if (ac_) redisAsyncFree(ac_);
    ac_ = nullptr;
    handleGone(why);
    return;
  }
  ac_->data = this;
  ac_->ev.data = ac_;
  ac_->ev.addRead = addRead;
  ac_->ev.delRead = delRead;
  ac_->ev.addWrite = addWrite;
  ac_->ev.delWrite = delWrite;
  ac_->ev.cleanup = cleanup;
  redisAsyncSetConnectCallback(ac_, onConnect);
  redisAsyncSetDisconnectCallback(ac_, onDisconnect);
}

Connection::~Connection() {
  *alive_ = false;
  gone_ = true;  // nothing of ours is called from here on
  if (ac_) redisAsyncFree(ac_);
}

void Connection::command(const std::vector<std::string>& argv, Reply reply) {
  doSend(argv, std::move(reply), false);
}

void Connection::subscribe(const std::vector<std::string>& patterns, Reply reply) {
  std::vector<std::string> argv{"PSUBSCRIBE"};
  argv.insert(argv.end(), patterns.begin(), patterns.end());
  doSend(argv, std::move(reply), true);
}

void Connection::doSend(const std::vector<std::string>& argv, Reply reply, bool persistent) {
  if (!ac_ || gone_) return;
  std::vector<const char*> args;
  std::vector<std::size_t> lens;
  for (const std::string& a : argv) {
    args.push_back(a.data());
    lens.push_back(a.size());
  }
  const std::uintptr_t id = nextId_++;
  pending_[id] = {std::move(reply), persistent};
  if (redisAsyncCommandArgv(ac_, onReply, reinterpret_cast<void*>(id), int(args.size()),
                            args.data(), lens.data()) != REDIS_OK) {
    pending_.erase(id);
    handleGone("cannot queue a command");
  }
}

void Connection::onReply(redisAsyncContext* ac, void* reply, void* privdata) {
  Connection& c = *static_cast<Connection*>(ac->data);
  const auto id = reinterpret_cast<std::uintptr_t>(privdata);
  auto it = c.pending_.find(id);
  if (it == c.pending_.end()) return;
  if (!reply || c.gone_) {  // the connection is going: its callbacks are dropped
    c.pending_.erase(it);
    return;
  }
  Reply cb = it->second.persistent ? it->second.reply : std::move(it->second.reply);
  if (!it->second.persistent) c.pending_.erase(it);
  cb(*static_cast<redisReply*>(reply));
}

void Connection::onConnect(const redisAsyncContext* ac, int status) {
  if (status == REDIS_OK) return;
  // hiredis frees the context when this returns.
  Connection& c = *static_cast<Connection*>(ac->data);
  c.ac_ = nullptr;
  c.handleGone(ac->errstr);
}

void Connection::onDisconnect(const redisAsyncContext* ac, int status) {
  Connection& c = *static_cast<Connection*>(ac->data);
  c.ac_ = nullptr;  // hiredis frees it when this returns
  c.handleGone(status == REDIS_OK ? "closed" : ac->errstr);
}

void Connection::handleGone(const std::string& why) {
  if (gone_) return;
  gone_ = true;
  std::weak_ptr<bool> alive = alive_;
  loop_.post([this, alive, why] {
    if (auto a = alive.lock(); a && *a && closed_) closed_(why);
  });
}

}  // namespace Agent::Redis

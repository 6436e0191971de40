#include "agent/source/redis/RedisSource.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <chrono>
#include <iostream>

namespace Agent::Redis {

namespace {

constexpr double kFirstRetry = 0.1, kLastRetry = 5.0;  // seconds
constexpr double kWriteEvery = 0.2;                    // seconds, the own table
const char* const kTables[] = {"VRF|",        "INTERFACE|",   "VIRTUAL_ROUTER_MAC|",
                               "VIRTUAL_IP|", "VIRTUAL_IP6|", "ACL_AGENT_INPUT|"};
constexpr unsigned kTableCount = std::size(kTables);

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string text(const redisReply& r) {
  return r.str ? std::string(r.str, r.len) : std::string();
}

bool isArray(const redisReply& r, std::size_t atLeast) {
  return r.type == REDIS_REPLY_ARRAY && r.elements >= atLeast;
}

}  // namespace

RedisSource::RedisSource(Kiv::ActivityManager& loop, PhasedPublisher& publisher,
                         SourceConfig config, FirstReady firstReady, View view)
    : loop_(loop),
      publisher_(publisher),
      config_(std::move(config)),
      firstReady_(std::move(firstReady)),
      view_(std::move(view)),
      origin_("redis " + config_.address.text + " db " + std::to_string(config_.db)) {}

RedisSource::~RedisSource() {
  loop_.timerDel(reconnectTimer_);
  loop_.timerDel(writeTimer_);
}

void RedisSource::say(const std::string& line) const {
  std::cerr << "acl-agent: redis " << config_.address.text << ": " << line << "\n";
}

void RedisSource::doStart() {
  doConnect();
}

void RedisSource::doConnect() {
  reconnectTimer_ = 0;
  subscribed_ = 0;
  reading_ = 0;
  connected_ = configDone_ = snapshotting_ = snapshotTaken_ = false;
  auto closed = [this](const std::string& why) { handleClosed(why); };
  data_ = std::make_unique<Connection>(loop_, config_.address, closed);
  sub_ = std::make_unique<Connection>(loop_, config_.address, closed);
  data_->command({"SELECT", std::to_string(config_.db)},
                 [this](const redisReply& r) { handleSelected(r); });
  std::vector<std::string> patterns;
  for (const char* t : kTables)
    patterns.push_back("__keyspace@" + std::to_string(config_.db) + "__:" + t + "*");
  sub_->subscribe(patterns, [this](const redisReply& r) { handleSubscribed(r); });
}

void RedisSource::handleClosed(const std::string& why) {
  // On a posted turn of the loop, never inside hiredis: both may go.
  data_.reset();
  sub_.reset();
  if (!lossSaid_)
    say(connected_ ? "connection lost (" + why + "): the rules in force stay; reconnecting"
                   : "cannot connect (" + why + "): the rules in force stay; retrying");
  lossSaid_ = true;
  connected_ = ready_ = snapshotting_ = false;
  loop_.timerDel(reconnectTimer_);
  reconnectTimer_ = loop_.timerIs(
      loop_.now() + backoff_, [this] { doConnect(); }, Kiv::ActivityManager::Kind::background);
  backoff_ = std::min(backoff_ * 2, kLastRetry);
}

void RedisSource::handleSelected(const redisReply& r) {
  if (r.type == REDIS_REPLY_ERROR) {
    say("cannot select db " + std::to_string(config_.db) + ": " + text(r));
    return;  // followed by nothing: status shows it not ready
  }
  connected_ = true;
  connectedSince_ = wallNow();
  lossSaid_ = false;
  say("connected, db " + std::to_string(config_.db));
  data_->command({"CONFIG", "GET", "notify-keyspace-events"},
                 [this](const redisReply& reply) { handleConfig(reply); });
}

void RedisSource::handleConfig(const redisReply& r) {
  configDone_ = true;
  if (!isArray(r, 2)) {
    say("cannot read notify-keyspace-events (" + text(r) +
        "): rows change unseen unless the server publishes keyspace events (Kghx)");
  } else {
    // K: keyspace channels; g: del, expire, rename; h: hashes; x: expired.
    // A stands for every class but K, E and the key-miss ones.
    const std::string was = text(*r.element[1]);
    std::string now = was;
    for (char c : std::string("Kghx"))
      if (now.find(c) == std::string::npos && (c == 'K' || now.find('A') == std::string::npos))
        now += c;
    if (now != was) {
      data_->command({"CONFIG", "SET", "notify-keyspace-events", now}, [this, was, now](
                                                                           const redisReply& set) {
        say(set.type == REDIS_REPLY_ERROR
                ? "cannot set notify-keyspace-events to \"" + now + "\": " + text(set)
                : "notify-keyspace-events was \"" + was + "\", set to \"" + now + "\"");
      });
    }
  }
  if (subscribed_ == kTableCount) doSnapshot();
}

void RedisSource::handleSubscribed(const redisReply& r) {
  if (!isArray(r, 3)) return;
  const std::string kind = text(*r.element[0]);
  if (kind == "psubscribe") {
    // Events flow from here on: what the snapshot reads is never stale.
    if (++subscribed_ == kTableCount && configDone_) doSnapshot();
  } else if (kind == "pmessage" && isArray(r, 4)) {
    const std::string channel = text(*r.element[2]);
    const std::size_t colon = channel.find(':');
    if (colon != std::string::npos && data_) doRead(channel.substr(colon + 1));
  }
}

void RedisSource::doSnapshot() {
  snapshotting_ = true;
  scanDone_ = false;
  rows_.clear();
  ownRows_.clear();
  doScan("0", ++generation_);
}

void RedisSource::doScan(const std::string& cursor, unsigned generation) {
  data_->command({"SCAN", cursor, "COUNT", "1000"}, [this, generation](const redisReply& r) {
    if (generation != generation_ || !isArray(r, 2) || !isArray(*r.element[1], 0)) return;
    for (std::size_t i = 0; i < r.element[1]->elements; ++i) {
      const std::string key = text(*r.element[1]->element[i]);
      if (isInputKey(key))
        doRead(key);
      else if (key.starts_with(kVipStatePrefix))
        ownRows_.push_back(key);
    }
    const std::string next = text(*r.element[0]);
    if (next != "0") return doScan(next, generation);
    scanDone_ = true;
    if (reading_ == 0) handleSnapshotTaken();
  });
}

void RedisSource::doRead(const std::string& key) {
  ++reading_;
  data_->command({"HGETALL", key}, [this, key](const redisReply& r) {
    --reading_;
    handleRow(key, r);
  });
}

void RedisSource::handleRow(const std::string& key, const redisReply& r) {
  bool exists = false;
  if (r.type == REDIS_REPLY_ERROR && text(r).starts_with("WRONGTYPE")) {
    rows_[key] = Row{{}, false};
    exists = true;
  } else if (r.type == REDIS_REPLY_ARRAY && r.elements > 0) {
    Row row;
    for (std::size_t i = 0; i + 1 < r.elements; i += 2)
      row.fields[text(*r.element[i])] = text(*r.element[i + 1]);
    rows_[key] = std::move(row);
    exists = true;
  } else if (r.type != REDIS_REPLY_ERROR) {
    rows_.erase(key);
  }
  if (snapshotting_) {
    if (scanDone_ && reading_ == 0) handleSnapshotTaken();
    return;
  }
  if (key == kReadyKey && exists != ready_) {
    if (exists) return doSnapshot();  // a writer is done reloading: read it all anew
    ready_ = false;
    say("no ACL_AGENT_INPUT|READY row: changes held, the rules in force stay");
    return;
  }
  if (ready_) doFlushLater();
}

void RedisSource::handleSnapshotTaken() {
  snapshotting_ = false;
  snapshotTaken_ = true;
  backoff_ = kFirstRetry;
  writer_.sessionIs(ownRows_);
  auto mark = rows_.find(std::string(kReadyKey));
  ready_ = mark != rows_.end() && mark->second.hash;
  if (ready_)
    doFlushLater();
  else
    say("no ACL_AGENT_INPUT|READY row: changes held, the rules in force stay");
}

void RedisSource::doFlushLater() {
  // Everything read in this turn of the loop goes out as one model.
  if (flushPosted_) return;
  flushPosted_ = true;
  loop_.post([this] {
    flushPosted_ = false;
    doFlush();
  });
}

void RedisSource::doFlush() {
  if (!ready_ || snapshotting_) return;
  RowModel m = modelOfRows(rows_, lastTarget_ ? *lastTarget_ : publisher_.current());
  std::erase_if(refusedSaid_, [&](const auto& e) { return !m.refused.contains(e.first); });
  for (const auto& [key, why] : m.refused) {
    auto said = refusedSaid_.find(key);
    const Row& row = rows_.at(key);
    if (said != refusedSaid_.end() && said->second.first == row && said->second.second == why)
      continue;
    say("refused " + shownKey(key) + ": " + why);
    refusedSaid_[key] = {row, why};
  }
  rowsInForce_ = m.accepted;
  if (lastTarget_ && *lastTarget_ == m.model) return;
  const bool reload = lastTarget_.has_value();
  lastTarget_ = m.model;
  publisher_.targetIs(std::move(m.model), origin_, reload);
  if (started_) return;
  started_ = true;
  if (firstReady_) firstReady_();
  doWriteStates();
}

void RedisSource::handlePublished() {
  lastApplied_ = wallNow();
}

void RedisSource::doWriteStates() {
  Acl::PluginView* view = view_ ? view_() : nullptr;
  if (view && data_ && connected_ && snapshotTaken_ && !snapshotting_)
    writer_.doWrite(view->virtualIps(), wallNow(), [this](const std::vector<std::string>& argv) {
      data_->command(argv, [](const redisReply&) {});
    });
  writeTimer_ = loop_.timerIs(
      loop_.now() + kWriteEvery, [this] { doWriteStates(); },
      Kiv::ActivityManager::Kind::background);
}

SourceFacts RedisSource::facts() const {
  SourceFacts f;
  f.kind = "redis";
  f.name = origin_;
  f.connected = connected_;
  f.connectedSince = connectedSince_;
  f.ready = ready_;
  f.rows = rowsInForce_;
  for (const auto& [key, said] : refusedSaid_) f.refused.emplace_back(shownKey(key), said.second);
  f.lastApplied = lastApplied_;
  return f;
}

}  // namespace Agent::Redis

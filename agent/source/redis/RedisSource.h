// A Redis database as the source of the plug-in's inputs (the rows of
// RedisRows.h), followed live:
//   subscribe  to the keyspace events of the input tables (PSUBSCRIBE on a
//              connection of its own), enabling the classes it needs if the
//              server lacks them (adding, never removing);
//   snapshot   once subscribed: SCAN every key, HGETALL each input row;
//   follow     each event re-reads its key (level-triggered: the row says
//              what it is now; an empty row, after del or expired, is gone).
// Rows are never consumed: any number of readers may watch one database.
// Rows read within one turn of the loop are published together, as one new
// model for the phased publisher (which withdraws first where it must).
//
// Readiness: nothing is published until a snapshot finds
// ACL_AGENT_INPUT|READY; the first such model is published, then
// FirstReady is called (the agent initialises its plug-ins: no start-up
// flush before the state is known). Ready row gone: changes are held; back:
// a fresh snapshot, then its difference is published. Connection lost: the
// model in force stays; reconnect after 0.1 s, doubling to 5 s (background
// timers: they never keep the loop from idling, so --until-idle does not
// wait for a server that is down once the plug-in runs); then as at start.
// A snapshot without the ready row changes nothing.
//
// Messages (stderr, one line each; ADDRESS as given):
//   acl-agent: redis ADDRESS: connected, db N
//   acl-agent: redis ADDRESS: notify-keyspace-events was "OLD", set to "NEW"
//   acl-agent: redis ADDRESS: refused KEY: REASON     (once per key until it changes)
//   acl-agent: redis ADDRESS: no ACL_AGENT_INPUT|READY row: changes held, the rules in force stay
//   acl-agent: redis ADDRESS: connection lost (WHY): the rules in force stay; reconnecting
//   acl-agent: redis ADDRESS: cannot connect (WHY): the rules in force stay; retrying
// (one of the last two per outage, however many attempts it takes).
// and the publisher's "published redis ADDRESS db N: ..." lines.
// Event-loop thread only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/source/PhasedPublisher.h"
#include "agent/source/SourceFacts.h"
#include "agent/source/redis/RedisConnection.h"
#include "agent/source/redis/RedisRows.h"
#include "agent/source/redis/VipStateWriter.h"
#include "platform/acl/PluginView.h"
#include "platform/kiv/ActivityManager.h"

namespace Agent::Redis {

struct SourceConfig {
  Address address;
  int db = 6;
};

class RedisSource {
 public:
  using FirstReady = std::function<void()>;
  using View = std::function<Acl::PluginView*()>;  // null until the plug-in runs

  RedisSource(Kiv::ActivityManager& loop, PhasedPublisher& publisher, SourceConfig config,
              FirstReady firstReady, View view);
  ~RedisSource();
  RedisSource(const RedisSource&) = delete;
  RedisSource& operator=(const RedisSource&) = delete;

  // Connects (on the loop; a server that is down is retried, never fatal).
  void doStart();
  // Called by the publisher once a model of ours is fully published.
  void handlePublished();
  SourceFacts facts() const;

 private:
  void doConnect();
  void handleClosed(const std::string& why);
  void handleSelected(const redisReply& reply);
  void handleConfig(const redisReply& reply);
  void handleSubscribed(const redisReply& reply);
  void doSnapshot();
  void doScan(const std::string& cursor, unsigned generation);
  void doRead(const std::string& key);
  void handleRow(const std::string& key, const redisReply& reply);
  void handleSnapshotTaken();
  void doFlushLater();
  void doFlush();
  void doWriteStates();
  void say(const std::string& line) const;

  Kiv::ActivityManager& loop_;
  PhasedPublisher& publisher_;
  SourceConfig config_;
  FirstReady firstReady_;
  View view_;
  std::string origin_;  // "redis ADDRESS db N"

  std::unique_ptr<Connection> data_, sub_;
  unsigned subscribed_ = 0;  // patterns confirmed
  bool connected_ = false;
  double connectedSince_ = 0;
  double backoff_ = 0.1;
  Kiv::ActivityManager::TimerId reconnectTimer_ = 0, writeTimer_ = 0;
  bool lossSaid_ = false;

  Rows rows_;
  std::vector<std::string> ownRows_;  // ACL_AGENT_VIP_STATE rows the snapshot found
  bool configDone_ = false, snapshotting_ = false, scanDone_ = false, snapshotTaken_ = false;
  unsigned generation_ = 0;
  std::size_t reading_ = 0;  // HGETALLs in flight
  bool ready_ = false, holdSaid_ = false, flushPosted_ = false, started_ = false;

  std::optional<StateDocument> lastTarget_;
  std::map<std::string, std::pair<Row, std::string>> refusedSaid_;  // key -> row, message
  std::size_t rowsInForce_ = 0;
  double lastApplied_ = 0;
  VipStateWriter writer_;
};

}  // namespace Agent::Redis

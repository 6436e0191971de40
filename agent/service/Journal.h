// The four log messages as journal entries. Under the journal (stderr is
// the journal's stream, $JOURNAL_STREAM, or --log journal) each raised
// message is sent with sd_journal_send instead of the stderr and syslog
// line, with these fields:
//   MESSAGE            "%NAME: text", the line stderr shows otherwise
//   PRIORITY           the message's severity (syslog numbering: 4)
//   MESSAGE_ID         fixed per message name (messageIds below)
//   SYSLOG_IDENTIFIER  acl-agent
//   ACL_MESSAGE        the message name, e.g. FHRP_IPTABLES_ERROR
//   ACL_ACTION, ACL_ADDRESS, ACL_DEVICE   a rule message's three arguments
//   ACL_NAMESPACE      a flush message's argument; for a rule message, the
//                      namespace of the command that failed
//   ACL_COMMAND        the command line that failed
// Outside the journal nothing changes: the platform's default line goes to
// stderr and syslog. Either way each message is counted in the metrics.
// Event-loop thread only.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "agent/apply/ApplyStats.h"
#include "agent/metrics/AgentMetrics.h"
#include "platform/kiv/Log.h"

namespace Agent::Service {

struct MessageId {
  const char* name;
  const char* id;  // 128 bits, as journalctl MESSAGE_ID= takes it
};
extern const std::array<MessageId, 4> messageIds;
std::vector<std::string> messageNames();

// Whether fd 2 is the stream $JOURNAL_STREAM ("DEVICE:INODE") names.
bool stderrIsJournal();

// The command whose failure a message reports: the last failed one.
struct FailedCommand {
  std::string ns, line;
};
// "FIELD=value" strings of the entry for `r` (see above); `cmd` may be null.
std::vector<std::string> journalFields(const Kiv::LogRecord& r, const FailedCommand* cmd);

// Installs the platform's log sink for the agent's lifetime: counts each
// message in `metrics`, then writes it to the journal (`journal`) or as the
// default line. `stats` (the runner's) tells the failed command. Both must
// outlive it; the destructor restores the default sink.
class LogRouting {
 public:
  LogRouting(bool journal, Metrics::AgentMetrics& metrics, const ApplyStats& stats);
  ~LogRouting();
  LogRouting(const LogRouting&) = delete;
  LogRouting& operator=(const LogRouting&) = delete;

 private:
  void handleRecord(const Kiv::LogRecord& r);

  bool journal_;
  Metrics::AgentMetrics& metrics_;
  const ApplyStats& stats_;
  std::uint64_t failuresSeen_ = 0;  // the failures already told with a message
};

}  // namespace Agent::Service

#include "agent/service/Journal.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace Agent::Service {

const std::array<MessageId, 4> messageIds = {{
    {"FHRP_IPTABLES_ERROR", "6dfc065341ec429cb196ffb3fc70ae0e"},
    {"FHRP_ARPTABLES_ERROR", "5a57595f82304baebeb54272998b5843"},
    {"FHRP_IPTABLES_FLUSH_ERROR", "60e0f597d1304e20b3366e78060a7d88"},
    {"FHRP_ARPTABLES_FLUSH_ERROR", "4ce2dd77ab5e436c838a7ef0c3db50d7"},
}};

std::vector<std::string> messageNames() {
  std::vector<std::string> names;
  for (const MessageId& m : messageIds) names.push_back(m.name);
  return names;
}

bool stderrIsJournal() {
  const char* env = std::getenv("JOURNAL_STREAM");
  unsigned long long dev = 0, ino = 0;
  if (!env || std::sscanf(env, "%llu:%llu", &dev, &ino) != 2) return false;
  struct stat st;
  return ::fstat(2, &st) == 0 && st.st_dev == dev && st.st_ino == ino;
}

std::vector<std::string> journalFields(const Kiv::LogRecord& r, const FailedCommand* cmd) {
  const std::string name(r.name);
  std::vector<std::string> f = {"MESSAGE=%" + name + ": " + std::string(r.text),
                                "PRIORITY=" + std::to_string(int(r.severity)),
                                "SYSLOG_IDENTIFIER=acl-agent", "ACL_MESSAGE=" + name};
  for (const MessageId& m : messageIds)
    if (name == m.name) f.push_back(std::string("MESSAGE_ID=") + m.id);
  auto arg = [&](unsigned i) { return r.args[i].stdString(); };
  if (r.argCount == 3) {
    f.push_back("ACL_ACTION=" + arg(0));
    f.push_back("ACL_ADDRESS=" + arg(1));
    f.push_back("ACL_DEVICE=" + arg(2));
    if (cmd) f.push_back("ACL_NAMESPACE=" + cmd->ns);
  } else if (r.argCount == 1) {
    f.push_back("ACL_NAMESPACE=" + arg(0));
  }
  if (cmd) f.push_back("ACL_COMMAND=" + cmd->line);
  return f;
}

LogRouting::LogRouting(bool journal, Metrics::AgentMetrics& metrics, const ApplyStats& stats)
    : journal_(journal), metrics_(metrics), stats_(stats), failuresSeen_(stats.failedTotal()) {
  Kiv::logSinkIs([this](const Kiv::LogRecord& r) { handleRecord(r); });
}

LogRouting::~LogRouting() {
  Kiv::logSinkIs(nullptr);
}

void LogRouting::handleRecord(const Kiv::LogRecord& r) {
  metrics_.logMessageIs(r.name);
  if (!journal_) return Kiv::defaultLogSink(r);
  // Every message follows the failure of its own command (run at once, or
  // applied when its turn ends), so a failure not yet told is its command.
  FailedCommand cmd;
  const bool fresh = stats_.failedTotal() > failuresSeen_ && !stats_.failures().empty();
  if (fresh) cmd = {stats_.failures().back().ns, stats_.failures().back().line};
  failuresSeen_ = stats_.failedTotal();
  const std::vector<std::string> fields = journalFields(r, fresh ? &cmd : nullptr);
  std::vector<iovec> iov;
  for (const std::string& s : fields) iov.push_back({const_cast<char*>(s.data()), s.size()});
  if (sd_journal_sendv(iov.data(), int(iov.size())) < 0)
    Kiv::defaultLogSink(r);  // no journal after all: the line is not lost
}

}  // namespace Agent::Service

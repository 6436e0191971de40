// The one runner of the agent's commands, and where they are counted.
//
// Two ways to run, never mixed up:
//   shellLineIs  a plug-in's own line, exactly as the plug-in would run it:
//                system(line). Its words come from validated inputs.
//   commandIs    everything the agent makes itself (restores, read-back,
//                deletes of rules read back, probes): an argument vector
//                run with posix_spawnp, never through a shell, placed into
//                its namespace by the one prefix rule as words. No word is
//                ever interpreted, whatever a listing put in it.
// Both block the loop until the command exits and count it, with the time
// it took, in ApplyStats (which must outlive the runner). A command of the
// agent's may instead be started (commandStart) and finished later, when
// its descriptor says that it has exited (commandFinish), so that the loop
// goes on meanwhile. Event-loop thread only; never throws.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "agent/apply/ApplyStats.h"
#include "platform/dravo/NamespaceName.h"

namespace Agent {

class Runner {
 public:
  explicit Runner(ApplyStats& stats) : stats_(stats) {}

  // system(line); its status as system() returned it.
  int shellLineIs(const std::string& line);

  // Runs argv (argv[0] looked up on PATH) inside `ns`, with `input` on its
  // standard input and its standard error thrown away; its standard output
  // goes to *out when `out` is given (else it is thrown away too). Returns a
  // system()-style wait status; -1 when it could not be started.
  int commandIs(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                const std::string& input = {}, std::string* out = nullptr);

  // A command started and not yet finished.
  struct Child {
    pid_t pid = -1;  // -1: it could not be started
    int fd = -1;     // readable once it has exited; -1: none (finish waits)
    std::string text;
    std::chrono::steady_clock::time_point start;
  };
  // Starts argv inside `ns` as commandIs does (its output thrown away); the
  // input is in memory, so nothing waits for the child to read it.
  Child commandStart(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                     const std::string& input);
  // Waits for the child (at once once its descriptor is readable), counts it
  // and returns its wait status as commandIs does.
  int commandFinish(Child& child);

  ApplyStats& stats() { return stats_; }

 private:
  ApplyStats& stats_;
};

// The words as one line for traces and reports, e.g.
// "ip netns exec blue iptables -t mangle -S PREROUTING"; a word that a
// reader could not tell apart (empty, blank, quote, control or non-ASCII
// byte) is shown double-quoted with C escapes.
std::string commandText(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv);

}  // namespace Agent

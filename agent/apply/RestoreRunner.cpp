#include "agent/apply/RestoreRunner.h"

#include <csignal>
#include <cstdio>

namespace Agent {

int runRestore(const std::string& command, const std::string& input) {
  // A restore that quits early must not take the agent down with SIGPIPE.
  struct sigaction ignore = {}, saved = {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &saved);
  int status = -1;
  if (FILE* pipe = ::popen(command.c_str(), "we")) {
    const bool written = std::fwrite(input.data(), 1, input.size(), pipe) == input.size();
    status = ::pclose(pipe);
    if (!written && status == 0) status = -1;
  }
  ::sigaction(SIGPIPE, &saved, nullptr);
  return status;
}

}  // namespace Agent

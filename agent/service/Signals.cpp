#include "agent/service/Signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace Agent::Service {

namespace {

int pipeWrite = -1;

// Hands the signal to the loop through the pipe; nothing else is safe here.
void onSignal(int sig) {
  const int saved = errno;
  const unsigned char s = static_cast<unsigned char>(sig);
  [[maybe_unused]] ssize_t n = ::write(pipeWrite, &s, 1);
  errno = saved;
}

}  // namespace

Signals::Signals(Kiv::ActivityManager& loop, Handler stop, Handler reload)
    : loop_(loop), stop_(std::move(stop)), reload_(std::move(reload)) {
  int fds[2];
  if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
    std::perror("acl-agent: pipe2");
    return;
  }
  readFd_ = fds[0];
  pipeWrite = fds[1];
  struct sigaction sa = {};
  sa.sa_handler = onSignal;
  sa.sa_flags = SA_RESTART;
  sigemptyset(&sa.sa_mask);
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) ::sigaction(sig, &sa, nullptr);
  loop_.fdIs(readFd_, [this] { handleReadable(); });
}

Signals::~Signals() {
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) std::signal(sig, SIG_DFL);
  if (readFd_ < 0) return;
  loop_.fdDel(readFd_);
  ::close(readFd_);
  ::close(pipeWrite);
  pipeWrite = -1;
}

void Signals::handleReadable() {
  unsigned char sigs[16];
  ssize_t n;
  while ((n = ::read(readFd_, sigs, sizeof sigs)) > 0)
    for (ssize_t i = 0; i < n; ++i) (sigs[i] == SIGHUP ? reload_ : stop_)(sigs[i]);
}

}  // namespace Agent::Service

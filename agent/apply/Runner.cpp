#include "agent/apply/Runner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "platform/dravo/NamespaceExec.h"

extern char** environ;

namespace Agent {

namespace {

bool plainWord(const std::string& w) {
  if (w.empty()) return false;
  for (unsigned char c : w)
    if (c <= ' ' || c >= 0x7f || c == '"' || c == '\\' || c == '\'') return false;
  return true;
}

std::string quotedWord(const std::string& w) {
  std::string out = "\"";
  for (unsigned char c : w) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < ' ' || c >= 0x7f) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

// Writes `input` and reads the child's output at once, so neither side can
// fill its pipe and wait for the other.
void doPump(int inFd, const std::string& input, int outFd, std::string* out) {
  std::size_t written = 0;
  if (inFd >= 0 && input.empty()) {
    ::close(inFd);
    inFd = -1;
  }
  char buf[65536];
  while (inFd >= 0 || outFd >= 0) {
    pollfd fds[2];
    int n = 0;
    if (inFd >= 0) fds[n++] = {inFd, POLLOUT, 0};
    if (outFd >= 0) fds[n++] = {outFd, POLLIN, 0};
    if (::poll(fds, n, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == inFd) {
        const ssize_t w = ::write(inFd, input.data() + written, input.size() - written);
        if (w > 0) written += std::size_t(w);
        if (w < 0 && errno == EAGAIN) continue;
        if (w <= 0 || written == input.size()) {
          ::close(inFd);
          inFd = -1;
        }
      } else {
        const ssize_t r = ::read(outFd, buf, sizeof buf);
        if (r > 0 && out) out->append(buf, std::size_t(r));
        if (r < 0 && errno == EAGAIN) continue;
        if (r <= 0) {
          ::close(outFd);
          outFd = -1;
        }
      }
    }
  }
  if (inFd >= 0) ::close(inFd);
  if (outFd >= 0) ::close(outFd);
}

// The command inside `ns`: the one prefix rule's words, then argv.
std::vector<std::string> wordsOf(const Dravo::NamespaceName& ns,
                                 const std::vector<std::string>& argv) {
  std::vector<std::string> words = Dravo::namespaceExecArgv(ns);
  words.insert(words.end(), argv.begin(), argv.end());
  return words;
}

// Starts `words` (the first looked up on PATH) with `in` as its standard
// input and `out` as its standard output (-1: thrown away), its standard
// error thrown away; -1 when it cannot be started.
pid_t doStart(const std::vector<std::string>& words, int in, int out) {
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_adddup2(&fa, in, 0);
  if (out >= 0)
    posix_spawn_file_actions_adddup2(&fa, out, 1);
  else
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> argv;
  for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int err = ::posix_spawnp(&pid, argv[0], &fa, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&fa);
  return err == 0 ? pid : -1;
}

int doSpawn(const std::vector<std::string>& words, const std::string& input, std::string* out) {
  int inPipe[2] = {-1, -1}, outPipe[2] = {-1, -1};
  if (::pipe2(inPipe, O_CLOEXEC) != 0) return -1;
  if (::pipe2(outPipe, O_CLOEXEC) != 0) {
    ::close(inPipe[0]);
    ::close(inPipe[1]);
    return -1;
  }
  const pid_t pid = doStart(words, inPipe[0], outPipe[1]);
  ::close(inPipe[0]);
  ::close(outPipe[1]);
  if (pid < 0) {
    ::close(inPipe[1]);
    ::close(outPipe[0]);
    return -1;
  }
  ::fcntl(inPipe[1], F_SETFL, O_NONBLOCK);
  ::fcntl(outPipe[0], F_SETFL, O_NONBLOCK);
  // A child that quits before reading all its input must not end the agent.
  struct sigaction ignore = {}, saved = {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &saved);
  doPump(inPipe[1], input, outPipe[0], out);
  ::sigaction(SIGPIPE, &saved, nullptr);
  int status = -1;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return status;
}

}  // namespace

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int Runner::shellLineIs(const std::string& line) {
  const auto start = std::chrono::steady_clock::now();
  const int status = ::system(line.c_str());
  stats_.spentIs(secondsSince(start));
  stats_.ranIs(line, status);
  return status;
}

int Runner::commandIs(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv,
                      const std::string& input, std::string* out) {
  const auto start = std::chrono::steady_clock::now();
  const int status = argv.empty() ? -1 : doSpawn(wordsOf(ns, argv), input, out);
  stats_.spentIs(secondsSince(start));
  stats_.ranIs(commandText(ns, argv), status);
  return status;
}

Runner::Child Runner::commandStart(const Dravo::NamespaceName& ns,
                                   const std::vector<std::string>& argv, const std::string& input) {
  Child child;
  child.text = commandText(ns, argv);
  child.start = std::chrono::steady_clock::now();
  if (argv.empty()) return child;
  // The input as a file in memory: the child reads it at its own pace.
  const int in = ::memfd_create("acl-agent-input", MFD_CLOEXEC);
  if (in < 0) return child;
  for (std::size_t done = 0; done < input.size();) {
    const ssize_t w = ::write(in, input.data() + done, input.size() - done);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      ::close(in);
      return child;
    }
    done += std::size_t(w);
  }
  ::lseek(in, 0, SEEK_SET);
  const pid_t pid = doStart(wordsOf(ns, argv), in, -1);
  ::close(in);
  if (pid < 0) return child;
  child.pid = pid;
  // Without a pidfd (an old kernel) commandFinish simply waits. A pidfd is
  // closed on exec. The system call itself: glibc 2.36's <sys/pidfd.h> lacks
  // C linkage for C++.
  child.fd = int(::syscall(SYS_pidfd_open, pid, 0));
  return child;
}

int Runner::commandFinish(Child& child) {
  int status = -1;
  if (child.pid > 0)
    while (::waitpid(child.pid, &status, 0) < 0)
      if (errno != EINTR) {
        status = -1;
        break;
      }
  if (child.fd >= 0) ::close(child.fd);
  child.pid = child.fd = -1;
  stats_.spentIs(secondsSince(child.start));
  stats_.ranIs(child.text, status);
  return status;
}

std::string commandText(const Dravo::NamespaceName& ns, const std::vector<std::string>& argv) {
  std::string text;
  for (const std::string& w : Dravo::namespaceExecArgv(ns))
    text += (plainWord(w) ? w : quotedWord(w)) + " ";
  for (const std::string& w : argv) text += (plainWord(w) ? w : quotedWord(w)) + " ";
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace Agent

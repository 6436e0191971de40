#include "agent/service/Watchdog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/ManualLoop.h"

namespace Agent::Service {
namespace {

// A notify socket of the test's own, as $NOTIFY_SOCKET.
class NotifySocket {
 public:
  NotifySocket() {
    path_ = "/tmp/watchdog-test-" + std::to_string(::getpid());
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    path_.copy(a.sun_path, path_.size());
    ::unlink(path_.c_str());
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    ::setenv("NOTIFY_SOCKET", path_.c_str(), 1);
  }
  ~NotifySocket() {
    ::unsetenv("NOTIFY_SOCKET");
    ::close(fd_);
    ::unlink(path_.c_str());
  }
  std::vector<std::string> take() {
    std::vector<std::string> got;
    char buf[256];
    for (ssize_t n; (n = ::recv(fd_, buf, sizeof buf, 0)) > 0;) got.emplace_back(buf, n);
    return got;
  }

 private:
  std::string path_;
  int fd_;
};

using Notes = std::vector<std::string>;

TEST(WatchdogTest, PingsAtHalfTheIntervalAndExtendsOnlyWhileStarting) {
  NotifySocket notes;
  ::setenv("WATCHDOG_USEC", "8000000", 1);
  ManualLoop loop;
  bool starting = true;
  Watchdog w(loop.loop(), [&] { return starting; });
  EXPECT_EQ(notes.take(), Notes{"EXTEND_TIMEOUT_USEC=30000000"});
  loop.advance(3.9);
  EXPECT_EQ(notes.take(), Notes{});
  loop.advance(0.1);
  EXPECT_EQ(notes.take(), Notes{"WATCHDOG=1"});
  loop.advance(6.0);
  EXPECT_EQ(notes.take(), (Notes{"WATCHDOG=1", "EXTEND_TIMEOUT_USEC=30000000"}));
  starting = false;
  for (int i = 0; i < 3; ++i) loop.advance(4.0);
  EXPECT_EQ(notes.take(), (Notes{"WATCHDOG=1", "WATCHDOG=1", "WATCHDOG=1"}));
  EXPECT_TRUE(loop.loop().idle()) << "its timers never keep the loop busy";
  ::setenv("WATCHDOG_PID", "1", 1);
  EXPECT_EQ(Watchdog::pingIntervalFromEnv(), 0) << "another process's watchdog";
  ::unsetenv("WATCHDOG_PID");
  ::unsetenv("WATCHDOG_USEC");
}

}  // namespace
}  // namespace Agent::Service

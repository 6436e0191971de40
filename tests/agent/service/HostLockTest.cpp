// The host lock: one holder at a time (flock conflicts between two opens even
// in one process), the holder's pid in the refusal, free again once released.
#include "agent/service/HostLock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Agent::Service {
namespace {

TEST(HostLockTest, OneHolderAtATimeAndTheRefusalNamesItsPid) {
  char tmpl[] = "/tmp/acl-lock-XXXXXX";
  const std::string dir = ::mkdtemp(tmpl);
  const std::string path = dir + "/acl-agent.lock";
  std::string why;
  {
    HostLock first;
    ASSERT_TRUE(first.doTake(path, why)) << why;
    std::stringstream pid;
    pid << std::ifstream(path).rdbuf();
    EXPECT_EQ(pid.str(), std::to_string(::getpid()) + "\n");

    HostLock second;
    EXPECT_FALSE(second.doTake(path, why));
    EXPECT_EQ(why, "another agent runs on this host (pid " + std::to_string(::getpid()) +
                       ", holding " + path + ")");
    EXPECT_FALSE(second.held());
  }
  HostLock again;  // the first one's file stays; its lock went with it
  EXPECT_TRUE(again.doTake(path, why)) << why;

  HostLock nowhere;
  EXPECT_FALSE(nowhere.doTake(dir + "/missing/acl-agent.lock", why));
  EXPECT_EQ(why,
            dir + "/missing/acl-agent.lock: cannot open the lock file: No such file or directory");
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace Agent::Service

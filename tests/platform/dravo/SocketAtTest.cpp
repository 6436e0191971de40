// socketAt outside any test namespace: the default namespace gives a real
// socket; a namespace that is not bound under /run/netns gives -1.
#include "platform/dravo/SocketAt.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace {

TEST(SocketAt, DefaultNamespaceGivesARealSocketAndAMissingOneMinusOne) {
  const int fd = Dravo::socketAt(AF_INET, SOCK_DGRAM, 0, Dravo::DEFAULT_NS);
  ASSERT_GE(fd, 0);
  int type = 0;
  socklen_t len = sizeof type;
  EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &len), 0);
  EXPECT_EQ(type, SOCK_DGRAM);
  ::close(fd);

  const std::string missing = "fhrp-test-absent-" + std::to_string(::getpid());
  ASSERT_NE(::access(("/run/netns/" + missing).c_str(), F_OK), 0);
  for (const std::string& name : {missing, std::string(), std::string("../x")})
    EXPECT_EQ(Dravo::socketAt(AF_INET, SOCK_DGRAM, 0, Dravo::NamespaceName(name)), -1) << name;
}

}  // namespace

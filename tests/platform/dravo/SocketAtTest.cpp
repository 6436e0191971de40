// socketAt outside any test namespace: a namespace that is not bound under
// /run/netns gives -1. The default namespace's real socket is the failure
// probe of the firewall tests, which log only when it opens.
#include "platform/dravo/SocketAt.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace {

TEST(SocketAt, AMissingOrUnsafeNamespaceGivesMinusOne) {
  const std::string missing = "fhrp-test-absent-" + std::to_string(::getpid());
  ASSERT_NE(::access(("/run/netns/" + missing).c_str(), F_OK), 0);
  for (const std::string& name : {missing, std::string(), std::string("../x")})
    EXPECT_EQ(Dravo::socketAt(AF_INET, SOCK_DGRAM, 0, Dravo::NamespaceName(name)), -1) << name;
}

}  // namespace

// The control socket on a manual clock: one request per connection, error
// replies for garbage, nothing, too much, and a server that goes on serving;
// idle clients that make room for new ones; folders others could write.
#include "agent/control/ControlServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "tests/support/ManualLoop.h"

namespace Agent::Control {
namespace {

using ::testing::HasSubstr;

class ControlServerTest : public ::testing::Test {
 protected:
  static std::string scratchDir() {
    char tmpl[] = "/tmp/acl-control-XXXXXX";
    return ::mkdtemp(tmpl);
  }
  ~ControlServerTest() override { std::filesystem::remove_all(dir_); }

  // A new socket, bound or connected to path by `how`.
  template <class How>
  static int socketAt(const std::string& path, How how) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strcpy(a.sun_path, path.c_str());
    EXPECT_EQ(how(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    return fd;
  }
  int connectClient() {
    const int fd = socketAt(path_, ::connect);
    // A server that never answers fails the test instead of hanging it.
    const timeval limit{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return fd;
  }
  // Everything the server sent before it closed.
  std::string replyOf(int fd) {
    std::string out;
    char buf[256];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof buf)) > 0) out.append(buf, std::size_t(n));
    ::close(fd);
    return out;
  }
  std::string ask(const std::string& bytes) {
    const int fd = connectClient();
    EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));  // none for ""
    ::shutdown(fd, SHUT_WR);
    loop.runUntilIdle();
    return replyOf(fd);
  }

  ManualLoop loop;
  std::string dir_ = scratchDir();
  std::string path_ = dir_ + "/sub/control.sock";
  std::vector<std::string> requests;
  ControlServer server{loop.loop(), path_, [this](const std::string& r) {
                         requests.push_back(r);
                         if (r == "throw") throw std::runtime_error("bad \xFF");
                         return "reply to " + r;
                       }};
};

TEST_F(ControlServerTest, ServesOneRequestPerConnectionAndErrorsForBadClients) {
  std::string why;
  ASSERT_TRUE(server.doListen(why)) << why;
  struct stat st;
  ASSERT_EQ(::stat((dir_ + "/sub").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  ASSERT_EQ(::stat(path_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  EXPECT_EQ(ask("{\"request\":\"status\"}\nignored"), "reply to {\"request\":\"status\"}");
  EXPECT_EQ(ask("garbage"), "reply to garbage");  // the handler judges the text
  EXPECT_THAT(ask(""), HasSubstr("\"error\":\"empty request\""));
  EXPECT_THAT(ask(std::string(ControlServer::maxRequest + 1, 'x')),
              HasSubstr("\"error\":\"request too large\""));
  EXPECT_EQ(requests.size(), 2u);

  // A client that sends nothing holds nobody up and gets an error after the timeout.
  const int silent = connectClient();
  loop.runUntilIdle();
  EXPECT_EQ(ask("next\n"), "reply to next");
  EXPECT_EQ(server.clientCount(), 1u);
  loop.advance(ControlServer::timeout);
  EXPECT_THAT(replyOf(silent), HasSubstr("\"error\":\"no request within 2 s\""));
  EXPECT_EQ(server.clientCount(), 0u);
}

TEST_F(ControlServerTest, IdleClientsMakeRoomOldestFirstAndTextLeavesAsValidUtf8) {
  std::string why;
  ASSERT_TRUE(server.doListen(why)) << why;
  std::vector<int> idle;
  for (int i = 0; i < 20; ++i) {
    idle.push_back(connectClient());
    loop.runUntilIdle();  // accepted one by one: the listen queue is short
  }
  EXPECT_EQ(server.clientCount(), ControlServer::maxClients);
  EXPECT_EQ(ask("next\n"), "reply to next");
  const std::string dropped = "\"error\":\"dropped: no request, and another client was waiting\"";
  for (int i = 0; i < 5; ++i) EXPECT_THAT(replyOf(idle[i]), HasSubstr(dropped)) << i;
  loop.advance(ControlServer::timeout);
  for (int i = 5; i < 20; ++i) EXPECT_THAT(replyOf(idle[i]), HasSubstr("no request within")) << i;
  EXPECT_EQ(server.clientCount(), 0u);

  EXPECT_EQ(ask("throw\n"), R"({"error":"request failed: bad \\xFF","reply":"error"})"
                            "\n");
  EXPECT_EQ(ControlServer::replyLine(nlohmann::json{{"k\xC0", {"\xE2\x82", "€"}}}),
            R"({"k\\xC0":["\\xE2\\x82","€"]})"
            "\n");
}

// Owner and mode are refused in agent_control.sh against the real agent; a
// link, which its parent's owner could swap, only here.
TEST_F(ControlServerTest, RefusesAFolderThatIsALink) {
  const std::string folder = dir_ + "/ctl";
  ::symlink(dir_.c_str(), folder.c_str());
  ControlServer s(loop.loop(), folder + "/control.sock", [](const std::string&) { return ""; });
  std::string why;
  EXPECT_FALSE(s.doListen(why));
  EXPECT_EQ(why, folder + ": is a symbolic link; name the folder itself");
}

TEST_F(ControlServerTest, RefusesASocketOnWhichAnAgentAnswersAndReplacesAStaleOne) {
  std::string why;
  ASSERT_TRUE(server.doListen(why)) << why;
  ControlServer second(loop.loop(), path_, [](const std::string&) { return ""; });
  EXPECT_FALSE(second.doListen(why));
  EXPECT_EQ(why, path_ + ": another agent answers on it");

  // A socket file nobody listens on any more (an agent that was killed).
  const std::string stale = dir_ + "/stale.sock";
  ::close(socketAt(stale, ::bind));
  ControlServer third(loop.loop(), stale, [](const std::string&) { return ""; });
  EXPECT_TRUE(third.doListen(why)) << why;
}

}  // namespace
}  // namespace Agent::Control

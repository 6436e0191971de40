// `acl-agent status|verify` (the built executable) against a fake agent: a
// socket made here that answers each request with a chosen reply. Anything
// malformed ends the client with exit 2 and one line that says what is
// wrong, never an abort; well-formed replies give 0 or 1.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

const json goodStatus = json::parse(R"({
  "reply": "status", "uptime": 1.5, "dryRun": false, "pluginReady": true,
  "virtualIps": [ { "vrf": "red", "namespace": "ns-red", "prefix": "10.0.20.1/24",
                    "interfaces": [ { "interface": "Vlan20", "device": "vlan20",
                                      "installed": true, "queued": false, "unwanted": false } ] } ],
  "subnets": [], "backlog": { "size": 0, "oldestAge": 0.0 }, "overruns": 0,
  "commands": { "iptables": { "run": 2, "failed": 0 } }, "failures": [], "document": null })");
const json goodVerify = json::parse(R"({
  "reply": "verify", "inStep": false, "readFailed": false,
  "namespaces": [ { "namespace": "ns-red", "inStep": false, "misordered": [], "extra": [],
                    "missing": [ { "rule": "iptables -d 10.0.20.1 -i vlan20 -j ACCEPT" } ] } ] })");

std::string with(json j, const char* pointer, const json& value) {
  j[json::json_pointer(pointer)] = value;
  return j.dump();
}
std::string without(json j, const char* pointer) {
  const json::json_pointer p(pointer);
  j[p.parent_pointer()].erase(p.back());
  return j.dump();
}

class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    char tmpl[] = "/tmp/acl-client-XXXXXX";
    dir_ = ::mkdtemp(tmpl);
    path_ = dir_ + "/control.sock";
    listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strcpy(a.sun_path, path_.c_str());
    EXPECT_EQ(::bind(listenFd_, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    EXPECT_EQ(::listen(listenFd_, 1), 0);
  }
  ~ClientTest() override {
    ::close(listenFd_);
    std::filesystem::remove_all(dir_);
  }

  // Runs `acl-agent MODE`, answers its request with `reply`; its exit status
  // (-1 when it did not exit) and what it wrote to stderr.
  std::pair<int, std::string> run(const char* mode, const std::string& reply) {
    int err[2];
    EXPECT_EQ(::pipe2(err, O_CLOEXEC), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(err[1], 2);
      const int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, 1);
      ::execl(FHRP_AGENT, "acl-agent", mode, "--control", path_.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(err[1]);
    const int fd = ::accept(listenFd_, nullptr, nullptr);
    char buf[4096];
    std::string request;
    while (request.find('\n') == std::string::npos) {
      const ssize_t n = ::read(fd, buf, sizeof buf);
      if (n <= 0) break;
      request.append(buf, std::size_t(n));
    }
    EXPECT_EQ(::write(fd, reply.data(), reply.size()), ssize_t(reply.size()));
    ::close(fd);
    std::string text;
    for (ssize_t n; (n = ::read(err[0], buf, sizeof buf)) > 0;) text.append(buf, std::size_t(n));
    ::close(err[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
  }

  std::string dir_, path_;
  int listenFd_ = -1;
};

TEST_F(ClientTest, ExitsTwoWithOneLineOnAnyMalformedReply) {
  const std::string malformed = "acl-agent: malformed reply from the agent: ";
  const std::string truncated = goodStatus.dump().substr(0, 100);
  struct Row {
    const char* mode;
    std::string reply;
    int exit;
    std::string err;
  } rows[] = {
      {"status", goodStatus.dump(), 0, ""},
      {"verify", goodVerify.dump(), 1, ""},
      {"status", R"({"reply": "error", "error": "busy"})", 2, "acl-agent: the agent says: busy\n"},
      {"status", "", 2, "acl-agent: the agent's reply is not JSON (0 bytes)\n"},
      {"status", truncated, 2, "acl-agent: the agent's reply is not JSON (100 bytes)\n"},
      {"status", "[1]", 2, malformed + "the reply: want an object, not a list\n"},
      {"status", goodVerify.dump(), 2, malformed + "reply: want \"status\", not \"verify\"\n"},
      {"status", without(goodStatus, "/document"), 2, malformed + "document: missing\n"},
      {"status", with(goodStatus, "/virtualIps/0/interfaces/0/installed", "yes"), 2,
       malformed + "virtualIps[0].interfaces[0].installed: want a bool, not a string\n"},
      {"status", with(goodStatus, "/commands/iptables/run", nullptr), 2,
       malformed + "commands.iptables.run: want a number, not null\n"},
      {"status", R"({"reply": "error", "error": 5})", 2,
       malformed + "error: want a string, not a number\n"},
      {"verify", without(goodVerify, "/readFailed"), 2, malformed + "readFailed: missing\n"},
      {"verify", with(goodVerify, "/repaired", {{"queued", "3"}}), 2,
       malformed + "repaired.queued: want a number, not a string\n"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.reply);
    const auto [exit, err] = run(r.mode, r.reply);
    EXPECT_EQ(exit, r.exit);
    EXPECT_EQ(err, r.err);
  }
}

}  // namespace

// idle_clients SOCKET N [GAP_MS]: makes N connections to a control socket,
// GAP_MS apart (default 0), that never send a request. One the agent drops
// for its silence is made again at once, so with a gap the agent is never
// without an idle client; one dropped to make room for another client is
// not made again (two such programs would otherwise evict each other for
// ever). Prints CONNECTED once the first N are made; runs until killed.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

int connectTo(const sockaddr_un& a) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0) return fd;
  std::perror("idle_clients: connect");
  std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (argc < 3 || argc > 4 || std::strlen(argv[1]) >= sizeof a.sun_path ||
      std::atoi(argv[2]) <= 0) {
    std::fprintf(stderr, "usage: idle_clients SOCKET N [GAP_MS]\n");
    return 2;
  }
  std::strcpy(a.sun_path, argv[1]);
  std::vector<pollfd> clients(std::size_t(std::atoi(argv[2])));
  std::vector<std::string> goodbye(clients.size());
  const long gap = argc == 4 ? std::atol(argv[3]) : 0;
  for (pollfd& p : clients) {
    p = {connectTo(a), POLLIN, 0};
    const timespec pause{gap / 1000, gap % 1000 * 1000000};
    ::nanosleep(&pause, nullptr);
  }
  std::printf("CONNECTED\n");
  std::fflush(stdout);
  for (;;) {
    if (::poll(clients.data(), clients.size(), -1) < 0) continue;
    for (std::size_t i = 0; i < clients.size(); ++i) {
      pollfd& p = clients[i];
      if (p.fd < 0 || p.revents == 0) continue;
      char buf[512];
      const ssize_t n = ::read(p.fd, buf, sizeof buf);
      if (n > 0) {
        goodbye[i].append(buf, std::size_t(n));
        continue;
      }
      ::close(p.fd);
      const bool evicted = goodbye[i].find("dropped") != std::string::npos;
      goodbye[i].clear();
      p.fd = evicted ? -1 : connectTo(a);
    }
  }
}

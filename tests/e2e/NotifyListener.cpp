// notify_listener SOCKET SECONDS: the service manager's notify socket for the
// package test. Binds a datagram socket (a path, or '@' and an abstract name)
// and prints each message on one line (newlines as blanks), until one holds
// STOPPING=1 or SECONDS pass.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
  sockaddr_un addr = {AF_UNIX, {}};
  const std::string name = argc == 3 ? argv[1] : "";
  if (name.empty() || name.size() >= sizeof addr.sun_path) return 2;
  std::memcpy(addr.sun_path, name.data(), name.size());
  if (name[0] == '@') addr.sun_path[0] = '\0';
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  if (fd < 0 ||
      ::bind(fd, reinterpret_cast<const sockaddr*>(&addr),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())) != 0) {
    std::perror("notify_listener: bind");
    return 1;
  }
  std::printf("LISTENING\n");
  std::fflush(stdout);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
  while (std::chrono::steady_clock::now() < end) {
    pollfd p = {fd, POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0) continue;
    char buf[4096];
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    std::string message(buf, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::printf("%s\n", message.c_str());
    std::fflush(stdout);
    if (message.find("STOPPING=1") != std::string::npos) return 0;
  }
  return 0;
}

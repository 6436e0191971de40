#include "agent/metrics/HttpEndpoint.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <cstring>

namespace Agent::Metrics {

namespace {

constexpr const char* contentType = "text/plain; version=0.0.4; charset=utf-8";

MHD_Result doQueue(MHD_Connection* c, unsigned status, const std::string& body,
                   const char* type = "text/plain; charset=utf-8") {
  MHD_Response* r = MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()),
                                                    MHD_RESPMEM_MUST_COPY);
  if (!r) return MHD_NO;
  MHD_add_response_header(r, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  if (status == MHD_HTTP_METHOD_NOT_ALLOWED) MHD_add_response_header(r, "Allow", "GET, HEAD");
  const MHD_Result ok = MHD_queue_response(c, status, r);
  MHD_destroy_response(r);
  return ok;
}

MHD_Result handleRequest(void* self, MHD_Connection* c, const char* url, const char* method,
                         const char*, const char*, size_t* uploadSize, void** state) {
  // A request with a body: read it all before answering (MHD asks again).
  static int seen;
  if (*state == nullptr) {
    *state = &seen;
    return MHD_YES;
  }
  if (*uploadSize != 0) {
    *uploadSize = 0;
    return MHD_YES;
  }
  if (std::strcmp(url, "/metrics") != 0) return doQueue(c, MHD_HTTP_NOT_FOUND, "not found\n");
  if (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0)
    return doQueue(c, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET\n");
  return doQueue(c, MHD_HTTP_OK, static_cast<HttpEndpoint*>(self)->text(), contentType);
}

bool addressOf(const std::string& text, sockaddr_storage& a, std::string& why) {
  std::memset(&a, 0, sizeof a);
  const std::size_t colon = text.rfind(':');
  std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  char* end = nullptr;
  const unsigned long p = port.empty() ? 0 : std::strtoul(port.c_str(), &end, 10);
  if (port.empty() || *end != '\0' || p == 0 || p > 65535) {
    why = "\"" + text + "\" has no port (want ADDRESS:PORT, e.g. 127.0.0.1:9641)";
    return false;
  }
  const bool v6 = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  if (v6) {
    host = host.substr(1, host.size() - 2);
    auto* s6 = reinterpret_cast<sockaddr_in6*>(&a);
    s6->sin6_family = AF_INET6;
    s6->sin6_port = htons(static_cast<std::uint16_t>(p));
    if (::inet_pton(AF_INET6, host.c_str(), &s6->sin6_addr) == 1) return true;
  } else {
    auto* s4 = reinterpret_cast<sockaddr_in*>(&a);
    s4->sin_family = AF_INET;
    s4->sin_port = htons(static_cast<std::uint16_t>(p));
    if (::inet_pton(AF_INET, host.c_str(), &s4->sin_addr) == 1) return true;
  }
  why = "\"" + text + "\" has no numeric address (IPV4:PORT or [IPV6]:PORT)";
  return false;
}

}  // namespace

HttpEndpoint::~HttpEndpoint() {
  if (daemon_) MHD_stop_daemon(daemon_);
}

bool HttpEndpoint::doListen(const std::string& address, std::string& why) {
  sockaddr_storage a;
  if (!addressOf(address, a, why)) return false;
  unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD;
  if (a.ss_family == AF_INET6) flags |= MHD_USE_IPv6;
  daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &handleRequest, this, MHD_OPTION_SOCK_ADDR,
                             reinterpret_cast<sockaddr*>(&a), MHD_OPTION_CONNECTION_LIMIT, 16u,
                             MHD_OPTION_CONNECTION_TIMEOUT, 10u, MHD_OPTION_END);
  if (!daemon_) {
    why = "cannot listen on " + address + " (in use, or not an address of this host)";
    return false;
  }
  return true;
}

void HttpEndpoint::textIs(std::string text) {
  std::lock_guard<std::mutex> lock(mutex_);
  text_.swap(text);
}

std::string HttpEndpoint::text() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return text_;
}

}  // namespace Agent::Metrics

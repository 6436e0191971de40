// GET /metrics over HTTP, served by libmicrohttpd on a thread of its own.
// That thread only ever reads the text the loop last published (textIs),
// under a mutex held for a string copy, so a scrape never waits for the
// loop and the loop never waits for a scrape. Anything but GET gets 405
// (with Allow: GET, HEAD), any other path 404. At most 16 connections at
// once, each dropped after 10 s idle.
//
// Address: "IPV4:PORT" or "[IPV6]:PORT", numeric (e.g. 127.0.0.1:9641).
#pragma once

#include <mutex>
#include <string>

struct MHD_Daemon;

namespace Agent::Metrics {

class HttpEndpoint {
 public:
  HttpEndpoint() = default;
  ~HttpEndpoint();
  HttpEndpoint(const HttpEndpoint&) = delete;
  HttpEndpoint& operator=(const HttpEndpoint&) = delete;

  // False, with the reason in `why`, when the address is bad or taken.
  bool doListen(const std::string& address, std::string& why);
  // Any thread.
  void textIs(std::string text);
  std::string text() const;

 private:
  mutable std::mutex mutex_;
  std::string text_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace Agent::Metrics

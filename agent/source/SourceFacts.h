// What a live source tells status about itself. Times are seconds since the
// epoch; 0 means never.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

struct SourceFacts {
  std::string kind;  // "redis"
  std::string name;  // "redis unix:/run/redis/redis.sock db 6"
  bool connected = false;
  double connectedSince = 0;  // of the connection up now, else of the last one
  bool ready = false;         // following: a snapshot was taken with the ready row
  std::size_t rows = 0;       // rows in the model last handed to the publisher
  std::vector<std::pair<std::string, std::string>> refused;  // key (shown), reason
  double lastApplied = 0;                                    // a change fully published
};

}  // namespace Agent

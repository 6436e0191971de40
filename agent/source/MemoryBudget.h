// Whether a document's new entries fit in the memory the agent may still
// use, checked before anything of it is published (a reload's phase 1
// withdraws rules, so failing halfway through costs rules in force).
//
// Headroom is the least of: RLIMIT_AS less the process's VmSize, and the
// cgroup's limit (v2 memory.max, v1 memory.limit_in_bytes) less its usage;
// none when neither is limited; plus what the allocator holds free. The need is an estimate: the
// pairs the document adds to those in force times bytesPerPair, twice what the publisher's inputs
// and the plug-in's records were measured to take per pair (0.98 KiB), for the transient copies of
// a reload.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/source/StateDocument.h"

namespace Agent {

constexpr std::uint64_t bytesPerPair = 2048;

struct MemoryHeadroom {
  std::uint64_t bytes = 0;
  std::string limit;  // which limit, e.g. "RLIMIT_AS 280 MiB"
};

// The headroom as of now; nullopt when memory is not limited.
std::optional<MemoryHeadroom> memoryHeadroom();
// (virtual IP, interface) pairs of `next` that `current` lacks.
std::size_t addedPairs(const StateDocument& current, const StateDocument& next);
// Empty when `added` pairs fit; else the reason, e.g. "it adds 200000
// virtual IP pairs (about 391 MiB), but only 120 MiB are left under
// RLIMIT_AS 280 MiB".
std::string memoryRefusal(std::size_t added, const std::optional<MemoryHeadroom>& headroom);

}  // namespace Agent

#include "agent/source/MemoryBudget.h"

#include <malloc.h>
#include <sys/resource.h>

#include <fstream>
#include <sstream>

namespace Agent {

namespace {

std::string mib(std::uint64_t bytes) {
  return std::to_string((bytes + (1 << 19)) >> 20) + " MiB";
}

std::optional<std::uint64_t> numberIn(const std::string& file) {
  std::ifstream in(file);
  std::string word;
  if (!(in >> word) || word == "max") return std::nullopt;
  try {
    return std::stoull(word);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::uint64_t vmSize() {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind("VmSize:", 0) == 0) return std::stoull(line.substr(7)) * 1024;  // kB
  return 0;
}

// The cgroup's limit and usage files, v2 or v1 (memory controller).
std::optional<MemoryHeadroom> cgroupHeadroom() {
  std::ifstream in("/proc/self/cgroup");
  for (std::string line; std::getline(in, line);) {
    const std::size_t a = line.find(':'), b = line.find(':', a + 1);
    if (a == std::string::npos || b == std::string::npos) continue;
    const std::string controllers = line.substr(a + 1, b - a - 1), path = line.substr(b + 1);
    std::optional<std::uint64_t> limit, usage;
    if (controllers.empty()) {
      limit = numberIn("/sys/fs/cgroup" + path + "/memory.max");
      usage = numberIn("/sys/fs/cgroup" + path + "/memory.current");
    } else if (controllers == "memory") {
      limit = numberIn("/sys/fs/cgroup/memory" + path + "/memory.limit_in_bytes");
      usage = numberIn("/sys/fs/cgroup/memory" + path + "/memory.usage_in_bytes");
      if (limit && *limit >= (std::uint64_t(1) << 60)) limit.reset();  // v1's "unlimited"
    }
    if (limit && usage)
      return MemoryHeadroom{*limit > *usage ? *limit - *usage : 0, "the cgroup's " + mib(*limit)};
  }
  return std::nullopt;
}

}  // namespace

std::optional<MemoryHeadroom> memoryHeadroom() {
  std::optional<MemoryHeadroom> best = cgroupHeadroom();
  // Memory the allocator holds free (the parsed document's, say) is used
  // again before anything new is asked of the system.
  const std::uint64_t reusable = ::mallinfo2().fordblks;
  rlimit as{};
  if (::getrlimit(RLIMIT_AS, &as) == 0 && as.rlim_cur != RLIM_INFINITY) {
    const std::uint64_t used = vmSize();
    const MemoryHeadroom h{as.rlim_cur > used ? as.rlim_cur - used : 0,
                           "RLIMIT_AS " + mib(as.rlim_cur)};
    if (!best || h.bytes < best->bytes) best = h;
  }
  if (best) best->bytes += reusable;
  return best;
}

std::size_t addedPairs(const StateDocument& current, const StateDocument& next) {
  std::size_t n = 0;
  auto count = [&n](const auto& from, const auto& to) {
    for (const auto& [key, vip] : to) {
      auto it = from.find(key);
      for (const auto& [intf, value] : vip.interfaces)
        n += it == from.end() || !it->second.interfaces.contains(intf);
    }
  };
  count(current.virtualIps, next.virtualIps);
  count(current.virtualIps6, next.virtualIps6);
  return n;
}

std::string memoryRefusal(std::size_t added, const std::optional<MemoryHeadroom>& headroom) {
  const std::uint64_t need = std::uint64_t(added) * bytesPerPair;
  if (!headroom || need <= headroom->bytes) return {};
  std::ostringstream why;
  why << "would not fit in memory: it adds " << added << " virtual IP pairs (about " << mib(need)
      << "), but only " << mib(headroom->bytes) << " are left under " << headroom->limit;
  return why.str();
}

}  // namespace Agent

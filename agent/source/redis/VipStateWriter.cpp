#include "agent/source/redis/VipStateWriter.h"

#include <cstdio>

namespace Agent::Redis {

std::map<std::string, std::string> vipStates(const std::vector<Acl::VipView>& vips) {
  std::map<std::string, std::string> out;
  for (const Acl::VipView& v : vips)
    for (const Acl::VipIntfView& i : v.intfs) {
      if (i.unwanted && !i.installed && !i.queued) continue;  // not the plug-in's any more
      const char* state = i.queued ? "queued" : i.installed ? "installed" : "failed";
      out[std::string(kVipStatePrefix) + v.vrf + "|" + v.prefix + "|" + i.intf] = state;
    }
  return out;
}

void VipStateWriter::sessionIs(const std::vector<std::string>& existing) {
  written_.clear();
  for (const std::string& key : existing) written_[key] = {};
}

void VipStateWriter::doWrite(const std::vector<Acl::VipView>& vips, double now, const Send& send) {
  const std::map<std::string, std::string> wanted = vipStates(vips);
  for (auto it = written_.begin(); it != written_.end();) {
    if (wanted.contains(it->first)) {
      ++it;
      continue;
    }
    send({"DEL", it->first});
    it = written_.erase(it);
  }
  char since[32];
  for (const auto& [key, state] : wanted) {
    Written& w = written_[key];
    if (w.state == state) continue;
    w = {state, now};
    std::snprintf(since, sizeof since, "%.3f", now);
    send({"HSET", key, "state", state, "since", since});
  }
}

}  // namespace Agent::Redis

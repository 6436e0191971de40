#include "platform/ip/VrfStatus.h"

namespace Ip {

void AllVrfStatusLocal::vrfIs(const L3::VrfName& name, VrfState state,
                              const Dravo::NamespaceName& netNs) {
  auto [p, inserted] = vrf_.insert(name, nullptr);
  if (inserted) {
    *p = new VrfStatusLocal(name, state, netNs);
  } else {
    if ((*p)->state_ == state && (*p)->netNs_ == netNs) return;
    (*p)->state_ = state;
    (*p)->netNs_ = netNs;
  }
  notify<NotifieeConst>(vrfAttrId, [&name](NotifieeConst& n) { n.onVrf(name); });
}

void AllVrfStatusLocal::vrfDel(const L3::VrfName& name) {
  if (!vrf_.erase(name)) return;
  notify<NotifieeConst>(vrfAttrId, [&name](NotifieeConst& n) { n.onVrf(name); });
}

void AllVrfStatusLocal::vrfIs(const std::vector<VrfStatusValue>& all) {
  bool same = all.size() == vrf_.size();
  for (auto it = all.begin(); same && it != all.end(); ++it) {
    Kiv::Ptr<const VrfStatusLocal> cur = vrf(it->name);
    same = cur && cur->state() == it->state && cur->netNs() == it->netNs;
  }
  if (same) return;
  vrf_.clear();
  for (const VrfStatusValue& v : all)
    vrf_.insert(v.name, new VrfStatusLocal(v.name, v.state, v.netNs));
  notify<NotifieeConst>(vrfAttrId, [](NotifieeConst& n) { n.onVrfkivImmediate(); });
}

}  // namespace Ip

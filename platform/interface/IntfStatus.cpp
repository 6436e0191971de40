#include "platform/interface/IntfStatus.h"

namespace Interface {

void AllIntfStatusDir::intfStatusIs(const Dravo::IntfId& id, const Kiv::String8& deviceName) {
  auto [p, inserted] = intfStatus_.insert(id, nullptr);
  if (inserted) {
    *p = new IntfStatus(id, deviceName);
  } else {
    if ((*p)->deviceName_ == deviceName) return;
    (*p)->deviceName_ = deviceName;
  }
  notifyIntfStatus(id);
}

void AllIntfStatusDir::intfStatusDel(const Dravo::IntfId& id) {
  if (intfStatus_.erase(id)) notifyIntfStatus(id);
}

void AllIntfStatusDir::notifyIntfStatus(const Dravo::IntfId& id) {
  notify<NotifieeConst>(intfStatusAttrId, [&id](NotifieeConst& n) { n.onIntfStatus(id); });
}

}  // namespace Interface

#include "platform/kiv/Entity.h"

#include <algorithm>
#include <iostream>

namespace Kiv {

NotifieeBase::~NotifieeBase() {
  if (notifier_ && registered_) notifier_->detach(this);
}

void NotifieeBase::notifierBaseIs(const Entity* e) {
  if (notifier_.ptr() == e) return;
  Ptr<const Entity> old = notifier_;  // keeps the old notifier alive while leaving it
  if (old && registered_) old->detach(this);
  registered_ = false;
  notifier_ = e;
  if (e) {
    e->attach(this);
    registered_ = true;
  }
}

void NotifieeBase::isRegisteredNotifieeIs(bool r) {
  if (r == registered_ || !notifier_) return;
  if (r)
    notifier_->attach(this);
  else
    notifier_->detach(this);
  registered_ = r;
}

void NotifieeBase::handleNotificationException(AttrId attr, std::exception_ptr e) {
  try {
    std::rethrow_exception(e);
  } catch (const std::exception& ex) {
    std::cerr << "notifiee exception on attribute " << attr << ": " << ex.what() << '\n';
  } catch (...) {
    std::cerr << "notifiee exception on attribute " << attr << '\n';
  }
}

Entity::~Entity() {
  // Notifiees hold references, so none should be left; clear defensively.
  for (Registration& r : notifiees_) r.notifiee->registered_ = false;
}

void Entity::attach(NotifieeBase* n) const {
  n->serial_ = nextSerial_++;
  notifiees_.push_back({n, n->serial_});
  ++listVersion_;
}

void Entity::detach(NotifieeBase* n) const {
  auto it = std::find_if(notifiees_.begin(), notifiees_.end(),
                         [n](const Registration& r) { return r.notifiee == n; });
  if (it == notifiees_.end()) return;
  notifiees_.erase(it);
  ++listVersion_;
}

bool Entity::stillRegistered(const Registration& r) const {
  return std::any_of(notifiees_.begin(), notifiees_.end(),
                     [&r](const Registration& x) { return x.serial == r.serial; });
}

void Entity::isNondestructingIs(bool v) {
  if (v == isNondestructing_) return;
  isNondestructing_ = v;
  notify<NotifieeBase>(isNondestructingAttrId, [](NotifieeBase& n) { n.onIsNondestructing(); });
}

void Entity::zeroReferencesIs(bool v) {
  if (v == zeroReferences_) return;
  zeroReferences_ = v;
  notify<NotifieeBase>(zeroReferencesAttrId, [](NotifieeBase& n) { n.onZeroReferences(); });
}

}  // namespace Kiv

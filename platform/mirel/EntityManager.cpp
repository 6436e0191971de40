#include "platform/mirel/EntityManager.h"

#include <string>

#include "platform/kiv/ActivityManager.h"
#include "platform/kiv/Exception.h"

namespace Mirel {

MountGroup::MountGroup(Kiv::Ptr<EntityManager> em, Kiv::Ptr<Mounter> mounter)
    : em_(std::move(em)), mounter_(std::move(mounter)) {}

void MountGroup::doMount(const Kiv::String8& path, const Kiv::String8& typeName,
                         const Kiv::String8& mode) {
  if (closed_) throw Kiv::RangeException("doMount on a closed mount group");
  requests_.push_back({path, typeName, mode});
  em_->mountLog_.push_back(requests_.back());
}

void MountGroup::doClose(bool synchronous, const Kiv::String8&, double) {
  if (closed_) return;
  closed_ = true;
  if (synchronous) {
    doComplete();
    return;
  }
  Kiv::Ptr<MountGroup> self(this);  // the caller may drop its reference at once
  Kiv::activityManager()->post([self] { self->doComplete(); });
}

void MountGroup::doComplete() {
  MountStatus status;
  for (const MountRequest& r : requests_) {
    Kiv::Ptr<Kiv::Entity> e = em_->getEntity(r.path);
    std::string problem;
    if (!e)
      problem = "no entity at " + r.path.stdString();
    else if (r.typeName != e->fwkTypeName())
      problem = "type mismatch at " + r.path.stdString() + ": want " + r.typeName.stdString() +
                ", have " + e->fwkTypeName();
    if (problem.empty()) continue;
    status.code = MountStatus::failed;
    status.message += (status.message.empty() ? "" : "\n") + problem;
  }
  mounter_->doMountsComplete(status, em_);
}

void EntityManager::entityIs(const Kiv::String8& path, const Kiv::Ptr<Kiv::Entity>& e) {
  if (e)
    entities_[path] = e;
  else
    entities_.erase(path);
}

Kiv::Ptr<Kiv::Entity> EntityManager::getEntity(const Kiv::String8& path) const {
  auto it = entities_.find(path);
  return it == entities_.end() ? nullptr : it->second;
}

Kiv::Ptr<MountGroup> EntityManager::getMountGroup(const Kiv::Ptr<Mounter>& mounter) {
  return new MountGroup(this, Kiv::validPtr(mounter));
}

}  // namespace Mirel

namespace Cell {
Kiv::String8 path(const char* path, unsigned int cell) {
  return Kiv::String8("cell/" + std::to_string(cell) + "/" + path);
}
}  // namespace Cell

// Mirel: the in-process state database. Entities live in a tree addressed by
// path ("routing/fhrp/virtualIpStatus"); publishers put them there
// (entityIs), consumers mount them. A mounter collects mount requests in a
// mount group; doClose completes them later on the event loop (never inside
// the caller) and calls the mounter's doMountsComplete. A path with no
// entity, or an entity of another type than requested, is a failed mount.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/kiv/Entity.h"

namespace Mirel {

class EntityManager;

struct MountStatus {
  enum Code { ok, failed };
  Code code = ok;
  std::string message;  // what failed, one mount per line
  bool isOk() const { return code == ok; }
};

// Mounts inputs on behalf of one consumer.
class Mounter : public Kiv::Entity {
 public:
  explicit Mounter(Kiv::Name name) : Kiv::Entity(std::move(name)) {}
  virtual void doMountsComplete(MountStatus status, const Kiv::Ptr<EntityManager>& em) = 0;
  virtual void handleMountStatus(MountStatus) {}
};

struct MountRequest {
  Kiv::String8 path;
  Kiv::String8 typeName;
  Kiv::String8 mode;  // "r": read-only
};

class MountGroup : public Kiv::PtrInterface {
 public:
  MountGroup(Kiv::Ptr<EntityManager> em, Kiv::Ptr<Mounter> mounter);
  void doMount(const Kiv::String8& path, const Kiv::String8& typeName, const Kiv::String8& mode);
  // Ends the group. With synchronous false the mounts complete on a later
  // turn of the event loop; with true, before doClose returns. The
  // description names the group in diagnostics; timeout is not used by the
  // in-process database, whose mounts complete at once.
  void doClose(bool synchronous, const Kiv::String8& description, double timeout);
  const std::vector<MountRequest>& requests() const { return requests_; }

 private:
  void doComplete();
  Kiv::Ptr<EntityManager> em_;
  Kiv::Ptr<Mounter> mounter_;
  std::vector<MountRequest> requests_;
  bool closed_ = false;
};

class EntityManager : public Kiv::PtrInterface {
 public:
  // Publishing: puts (or replaces, or with null removes) the entity at a path.
  void entityIs(const Kiv::String8& path, const Kiv::Ptr<Kiv::Entity>& e);
  void entityDel(const Kiv::String8& path) { entityIs(path, nullptr); }
  Kiv::Ptr<Kiv::Entity> getEntity(const Kiv::String8& path) const;
  // The entity at path as T, or null when absent or of another type.
  template <class T>
  Kiv::Ptr<const T> getEntityAs(const Kiv::String8& path) const {
    return Kiv::Ptr<const T>(dynamic_cast<const T*>(getEntity(path).ptr()));
  }

  Kiv::Ptr<MountGroup> getMountGroup(const Kiv::Ptr<Mounter>& mounter);
  // Every mount requested so far, in order (for diagnostics).
  const std::vector<MountRequest>& mountLog() const { return mountLog_; }

 private:
  friend class MountGroup;
  std::map<Kiv::String8, Kiv::Ptr<Kiv::Entity>> entities_;
  std::vector<MountRequest> mountLog_;
};

}  // namespace Mirel

namespace Cell {
// The path of a per-cell entity: "cell/<cell>/<path>".
Kiv::String8 path(const char* path, unsigned int cell);
}  // namespace Cell

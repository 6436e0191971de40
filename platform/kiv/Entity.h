// Kiv::Entity and its notifiees.
//
// An entity is a reference-counted object whose attributes other objects
// observe through notifiees. A notifiee attaches to one entity at a time
// (notifierIs) and holds a reference to it; the entity keeps a plain list of
// its notifiees, which each notifiee leaves when it detaches or dies.
//
// Delivery rules (notify):
// - no notifiee: return at once;
// - walk a snapshot of the list, so notifiees may attach or detach meanwhile;
// - skip a notifiee of the snapshot that has left the list (detached or died);
// - an exception from a notifiee goes to that notifiee's
//   handleNotificationException with the attribute id; delivery goes on.
// Mutators call notify only when a value really changed.
#pragma once

#include <cstdint>
#include <exception>
#include <vector>

#include "platform/kiv/Ptr.h"
#include "platform/kiv/String8.h"

namespace Kiv {

using AttrId = unsigned;

// Attribute ids of the lifecycle flags every entity carries; an entity's own
// attributes are numbered from firstAttrId.
constexpr AttrId isNondestructingAttrId = 1;
constexpr AttrId zeroReferencesAttrId = 2;
constexpr AttrId firstAttrId = 258;

class Entity;

class NotifieeBase {
 public:
  NotifieeBase() = default;
  NotifieeBase(const NotifieeBase&) = delete;
  NotifieeBase& operator=(const NotifieeBase&) = delete;
  virtual ~NotifieeBase();

  // Whether callbacks should act. Delivery itself ignores the flag: each
  // callback decides (some upkeep runs even while inactive).
  bool isNotificationActive() const { return active_; }
  virtual void hasNotificationActiveIs(bool a) { active_ = a; }
  // Set while the owner tears the notifiee down; callbacks then do nothing.
  bool isDying() const { return dying_; }
  void isDyingIs(bool d) { dying_ = d; }

  bool isRegisteredNotifiee() const { return registered_; }
  // Joins or leaves the current notifier's list without changing notifier.
  void isRegisteredNotifieeIs(bool r);

  const Entity* notifierBase() const { return notifier_.ptr(); }

  virtual void onIsNondestructing() {}
  virtual void onZeroReferences() {}
  // Receives an exception thrown by one of this notifiee's callbacks.
  virtual void handleNotificationException(AttrId attr, std::exception_ptr e);

 protected:
  void notifierBaseIs(const Entity* e);

 private:
  friend class Entity;
  Ptr<const Entity> notifier_;
  std::uint64_t serial_ = 0;
  bool registered_ = false;
  bool active_ = true;
  bool dying_ = false;
};

class Entity : public PtrInterface {
 public:
  explicit Entity(Name name = Name()) : name_(std::move(name)) {}
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  const Name& name() const { return name_; }
  // The registered type name; the state database checks it when mounting.
  virtual const char* fwkTypeName() const { return "Kiv::Entity"; }
  virtual String8 attributeString(AttrId) const { return "unknown"; }

  bool isNondestructing() const { return isNondestructing_; }
  void isNondestructingIs(bool v);
  bool zeroReferences() const { return zeroReferences_; }
  void zeroReferencesIs(bool v);

  std::size_t notifieeCount() const { return notifiees_.size(); }

 protected:
  ~Entity() override;

  // Calls f(static_cast<N&>(notifiee)) for each live notifiee, by the rules above.
  template <class N, class F>
  void notify(AttrId attr, F&& f) const {
    if (notifiees_.empty()) return;
    // A notifiee may drop the last reference to this entity; finish first.
    const Ptr<const Entity> keep = references() ? Ptr<const Entity>(this) : nullptr;
    const std::vector<Registration> snapshot = notifiees_;
    const std::uint64_t version = listVersion_;
    for (const Registration& r : snapshot) {
      if (listVersion_ != version && !stillRegistered(r)) continue;
      try {
        f(static_cast<N&>(*r.notifiee));
      } catch (...) {
        r.notifiee->handleNotificationException(attr, std::current_exception());
      }
    }
  }

 private:
  friend class NotifieeBase;
  struct Registration {
    NotifieeBase* notifiee;
    std::uint64_t serial;
  };
  void attach(NotifieeBase* n) const;
  void detach(NotifieeBase* n) const;
  bool stillRegistered(const Registration& r) const;

  Name name_;
  bool isNondestructing_ = false;
  bool zeroReferences_ = false;
  mutable std::vector<Registration> notifiees_;
  mutable std::uint64_t nextSerial_ = 1;
  mutable std::uint64_t listVersion_ = 0;
};

// A notifiee of entities of type E; entity types derive their NotifieeConst
// from it and add their callbacks.
template <class E>
class NotifieeConstOf : public NotifieeBase {
 public:
  Ptr<const E> notifier() const { return Ptr<const E>(static_cast<const E*>(notifierBase())); }
  virtual void notifierIs(const Ptr<const E>& e) { notifierBaseIs(e.ptr()); }
};

}  // namespace Kiv

// Delivery rules of entity notifications and the reference-count release path.
#include "platform/kiv/Entity.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using Kiv::AttrId;
using Kiv::Ptr;

// An entity that counts its own destruction.
class Probe : public Kiv::Entity {
 public:
  explicit Probe(int* deaths = nullptr) : deaths_(deaths) {}

 protected:
  ~Probe() override {
    if (deaths_) ++*deaths_;
  }

 private:
  int* deaths_;
};

// Counts its calls in a counter that outlives it and runs `action` on each.
class Watcher : public Kiv::NotifieeConstOf<Kiv::Entity> {
 public:
  explicit Watcher(int* calls) : calls_(calls) {}
  void onIsNondestructing() override { doCall(); }
  void onZeroReferences() override { doCall(); }
  void handleNotificationException(AttrId attr, std::exception_ptr) override {
    failedAttrs.push_back(attr);
  }
  std::function<void()> action;
  std::vector<AttrId> failedAttrs;

 private:
  void doCall() {
    ++*calls_;
    if (action) action();
  }
  int* calls_;
};

TEST(Entity, NotifiesOnRealChangesAndSurvivesAThrowingNotifiee) {
  Ptr<Probe> e = new Probe();
  int thrower = 0, after = 0;
  Watcher a(&thrower), b(&after);
  a.action = [] { throw std::runtime_error("boom"); };
  a.notifierIs(e);
  b.notifierIs(e);

  e->zeroReferencesIs(false);  // unchanged values
  e->isNondestructingIs(false);
  e->isNondestructingIs(true);
  e->isNondestructingIs(true);
  e->zeroReferencesIs(true);
  EXPECT_EQ(thrower, 2);
  EXPECT_EQ(after, 2) << "only real changes; delivery goes on past a throwing notifiee";
  EXPECT_EQ(a.failedAttrs,
            (std::vector<AttrId>{Kiv::isNondestructingAttrId, Kiv::zeroReferencesAttrId}));
  EXPECT_TRUE(b.failedAttrs.empty());
}

TEST(Entity, DeliveryWalksTheListAsItStoodAndSkipsDepartedNotifiees) {
  Ptr<Probe> e = new Probe();
  int first = 0, detached = 0, destroyed = 0, unregistered = 0, late = 0;
  Watcher a(&first), c(&detached), r(&unregistered), lateWatcher(&late);
  auto d = std::make_unique<Watcher>(&destroyed);
  for (Watcher* w : {&a, &c, d.get(), &r}) w->notifierIs(e);
  a.action = [&] {
    c.notifierIs(nullptr);
    d.reset();
    r.isRegisteredNotifieeIs(false);
    lateWatcher.notifierIs(e);
  };

  e->isNondestructingIs(true);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(detached + destroyed + unregistered, 0);
  EXPECT_EQ(late, 0) << "a notifiee that joins during delivery waits for the next one";
  EXPECT_EQ(e->notifieeCount(), 2u);

  a.action = nullptr;
  r.isRegisteredNotifieeIs(true);
  e->isNondestructingIs(false);
  EXPECT_EQ(late, 1);
  EXPECT_EQ(unregistered, 1);
  EXPECT_EQ(detached, 0);
}

TEST(Ptr, ObjectDiesExactlyWhenTheLastReferenceGoes) {
  int deaths = 0, calls = 0;
  Ptr<Probe> a = new Probe(&deaths);
  Ptr<Probe> b = a;
  Ptr<Probe> c = std::move(b);
  EXPECT_FALSE(b);
  a = nullptr;
  Ptr<Probe>& alias = c;
  c = alias;  // self-assignment must not release
  EXPECT_EQ(deaths, 0);

  // Notifiees hold their entity: it goes with the last holder.
  Watcher w(&calls);
  auto v = std::make_unique<Watcher>(&calls);
  w.notifierIs(c);
  v->notifierIs(c);
  c = new Probe(&deaths);
  w.notifierIs(nullptr);
  EXPECT_EQ(deaths, 0);
  v.reset();
  EXPECT_EQ(deaths, 1);
  c = nullptr;
  EXPECT_EQ(deaths, 2);
}

}  // namespace

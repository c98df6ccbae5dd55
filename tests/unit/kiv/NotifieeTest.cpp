#include "KivNotifiee.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "KivEntity.h"

namespace {

class Watched : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { speedAttr = 1, membersAttr };
  Watched() : Kiv::Entity("watched") {}
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<Watched>("Test::Watched").build();
    return type;
  }
  void speedIs(int speed) { attributeIs(speed_, speed, speedAttr); }
  void memberChanged(int key) { announceKey(membersAttr, Kiv::KeyRef(key)); }

 private:
  int speed_ = 0;
};

class Watcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  ~Watcher() override { kivDoZombieReactors(true); }
  void onAttribute(Kiv::AttributeId attribute) override {
    told.push_back(attribute);
    if (during) during();
  }
  std::vector<Kiv::AttributeId> told;
  std::function<void()> during;
};

class KeyWatcher : public Watcher {
 public:
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override { keys.push_back(key.as<int>()); }
  std::vector<int> keys;
};

Kiv::Ptr<Watcher> watcherOf(const Kiv::Ptr<Watched>& watched) {
  auto watcher = Kiv::makePtr<Watcher>();
  watcher->notifierIs(watched);
  watcher->hasNotificationActiveIs(true);
  return watcher;
}

TEST(Notifiee, IsToldOfAChangeOnceAndOfASameValueNever) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto watcher = watcherOf(watched);
  watched->speedIs(10);
  watched->speedIs(10);
  EXPECT_EQ(watcher->told, std::vector<Kiv::AttributeId>{Watched::speedAttr});
}

TEST(Notifiee, WhatOneThrowsIsPassedOnAndKeepsNobodyAlive) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto watcher = watcherOf(watched);
  watcher->during = [] { throw std::runtime_error("fault"); };
  EXPECT_THROW(watched->speedIs(10), std::runtime_error);
  EXPECT_EQ(watcher->references(), 1U);
}

TEST(Notifiee, InactiveOrZombieIsNotTold) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto watcher = watcherOf(watched);
  watcher->hasNotificationActiveIs(false);
  watched->speedIs(1);
  watcher->hasNotificationActiveIs(true);
  watcher->kivDoZombieReactors(true);
  watched->speedIs(2);
  EXPECT_TRUE(watcher->told.empty());
}

TEST(Notifiee, KeepsWhatItWatchesAliveAndLeavesItsListWhenItGoes) {
  auto watched = Kiv::makePtr<Watched>();
  auto watcher = watcherOf(watched);
  EXPECT_EQ(watched->references(), 2U);
  EXPECT_EQ(watched->notifieeList()->size(), 1U);
  watcher.reset();
  EXPECT_EQ(watched->references(), 1U);
  EXPECT_TRUE(watched->notifieeList()->empty());
}

TEST(Notifiee, ChangingTheNotifierMovesTheRegistration) {
  const auto first = Kiv::makePtr<Watched>();
  const auto second = Kiv::makePtr<Watched>();
  const auto watcher = watcherOf(first);
  watcher->notifierIs(second);
  first->speedIs(1);
  EXPECT_TRUE(watcher->told.empty());
  second->speedIs(1);
  EXPECT_EQ(watcher->told.size(), 1U);
  EXPECT_TRUE(first->notifieeList()->empty());
}

TEST(Notifiee, AKeyedChangeCarriesItsKeyAndOthersSeeTheAttribute) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto plain = watcherOf(watched);
  const auto keyed = Kiv::makePtr<KeyWatcher>();
  keyed->notifierIs(watched);
  keyed->hasNotificationActiveIs(true);
  watched->memberChanged(42);
  EXPECT_EQ(keyed->keys, std::vector<int>{42});
  EXPECT_EQ(plain->told, std::vector<Kiv::AttributeId>{Watched::membersAttr});
}

TEST(Notifiee, AnotherMayLeaveDuringADelivery) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto first = watcherOf(watched);
  auto second = watcherOf(watched);
  const auto third = watcherOf(watched);
  first->during = [&] { second.reset(); };
  watched->speedIs(1);
  EXPECT_EQ(third->told.size(), 1U);
  EXPECT_EQ(watched->notifieeList()->size(), 2U);
}

TEST(Notifiee, OneThatJoinsDuringADeliveryIsToldFromTheNextOn) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto first = watcherOf(watched);
  Kiv::Ptr<Watcher> late;
  first->during = [&] {
    if (!late) late = watcherOf(watched);
  };
  watched->speedIs(1);
  EXPECT_TRUE(late->told.empty());
  watched->speedIs(2);
  EXPECT_EQ(late->told.size(), 1U);
}

TEST(Notifiee, MayDropItselfWhileItIsTold) {
  const auto watched = Kiv::makePtr<Watched>();
  auto watcher = watcherOf(watched);
  watcher->during = [&] { watcher.reset(); };
  watched->speedIs(1);
  EXPECT_FALSE(watcher);
  EXPECT_TRUE(watched->notifieeList()->empty());
}

TEST(Notifiee, AChangeMadeWhileBeingToldIsToldToo) {
  const auto watched = Kiv::makePtr<Watched>();
  const auto watcher = watcherOf(watched);
  watcher->during = [&] { watched->speedIs(7); };
  watched->speedIs(1);
  EXPECT_EQ(watcher->told.size(), 2U);
}

}  // namespace

#include "KivEntity.h"

#include <gtest/gtest.h>

namespace {

class Node : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  const Kiv::Type& fwkType() const override { return kivType(); }
  static const Kiv::Type& kivType() {
    static const Kiv::Type type =
        Kiv::TypeBuilder<Node>("Test::Node").attribute("other", &Node::other, &Node::otherIs).build();
    return type;
  }
  void handleParent() override { ++parentChanges; }
  const Kiv::Ptr<Node>& other() const { return other_; }
  void otherIs(const Kiv::Ptr<Node>& other) { attributeIs(other_, other, 1); }
  int parentChanges = 0;

 private:
  Kiv::Ptr<Node> other_;
};

TEST(Entity, ASetterReleasesTheOldValueBeforeItNotifies) {
  const auto node = Kiv::makePtr<Node>("node");
  auto old = Kiv::makePtr<Node>("old");
  node->otherIs(old);

  class OldIsGone : public Kiv::PtrInterface::NotifieeConst {
   public:
    explicit OldIsGone(const Node& old) : old_(old) {}
    void onAttribute(Kiv::AttributeId) override { referencesSeen = old_.references(); }
    std::uint32_t referencesSeen = 0;

   private:
    const Node& old_;
  };
  const auto watcher = Kiv::makePtr<OldIsGone>(*old);
  watcher->notifierIs(node);
  watcher->hasNotificationActiveIs(true);
  node->otherIs(nullptr);
  EXPECT_EQ(watcher->referencesSeen, 1U);
}

TEST(Entity, ParentIsToldOnceAChange) {
  const auto parent = Kiv::makePtr<Node>("parent");
  const auto child = Kiv::makePtr<Node>("child");
  child->parentIs(parent.get());
  child->parentIs(parent.get());
  EXPECT_EQ(child->parentChanges, 1);
  child->parentIs(nullptr);
  EXPECT_EQ(child->parentChanges, 2);
  EXPECT_EQ(parent->references(), 1U);
}

TEST(Entity, AttributesAreReachedByName) {
  const auto node = Kiv::makePtr<Node>("node");
  const auto other = Kiv::makePtr<Node>("other");
  Kiv::attributeIs(*node, "other", Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>(other)));
  EXPECT_EQ(node->other(), other);
  EXPECT_EQ(Kiv::attribute(*node, "other"), Kiv::Value(Kiv::Ptr<const Kiv::PtrInterface>(other)));
}

}  // namespace

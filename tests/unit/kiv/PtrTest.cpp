#include "KivPtr.h"

#include <gtest/gtest.h>

#include "KivSystem.h"
#include "KivType.h"

namespace {

class Counted : public Kiv::PtrInterface {
 public:
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() override { --alive_; }
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<Counted>("Test::Counted").build();
    return type;
  }

 private:
  int& alive_;
};

class Keeping : public Counted {
 public:
  using Counted::Counted;
  void zeroReferencesIs(bool zero) override { zeroed += zero ? 1 : 0; }
  int zeroed = 0;
};

TEST(Ptr, ObjectLivesAsLongAsTheLastReference) {
  int alive = 0;
  Kiv::Ptr<Counted> first = Kiv::makePtr<Counted>(alive);
  Kiv::Ptr<Counted> second = first;
  EXPECT_EQ(first->references(), 2U);
  first.reset();
  EXPECT_EQ(alive, 1);
  second = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, EmptyReferenceIsAnOrdinaryValue) {
  const Kiv::Ptr<Counted> empty;
  const Kiv::Ptr<Counted> copy = empty;
  EXPECT_FALSE(copy);
  EXPECT_TRUE(copy == nullptr);
  EXPECT_TRUE(copy == empty);
}

TEST(Ptr, SelfAssignmentKeepsTheObject) {
  int alive = 0;
  Kiv::Ptr<Counted> ptr = Kiv::makePtr<Counted>(alive);
  const Kiv::Ptr<Counted>& same = ptr;
  ptr = same;
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(ptr->references(), 1U);
}

TEST(Ptr, MovingLeavesTheSourceEmptyAndTheCountAlone) {
  int alive = 0;
  Kiv::Ptr<Counted> from = Kiv::makePtr<Counted>(alive);
  const Kiv::Ptr<const Counted> to = std::move(from);
  EXPECT_EQ(to->references(), 1U);
}

TEST(Ptr, ZeroReferencesIsToldOnceAndMayKeepTheObject) {
  int alive = 0;
  auto* object = new Keeping(alive);
  { const Kiv::Ptr<Keeping> only(object); }
  EXPECT_EQ(object->zeroed, 1);
  EXPECT_EQ(alive, 1);
  delete object;
}

TEST(Ptr, CastToAnotherTypeIsEmpty) {
  int alive = 0;
  const Kiv::Ptr<Kiv::PtrInterface> base = Kiv::makePtr<Counted>(alive);
  EXPECT_TRUE(Kiv::ptrCast<Counted>(base));
  EXPECT_FALSE(Kiv::ptrCast<Keeping>(base));
}

TEST(Ptr, CountsTheSameInThreadSafeMode) {
  int alive = 0;
  Kiv::System::threadSafePtrIs(true);
  {
    const Kiv::Ptr<Counted> first = Kiv::makePtr<Counted>(alive);
    const Kiv::Ptr<Counted> second = first;
    EXPECT_EQ(second->references(), 2U);
  }
  Kiv::System::threadSafePtrIs(false);
  EXPECT_EQ(alive, 0);
}

}  // namespace

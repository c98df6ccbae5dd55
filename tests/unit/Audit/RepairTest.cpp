// What a repair puts right, and that it does so however short its slices are.
#include "AuditFixture.h"
#include "TempDir.h"
#include "quell/TableFile.h"
#include "quell/TablePlace.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class Domain>
class AuditRepair : public AuditTest<Domain> {};
TYPED_TEST_SUITE(AuditRepair, Families);

TYPED_TEST(AuditRepair, PutsCountsRightAndDropsWhatNoStatusNeeds) {
  this->startReady();
  this->drift();
  EXPECT_THAT(
      this->auditOf(true),
      ElementsAre(
          this->finding(FindingKind::stateCount, "2", 7U, 1U, true),
          ::testing::AnyOf(this->finding(FindingKind::references, flowOf<TypeParam>(1).str(), 5U, 1U, true),
                           this->finding(FindingKind::unneededCounter, flowOf<TypeParam>(50).str(),
                                         "a counter record", "none", true)),
          ::testing::_,
          this->finding(FindingKind::unneededLocalCounter, flowOf<TypeParam>(51).str(), "a local counter",
                        "none", true)));
  const AuditAnswer answer = this->world.audit->findings(this->world.audit->run(), 1);
  EXPECT_EQ(answer.differences, 4U);
  EXPECT_EQ(answer.repaired, 4U);
  this->expectExact();
  EXPECT_EQ(this->hosEntries(1), 1U);
  EXPECT_FALSE(this->hasCounter(50));
  EXPECT_FALSE(this->hasLocalCounter(51));
  EXPECT_THAT(this->auditOf(false), IsEmpty());
}

TYPED_TEST(AuditRepair, FindsTheSameWhereverItYields) {
  this->startReady();
  for (std::uint32_t number = 1; number <= 20; ++number) this->want(number);
  this->drift();
  const auto whole = this->auditOf(false);
  EXPECT_EQ(whole.size(), 4U);
  for (const unsigned questions : {1U, 2U, 3U, 7U}) {
    EXPECT_EQ(this->auditOf(false, questions), whole) << "slices of " << questions;
  }
  EXPECT_EQ(this->auditOf(true, 1).size(), whole.size());
  this->expectExact();
}

// Somebody else writes the counters.
TYPED_TEST(AuditRepair, WhatTheTableDoesNotTakeStaysAndItsMessageIsLoggedOnce) {
  TestSupport::TempDir dir;
  auto& map = this->world.counter().template map<TypeParam>();
  const auto open = [&] {
    Quell::TableFile::Creation creation;
    creation.type = &map.type();
    creation.containerType = map.owner().fwkType().name();
    return std::make_shared<Quell::Table>(Quell::TableFile::openOrCreate(
        {dir.path(), "counters", map.name()}, creation, Quell::TableFile::Access::read));
  };
  const auto own = open();
  const auto other = open();
  map.tableIs(own);
  this->startReady();
  for (const std::uint32_t number : {50U, 51U, 52U}) this->counterIs(number, 1);
  own->writingDel();
  other->writingIs();
  const auto found = this->auditOf(true);
  ASSERT_EQ(found.size(), 3U);
  for (const std::string& each : found) EXPECT_THAT(each, ::testing::HasSubstr("false"));
  for (const std::uint32_t number : {50U, 51U, 52U}) EXPECT_TRUE(this->hasCounter(number));
  EXPECT_THAT(this->world.log.texts, ElementsAre(::testing::HasSubstr("counters"),
                                                 ::testing::HasSubstr("3 differences, 0 repaired")));
  map.tableIs(nullptr);
}

TYPED_TEST(AuditRepair, KeepsWhatACounterHasCounted) {
  this->startReady();
  this->want(1);
  auto& counters = this->world.counter().template map<TypeParam>();
  auto record = counters.get(flowOf<TypeParam>(1));
  record.packets = 5;
  record.bytes = 500;
  record.creationTime = 17;
  record.lastUpdateTime = 18;
  record.hosEntries = 9;
  counters.insert(record);
  EXPECT_EQ(this->auditOf(true).size(), 1U);
  record.hosEntries = 1;
  EXPECT_EQ(counters.get(flowOf<TypeParam>(1)), record);
}

TYPED_TEST(AuditRepair, MakesTheBudgetWholeAgain) {
  this->startReady(3);
  this->want(1);
  this->stateCountIs(HoFlowState::inHardware, 3);
  ASSERT_TRUE(this->world.tracker->drovaHelper()->template outOf<TypeParam>());
  EXPECT_EQ(this->auditOf(true).size(), 1U);
  for (const std::uint32_t number : {2U, 3U, 4U}) this->want(number);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 3U);
  EXPECT_EQ(this->stateCount(HoFlowState::overflow), 1U);
}

// The references of a flow rise with every change of a state, so that its counter would outlive its statuses.
TYPED_TEST(AuditRepair, LetsACounterGoWithItsLastStatus) {
  this->startReady(1);
  this->want(1);  // into hardware
  this->want(1);  // told again while the hardware is full: to overflow
  this->want(1);  // and back
  ASSERT_EQ(this->hosEntries(1), 3U);
  this->auditOf(true);
  EXPECT_EQ(this->hosEntries(1), 1U);
  this->unwant(1);
  EXPECT_FALSE(this->hasCounter(1));
}

TYPED_TEST(AuditRepair, LeavesTheOtherFamilyAlone) {
  using Other = std::conditional_t<FlowTracking::IpFamily<TypeParam>::kIndex == 0, Pavo::Traits::IPv6,
                                   Pavo::Traits::IPv4>;
  this->startReady();
  FlowTracking::HoFlowConfigRecord<Other> record;
  record.key = keyOf<Other>(1);
  this->world.config().template map<Other>().insert(record);
  const auto counter = this->world.counter().template map<Other>().get(flowOf<Other>(1));
  this->drift();
  EXPECT_EQ(this->auditOf(true).size(), 4U);
  EXPECT_EQ(this->world.counter().template map<Other>().get(flowOf<Other>(1)), counter);
  EXPECT_EQ(this->world.stateCounter().template map<Other>().get(HoFlowState::inHardware).count, 1U);
}

}  // namespace
}  // namespace SampledFlowTracker

// What an audit finds, kind by kind, and that a report changes nothing.
#include "AuditFixture.h"
#include "quell/TableFile.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

template <class Domain>
class AuditFindings : public AuditTest<Domain> {
 protected:
  // Makes the record of a key in a table one that cannot be read. A slot that was overwritten elsewhere still
  // has the key, so this is done in each.
  template <class Map>
  static void damage(const Map& map, const typename Map::KeyType& key) {
    const auto& file = *map.table()->file();
    auto* bytes = const_cast<char*>(reinterpret_cast<const char*>(&file.header()));
    const auto* wanted = reinterpret_cast<const char*>(&key);
    for (std::uint64_t slot = 0; slot < file.slotsInFile(); ++slot) {
      char* record = bytes + file.identity().recordsOffset + slot * file.slotBytes() + 8;
      if (std::equal(wanted, wanted + sizeof(key), record)) {
        record[sizeof(key) + 1] = static_cast<char>(record[sizeof(key) + 1] ^ 1);
      }
    }
    EXPECT_THROW(map.has(key), Fenn::CorruptionDetectedException);
  }
};
TYPED_TEST_SUITE(AuditFindings, Families);

TYPED_TEST(AuditFindings, AreNoneInTablesThatTheStateMachineKeepsAlone) {
  this->startReady(2);
  for (const std::uint32_t number : {1U, 2U, 3U, 4U}) this->want(number);
  this->unwant(1);
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 2U);
  EXPECT_EQ(this->stateCount(HoFlowState::overflow), 1U);
  this->world.tracker->localHoCounters()->counterIs(flowOf<TypeParam>(2));
  EXPECT_THAT(this->auditOf(false), IsEmpty());
}

TYPED_TEST(AuditFindings, AStateCountThatIsNotTheNumberOfStatuses) {
  this->startReady();
  this->want(1);
  this->want(2);
  this->stateCountIs(HoFlowState::inHardware, 9);
  EXPECT_THAT(this->auditOf(false), ElementsAre(this->finding(FindingKind::stateCount, "2", 9U, 2U, false)));
  EXPECT_EQ(this->stateCount(HoFlowState::inHardware), 9U);
}

TYPED_TEST(AuditFindings, AStateCountThatIsMissingAndOneOfAStateThatNobodyIsIn) {
  this->startReady();
  this->want(1);
  this->world.stateCounter().template map<TypeParam>().erase(HoFlowState::inHardware);
  this->stateCountIs(HoFlowState::none, 3);
  this->stateCountIs(static_cast<HoFlowState>(200), 4);
  EXPECT_THAT(this->auditOf(false),
              ElementsAre(this->finding(FindingKind::stateCount, "0", 3U, 0U, false),
                          this->finding(FindingKind::stateCount, "2", 0U, 1U, false),
                          this->finding(FindingKind::stateCount, "200", 4U, 0U, false)));
}

TYPED_TEST(AuditFindings, ACountOfZeroThatStaysIsRight) {
  this->startReady();
  this->want(1);
  this->unwant(1);
  ASSERT_TRUE(this->world.stateCounter().template map<TypeParam>().has(HoFlowState::inHardware));
  EXPECT_THAT(this->auditOf(false), IsEmpty());
}

TYPED_TEST(AuditFindings, ReferencesThatAreNotTheNumberOfStatusesOfTheFlow) {
  this->startReady();
  this->want(1);
  this->want(1, true);
  ASSERT_EQ(this->hosEntries(1), 2U);
  this->counterIs(1, 6);
  EXPECT_THAT(this->auditOf(false),
              ElementsAre(this->finding(FindingKind::references, flowOf<TypeParam>(1).str(), 6U, 2U, false)));
  EXPECT_EQ(this->hosEntries(1), 6U);
}

TYPED_TEST(AuditFindings, CountersOfFlowsWithoutAStatus) {
  this->startReady();
  this->counterIs(1, 1);
  this->world.tracker->localHoCounters()->counterIs(flowOf<TypeParam>(2));
  EXPECT_THAT(this->auditOf(false),
              ElementsAre(this->finding(FindingKind::unneededCounter, flowOf<TypeParam>(1).str(),
                                        "a counter record", "none", false),
                          this->finding(FindingKind::unneededLocalCounter, flowOf<TypeParam>(2).str(),
                                        "a local counter", "none", false)));
  EXPECT_TRUE(this->hasCounter(1));
  EXPECT_TRUE(this->hasLocalCounter(2));
}

TYPED_TEST(AuditFindings, EachOfSeveralOfAKind) {
  this->startReady(0);
  for (const std::uint32_t number : {1U, 2U, 3U}) {
    this->counterIs(number, 1);
    this->world.tracker->localHoCounters()->counterIs(flowOf<TypeParam>(number));
    this->world.tracker->drovaHelper()->template overflow<TypeParam>().insert(keyOf<TypeParam>(number));
  }
  EXPECT_EQ(this->auditOf(false).size(), 4U * 3U) << "an entry is both without a status and not wanted";
}

TYPED_TEST(AuditFindings, ARunWithoutSuspectsDoesNotPauseAndTellsItsTaskWhatItExamined) {
  this->startReady(2);
  for (const std::uint32_t number : {1U, 2U, 3U}) this->want(number);
  this->world.tracker->localHoCounters()->counterIs(flowOf<TypeParam>(1));
  const auto& tasks = this->world.scheduler->tasks();
  const auto own = std::find_if(tasks.begin(), tasks.end(),
                                [](const Olt::Task* task) { return task->name() == SftPexaAudit::kName; });
  ASSERT_NE(own, tasks.end());
  this->world.audit->start(false);
  while (this->world.runOne(1)) continue;
  EXPECT_FALSE(this->world.audit->running());
  EXPECT_EQ((*own)->workCount(), 3U + 1U + 2U + 1U) << "statuses, overflow entries, counters, local ones";
}

TYPED_TEST(AuditFindings, AStatusInHardwareWithoutACounterIsNotRepaired) {
  this->startReady();
  this->want(1);
  this->world.counter().template map<TypeParam>().erase(flowOf<TypeParam>(1));
  EXPECT_THAT(this->auditOf(true),
              ElementsAre(this->finding(FindingKind::noCounter, keyOf<TypeParam>(1).str(), "none",
                                        "a counter record", false)));
  EXPECT_FALSE(this->hasCounter(1));
}

TYPED_TEST(AuditFindings, AStatusInOverflowWithoutAnEntry) {
  this->startReady(0);
  this->want(1);
  this->world.tracker->drovaHelper()->template overflow<TypeParam>().erase(keyOf<TypeParam>(1));
  EXPECT_THAT(this->auditOf(true),
              ElementsAre(this->finding(FindingKind::noOverflowEntry, keyOf<TypeParam>(1).str(), "none",
                                        "an overflow entry", false)));
}

TYPED_TEST(AuditFindings, OverflowEntriesWithoutAFittingStatus) {
  this->startReady();
  this->want(1);  // in hardware
  auto& waiting = this->world.tracker->drovaHelper()->template overflow<TypeParam>();
  waiting.insert(keyOf<TypeParam>(1));
  waiting.insert(keyOf<TypeParam>(2));
  EXPECT_THAT(this->auditOf(true),
              UnorderedElementsAre(
                  this->finding(FindingKind::entryOfOtherState, keyOf<TypeParam>(1).str(), 2U, 3U, false),
                  this->finding(FindingKind::entryWithoutStatus, keyOf<TypeParam>(2).str(),
                                "an overflow entry", "none", false),
                  this->finding(FindingKind::entryNotWanted, keyOf<TypeParam>(2).str(), "an overflow entry",
                                "none", false)));
}

// Another process withdraws it, and the state machine has not heard of it yet when the audit looks.
TYPED_TEST(AuditFindings, AnOverflowEntryThatIsWithdrawnRightNowIsNone) {
  this->startReady(0);
  this->want(1);
  this->world.tracker->hocSm()->hasNotificationActiveIs(false);
  this->unwant(1);
  this->world.audit->start(false);
  while (this->world.runOne(1000)) continue;
  ASSERT_TRUE(this->world.audit->running()) << "it waits for a second look";
  this->world.tracker->hocSm()->hasNotificationActiveIs(true);
  this->world.runDue();
  this->finishRun(1000);
  EXPECT_THAT(this->takeFindings(), IsEmpty());
}

TYPED_TEST(AuditFindings, ADamagedStatusIsToldOfAndCountsAsAbsent) {
  this->startReady();
  for (const std::uint32_t number : {1U, 2U, 3U}) this->want(number);
  this->damage(this->world.status().template map<TypeParam>(), keyOf<TypeParam>(2));
  const auto reported = this->world.status().template map<TypeParam>().corruptions();
  const auto found = this->auditOf(true, 1);
  EXPECT_GT(this->world.status().template map<TypeParam>().corruptions(), reported);
  ASSERT_EQ(found.size(), 3U);
  EXPECT_THAT(found[0], HasSubstr("damage"));
  EXPECT_EQ(found[1], this->finding(FindingKind::stateCount, "2", 3U, 2U, true));
  EXPECT_EQ(found[2], this->finding(FindingKind::unneededCounter, flowOf<TypeParam>(2).str(),
                                    "a counter record", "none", true));
}

TYPED_TEST(AuditFindings, ADamagedCounterIsToldOfAndTheOthersAreExamined) {
  this->startReady();
  for (const std::uint32_t number : {1U, 2U, 3U}) this->want(number);
  for (const std::uint32_t number : {1U, 2U, 3U}) this->counterIs(number, 8);
  this->damage(this->world.counter().template map<TypeParam>(), flowOf<TypeParam>(2));
  const auto found = this->auditOf(true);
  ASSERT_EQ(found.size(), 4U);
  EXPECT_EQ(this->hosEntries(1), 1U);
  EXPECT_EQ(this->hosEntries(3), 1U);
  EXPECT_THAT(found[0], HasSubstr("in hardware without a counter"));
}

TYPED_TEST(AuditFindings, AreHandedOutOnceAndCountedToTheEnd) {
  this->startReady();
  this->drift();
  const std::uint64_t run = this->world.audit->start(false);
  EXPECT_TRUE(this->world.audit->findings(run, 10).running);
  this->finishRun(1000);
  const AuditAnswer first = this->world.audit->findings(run, 3);
  EXPECT_FALSE(first.running);
  EXPECT_EQ(first.findings.size(), 3U);
  const AuditAnswer second = this->world.audit->findings(run, 3);
  EXPECT_EQ(second.findings.size(), 1U);
  EXPECT_EQ(this->world.audit->findings(run, 3).findings.size(), 0U);
  EXPECT_EQ(second.differences, 4U);
  EXPECT_EQ(second.repaired, 0U);
  EXPECT_EQ(second.statuses, 1U);
  EXPECT_EQ(second.stopped, std::nullopt);
  const Kiv::Value shown = Kiv::invoke(*this->world.audit, "findings", {{"run", run}, {"most", 3U}});
  EXPECT_EQ(*shown.member("stopped"), Kiv::Value());
}

TYPED_TEST(AuditFindings, SayTheirKindInWords) {
  const Kiv::Value shown = Finding{this->kFamily, FindingKind::stateCount, "2", 9U, 2U, true}.value();
  EXPECT_EQ(*shown.member("family"), Kiv::Value(this->kFamily));
  EXPECT_EQ(*shown.member("kind"), Kiv::Value("per-state count"));
  EXPECT_EQ(*shown.member("key"), Kiv::Value("2"));
  EXPECT_EQ(*shown.member("found"), Kiv::Value(9U));
  EXPECT_EQ(*shown.member("expected"), Kiv::Value(2U));
  EXPECT_EQ(*shown.member("repaired"), Kiv::Value(true));
}

TEST(FindingsSummary, NamesEachKindWithItsNumber) {
  Findings findings(false);
  EXPECT_EQ(findings.summary(), "no difference");
  findings.add({"IPv4", FindingKind::stateCount, "2", 9U, 2U, true});
  EXPECT_EQ(findings.summary(), "1 difference, 1 repaired (per-state count: 1)");
  findings.add({"IPv6", FindingKind::noCounter, "k", "none", "a counter record", false});
  findings.add({"IPv6", FindingKind::stateCount, "2", 9U, 2U, true});
  EXPECT_EQ(findings.summary(),
            "3 differences, 2 repaired (per-state count: 2, in hardware without a counter: 1)");
  EXPECT_TRUE(findings.take(10).empty()) << "without keeping there is nothing to take";
}

}  // namespace
}  // namespace SampledFlowTracker

// The state machine goes on while an audit runs: whatever comes, goes or changes between two slices, what a
// repair leaves is exactly right, and a report tells of nothing that is not there.
#include <rapidcheck.h>

#include "AuditFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::IsEmpty;

constexpr std::uint32_t kFlows = 12;

template <class Domain>
struct Case : AuditedFamily<Domain> {
  void startWithFlows(std::uint32_t budget) {
    this->startReady(budget);
    for (std::uint32_t number = 1; number <= kFlows; ++number) this->want(number);
  }
  // Repairs in slices of one entry and does something before one of them, counted from 0; false when the
  // repair has ended before.
  template <class Change>
  bool repairWith(unsigned at, const Change& change) {
    this->world.audit->start(true);
    for (unsigned slice = 0; this->world.audit->running(); ++slice) {
      if (slice == at) {
        change(*this);
        this->finishRun(1);
        return true;
      }
      if (!this->world.runOne(1)) this->world.clock.advance(SftPexaAudit::kPause);
    }
    return false;
  }
};

template <class Domain>
class ChangesDuringAudit : public ::testing::Test {
 protected:
  // The change at every point of a repair, each in a world of its own that has drifted.
  template <class Change>
  static void atEveryPoint(const Change& change) {
    bool reached = true;
    unsigned points = 0;
    for (; reached; ++points) {
      Case<Domain> one;
      one.startWithFlows(8);
      one.drift();
      reached = one.repairWith(points, change);
      one.expectExact();
      if (::testing::Test::HasFailure()) FAIL() << "changed before slice " << points;
    }
    EXPECT_GT(points, kFlows * 2) << "a slice is one entry";
  }
};
TYPED_TEST_SUITE(ChangesDuringAudit, Families);

TYPED_TEST(ChangesDuringAudit, AFlowThatComesAtAnyPoint) {
  this->atEveryPoint([](auto& one) { one.want(100); });
}

TYPED_TEST(ChangesDuringAudit, AFlowThatGoesAtAnyPoint) {
  this->atEveryPoint([](auto& one) { one.unwant(5); });
}

// A flow goes, and another one is promoted in its place.
TYPED_TEST(ChangesDuringAudit, AFlowThatMakesRoomForAnotherAtAnyPoint) {
  this->atEveryPoint([](auto& one) {
    one.world.tracker->drovaHelper()->maxInHardwareFlowsIs(100);
    one.unwant(3);
  });
}

TYPED_TEST(ChangesDuringAudit, AFlowThatComesInTheOtherDirectionAndGoesAgainAtAnyPoint) {
  this->atEveryPoint([](auto& one) {
    one.want(1, true);
    one.want(2, true);
    one.unwant(1, true);
  });
}

TYPED_TEST(ChangesDuringAudit, AllFlowsGoAtAnyPoint) {
  this->atEveryPoint([](auto& one) {
    for (std::uint32_t number = 1; number <= kFlows; ++number) one.unwant(number);
  });
}

// Events that are no drift are no findings: flows that come and go while the walks are under way.
TYPED_TEST(ChangesDuringAudit, AReportTellsOfNothingThatIsNotThere) {
  Case<TypeParam> one;
  one.startReady(1000);
  for (std::uint32_t number = 1; number <= 40; ++number) one.want(number);
  one.world.audit->start(false);
  std::uint32_t step = 0;
  for (; one.world.audit->running() && step < 1000; ++step) {
    if (step % 3 == 0) one.want(100 + step);
    if (step % 3 == 1) one.unwant(100 + step - 1);
    if (step % 3 == 2 && step < 100) one.unwant(1 + step % 40);
    ASSERT_TRUE(one.world.runOne(1));
  }
  EXPECT_GT(step, 40U);
  EXPECT_THAT(one.takeFindings(), IsEmpty());
}

// Any drift, any changes, any slices.
TYPED_TEST(ChangesDuringAudit, AnythingAtAll) {
  const bool held = rc::check("a repair leaves exact counts", [] {
    Case<TypeParam> one;
    const auto number = [] { return *rc::gen::inRange<std::uint32_t>(1, 15); };
    one.startWithFlows(*rc::gen::inRange<std::uint32_t>(0, 20));
    for (int i = *rc::gen::inRange(0, 6); i > 0; --i) {
      const auto count = *rc::gen::inRange<std::uint32_t>(0, 9);
      switch (*rc::gen::inRange(0, 4)) {
        case 0:
          one.stateCountIs(static_cast<HoFlowState>(*rc::gen::inRange(0, 5)), count);
          break;
        case 1:
          one.counterIs(number(), count);
          break;
        case 2:
          one.world.tracker->localHoCounters()->counterIs(flowOf<TypeParam>(number()));
          break;
        default:
          one.world.counter().template map<TypeParam>().erase(flowOf<TypeParam>(number()));
          break;
      }
    }
    one.world.audit->start(true);
    for (int left = 10'000; one.world.audit->running() && left > 0; --left) {
      const bool egress = *rc::gen::arbitrary<bool>();
      switch (*rc::gen::inRange(0, 4)) {
        case 0:
          one.want(number(), egress);
          break;
        case 1:
          one.unwant(number(), egress);
          break;
        case 2:
          one.world.tracker->drovaHelper()->maxInHardwareFlowsIs(number());
          break;
        default:
          break;
      }
      const auto questions = *rc::gen::inRange(1U, 6U);
      if (!one.world.runOne(questions)) one.world.clock.advance(SftPexaAudit::kPause);
    }
    RC_ASSERT(!one.world.audit->running());
    one.expectStateCountsExact();  // references may have risen since with a change of the state
    RC_ASSERT(!::testing::Test::HasFailure());
  });
  EXPECT_TRUE(held);
}

}  // namespace
}  // namespace SampledFlowTracker

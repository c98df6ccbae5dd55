// When a run is told to end.
#include "OltFixture.h"

namespace {

#ifdef OLT_YIELD_ALWAYS
constexpr bool kAlways = true;
#else
constexpr bool kAlways = false;
#endif

class Yield : public TestSupport::OltFixture {
 protected:
  // How many entries a run takes that asks after each of at most ten.
  unsigned entriesOfARun(const Kiv::Ptr<Olt::Task>& task, Olt::Slice& slice,
                         const std::function<void(unsigned)>& during = {}) {
    unsigned done = 0;
    const auto work = TestSupport::reactorOf(task, [&] {
      while (done < 10) {
        if (during) during(done);
        ++done;
        if (task->taskShouldYield()) return;
      }
    });
    task->scheduleTask();
    scheduler_->runTask(slice);
    return done;
  }
};

TEST_F(Yield, ARunEndsWhenItsSliceIsSpent) {
  const auto task = scheduler_->taskIs("a", 3);
  TestSupport::CountedSlice slice(4);
  EXPECT_EQ(entriesOfARun(task, slice), kAlways ? 1U : 4U);
}

TEST_F(Yield, ARunInAnEndlessSliceGoesOn) {
  const auto task = scheduler_->taskIs("a", 3);
  EXPECT_EQ(entriesOfARun(task, endless_), kAlways ? 1U : 10U);
}

TEST_F(Yield, ARunGivesWayToAMoreUrgentTask) {
  const auto task = scheduler_->taskIs("a", 3);
  const auto urgent = worker("urgent", 2);
  const auto at = [&](unsigned done) {
    if (done == 4) urgent.task->scheduleTask();
  };
  EXPECT_EQ(entriesOfARun(task, endless_, at), kAlways ? 1U : 5U);
}

TEST_F(Yield, ARunDoesNotGiveWayToOneOfItsOwnPriorityOrLess) {
  const auto task = scheduler_->taskIs("a", 3);
  const auto same = worker("same", 3);
  const auto less = worker("less", 9);
  const auto at = [&](unsigned) {
    same.task->scheduleTask();
    less.task->scheduleTask();
  };
  EXPECT_EQ(entriesOfARun(task, endless_, at), kAlways ? 1U : 10U);
}

TEST_F(Yield, WhoIsCalledFromOutsideItsRunGetsAllOfItsWorkDone) {
  const auto outer = scheduler_->taskIs("outer", 3);
  const auto inner = scheduler_->taskIs("inner", 3);
  TestSupport::CountedSlice slice(1);
  EXPECT_FALSE(outer->taskShouldYield());
  bool innerYields = true;
  bool outerYields = false;
  const auto work = TestSupport::reactorOf(outer, [&] {
    innerYields = inner->taskShouldYield();
    outerYields = outer->taskShouldYield();
  });
  outer->scheduleTask();
  scheduler_->runTask(slice);
  EXPECT_FALSE(innerYields);
  EXPECT_TRUE(outerYields);
  EXPECT_FALSE(outer->taskShouldYield()) << "its run is over";
}

}  // namespace

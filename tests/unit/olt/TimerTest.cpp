// Tasks that become due later.
#include "OltFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Timer : public TestSupport::OltFixture {
 protected:
  struct TimerWorker {
    Kiv::Ptr<Olt::TimerTask> task;
    Kiv::Ptr<TestSupport::LambdaReactor> reactor;
  };
  TimerWorker timer(const std::string& name, std::uint8_t priority = 3) {
    const Kiv::Ptr<Olt::TimerTask> task = scheduler_->timerTaskIs(name, priority);
    return {task, noting(task)};
  }
};

TEST_F(Timer, GoesOffWhenItsTimeHasComeAndOnce) {
  const auto a = timer("a");
  a.task->taskDelayIs(1.0);
  EXPECT_EQ(a.task->due(), clock_.now() + 1.0);
  EXPECT_EQ(scheduler_->next(), clock_.now() + 1.0);
  EXPECT_EQ(scheduler_->due(), 0U);
  clock_.advance(0.999);
  EXPECT_THAT(runAll(), IsEmpty());
  clock_.advance(0.001);
  EXPECT_EQ(scheduler_->due(), 1U);
  EXPECT_THAT(runAll(), ElementsAre("a"));
  EXPECT_EQ(a.task->due(), Olt::TimerTask::kNever);
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
  clock_.advance(100);
  EXPECT_THAT(runAll(), IsEmpty());
}

TEST_F(Timer, ThoseThatWentOffTogetherRunInTheOrderOfTheirTimes) {  // O2
  const auto late = timer("late");
  const auto early = timer("early");
  const auto tie = timer("tie");
  late.task->taskDelayIs(2);
  early.task->taskDelayIs(1);
  tie.task->taskDelayIs(2);
  clock_.advance(10);
  EXPECT_THAT(runAll(), ElementsAre("early", "late", "tie"));
}

TEST_F(Timer, OneThatGoesOffComesBehindWhatIsDueAlready) {  // O2
  const auto plain = worker("plain");
  const auto a = timer("a");
  a.task->taskDelayIs(1);
  clock_.advance(5);
  plain.task->scheduleTask();
  EXPECT_THAT(runAll(), ElementsAre("plain", "a"));
}

TEST_F(Timer, ThePriorityOfOneThatWentOffCounts) {  // O1
  const auto plain = worker("plain", 3);
  const auto a = timer("a", 1);
  a.task->taskDelayIs(1);
  plain.task->scheduleTask();
  clock_.advance(1);
  EXPECT_THAT(runAll(), ElementsAre("a", "plain"));
}

TEST_F(Timer, ALaterDelayTakesThePlaceOfAnEarlierOne) {
  const auto a = timer("a");
  a.task->taskDelayIs(1);
  a.task->taskDelayIs(3);
  clock_.advance(2);
  EXPECT_THAT(runAll(), IsEmpty());
  clock_.advance(1);
  EXPECT_THAT(runAll(), ElementsAre("a"));
}

TEST_F(Timer, ADelayTakesThePlaceOfBeingDue) {
  const auto a = timer("a");
  a.task->scheduleTask();
  a.task->taskDelayIs(1);
  EXPECT_FALSE(a.task->scheduled());
  EXPECT_THAT(runAll(), IsEmpty());
  clock_.advance(1);
  EXPECT_THAT(runAll(), ElementsAre("a"));
}

TEST_F(Timer, SchedulingForgetsTheTime) {
  const auto a = timer("a");
  a.task->taskDelayIs(1);
  a.task->scheduleTask();
  EXPECT_EQ(a.task->due(), Olt::TimerTask::kNever);
  EXPECT_THAT(runAll(), ElementsAre("a"));
  clock_.advance(10);
  EXPECT_THAT(runAll(), IsEmpty());
}

TEST_F(Timer, UnscheduledItDoesNotGoOff) {
  const auto a = timer("a");
  a.task->taskDelayIs(1);
  a.task->unscheduleTask();
  EXPECT_EQ(a.task->due(), Olt::TimerTask::kNever);
  clock_.advance(10);
  EXPECT_THAT(runAll(), IsEmpty());
}

TEST_F(Timer, ItMayArmItselfAgainInItsRun) {
  const auto a = timer("a");
  const auto again = TestSupport::reactorOf(a.task, [&] { a.task->taskDelayIs(1); });
  a.task->taskDelayIs(1);
  for (int i = 0; i < 3; ++i) {
    clock_.advance(1);
    EXPECT_THAT(runAll(), ElementsAre("a"));
  }
}

TEST_F(Timer, NothingAndLessIsAtOnceAndNeverIsNever) {
  const auto a = timer("a");
  const auto b = timer("b");
  const auto c = timer("c");
  a.task->taskDelayIs(0);
  b.task->taskDelayIs(-5);
  c.task->taskDelayIs(1);
  c.task->taskDelayIs(Olt::TimerTask::kNever);
  EXPECT_THAT(runAll(), ElementsAre("a", "b"));
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
}

TEST_F(Timer, AStepOfTheClockBackwardsMovesTheTimersWithIt) {  // O6
  const auto a = timer("a");
  const auto b = timer("b");
  a.task->taskDelayIs(1);
  b.task->taskDelayIs(2);
  clock_.advance(-3600);
  EXPECT_EQ(scheduler_->next(), clock_.now() + 1);
  EXPECT_EQ(b.task->due(), clock_.now() + 2);
  clock_.advance(1);
  EXPECT_THAT(runAll(), ElementsAre("a"));
  clock_.advance(1);
  EXPECT_THAT(runAll(), ElementsAre("b"));
}

TEST_F(Timer, AStepBackwardsIsNoticedByWhoeverAsksFirst) {  // O6
  const auto a = timer("a");
  const auto step = [&] {
    a.task->taskDelayIs(1);
    clock_.advance(-3600);
  };
  step();
  EXPECT_EQ(scheduler_->due(), 0U);
  EXPECT_EQ(a.task->due(), clock_.now() + 1);
  step();
  EXPECT_FALSE(runOne());
  EXPECT_EQ(a.task->due(), clock_.now() + 1);
  step();
  const auto b = timer("b");
  b.task->taskDelayIs(0.5);
  EXPECT_EQ(a.task->due(), clock_.now() + 1) << "the new one is not moved, the old one is";
  EXPECT_EQ(b.task->due(), clock_.now() + 0.5);
}

TEST_F(Timer, AStepForwardsMakesThemDue) {
  const auto a = timer("a");
  a.task->taskDelayIs(60);
  clock_.advance(3600);
  EXPECT_THAT(runAll(), ElementsAre("a"));
}

TEST_F(Timer, AsLongAsNoneIsArmedTheClockIsNotRead) {
  const auto a = worker("a");
  a.task->scheduleTask();
  runAll();
  scheduler_->next();
  scheduler_->due();
  EXPECT_EQ(clock_.reads(), 0U);
}

TEST_F(Timer, OneThatIsToGoOffNeverIsNotArmed) {
  auto a = scheduler_->timerTaskIs("a", 3);
  a->taskDelayIs(Olt::TimerTask::kNever);
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
  EXPECT_EQ(clock_.reads(), 0U);
  a.reset();
  EXPECT_EQ(scheduler_->next(), Olt::TimerTask::kNever);
}

TEST_F(Timer, WithAnInactiveReactorTheMissedTimeIsMadeUpFor) {  // O4
  const auto a = timer("a");
  a.task->taskDelayIs(1);
  a.reactor->hasNotificationActiveIs(false);
  clock_.advance(1);
  EXPECT_THAT(runAll(), IsEmpty());
  a.reactor->hasNotificationActiveIs(true);
  EXPECT_THAT(runAll(), ElementsAre("a"));
}

}  // namespace

// The agent's task scheduler: work in small runs, between bursts of packets.
//
// A task has a name and a priority and is run when it has been scheduled. It does some entries of its work,
// asks taskShouldYield() between them, and when told to, remembers where it is and schedules itself again.
// What a run does is told by the task's reactor:
//
//   class ScanTask : public Olt::TaskReactor { void onTaskRun() override { sm_.doInputScan(); } ... };
//   task = scheduler->taskIs("Sft-Scan", 3);      reactor->notifierIs(task);      task->scheduleTask();
//
// O1  Of the tasks that are due, those of the smallest priority number run first.
// O2  Tasks of one priority run in the order in which they were scheduled; one that schedules itself during
//     its own run goes on before those scheduled after it. A timer counts as scheduled when the
//     scheduler first looks after its time has come.
// O3  A task that is scheduled is run once, however often it was scheduled before.
// O4  A task whose reactor is inactive when its turn comes does nothing; the run is made up for when the
//     reactor is activated.
// O5  A task that nobody refers to any more is never run.
// O6  A step of the clock backwards moves the timers with it: one goes off late by no more than the time for
//     which nobody asked the scheduler anything.
//
// Neighbours: runtime/olt has the bodies; the agent's loop gives the scheduler its slices; `sft tasks` shows
// the tasks. Threading: the agent's event thread. Times are UTC seconds (Kiv::System).
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "Kiv.h"

namespace Olt {

class TaskScheduler;

// Bounds one run. Asked at every yield point.
class Slice {
 public:
  virtual ~Slice() = default;
  // Whether the run has had its share.
  virtual bool spent() = 0;
};

class Task : public Kiv::Entity {
 public:
  // Announced when the task is run; it is this that runs the reactor.
  enum Attr : Kiv::AttributeId { runsAttr = 1 };

  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  ~Task() override;

  std::uint8_t priority() const { return priority_; }
  // Makes the task due now, behind those of its priority that are due already; within its own run, before
  // them (O2).
  void scheduleTask();
  // A task that was due, or waiting for its time, is not any more.
  void unscheduleTask();
  bool scheduled() const { return scheduled_; }

  // Whether the run under way should end. False outside of the task's own run: who calls its work directly
  // gets all of it. True when the slice is spent or a task of a smaller priority number is due; always true
  // in the build in which every yield point yields.
  bool taskShouldYield() const;

  // What a run tells of its work: entries done, entries left.
  void taskWorkCountInc(std::uint64_t done) { workCount_ += done; }
  void taskWorkPendingIs(std::uint64_t left) { workPending_ = left; }

  std::uint64_t runs() const { return runs_; }
  std::uint64_t workCount() const { return workCount_; }
  std::uint64_t workPending() const { return workPending_; }
  double longestRun() const { return longestRun_; }  // seconds of the steady clock

 protected:
  friend class TaskScheduler;
  friend class TaskReactor;
  // Called by the scheduler only.
  Task(TaskScheduler& scheduler, Kiv::String name, std::uint8_t priority);
  // Forgets the time that a timer waits for.
  virtual void unarm() {}
  TaskScheduler* scheduler() const { return scheduler_; }

 private:
  void run();

  TaskScheduler* scheduler_;  // null once it is gone
  std::uint64_t runs_ = 0;
  std::uint64_t workCount_ = 0;
  std::uint64_t workPending_ = 0;
  double longestRun_ = 0;
  std::uint8_t priority_;
  bool scheduled_ = false;
  bool owed_ = false;  // it was run, and no reactor was active (O4)
};

// A task that can also be told to become due later.
class TimerTask : public Task {
 public:
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  ~TimerTask() override;
  // Makes the task due after this many seconds, in place of what was asked before; less than 0 counts as 0,
  // and after kNever it is not due at all. scheduleTask() makes it due now and forgets the time.
  void taskDelayIs(double seconds);
  // When the timer goes off, UTC seconds; infinity when it is not set.
  double due() const { return due_; }
  static constexpr double kNever = std::numeric_limits<double>::infinity();

 private:
  friend class TaskScheduler;
  using Task::Task;
  void unarm() override;

  double due_ = kNever;
};

// Does the work of a task. Holds the task (its notifier) as every notifiee does.
class TaskReactor : public Kiv::PtrInterface::NotifieeConst {
 public:
  virtual void onTaskRun() = 0;
  void onAttribute(Kiv::AttributeId attribute) override;
  void hasNotificationActiveIs(bool active) override;
  // The task this one works for; empty when none.
  Kiv::Ptr<Task> task() const;
};

class TaskScheduler : public Kiv::Entity {
 public:
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  explicit TaskScheduler(Kiv::String name);
  // Tasks may outlive it; they are never run again.
  ~TaskScheduler() override;

  // Creates a task, not scheduled. Names need not be unique.
  Kiv::Ptr<Task> taskIs(const Kiv::String& name, std::uint8_t priority);
  Kiv::Ptr<TimerTask> timerTaskIs(const Kiv::String& name, std::uint8_t priority);

  // The task whose run is under way; null between runs.
  const Task* currentTask() const { return current_; }
  // Every task there is, in the order of creation.
  const std::vector<Task*>& tasks() const { return tasks_; }

  // When there is something to do next, UTC seconds: 0 when a task is due, infinity for never, else when the
  // first timer goes off, which may have passed.
  double next() const;
  // How many tasks are due now; timers whose time has not come do not count.
  std::size_t due() const;
  // Runs the first of the due tasks within the slice. False when none is due. What a run throws is passed on;
  // the task is not scheduled again then. REQUIRES: not called from within a run.
  bool runTask(Slice& slice);
  // Runs due tasks until none is or the slice is spent; at least one when one is due.
  void run(Slice& slice);

 private:
  friend class Task;
  friend class TimerTask;
  void schedule(Task& task);
  void unschedule(Task& task);
  void arm(TimerTask& timer, double seconds);
  void disarm(const TimerTask& timer);
  void fireTimers();
  double now() const;
  bool shouldYield(const Task& task) const;
  void forget(const Task& task);

  // Plain pointers throughout: a task that goes takes itself out (O5). A scheduler has tens of tasks, so that
  // moving a few words beats any list or tree, and nothing is allocated once as many have been due before.
  std::vector<Task*> tasks_;
  std::vector<Task*> due_;         // as they will run (O1, O2)
  std::vector<TimerTask*> armed_;  // as they will go off
  const Task* current_ = nullptr;
  Slice* slice_ = nullptr;    // of the run under way
  mutable double clock_ = 0;  // the time last seen, to notice a step backwards
};

// The process's default scheduler.
class TaskSchedulerRoot {
 public:
  // The one scheduler, created on first use; it lives as long as the process.
  static Kiv::Ptr<TaskScheduler> findOrCreateScheduler();
};

}  // namespace Olt

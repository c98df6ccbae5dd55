// State-machine runtime: the control record handed to a state machine, and the base of its input state
// machines.
//
// An input state machine turns the entries of one table into events of the state machine that owns it: by a
// scan when it starts, and then key by key as the table's changes are told. Neighbours: Olt.h has the task it
// scans in; runtime/zun has the bodies. Threading: the agent's event thread.
#pragma once

#include <cstdint>

#include "Kiv.h"
#include "Olt.h"
#include "Skein.h"

namespace Zun {

// Whether a state machine works inline or through tasks.
enum class SynchronousChoice : std::uint8_t { keepDefault = 0, synchronous = 1, tasks = 2 };

struct SmControl {
  Kiv::Ptr<Olt::TaskScheduler> taskScheduler;  // empty: the process's default scheduler
  std::uint8_t taskPriority = 0;
  Kiv::String taskName;
  Skein::TraceHandle* traceHandle = nullptr;
  SynchronousChoice synchronous = SynchronousChoice::keepDefault;

  void skeinHandleIs(Skein::TraceHandle* handle) { traceHandle = handle; }
  bool operator==(const SmControl&) const = default;
};

enum class InputScanState : std::uint8_t { notStarted, resumed, complete, initialScanComplete };

// The part of an input state machine that does not depend on its table.
//
// I1  The pending count is above zero exactly while a change of the table was told that has not been
// delivered. I2  Events are delivered only while the machine is active. I3  A scan that was interrupted goes
// on behind the last entry it delivered.
class InputSm : public Kiv::PtrInterface {
 public:
  // REQUIRES: a scheduler, or synchronous.
  InputSm(Kiv::String taskName, const SmControl& control, bool synchronous);
  ~InputSm() override;

  // Starts a scan from the table's beginning: in a task, or, when synchronous or without a scheduler, at
  // once.
  void doInitializeTask();
  // One slice of the scan.
  virtual void doInputScan() = 0;
  // Whether the slice should end here: never when synchronous or without a scan task.
  bool shouldYield() const;

  bool active() const { return active_; }
  bool synchronous() const { return synchronous_; }
  InputScanState scanState() const { return scanState_; }
  std::uint32_t pendingNotifications() const { return pending_; }
  // Empty while no scan is under way.
  const Kiv::Ptr<Olt::Task>& inputScanTask() const { return task_; }

  // Off: nothing is delivered, changes are kept count of. On again: when changes were missed or the scan did
  // not end, the whole table is looked at again.
  void hasNotificationActiveIs(bool active) override;

 protected:
  void scanStateIs(InputScanState state) { scanState_ = state; }
  void notificationPending() { ++pending_; }
  void pendingClear() { pending_ = 0; }
  // The slice ends here, to go on in another run.
  void yieldScan(std::uint64_t iterations, std::uint64_t remaining);
  // The scan has ended.
  void scanTaskDel();

 private:
  class ScanReactor;

  Kiv::String taskName_;
  Kiv::Ptr<Olt::TaskScheduler> scheduler_;
  Kiv::Ptr<Olt::Task> task_;
  Kiv::Ptr<ScanReactor> reactor_;
  std::uint32_t pending_ = 0;
  std::uint8_t priority_;
  InputScanState scanState_ = InputScanState::notStarted;
  bool synchronous_;
  bool active_ = true;
};

}  // namespace Zun

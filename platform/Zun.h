// State-machine runtime: the control record handed to a state machine.
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

}  // namespace Zun

#include "KivSystem.h"

#include <cassert>
#include <chrono>

#include "KivPtr.h"

namespace Kiv {

namespace {
Clock* replacedClock = nullptr;
}  // namespace

bool System::held_ = false;
double System::heldTime_ = 0;

double System::readClock() {
  if (replacedClock != nullptr) return replacedClock->currentTimeUtc();
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(sinceEpoch).count();
}

void System::clockIs(Clock* clock) {
  replacedClock = clock;
}

System::TimeHold::TimeHold() {
  assert(!held_ && "time is held already");
  heldTime_ = readClock();
  held_ = true;
}

System::TimeHold::~TimeHold() {
  held_ = false;
}

bool System::threadSafePtr() {
  return detail::threadSafePtrMode;
}

void System::threadSafePtrIs(bool threadSafe) {
  detail::threadSafePtrMode = threadSafe;
}

}  // namespace Kiv

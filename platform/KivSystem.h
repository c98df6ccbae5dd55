// Process-wide services of the entity framework: the UTC clock and the counting mode of references.
#pragma once

namespace Kiv {

// A source of time; tests replace it.
class Clock {
 public:
  virtual ~Clock() = default;
  // UTC seconds since 1970.
  virtual double currentTimeUtc() = 0;
};

class System {
 public:
  // UTC seconds. Between hold() and release() it is the time at hold(): the agent holds it during a burst of
  // packets, so that the clock is read once a burst.
  static double currentTimeUtc() { return held_ ? heldTime_ : readClock(); }

  // Replaces the clock; null goes back to the system's. The clock must outlive its use.
  static void clockIs(Clock* clock);

  // While one lives, the time stands still. Holds do not nest.
  class TimeHold {
   public:
    TimeHold();
    ~TimeHold();
    TimeHold(const TimeHold&) = delete;
    TimeHold& operator=(const TimeHold&) = delete;
  };

  // Whether reference counts are atomic. Set once, before the first object is shared between threads.
  static bool threadSafePtr();
  static void threadSafePtrIs(bool threadSafe);

 private:
  static double readClock();
  static bool held_;
  static double heldTime_;
};

}  // namespace Kiv

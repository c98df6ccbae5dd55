// What the agent does between bursts of packets: the event loop gives each piece of work its slice.
#pragma once

#include <limits>
#include <string_view>

namespace Pexa {

class Work {
 public:
  static constexpr double kNever = std::numeric_limits<double>::infinity();

  virtual ~Work() = default;
  // What kind of work it is, to tell its slices from others.
  virtual std::string_view name() const { return "other"; }
  // When there is something to do next: UTC seconds, a time that has passed for now, kNever for not at all.
  virtual double next() const = 0;
  // Does what is due, at most about so many seconds of it. The time is the loop's, UTC seconds.
  virtual void run(double now, double slice) = 0;
  // Hands on what has been collected. Called now and then while packets come, and before the loop sleeps.
  virtual void flush() {}
  // Becomes readable when there may be something to do that next() cannot know of; -1: never. It does not
  // change.
  virtual int descriptor() const { return -1; }
  // Called when the descriptor has become readable.
  virtual void readable() {}
  // Whether something is left over that others wait for: the first replayed packet, until what the start left
  // due is done; and an agent that runs until the end.
  virtual bool unfinished() const { return false; }
  // Called once, when an agent that runs until the end has replayed its captures: what is yet to come of them
  // is unfinished from now on.
  virtual void capturesEnded() {}
};

}  // namespace Pexa

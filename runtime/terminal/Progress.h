// How far long work is, for somebody who watches it: one line on standard error that is written over and
// over, and gone at the end. Nothing is written when standard error is no terminal.
//
// Whoever writes another line to standard error meanwhile calls clearProgress() first.
// Threading: one thread of the process shows progress.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace Terminal {

// Whether standard error is a terminal that can write a line over.
bool watched();

// Takes the line off the terminal when one is there. It comes back with the work's next step.
void clearProgress();

// When the line is due: for the first time a while after the start, so that short work shows none.
class ProgressClock {
 public:
  static constexpr std::chrono::milliseconds kInterval{200};
  using Time = std::chrono::steady_clock::time_point;

  explicit ProgressClock(Time start) : next_(start + kInterval) {}
  // True once an interval.
  bool due(Time now) {
    if (now < next_) return false;
    next_ = now + kInterval;
    return true;
  }

 private:
  Time next_;
};

// "what: 1200 of 4800 (25 %)"; "what: 1200" when the total is 0, which stands for unknown.
std::string progressText(std::string_view what, std::uint64_t done, std::uint64_t total);

// Shows a line, cut off at the terminal's width. Does nothing when nobody watches.
void showProgress(std::string_view line);

// The progress of one piece of work, from its construction until its destruction.
class Progress {
 public:
  explicit Progress(std::string what, std::uint64_t total = 0);
  ~Progress() { clearProgress(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // To be called often: shows the line when it is due.
  void at(std::uint64_t done) {
    if (watched_ && clock_.due(std::chrono::steady_clock::now())) show(done);
  }

 private:
  void show(std::uint64_t done) const;

  std::string what_;
  std::uint64_t total_;
  bool watched_;
  ProgressClock clock_;
};

}  // namespace Terminal

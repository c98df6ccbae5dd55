// Work for the agent's loop that a test tells what to do.
#pragma once

#include <functional>

#include "agent/Work.h"

namespace TestSupport {

// Does what a test tells it to, so many times, each being due at once.
class CountedWork : public Pexa::Work {
 public:
  explicit CountedWork(
      int runs, std::function<void()> each = [] {})
      : left_(runs), each_(std::move(each)) {}
  double next() const override { return left_ > 0 ? 0 : kNever; }
  void run(double, double slice) override {
    --left_;
    slice_ = slice;
    each_();
  }
  void flush() override { ++flushes_; }
  bool unfinished() const override { return left_ > 0; }
  int left() const { return left_; }
  int flushes() const { return flushes_; }
  // Of the latest run.
  double slice() const { return slice_; }

 private:
  int left_;
  int flushes_ = 0;
  double slice_ = 0;
  std::function<void()> each_;
};

}  // namespace TestSupport

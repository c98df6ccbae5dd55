// A task whose work is a function, and a slice that ends when a test says so.
#pragma once

#include <functional>

#include "Olt.h"

namespace TestSupport {

class LambdaReactor : public Olt::TaskReactor {
 public:
  // Active at once.
  LambdaReactor(const Kiv::Ptr<Olt::Task>& task, std::function<void()> work) : work_(std::move(work)) {
    notifierIs(task);
    hasNotificationActiveIs(true);
  }
  void onTaskRun() override { work_(); }

 private:
  std::function<void()> work_;
};

inline Kiv::Ptr<LambdaReactor> reactorOf(const Kiv::Ptr<Olt::Task>& task, std::function<void()> work) {
  return Kiv::makePtr<LambdaReactor>(task, std::move(work));
}

// Is spent from the n-th question on.
class CountedSlice : public Olt::Slice {
 public:
  explicit CountedSlice(unsigned questions) : left_(questions) {}
  bool spent() override {
    ++asked_;
    if (left_ > 0) --left_;
    return left_ == 0;
  }
  unsigned asked() const { return asked_; }

 private:
  unsigned left_;
  unsigned asked_ = 0;
};

class EndlessSlice : public Olt::Slice {
 public:
  bool spent() override { return false; }
};

}  // namespace TestSupport

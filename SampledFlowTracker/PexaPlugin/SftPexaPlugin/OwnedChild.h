// A child that an entity owns, with the arguments it was built from: asked for again with the same ones, it
// stays.
#pragma once

#include <optional>
#include <tuple>
#include <utility>

#include "Kiv.h"

namespace SampledFlowTracker {

template <class Child, class... Args>
class OwnedChild {
 public:
  const Kiv::Ptr<Child>& get() const { return child_; }
  bool builtFrom(const Args&... args) const { return arguments_ && *arguments_ == std::tie(args...); }

  // Puts a child in. Returns the one that was there.
  // REQUIRES: child is not empty.
  Kiv::Ptr<Child> put(Kiv::Ptr<Child> child, const Args&... args) {
    arguments_.emplace(args...);
    return std::exchange(child_, std::move(child));
  }
  // Takes the child out; empty when there is none.
  Kiv::Ptr<Child> take() {
    arguments_.reset();
    return std::exchange(child_, {});
  }

 private:
  std::optional<std::tuple<Args...>> arguments_;
  Kiv::Ptr<Child> child_;
};

}  // namespace SampledFlowTracker

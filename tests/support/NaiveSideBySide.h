// Runs a history through the real state machine and the naive one, and says where they differ first.
#pragma once

#include <optional>
#include <string>

#include "NaiveComparison.h"

namespace Naive {

class SideBySide {
 public:
  SideBySide();
  SideBySide(const SideBySide&) = delete;
  SideBySide& operator=(const SideBySide&) = delete;

  // Does an operation on both sides.
  void apply(const Operation& operation);
  // As Comparison's; and that a list of work which had to come to an end did not.
  std::string difference();

  Subject& subject() { return subject_; }
  Twin& twin() { return twin_; }

 private:
  template <class Domain>
  void applyToRecord(const Operation& operation);
  template <class Domain>
  typename Tables<Domain>::Config newConfig(const FlowTracking::HoFlowKey<Domain>& key);
  template <class Domain>
  void changeQuietly(const FlowTracking::HoFlowKey<Domain>& key, bool appears);
  template <class Domain>
  void damage(TableName table, const Operation& operation);
  template <class Domain>
  void leaveBehind(TableName table, const Operation& operation);
  void settle();
  void advance(double seconds);

  Subject subject_;
  Twin twin_;
  Comparison comparison_{subject_, twin_};
  double now_ = 0;
  std::uint32_t configs_ = 0;  // written so far: each differs from the one before
  bool settled_ = true;
};

// The first difference with the history up to there; none when the whole history passes.
std::optional<std::string> firstDifference(const History& history);

}  // namespace Naive

// Runs a history through the real state machine and the naive one, and says where they differ first.
#pragma once

#include <optional>
#include <string>

#include "NaiveSubject.h"
#include "NaiveTwin.h"

namespace Naive {

class SideBySide {
 public:
  SideBySide();

  // Does an operation on both sides.
  void apply(const Operation& operation);
  // What differs, a line each; empty when nothing does. Compared are all ten outputs, record by record, the
  // answers, the flags of the scans and of the outputs, the list of work and whether damage was reported.
  std::string difference();

  Subject& subject() { return subject_; }
  Twin& twin() { return twin_; }

 private:
  template <class Domain>
  void applyToRecord(const Operation& operation);
  template <class Domain>
  void damage(TableName table, const Operation& operation);
  template <class Domain>
  void leaveBehind(TableName table, const Operation& operation);
  void settle();
  void advance(double seconds);

  template <class Domain>
  void compareTables();
  template <class Domain>
  void compareFlows();
  void compareMachines();
  template <class Domain>
  void compareScan();
  void compareDamage();
  template <class Real, class Expected>
  void compare(std::string_view what, const Real& real, const Expected& expected);
  template <class Map, class NaiveMap, class Key>
  void compareRecord(std::string_view what, const Map& map, const NaiveMap& naive, const Key& key);

  Subject subject_;
  Twin twin_;
  double now_ = 0;
  std::uint32_t configs_ = 0;  // written so far: each differs from the one before
  bool settled_ = true;
  unsigned reports_ = 0;
  unsigned damageMet_ = 0;
  std::string difference_;
};

// The first difference with the history up to there; none when the whole history passes.
std::optional<std::string> firstDifference(const History& history);

}  // namespace Naive

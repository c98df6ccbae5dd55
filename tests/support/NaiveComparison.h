// What the real state machine and its tables are, against what the naive ones are.
#pragma once

#include <string>

#include "NaiveSubject.h"
#include "NaiveTwin.h"

namespace Naive {

class Comparison {
 public:
  // Both outlive it.
  Comparison(const Subject& subject, const Twin& twin) : subject_(subject), twin_(twin) {}

  // What differs, a line each; empty when nothing does. Compared are all ten outputs, record by record, the
  // answers, the flags of the scans and of the outputs, the list of work, and whether damage was reported
  // since the last time.
  std::string difference();

 private:
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

  const Subject& subject_;
  const Twin& twin_;
  unsigned reports_ = 0;
  unsigned damageMet_ = 0;
  std::string difference_;
};

}  // namespace Naive

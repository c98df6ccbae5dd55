// Rates of counts that are read again and again under a name.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Sft::Top {

class CounterRates {
 public:
  // The rate between the reading of this name before and this one; none for the first one, and for one that
  // went back, as all do when their process starts anew. `now` is in seconds.
  std::optional<double> perSecond(const std::string& name, std::uint64_t count, double now);

 private:
  struct Reading {
    std::uint64_t count = 0;
    double time = 0;
  };
  std::map<std::string, Reading> readings_;
};

}  // namespace Sft::Top

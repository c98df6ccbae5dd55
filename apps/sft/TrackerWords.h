// The statistics of a flow tracker in plain words.
#pragma once

#include <string>
#include <vector>

#include "Kiv.h"

namespace Sft {

// A line each, of the members that docs/flow-tracker.md lists. `now` is UTC seconds. Members that an older
// tracker does not have count as 0.
std::vector<std::string> trackerWords(const Kiv::Value& statistics, double now);

// A member below an object, by the names on the way to it; none where one of them is missing.
Kiv::Value memberAt(const Kiv::Value& value, std::initializer_list<std::string_view> path);
// The same as a number, 0 when it is none.
std::uint64_t countAt(const Kiv::Value& value, std::initializer_list<std::string_view> path);
// The elements of a list, none when it is no list.
const Kiv::Value::List& elementsOf(const Kiv::Value& value);

}  // namespace Sft

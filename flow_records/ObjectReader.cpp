#include "ObjectReader.h"

#include <algorithm>

#include "KivQuoted.h"

namespace FlowTracking {

namespace {

// A name that somebody else chose: as it is, or in quotes when it has what a line cannot show.
std::string shown(const std::string& name) {
  const std::string quoted = Kiv::quoted(name);
  return quoted.size() == name.size() + 2 ? name : quoted;
}

}  // namespace

ObjectReader::ObjectReader(const Kiv::Value& value) : value_(value) {
  if (value.as<Kiv::Value::Object>() == nullptr) Kiv::throwValueError("an object", value);
}

void ObjectReader::end() const {
  for (const auto& [name, held] : *value_.as<Kiv::Value::Object>()) {
    if (std::find(known_.begin(), known_.end(), name) != known_.end()) continue;
    std::string expected;
    for (const std::string_view known : known_) expected.append(expected.empty() ? "" : ", ").append(known);
    throw MemberError(shown(name), "expected no such member, only " + expected);
  }
}

const Kiv::Value* ObjectReader::take(std::string_view name, bool isRequired) {
  known_.push_back(name);
  const Kiv::Value* member = value_.member(name);
  if (member == nullptr && isRequired) throw MemberError(std::string(name), "expected, but missing");
  return member;
}

void ObjectReader::failBounds(std::string_view name, std::uint64_t number, std::uint64_t least,
                              std::uint64_t most) {
  throw MemberError(std::string(name), "expected a number from " + std::to_string(least) + " to " +
                                           std::to_string(most) + ", got " + std::to_string(number));
}

}  // namespace FlowTracking

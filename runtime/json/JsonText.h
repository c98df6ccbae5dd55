// JSON text to and from values without a static type: control requests, records on standard input, displays.
//
//   none      null                       list      array
//   boolean   true, false                object    object, members in their order
//   integer   64-bit signed or unsigned  entity    {"type":"Ns::Type","name":"its name"}
//   double    number with a fraction
//
// Reading is strict: one value and nothing behind it, no member twice in an object, integers that fit 64
// bits, at most kMostDepth levels. Neighbours: KivValue.h. Threading: none of it keeps state.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Kiv.h"

namespace Json {

inline constexpr std::size_t kMostDepth = 32;

// The value on one line, without the line's end. Bytes that are not UTF-8 become U+FFFD; a number that JSON
// does not know (infinite, not a number) becomes null. Throws Kiv::ValueError on an opaque value.
std::string text(const Kiv::Value& value);

// Throws Kiv::ValueError with what is wrong and at which byte, counted from 1.
Kiv::Value parse(std::string_view text);

// Finds an entity by its type and name; empty when there is none.
using EntityFinder =
    std::function<Kiv::Ptr<const Kiv::PtrInterface>(std::string_view type, std::string_view name)>;

// The value with each object of exactly the members "type" and "name", both strings, replaced by the entity
// they tell of. Throws Kiv::ValueError when there is no such entity.
Kiv::Value withEntities(Kiv::Value value, const EntityFinder& find);

}  // namespace Json

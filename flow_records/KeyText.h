// Reading a key's text form part by part. Private to this room.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "Kiv.h"

namespace FlowTracking {

// Parts of a text that are joined by "/", in their order. Each operation takes the next part, for the member
// named; it throws Kiv::ValueError when there is none or it is not what the member can be:
//   vlan: expected a number up to 4095, got "4096"
class KeyText {
 public:
  explicit KeyText(std::string_view text) : rest_(text) {}

  std::uint64_t number(std::string_view member, std::uint64_t most);
  template <class Unsigned>
  void numberInto(Unsigned& held, std::string_view member,
                  std::uint64_t most = std::numeric_limits<Unsigned>::max()) {
    held = static_cast<Unsigned>(number(member, most));
  }
  // Converts the next part, or all that is left, with ValueTraits of the member's type.
  template <class T>
  void textInto(T& held, std::string_view member) {
    held = converted<T>(member, part(member));
  }
  template <class T>
  void restInto(T& held, std::string_view member) {
    needMore(member);
    held = converted<T>(member, rest_);
    ended_ = true;
  }
  // Takes as many parts (one at least) as the key of a flow has, with their separators, for a key that begins
  // with it.
  std::string_view parts(std::size_t count);
  // Throws unless everything was taken.
  void end() const;

 private:
  std::string_view part(std::string_view member);
  void needMore(std::string_view member) const;
  template <class T>
  static T converted(std::string_view member, std::string_view text) {
    try {
      return Kiv::ValueTraits<T>::fromValue(Kiv::Value(text));
    } catch (const Kiv::ValueError& error) {
      throw Kiv::ValueError(std::string(member) + ": " + error.what());
    }
  }

  std::string_view rest_;
  bool ended_ = false;
};

}  // namespace FlowTracking

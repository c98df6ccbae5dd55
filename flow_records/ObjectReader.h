// Reading an object's members, each once, with errors that name the member by its path. Private to this room.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Bridging.h"
#include "Kiv.h"

namespace FlowTracking {

// What is wrong with a member, and where it stands.
class MemberError : public Kiv::ValueError {
 public:
  MemberError(std::string path, std::string problem)
      : Kiv::ValueError(path + ": " + problem), path_(std::move(path)), problem_(std::move(problem)) {}
  // The same error, seen from the object that holds the member.
  MemberError in(std::string_view member) const { return {std::string(member) + '.' + path_, problem_}; }

 private:
  std::string path_;
  std::string problem_;
};

class ObjectReader {
 public:
  // Throws Kiv::ValueError unless the value is an object. It must outlive the reader.
  explicit ObjectReader(const Kiv::Value& value);

  // Throws MemberError when the member is missing or wrong.
  template <class T>
  ObjectReader& required(std::string_view name, T& held) {
    return read(name, held, true);
  }
  // Leaves what is held when the member is missing.
  template <class T>
  ObjectReader& optional(std::string_view name, T& held) {
    return read(name, held, false);
  }
  // A number whose range is narrower than its type's.
  template <class T>
  ObjectReader& bounded(std::string_view name, T& held, std::uint64_t least, std::uint64_t most) {
    std::uint64_t number = 0;
    required(name, number);
    if (number < least || number > most) failBounds(name, number, least, most);
    held = static_cast<T>(number);
    return *this;
  }
  // The one direction in which a flow is seen, as its number.
  ObjectReader& oneWay(std::string_view name, Bridging::AllowedTrafficDirection& held) {
    using enum Bridging::AllowedTrafficDirection;
    return bounded(name, held, static_cast<std::uint64_t>(ingress), static_cast<std::uint64_t>(egress));
  }
  // Throws MemberError when the object has a member that was not read.
  void end() const;

 private:
  template <class T>
  ObjectReader& read(std::string_view name, T& held, bool isRequired) {
    const Kiv::Value* member = take(name, isRequired);
    if (member == nullptr) return *this;
    try {
      held = Kiv::ValueTraits<T>::fromValue(*member);
    } catch (const MemberError& error) {
      throw error.in(name);
    } catch (const Kiv::ValueError& error) {
      throw MemberError(std::string(name), error.what());
    }
    return *this;
  }
  const Kiv::Value* take(std::string_view name, bool isRequired);
  [[noreturn]] static void failBounds(std::string_view name, std::uint64_t number, std::uint64_t least,
                                      std::uint64_t most);

  const Kiv::Value& value_;
  std::vector<std::string_view> known_;
};

}  // namespace FlowTracking

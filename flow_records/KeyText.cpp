#include "KeyText.h"

#include <charconv>

#include "KivQuoted.h"

namespace FlowTracking {

std::uint64_t KeyText::number(std::string_view member, std::uint64_t most) {
  const std::string_view digits = part(member);
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size() || value > most) {
    throw Kiv::ValueError(std::string(member) + ": expected a number up to " + std::to_string(most) +
                          ", got " + Kiv::quoted(digits));
  }
  return value;
}

std::string_view KeyText::parts(std::size_t count) {
  std::size_t at = rest_.find('/');
  for (; count > 1 && at != std::string_view::npos; --count) at = rest_.find('/', at + 1);
  const std::string_view taken = rest_.substr(0, at);
  ended_ = at == std::string_view::npos;
  rest_.remove_prefix(ended_ ? rest_.size() : at + 1);
  return taken;
}

void KeyText::end() const {
  if (!ended_) throw Kiv::ValueError("expected the end of the key, got " + Kiv::quoted(rest_));
}

std::string_view KeyText::part(std::string_view member) {
  needMore(member);
  const std::size_t at = rest_.find('/');
  const std::string_view taken = rest_.substr(0, at);
  ended_ = at == std::string_view::npos;
  rest_.remove_prefix(ended_ ? rest_.size() : at + 1);
  return taken;
}

void KeyText::needMore(std::string_view member) const {
  if (ended_) throw Kiv::ValueError(std::string(member) + ": expected, but the key's text ends before it");
}

}  // namespace FlowTracking

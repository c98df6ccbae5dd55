#include "OutputKey.h"

#include <fmt/format.h>

#include "KivQuoted.h"

namespace SampledFlowTracker {

namespace {

// The text form of a type, taken apart at the two places where the values stand.
struct Frame {
  explicit Frame(OutputId id) {
    static constexpr std::string_view kValue = "%s";
    const std::string_view text = textsOf(id).keyType;
    const std::size_t key = text.find(kValue);
    const std::size_t flag = text.rfind(kValue);
    before = text.substr(0, key);
    between = text.substr(key + kValue.size(), flag - key - kValue.size());
    behind = text.substr(flag + kValue.size());
  }
  std::string_view before, between, behind;
};

}  // namespace

Kiv::String outputKeyText(OutputId id, const Kiv::String& k0, bool k0Valid) {
  const Frame frame(id);
  return fmt::format("{}{}{}{}{}", frame.before, k0, frame.between, k0Valid, frame.behind);
}

std::string_view outputKeyParts(OutputId id, std::string_view text, bool& k0Valid) {
  const auto wrong = [&](std::string_view expected) {
    return Kiv::ValueError(fmt::format("output key: expected \"{}\", got {}", expected, Kiv::quoted(text)));
  };
  const Frame frame(id);
  // The key's own text may hold anything, so the flag is looked for from the end.
  const std::size_t flagged = text.rfind(frame.between);
  if (!text.starts_with(frame.before)) throw wrong(frame.before);
  if (flagged == std::string_view::npos || flagged < frame.before.size()) throw wrong(frame.between);
  const std::string_view flag = text.substr(flagged + frame.between.size());
  const bool valid = flag == fmt::format("true{}", frame.behind);
  if (!valid && flag != fmt::format("false{}", frame.behind)) throw wrong("true}) or false})");
  k0Valid = valid;
  return text.substr(frame.before.size(), flagged - frame.before.size());
}

}  // namespace SampledFlowTracker

#include "OutputKey.h"

#include <fmt/format.h>

namespace SampledFlowTracker {

namespace {

constexpr std::string_view kValid = ", 'k0Valid': ";
constexpr std::string_view kEnd = "})";

Kiv::String prefixOf(OutputId id) {
  return fmt::format("Value('SampledFlowTracker::SftPexaFtHOCSM::{}KeyType', ** {{'k0': ", typeNameOf(id));
}

}  // namespace

Kiv::String outputKeyText(OutputId id, const Kiv::String& k0, bool k0Valid) {
  return fmt::format("{}{}{}{}{}", prefixOf(id), k0, kValid, k0Valid, kEnd);
}

std::string_view outputKeyParts(OutputId id, std::string_view text, bool& k0Valid) {
  const auto wrong = [&](std::string_view expected) {
    return Kiv::ValueError(fmt::format("output key: expected \"{}\", got \"{}\"", expected, text));
  };
  const Kiv::String prefix = prefixOf(id);
  // The key's own text may hold anything, so the flag is looked for from the end.
  const std::size_t valid = text.rfind(kValid);
  if (!text.starts_with(prefix)) throw wrong(prefix);
  if (valid == std::string_view::npos || valid < prefix.size()) throw wrong(kValid);
  const std::string_view flag = text.substr(valid + kValid.size());
  if (flag != "true})" && flag != "false})") throw wrong("true}) or false})");
  k0Valid = flag.starts_with("true");
  return text.substr(prefix.size(), valid - prefix.size());
}

}  // namespace SampledFlowTracker

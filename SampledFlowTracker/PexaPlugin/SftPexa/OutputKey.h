// The key of an output's entry, as the seen sets and bookmarks of reconciliation hold it: the table's key,
// and whether it is one.
//
// Text form, which parses back to an equal key:
//   Value('SampledFlowTracker::SftPexaFtHOCSM::HelperOverflowEntriesOutputKeyType', ** {'k0': 1/10/…,
//   'k0Valid': true})
// Threading: plain values.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>

#include "Kiv.h"
#include "KivHash.h"
#include "OutputId.h"

namespace SampledFlowTracker {

// Puts the text form together, and takes it apart. Private to OutputKey.
Kiv::String outputKeyText(OutputId id, const Kiv::String& k0, bool k0Valid);
// Gives the part that is the table's key. Throws Kiv::ValueError, which says what was expected.
std::string_view outputKeyParts(OutputId id, std::string_view text, bool& k0Valid);

// One type an output; see its name in SftPexaFtHOCSM.
template <OutputId id, class TableKey>
struct OutputKey {
  TableKey k0{};
  bool k0Valid = false;

  OutputKey() = default;
  // A valid key.
  explicit OutputKey(const TableKey& key) : k0(key), k0Valid(true) {}
  // Parses the text form. Throws Kiv::ValueError.
  explicit OutputKey(std::string_view text) {
    const Kiv::String key(outputKeyParts(id, text, k0Valid));
    k0 = TableKey(key.begin(), key.end());
  }

  void validate() { k0Valid = true; }
  explicit operator bool() const { return k0Valid; }
  bool operator==(const OutputKey&) const = default;
  std::strong_ordering operator<=>(const OutputKey&) const = default;
  std::uint32_t hash(std::uint32_t seed) const {
    return Kiv::HashMixer(seed).feed(k0.hash(0)).feed(k0Valid ? 1 : 0).result();
  }
  Kiv::String str() const { return outputKeyText(id, valueToStrep(k0), k0Valid); }
};

template <OutputId id, class TableKey>
std::ostream& operator<<(std::ostream& out, const OutputKey<id, TableKey>& key) {
  return out << key.str();
}

// Places an output's keys in its seen set: the process's seed, combined with a constant of the set.
template <OutputId id>
struct SeenHash {
  template <class Key>
  std::uint64_t operator()(const Key& key) const {
    constexpr std::uint32_t kOfSet = 0x85ebca6bU * (static_cast<std::uint32_t>(id) + 1);
    const std::uint64_t hash = key.hash(static_cast<std::uint32_t>(Kiv::hashSeed()) ^ kOfSet);
    return hash << 32 | hash;
  }
};

}  // namespace SampledFlowTracker

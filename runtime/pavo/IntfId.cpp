#include <xxhash.h>

#include <algorithm>

#include "Pavo.h"

namespace Pavo {

IntfId::IntfId(std::string_view name) {
  if (name.size() > kMost || name.find('\0') != std::string_view::npos) {
    Kiv::throwValueError("an interface name of at most " + std::to_string(kMost) + " bytes",
                         Kiv::Value(name));
  }
  std::copy(name.begin(), name.end(), text_.begin());
}

std::uint32_t IntfId::hash(unsigned seed) const {
  return static_cast<std::uint32_t>(XXH3_64bits_withSeed(text_.data(), text_.size(), seed));
}

std::ostream& operator<<(std::ostream& out, const IntfId& intfId) {
  return out << intfId.name();
}

}  // namespace Pavo

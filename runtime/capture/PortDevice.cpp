#include "capture/PortDevice.h"

#include <array>

namespace Capture {

std::string_view stringValue(PortKind kind) {
  static constexpr std::array<std::string_view, 3> kTexts = {"capture", "device", "write"};
  return kTexts[static_cast<std::size_t>(kind)];
}

std::string_view stringValue(ReplayState state) {
  static constexpr std::array<std::string_view, 4> kTexts = {"", "running", "finished", "damaged"};
  return kTexts[static_cast<std::size_t>(state)];
}

}  // namespace Capture

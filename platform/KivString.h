// The framework's string: bytes, UTF-8 by convention. The standard type, so that every library takes it.
#pragma once

#include <string>

namespace Kiv {
using String = std::string;
}  // namespace Kiv

// Texts from outside, as messages show them.
#pragma once

#include <string_view>

#include "KivString.h"

namespace Kiv {

// A text in JSON's quotes, and in one line: what ends lines or moves about on a terminal is escaped.
String quoted(std::string_view text);

}  // namespace Kiv

// What can be wrong with a capture file, an interface or a filter, found when it is opened.
#pragma once

#include <stdexcept>

namespace Capture {

// The text names the file, interface or filter and says what is wrong with it.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Capture

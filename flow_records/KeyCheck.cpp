#include "KeyCheck.h"

#include <cstdio>
#include <cstdlib>

namespace FlowTracking {

void stopOnKeyMismatch(std::string_view table, const Kiv::String& internalKey, const Kiv::String& key) {
  std::fprintf(
      stderr,
      "In \"into( %.*s )\" the value inserted in the into statement has internal key: %s, but the key "
      "specified in the into is: %s\n",
      static_cast<int>(table.size()), table.data(), internalKey.c_str(), key.c_str());
  std::abort();
}

}  // namespace FlowTracking

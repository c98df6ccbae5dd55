// What the operator configured of the state database: values for the attributes of entities that do not exist
// yet.
#pragma once

#include <stdexcept>
#include <vector>

#include "Kiv.h"

namespace Mirro {

// One configured attribute, and where it stands, for the error if it cannot be applied.
struct ConfiguredValue {
  Kiv::String attribute;
  Kiv::Value value;
  Kiv::String file;
  unsigned line = 0;  // 0: no line is known
};

// A configured path, attribute or value that the database cannot take. One line: file, line, path, attribute,
// what is wrong and what was expected.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The values configured for the entity at one path.
struct ConfiguredEntity {
  std::vector<ConfiguredValue> values;
  Kiv::String file;  // where the path itself was configured; values may be empty
  unsigned line = 0;
  bool applied = false;  // an entity took the values
};

}  // namespace Mirro

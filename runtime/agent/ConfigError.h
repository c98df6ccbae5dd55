// What is wrong in a configuration file, or in what it names, in one line.
#pragma once

#include <stdexcept>
#include <string>

namespace Pexa {

// Where something stands in a configuration file.
struct ConfigPlace {
  std::string file;
  unsigned line = 0;  // from 1; 0: the file as a whole
};

// The text reads "FILE:LINE: what, expected what".
class ConfigError : public std::runtime_error {
 public:
  ConfigError(const ConfigPlace& place, const std::string& what)
      : std::runtime_error(oneLine(lead(place) + what)) {}

 private:
  // TOML's texts and keys may hold what ends a line, or moves about on a terminal.
  static std::string oneLine(std::string text) {
    for (char& each : text) {
      if (static_cast<unsigned char>(each) < ' ' || each == '\x7f') each = '?';
    }
    return text;
  }
  static std::string lead(const ConfigPlace& place) {
    return place.line == 0 ? place.file + ": " : place.file + ':' + std::to_string(place.line) + ": ";
  }
};

}  // namespace Pexa

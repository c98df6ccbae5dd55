// Damage found in shared memory, and debug handlers.
#pragma once

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Fenn {

// A record or a table in shared memory is not what its writer wrote. The text says which table and what.
class CorruptionDetectedException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Tells whether trace level n of a named component is on.
class DebugHandler {
 public:
  explicit DebugHandler(std::string name) : name_(std::move(name)) {}
  const std::string& name() const { return name_; }
  bool enabled(unsigned level) const { return (levels_.load(std::memory_order_relaxed) >> level & 1U) != 0; }
  // Bit n switches level n on.
  void levelsIs(unsigned bits) { levels_.store(bits, std::memory_order_relaxed); }

 private:
  std::string name_;
  std::atomic<unsigned> levels_{0};
};

namespace Platform {
// The handler of a name, shared by all who ask for it. The second argument is the levels a new one starts
// with.
std::shared_ptr<DebugHandler> getDebugHandler(std::string_view name, unsigned levels);
// Every handler that was asked for so far, by name.
std::vector<std::shared_ptr<DebugHandler>> debugHandlers();
}  // namespace Platform

}  // namespace Fenn

// A feature toggle from a toggle file in the toggle directory (PEXA_TOGGLE_DIR, else /etc/pexa/toggles): a
// JSON object of names and booleans. An absent file or name gives the default; a damaged file gives the
// default and one line in the log.
bool getToggleState(std::string_view name, std::string_view file, bool defaultState);

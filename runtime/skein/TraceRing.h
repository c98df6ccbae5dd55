// The agent's trace file: a ring of records in RUN_DIR/trace.ring, mapped into memory.
//
// A record is written with plain stores, so it is in the file as soon as it is written and stays there when
// the agent dies. The file is created once with its full size and never cut; one that is damaged, or of
// another size, is replaced by a new file under the same name. RingFormat.h draws the file. Neighbours:
// TraceReader.h reads it.
//
// Threading: the agent's event thread. One process writes at a time, held by a lock that dies with it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Skein.h"

namespace Skein {

// A trace file that cannot be used. The text names the file, what is wrong and what was expected.
class RingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class RingWriter;

class TraceRing : public TraceHandle {
 public:
  static constexpr std::string_view kFileName = "trace.ring";
  static constexpr std::uint64_t kDefaultBytes = 1 << 20;
  static constexpr std::uint64_t kLeastBytes = 1 << 14;
  static constexpr std::size_t kMostText = 512;  // bytes of a record's text; longer ones are cut

  // Opens the trace file or creates it. Throws RingError when another process writes it, or when it cannot be
  // created. REQUIRES: bytes is at least kLeastBytes.
  explicit TraceRing(const std::filesystem::path& file, std::uint64_t bytes = kDefaultBytes);
  ~TraceRing() override;

  void write(const CallSite& site, std::string_view text, std::string_view filter = {}) override;
  // Level of the categories without one of their own; 0 (events) at first.
  void defaultLevelIs(int level);
  void categoryLevelIs(std::string_view category, int level) override;
  struct CategoryLevel {
    std::string category;
    int level;
  };
  // Of the categories that have one of their own, by name.
  std::vector<CategoryLevel> categoryLevels() const;
  int defaultLevel() const { return defaultLevel_; }

 protected:
  bool isEnabled(const CallSite& site, bool filterMatched) const override;

 private:
  int level(std::string_view category) const;
  void levelsChanged();

  std::unique_ptr<RingWriter> writer_;
  int defaultLevel_ = 0;
  std::map<std::string, int, std::less<>> levels_;
  mutable std::set<std::string> categories_;    // that traced or were set
  mutable std::vector<std::int8_t> levelById_;  // of each call site's category; kLevelUnknown until asked for
};

}  // namespace Skein

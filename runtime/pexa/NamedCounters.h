// Counts why packets were treated as they were, by category, source and reason.
//
// Counting a reason again costs a hash of where its texts stand and a comparison of the texts; only a reason
// that was never counted before allocates.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "PexaPacket.h"

namespace Pexa {

class NamedCounters : public PexaNamedCounters {
 public:
  struct Count {
    std::string category;
    std::string source;
    std::string reason;
    std::uint64_t count = 0;
  };
  // Reasons that differ; those behind them are counted together, so that a reason with a packet's own data in
  // its text cannot use up the memory.
  static constexpr std::size_t kMostReasons = 4096;
  static constexpr std::string_view kOtherReasons = "(other reasons)";

  NamedCounters();
  ~NamedCounters() override;
  void count(std::string_view category, std::string_view source, std::string_view reason) override;

  // Every count, by category, source and reason.
  std::vector<Count> all() const;
  // 0 when it was never counted.
  std::uint64_t value(std::string_view category, std::string_view source, std::string_view reason) const;

 private:
  struct Table;
  static constexpr std::size_t kCached = 64;
  // The counters last used, by the addresses of their texts. An address may hold another text by now: the
  // texts decide.
  std::array<Count*, kCached> cache_{};
  std::unique_ptr<Table> table_;
};

}  // namespace Pexa

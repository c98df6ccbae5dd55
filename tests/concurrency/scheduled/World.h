// A small table for a scheduled run, and records that a check cannot tell apart.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Machine.h"
#include "Quell.h"
#include "QuellTable.h"
#include "quell/SlotAccess.h"
#include "quell/TableFile.h"

namespace Scheduled {

struct Record {
  std::uint64_t key = 0;
  std::uint64_t one = 0;
  std::uint64_t two = 0;
};

inline std::uint64_t hashOf(std::uint64_t key) {
  return Quell::keyHash(&key, sizeof key);
}

// A number whose product with an odd factor is less than 2^20 (mod 2^64): added to a word, it leaves the
// upper half of the sum as it was.
constexpr std::uint64_t unseenStep(std::uint64_t factor) {
  __uint128_t before = static_cast<__uint128_t>(1) << 64;
  __uint128_t rest = factor;
  std::uint64_t stepBefore = 0;
  std::uint64_t step = 1;
  while (rest >= (1U << 20)) {
    const auto quotient = static_cast<std::uint64_t>(before / rest);
    const __uint128_t next = before % rest;
    before = rest;
    rest = next;
    const std::uint64_t nextStep = stepBefore - quotient * step;
    stepBefore = step;
    step = nextStep;
  }
  return step;
}
constexpr std::uint64_t inverse(std::uint64_t odd) {
  std::uint64_t inverse = odd;
  for (int i = 0; i < 6; ++i) inverse *= 2 - odd * inverse;
  return inverse;
}

// The record of a key and a stamp. All stamps of a key have the same check, so that a mixture of two would
// pass: the sequence alone keeps them apart.
inline Record recordOf(std::uint64_t key, std::uint64_t stamp) {
  constexpr std::uint64_t kMiddle = 0x1234567880000000U;  // the sums stay in this word's upper half
  const std::uint64_t first = (kMiddle - hashOf(key)) * inverse(Quell::Layout::kFactors[1]);
  return {key, first + stamp * unseenStep(Quell::Layout::kFactors[1]),
          stamp * unseenStep(Quell::Layout::kFactors[2])};
}
constexpr std::uint64_t kMostStamps = 64;
// The stamp of a record; kMostStamps when it is no record of this key as one was stored.
inline std::uint64_t stampOf(const Record& record, std::uint64_t key) {
  for (std::uint64_t stamp = 0; stamp < kMostStamps; ++stamp) {
    const Record right = recordOf(key, stamp);
    if (record.key == right.key && record.one == right.one && record.two == right.two) return stamp;
  }
  return kMostStamps;
}

// Keys whose hashes end in the same bits.
inline std::vector<std::uint64_t> keysEndingIn(std::uint64_t bits, std::uint64_t mask, std::size_t count) {
  std::vector<std::uint64_t> keys;
  for (std::uint64_t key = 1; keys.size() < count; ++key) {
    if ((hashOf(key) & mask) == bits) keys.push_back(key);
  }
  return keys;
}

class World {
 public:
  World() {
    static const Quell::RecordType type{"Scheduled::Record", sizeof(Record), sizeof(std::uint64_t)};
    Quell::TableFile::Creation creation;
    creation.type = &type;
    creation.containerType = "Scheduled::World";
    creation.capacity = 1;
    file_ = Quell::TableFile::anonymous({"(in memory)", "world", "records"}, creation);
  }
  const std::shared_ptr<Quell::TableFile>& file() const { return file_; }
  std::unique_ptr<Quell::Table> table() const { return std::make_unique<Quell::Table>(file_); }

 private:
  std::shared_ptr<Quell::TableFile> file_;
};

// What a reader finds under a key.
struct Look {
  bool found = false;
  std::uint64_t stamp = 0;
};
inline Look look(Machine& machine, const Quell::Table& table, std::uint64_t key) {
  Record record;
  if (!table.find<sizeof key, sizeof record>(&key, hashOf(key), &record)) return {};
  const std::uint64_t stamp = stampOf(record, key);
  machine.expect(stamp != kMostStamps, "a record is mixed");
  return {true, stamp};
}

// The keys that a walk meets.
inline std::vector<std::uint64_t> walk(Machine& machine, const Quell::Table& table) {
  std::vector<std::uint64_t> keys;
  Record record;
  for (bool more = table.walkFirst(&record); more; more = table.walkAfter(&record.key, &record)) {
    keys.push_back(record.key);
    machine.expect(stampOf(record, record.key) != kMostStamps, "a walk meets a mixed record");
    if (keys.size() > 1000) break;
  }
  return keys;
}

inline void put(Quell::Table& table, std::uint64_t key, std::uint64_t stamp) {
  const Record record = recordOf(key, stamp);
  table.store(&record);
}

}  // namespace Scheduled

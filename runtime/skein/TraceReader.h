// Reads a trace file while it is being written, or after its writer died. Never waits, and never disturbs the
// writer: what was overwritten before it was read is counted and passed over.
//
//   Skein::TraceReader reader(runDir / Skein::TraceRing::kFileName);
//   for (Skein::TraceRecord record; reader.next(record);) show(record);   // again later, to follow
//
// Threading: one thread a reader; any number of readers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "Skein.h"
#include "skein/TraceRing.h"

namespace Skein {

struct TraceRecord {
  std::uint64_t serial = 0;  // counts the records of the file, from 1
  double time = 0;           // UTC seconds
  std::string category;
  Volume volume = Volume::event;
  std::string file;
  int line = 0;
  std::string function;
  std::string filter;  // the trace filter that the packet matched, or empty
  std::string text;
};

class RingMapping;

class TraceReader {
 public:
  // Starts at the oldest record. Throws RingError when there is no such file or it is no trace file.
  explicit TraceReader(std::filesystem::path file);
  ~TraceReader();

  // The next record; false when there is none for now. When the file was replaced by a new one meanwhile,
  // goes on with the new one's oldest record.
  bool next(TraceRecord& record);
  // Records that were overwritten before they were read.
  std::uint64_t lost() const { return lost_; }
  // Places where the file held no valid record.
  std::uint64_t damaged() const { return damaged_; }

 private:
  enum class Got : std::uint8_t { record, again, none };
  Got tryNext(TraceRecord& record);
  bool takeReplacement();

  std::filesystem::path path_;
  std::unique_ptr<RingMapping> ring_;
  std::uint64_t position_;
  std::uint64_t expectedSerial_ = 0;  // 0: not known
  std::uint64_t lost_ = 0;
  std::uint64_t damaged_ = 0;
  bool inDamage_ = false;  // at a place that was counted as damaged
};

}  // namespace Skein

// Appends records to a trace file.
//
// It trusts only its own positions, never those in the file: what another process might do to the file can
// spoil records, not the writer.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

#include "Skein.h"
#include "skein/RingMapping.h"

namespace Skein {

class RingWriter {
 public:
  // Goes on in the file where the writer before stopped, or makes the file. Throws RingError.
  RingWriter(const std::filesystem::path& file, std::uint64_t bytes);
  ~RingWriter();

  void append(double time, const CallSite& site, std::string_view text, std::string_view filter);

 private:
  bool openFormer(const std::filesystem::path& file, std::uint64_t bytes);
  void findEnd(const std::filesystem::path& file);
  void makeRoom(std::uint64_t end);
  void publish(RecordWords& words, std::uint64_t bytes);

  std::unique_ptr<RingMapping> ring_;
  std::uint64_t tail_ = 0;
  std::uint64_t head_ = 0;
  std::uint64_t serial_ = 0;  // of the last record
};

}  // namespace Skein

// A trace file in a folder of its own, and what a test does with it.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "ManualClock.h"
#include "TempDir.h"
#include "skein/TraceReader.h"
#include "skein/TraceRing.h"

namespace TestSupport {

inline constexpr Skein::CallSite kEvent("Sft", "SftPexaPlugin.cpp", 364, "init", Skein::Volume::event);
inline constexpr Skein::CallSite kPacket("Sft", "OffloadDecision.cpp", 12, "maybeOffloadCommon",
                                         Skein::Volume::packet);

class RingThings {
 public:
  std::filesystem::path file() const {
    return std::filesystem::path(dir.path()) / Skein::TraceRing::kFileName;
  }
  // All that a new reader finds.
  std::vector<std::string> texts() const {
    Skein::TraceReader reader(file());
    return rest(reader);
  }
  static std::vector<std::string> rest(Skein::TraceReader& reader) {
    std::vector<std::string> result;
    for (Skein::TraceRecord record; reader.next(record);) result.push_back(record.text);
    return result;
  }
  // Overwrites bytes of the file, as no writer would.
  void scribble(std::uint64_t offset, std::string_view bytes) const {
    std::fstream out(file(), std::ios::in | std::ios::out | std::ios::binary);
    out.seekp(static_cast<std::streamoff>(offset));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  std::string content() const {
    std::ifstream in(file(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  TempDir dir;
  ManualClock clock{1'700'000'000.25};
};

}  // namespace TestSupport

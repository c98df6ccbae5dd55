// Any bytes as a capture file: it is refused or read to an end, and every packet's bytes are there.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "FuzzTarget.h"
#include "PexaPacket.h"
#include "capture/CaptureError.h"
#include "capture/CaptureReader.h"

namespace {

// The input as a file of the process's own memory.
std::string fileOf(const std::uint8_t* data, std::size_t size) {
  static const int file = ::memfd_create("capture", MFD_CLOEXEC);
  FUZZ_REQUIRE(file != -1);
  FUZZ_REQUIRE(::ftruncate(file, 0) == 0);
  FUZZ_REQUIRE(::pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  return "/proc/self/fd/" + std::to_string(file);
}

unsigned sumOf(const Pavo::Pkt& pkt) {
  unsigned sum = 0;
  std::for_each_n(pkt.front(), pkt.capturedLength(), [&](std::uint8_t byte) { sum += byte; });
  return sum;
}

void readAll(Capture::CaptureReader& reader, std::size_t size) {
  using Result = Capture::CaptureReader::Result;
  Capture::ReceivedPacket packet;
  Result result = Result::packet;
  volatile unsigned sum = 0;
  while ((result = reader.next(packet)) == Result::packet) {
    FUZZ_REQUIRE(packet.pkt.capturedLength() <= size);
    FUZZ_REQUIRE(reader.packets() <= size / 16);  // every record has a header of 16 bytes at least
    sum = sum + sumOf(packet.pkt);
    Pexa::ParsedPacket(packet.pkt).maybeDoFullParse();
  }
  FUZZ_REQUIRE(reader.next(packet) == result);
  FUZZ_REQUIRE(reader.error().empty() == (result == Result::end));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    Capture::CaptureReader reader(fileOf(data, size));
    readAll(reader, size);
  } catch (const Capture::CaptureError& refused) {
    FUZZ_REQUIRE(std::string(refused.what()).find("/proc/self/fd/") != std::string::npos);
  }
  return 0;
}

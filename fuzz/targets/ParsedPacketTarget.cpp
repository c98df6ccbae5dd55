// Any bytes as a packet: the parser stays within them, says what its rules say, and says it again.
#include <algorithm>
#include <memory>

#include "FuzzTarget.h"
#include "PexaPacket.h"

namespace {

using Pexa::HeaderName;

// The rules once more, as plainly as they can be put: is there an IP header, and is Tcp or Udp behind it.
struct Expected {
  bool ip = false;
  std::uint32_t offset = 0;
  HeaderName l4 = HeaderName::Payload;
};

HeaderName l4Name(std::uint32_t protocol, std::uint32_t behind) {
  if (protocol == 6 && behind >= 20) return HeaderName::Tcp;
  if (protocol == 17 && behind >= 8) return HeaderName::Udp;
  return HeaderName::Payload;
}

Expected expectedOf(const std::uint8_t* data, std::uint32_t size) {
  Expected expected;
  std::uint32_t at = 14;
  if (size < at) return expected;
  std::uint32_t type = Pavo::load16(data + 12);
  while ((type == 0x8100 || type == 0x88a8) && size >= at + 4) {
    type = Pavo::load16(data + at + 2);
    at += 4;
  }
  const std::uint8_t* ip = data + at;
  const std::uint32_t left = size - at;
  if (type == 0x0800 && left >= 20 && ip[0] >> 4 == 4) {
    const std::uint32_t header = (ip[0] & 15U) * 4;
    const std::uint32_t length = Pavo::load16(ip + 2);
    expected.ip = header >= 20 && header <= left && (length == 0 || length >= header);
    const std::uint32_t end = length == 0 ? left : std::min(length, left);
    const bool first = (Pavo::load16(ip + 6) & 0x1fff) == 0;
    if (expected.ip && first) expected.l4 = l4Name(ip[9], end - header);
  } else if (type == 0x86dd && left >= 40 && ip[0] >> 4 == 6) {
    const std::uint32_t length = Pavo::load16(ip + 4);
    expected.ip = true;
    expected.l4 = l4Name(ip[6], length == 0 ? left - 40 : std::min(length, left - 40));
  }
  expected.offset = at;
  return expected;
}

void checkHeaders(const Pexa::ParsedPacket& parsed) {
  FUZZ_REQUIRE(!parsed.headers().empty());
  std::uint32_t end = 0;
  for (const Pexa::PacketHeader& header : parsed.headers()) {
    FUZZ_REQUIRE(&header == parsed.header(header.position()));
    FUZZ_REQUIRE(header.offset() == end);
    end = header.offset() + header.length();
    (void)parsed.pkt().offsetFront(header.offset(), header.length());
    FUZZ_REQUIRE(!stringValue(header.name()).empty());
  }
  FUZZ_REQUIRE(parsed.header(parsed.headers().size()) == nullptr);
}

void checkAgainst(const Expected& expected, const Pexa::ParsedPacket& parsed) {
  const Pexa::PacketHeader* ip = parsed.firstHeaderIpAnyVersion();
  FUZZ_REQUIRE((ip != nullptr) == expected.ip);
  if (ip == nullptr) return;
  FUZZ_REQUIRE(ip->offset() == expected.offset);
  const Pexa::PacketHeader* behind = parsed.header(ip->position() + 1U);
  FUZZ_REQUIRE(behind != nullptr);
  const bool l4 = behind->name() == HeaderName::Tcp || behind->name() == HeaderName::Udp;
  FUZZ_REQUIRE((l4 ? behind->name() : HeaderName::Payload) == expected.l4);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A copy of exactly the captured bytes: a sanitizer sees any read behind them.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  std::copy_n(data, size, bytes.get());
  const auto captured = static_cast<std::uint32_t>(size);
  Pexa::ParsedPacket parsed(Pavo::Pkt(bytes.get(), captured, captured));
  parsed.maybeDoFullParse();
  checkHeaders(parsed);
  checkAgainst(expectedOf(bytes.get(), captured), parsed);
  return 0;
}

#include "sflow/DatagramWriter.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "KivValue.h"

namespace Sflow {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Bytes from hexadecimal digits; blanks do not matter.
Bytes hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) != 0) continue;
    digits += c;
    if (digits.size() < 2) continue;
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
    digits.clear();
  }
  return bytes;
}

Bytes finished(DatagramWriter& writer, std::uint32_t sequence, std::uint32_t uptime) {
  const auto datagram = writer.finish(sequence, uptime);
  return {datagram.begin(), datagram.end()};
}

DatagramWriter::FlowSample flowSample(const Bytes& header) {
  DatagramWriter::FlowSample sample;
  sample.sequence = 0x01020304;
  sample.source = 0x112233;
  sample.rate = 1000;
  sample.pool = 0xfffffffe;
  sample.drops = 7;
  sample.input = 0x112233;
  sample.output = 9;
  sample.frameBytes = 1514;
  sample.header = header;
  sample.inVlan = 100;
  sample.inPriority = 5;
  sample.outVlan = 4095;
  sample.outPriority = 7;
  return sample;
}

TEST(DatagramWriter, WritesAFlowSample) {
  DatagramWriter writer("192.0.2.1", 3);
  writer.add(flowSample({0xa1, 0xa2, 0xa3, 0xa4, 0xa5}));
  EXPECT_EQ(finished(writer, 0x0a0b0c0d, 123456), hex(R"(
      00000005  00000001 c0000201  00000003  0a0b0c0d  0001e240  00000001
      00000001  00000058
        01020304  00112233  000003e8  fffffffe  00000007  00112233  00000009  00000002
        00000001  00000018
          00000001  000005ee  00000004  00000005  a1a2a3a4 a5000000
        000003e9  00000010
          00000064  00000005  00000fff  00000007)"));
}

TEST(DatagramWriter, WritesACountersSample) {
  DatagramWriter writer("2001:db8::1", 0);
  DatagramWriter::CounterSample sample{2, 4, {}};
  sample.counters.ifSpeed = 10'000'000'000;
  sample.counters.operUp = false;
  sample.counters.ifInOctets = 0x0102030405060708;
  sample.counters.ifInUcastPkts = 11;
  sample.counters.ifInMulticastPkts = 12;
  sample.counters.ifInBroadcastPkts = 13;
  sample.counters.ifInDiscards = 14;
  sample.counters.ifInErrors = 15;
  sample.counters.ifInUnknownProtos = 16;
  sample.counters.ifOutOctets = 0x1112131415161718;
  sample.counters.ifOutUcastPkts = 21;
  sample.counters.ifOutDiscards = 24;
  writer.add(sample);
  EXPECT_EQ(finished(writer, 1, 2), hex(R"(
      00000005  00000002 20010db8000000000000000000000001  00000000  00000001  00000002  00000001
      00000002  0000006c
        00000002  00000004  00000001
        00000001  00000058
          00000004  00000006  00000002540be400  00000001  00000001
          0102030405060708  0000000b  0000000c  0000000d  0000000e  0000000f  00000010
          1112131415161718  00000015  ffffffff  ffffffff  00000018  ffffffff  ffffffff)"));
}

TEST(DatagramWriter, CutsTheSampledHeaderAt128Bytes) {
  const Bytes packet(1500, 0x55);
  DatagramWriter writer("192.0.2.1", 0);
  writer.add(flowSample(packet));
  const Bytes datagram = finished(writer, 1, 1);
  const Bytes length(datagram.begin() + 28 + 40 + 20, datagram.begin() + 28 + 40 + 24);
  EXPECT_EQ(length, hex("00000080"));
  EXPECT_EQ(datagram.size(), 28U + 8 + 32 + 8 + 16 + 128 + 8 + 16);
}

TEST(DatagramWriter, BeginsTheNextDatagramWithTheSameAgent) {
  DatagramWriter writer("192.0.2.1", 3);
  writer.add(flowSample({1, 2, 3, 4}));
  writer.add(flowSample({1, 2, 3, 4}));
  EXPECT_EQ(writer.samples(), 2U);
  finished(writer, 1, 1);
  EXPECT_EQ(writer.samples(), 0U);
  EXPECT_EQ(finished(writer, 2, 5), hex("00000005 00000001 c0000201 00000003 00000002 00000005 00000000"));
}

template <class Fits, class Add>
std::size_t fill(DatagramWriter& writer, Fits fits, Add add) {
  while (fits()) add();
  return writer.finish(1, 1).size();
}

TEST(DatagramWriter, NeverGoesBeyond1400BytesWhateverTheHeadersLength) {
  for (std::size_t length = 0; length <= 130; ++length) {
    const Bytes packet(length, 0x66);
    const auto sample = flowSample(packet);
    DatagramWriter writer("2001:db8::1", 3);
    std::size_t samples = 0;
    const std::size_t size = fill(
        writer, [&] { return writer.fits(sample); },
        [&] {
          writer.add(sample);
          ++samples;
        });
    EXPECT_LE(size, 1400U);
    EXPECT_GT(size, 1400U - 216);
    EXPECT_LE(samples, DatagramWriter::kMostSamples);
  }
}

TEST(DatagramWriter, FillsADatagramWithCounters) {
  DatagramWriter writer("192.0.2.1", 0);
  const std::size_t size = fill(
      writer, [&] { return writer.fitsCounters(); }, [&] { writer.add(DatagramWriter::CounterSample{}); });
  EXPECT_EQ(size, 28U + 11 * 116);
}

TEST(DatagramWriter, RefusesAnAgentThatIsNoAddress) {
  for (const char* text : {"", "localhost", "192.0.2", "192.0.2.1:6343", "[::1]", "2001:db8::zz"}) {
    try {
      DatagramWriter writer(text, 0);
      ADD_FAILURE() << text;
    } catch (const Kiv::ValueError& error) {
      EXPECT_EQ(std::string(error.what()),
                "sFlow agent \"" + std::string(text) + "\": expected an IPv4 or IPv6 address");
    }
  }
}

}  // namespace
}  // namespace Sflow

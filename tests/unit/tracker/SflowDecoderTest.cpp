#include "SflowDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <fstream>
#include <memory>

#include "SflowText.h"
#include "sflow/DatagramWriter.h"

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::address4;
using TestSupport::address6;
using TestSupport::extendedSwitch;
using TestSupport::PacketBuilder;
using TestSupport::sampledHeader;
using TestSupport::sampledIp;
using TestSupport::SflowRecord;
using TestSupport::SflowText;
using TestSupport::XdrText;
using Tracker::Malformation;

class SflowDecoderTest : public testing::Test {
 protected:
  // Decodes a copy of exactly these bytes: a sanitizer sees any read behind them.
  std::optional<Malformation> decode(const std::vector<std::uint8_t>& bytes) {
    copy_.reset(new std::uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), copy_.get());
    return decoder_.decode({copy_.get(), bytes.size()});
  }
  const Tracker::Datagram& datagram() const { return decoder_.datagram(); }
  const Tracker::FlowSample& only() const { return datagram().samples.at(0); }

  const TestSupport::Packet packet_ =
      PacketBuilder().vlan(10).ipv4("10.0.0.1", "10.0.0.2").tcp(1234, 80).payload(100).build();

 private:
  Tracker::SflowDecoder decoder_;
  std::unique_ptr<std::uint8_t[]> copy_;
};

TEST_F(SflowDecoderTest, ReadsTheHeader) {
  ASSERT_EQ(decode(SflowText("192.0.2.7", 3, 99).bytes()), std::nullopt);
  EXPECT_EQ(datagram().agent.text(), "192.0.2.7");
  EXPECT_EQ(datagram().subAgent, 3U);
  EXPECT_EQ(datagram().sequence, 99U);
  EXPECT_EQ(datagram().uptime, 1000U);
  EXPECT_THAT(datagram().samples, IsEmpty());
}

TEST_F(SflowDecoderTest, ReadsTheHeaderOfAnAgentWithAnIpv6Address) {
  ASSERT_EQ(decode(SflowText("2001:db8::7", 3, 99).bytes()), std::nullopt);
  EXPECT_EQ(datagram().agent.text(), "2001:db8::7");
  EXPECT_EQ(datagram().sequence, 99U);
}

TEST_F(SflowDecoderTest, ReadsAFlowSample) {
  ASSERT_EQ(decode(SflowText()
                       .flowSample({.sequence = 7, .source = 4, .rate = 512, .input = 4, .output = 9},
                                   {sampledHeader(packet_), extendedSwitch(33)})
                       .bytes()),
            std::nullopt);
  EXPECT_EQ(only().sequence, 7U);
  EXPECT_EQ(only().sourceType, 0U);
  EXPECT_EQ(only().sourceIndex, 4U);
  EXPECT_EQ(only().rate, 512U);
  EXPECT_EQ(only().input.index(), 4U);
  EXPECT_EQ(only().output.index(), 9U);
  EXPECT_THAT(only().header, ElementsAreArray(packet_.bytes.begin(), packet_.bytes.begin() + 128));
  EXPECT_EQ(only().frameBytes, packet_.wireLength + 4);
  EXPECT_EQ(only().stripped, 4U);
  EXPECT_EQ(only().inVlan, 33U);
}

TEST_F(SflowDecoderTest, ReadsAnExpandedFlowSample) {
  ASSERT_EQ(decode(SflowText()
                       .expandedFlowSample(
                           {.sourceType = 0, .source = 0x1000001, .input = 0x7fffffff, .output = 0x1000001},
                           {sampledHeader(packet_)})
                       .bytes()),
            std::nullopt);
  EXPECT_EQ(only().sourceIndex, 0x1000001U);
  EXPECT_EQ(only().input.index(), 0x7fffffffU);
  EXPECT_EQ(only().output.index(), 0x1000001U);
  EXPECT_THAT(only().header, SizeIs(128));
}

TEST_F(SflowDecoderTest, TellsWhatIsNoSingleInterface) {
  ASSERT_EQ(decode(SflowText()
                       .flowSample({.input = 0x3fffffff, .outputFormat = 1, .output = 258}, {})
                       .flowSample({.input = 0, .outputFormat = 2, .output = 7}, {})
                       .expandedFlowSample({.inputFormat = 77, .input = 5, .output = 0xffffffff}, {})
                       .bytes()),
            std::nullopt);
  for (const auto& sample : datagram().samples) {
    EXPECT_EQ(sample.input.index(), 0U);
    EXPECT_EQ(sample.output.index(), 0U);
  }
  EXPECT_EQ(datagram().samples.at(0).output.format, Tracker::SampledPort::Format::discarded);
  EXPECT_EQ(datagram().samples.at(1).output.format, Tracker::SampledPort::Format::multiple);
  EXPECT_EQ(datagram().samples.at(2).input.format, Tracker::SampledPort::Format::other);
}

TEST_F(SflowDecoderTest, ReadsWhatAgentsReadOfAPacketThemselves) {
  ASSERT_EQ(decode(SflowText()
                       .flowSample({}, {sampledIp(address4("10.0.0.1"), address4("10.0.0.2"), 6, 1, 2, 60)})
                       .flowSample({}, {sampledIp(address6("::1"), address6("::2"), 17, 1, 2, 60)})
                       .bytes()),
            std::nullopt);
  EXPECT_THAT(datagram().samples.at(0).ip4, SizeIs(32));
  EXPECT_THAT(datagram().samples.at(0).ip6, IsEmpty());
  EXPECT_THAT(datagram().samples.at(1).ip6, SizeIs(56));
}

TEST_F(SflowDecoderTest, SkipsWhatItDoesNotKnow) {
  const SflowRecord foreign{0x1000 | 1, XdrText().word(1)};
  ASSERT_EQ(decode(SflowText()
                       .sample(2, XdrText().word(1).word(2))
                       .sample(4, XdrText())
                       .sample(5, XdrText().word(9))
                       .sample(0x1000 | 1, XdrText().word(9))
                       .flowSample({}, {foreign, sampledHeader(packet_), foreign})
                       .bytes()),
            std::nullopt);
  EXPECT_EQ(datagram().counterSamples, 2U);
  EXPECT_EQ(datagram().unknownSamples, 2U);
  EXPECT_THAT(only().header, SizeIs(128));
}

TEST_F(SflowDecoderTest, LeavesHeadersOfOtherKindsAlone) {
  ASSERT_EQ(decode(SflowText().flowSample({}, {sampledHeader({1, 2, 3, 4}, 40, 4, 7)}).bytes()),
            std::nullopt);
  EXPECT_THAT(only().header, IsEmpty());
  EXPECT_TRUE(only().otherHeader);
}

TEST_F(SflowDecoderTest, ReadsHeadersThatBeginWithIp) {
  ASSERT_EQ(decode(SflowText()
                       .flowSample({}, {sampledHeader({1, 2, 3, 4}, 40, 0, 11)})
                       .flowSample({}, {sampledHeader({1, 2, 3, 4}, 40, 0, 12)})
                       .bytes()),
            std::nullopt);
  using HeaderKind = Tracker::FlowSample::HeaderKind;
  EXPECT_EQ(datagram().samples.at(0).headerKind, HeaderKind::ip4);
  EXPECT_EQ(datagram().samples.at(1).headerKind, HeaderKind::ip6);
  EXPECT_THAT(datagram().samples.at(1).header, SizeIs(4));
}

TEST_F(SflowDecoderTest, ForgetsTheDatagramBefore) {
  ASSERT_EQ(decode(SflowText().flowSample({}, {}).sample(2, {}).sample(9, {}).bytes()), std::nullopt);
  ASSERT_EQ(decode(SflowText().bytes()), std::nullopt);
  EXPECT_THAT(datagram().samples, IsEmpty());
  EXPECT_EQ(datagram().counterSamples, 0U);
  EXPECT_EQ(datagram().unknownSamples, 0U);
}

TEST_F(SflowDecoderTest, BytesBehindTheLastSampleAreLeftOut) {
  auto bytes = SflowText().flowSample({}, {sampledHeader(packet_)}).bytes();
  bytes.insert(bytes.end(), 7, 0);
  ASSERT_EQ(decode(bytes), std::nullopt);
  EXPECT_EQ(datagram().trailingBytes, 7U);
  EXPECT_THAT(datagram().samples, SizeIs(1));
}

// A header whose length is no multiple of four is filled up, by XDR's rules.
TEST_F(SflowDecoderTest, FillingDoesNotBelongToTheHeader) {
  for (std::size_t length = 60; length < 64; ++length) {
    const std::vector<std::uint8_t> header(packet_.bytes.begin(),
                                           packet_.bytes.begin() + static_cast<std::ptrdiff_t>(length));
    ASSERT_EQ(decode(SflowText().flowSample({}, {sampledHeader(header, 200), extendedSwitch(5)}).bytes()),
              std::nullopt);
    EXPECT_THAT(only().header, ElementsAreArray(header));
    EXPECT_EQ(only().inVlan, 5U);
  }
}

TEST_F(SflowDecoderTest, ReadsWhatTheAgentOfThisSystemWrites) {
  Sflow::DatagramWriter writer("192.0.2.9", 2);
  Sflow::DatagramWriter::FlowSample sample;
  sample.source = sample.input = 3;
  sample.output = 4;
  sample.rate = 1000;
  sample.header = packet_.bytes;
  sample.frameBytes = packet_.wireLength;
  sample.inVlan = 10;
  writer.add(sample);
  writer.add(Sflow::DatagramWriter::CounterSample{1, 3, {}});
  const auto bytes = writer.finish(17, 5);
  ASSERT_EQ(decode({bytes.begin(), bytes.end()}), std::nullopt);
  EXPECT_EQ(datagram().counterSamples, 1U);
  EXPECT_EQ(datagram().trailingBytes, 0U);
  EXPECT_EQ(only().sourceIndex, 3U);
  EXPECT_EQ(only().frameBytes, packet_.wireLength + 4);
  EXPECT_THAT(only().header, ElementsAreArray(packet_.bytes.begin(), packet_.bytes.begin() + 128));
  EXPECT_EQ(only().inVlan, 10U);
}

// --- What is wrong

std::vector<std::uint8_t> cut(std::vector<std::uint8_t> bytes, std::size_t by) {
  bytes.resize(bytes.size() - by);
  return bytes;
}

TEST_F(SflowDecoderTest, AHeaderThatIsCutOff) {
  const auto whole = SflowText().bytes();
  for (std::size_t by = 1; by <= whole.size(); ++by) {
    EXPECT_EQ(decode(cut(whole, by)), Malformation::headerCut) << by;
  }
}

TEST_F(SflowDecoderTest, AnotherVersion) {
  for (const std::uint32_t version : {0U, 2U, 4U, 6U, 0x5000000U}) {
    EXPECT_EQ(decode(XdrText().word(version).word(1).bytes()), Malformation::version);
  }
}

TEST_F(SflowDecoderTest, AnAddressOfNoKnownType) {
  for (const std::uint32_t type : {0U, 3U}) {
    EXPECT_EQ(decode(XdrText().word(5).word(type).word(0).word(0).word(0).word(0).word(0).bytes()),
              Malformation::addressType);
  }
}

TEST_F(SflowDecoderTest, ASampleThatIsCutOffTakesTheWholeDatagramAway) {
  const auto whole =
      SflowText().flowSample({}, {sampledHeader(packet_)}).sample(2, XdrText().word(1)).bytes();
  for (std::size_t by = 1; by < whole.size() - 28; ++by) {
    EXPECT_EQ(decode(cut(whole, by)), Malformation::sampleCut) << by;
  }
}

TEST_F(SflowDecoderTest, ACountOfSamplesThatLies) {
  EXPECT_EQ(decode(SflowText().flowSample({}, {}).claimed(0xffffffff).bytes()), Malformation::sampleCut);
}

TEST_F(SflowDecoderTest, ALengthThatLies) {
  auto bytes = SflowText().bytes();
  bytes[27] = 1;  // one sample
  const auto lie = XdrText().word(1).word(0xffffffff).bytes();
  bytes.insert(bytes.end(), lie.begin(), lie.end());
  EXPECT_EQ(decode(bytes), Malformation::sampleCut);
}

TEST_F(SflowDecoderTest, ASampleWithoutRoomForItsFixedPart) {
  for (int words = 0; words < 8; ++words) {
    XdrText body;
    for (int i = 0; i < words; ++i) body.word(0);
    EXPECT_EQ(decode(SflowText().sample(1, body).bytes()), Malformation::sampleShort) << words;
  }
  XdrText body;
  for (int i = 0; i < 10; ++i) body.word(0);
  EXPECT_EQ(decode(SflowText().sample(3, body).bytes()), Malformation::sampleShort);
}

TEST_F(SflowDecoderTest, ARecordThatIsCutOff) {
  XdrText body;
  for (int i = 0; i < 7; ++i) body.word(1);
  body.word(2);                              // records
  body.word(1001).word(16).word(5).word(0);  // of which eight bytes are missing
  EXPECT_EQ(decode(SflowText().sample(1, body).bytes()), Malformation::recordCut);
}

TEST_F(SflowDecoderTest, ARecordWithoutRoomForItsFixedPart) {
  for (const std::uint32_t format : {1U, 3U, 4U, 1001U}) {
    EXPECT_EQ(decode(SflowText().flowSample({}, {{format, XdrText().word(1).word(2).word(3)}}).bytes()),
              Malformation::recordShort)
        << format;
  }
}

TEST_F(SflowDecoderTest, AHeaderLongerThanItsRecord) {
  const SflowRecord record{1, XdrText().word(1).word(100).word(4).word(9).word(0).word(0)};
  EXPECT_EQ(decode(SflowText().flowSample({}, {record}).bytes()), Malformation::headerLength);
}

TEST_F(SflowDecoderTest, EveryKindHasANameOfItsOwn) {
  std::set<std::string_view> names;
  for (std::size_t i = 0; i < Tracker::kMalformations; ++i)
    names.insert(Tracker::nameOf(static_cast<Malformation>(i)));
  EXPECT_THAT(names, SizeIs(Tracker::kMalformations));
  EXPECT_FALSE(names.contains(""));
}

TEST_F(SflowDecoderTest, AnyChangeOfAnyByteIsDecodedOrRefused) {
  const auto whole = SflowText()
                         .flowSample({}, {sampledHeader(packet_), extendedSwitch(3)})
                         .expandedFlowSample({}, {sampledHeader(packet_)})
                         .bytes();
  const bool holds = rc::check([&] {
    auto bytes = whole;
    const auto changes = *rc::gen::inRange(1, 5);
    for (int i = 0; i < changes; ++i) {
      bytes[*rc::gen::inRange<std::size_t>(0, bytes.size())] = *rc::gen::arbitrary<std::uint8_t>();
    }
    bytes.resize(*rc::gen::inRange<std::size_t>(0, bytes.size() + 1));
    if (decode(bytes)) return;
    for (const auto& sample : datagram().samples) RC_ASSERT(sample.header.size() <= bytes.size());
  });
  EXPECT_TRUE(holds);
}

}  // namespace

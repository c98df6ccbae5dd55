#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "PacketBuilder.h"
#include "PexaPacket.h"

namespace {

using Pexa::HeaderName;
using Pexa::ParsedPacket;
using TestSupport::address4;
using TestSupport::address6;
using TestSupport::Packet;
using TestSupport::PacketBuilder;

using Numbers = std::initializer_list<std::uint8_t>;

constexpr std::uint32_t kEthernet = 14;

ParsedPacket parse(const Packet& packet) {
  ParsedPacket parsed(packet.pkt());
  parsed.maybeDoFullParse();
  return parsed;
}

// "Ethernet Vlan Ipv4 Tcp"
std::string names(const ParsedPacket& parsed) {
  std::string all;
  for (const auto& header : parsed.headers()) {
    if (!all.empty()) all += ' ';
    all += Pexa::stringValue(header.name());
  }
  return all;
}
std::string names(const Packet& packet) {
  return names(parse(packet));
}

const Pexa::PacketHeader& behindIp(const ParsedPacket& parsed) {
  return *parsed.header(parsed.firstHeaderIpAnyVersion()->position() + 1U);
}

struct Ipv4 {
  static constexpr HeaderName kName = HeaderName::Ipv4;
  static constexpr const char* kText = "Ipv4";
  static constexpr const char* kIcmp = "Icmp";
  static constexpr std::uint32_t kBytes = 20;
  static constexpr std::uint8_t kOtherVersion = 6;
  static PacketBuilder ip(PacketBuilder builder = {}) {
    return builder.ip(address4("10.0.0.1"), address4("10.0.0.2"));
  }
  // The length field of a packet with this many bytes behind the IP header.
  static std::uint16_t lengthField(unsigned behind) { return static_cast<std::uint16_t>(kBytes + behind); }
};
struct Ipv6 {
  static constexpr HeaderName kName = HeaderName::Ipv6;
  static constexpr const char* kText = "Ipv6";
  static constexpr const char* kIcmp = "Icmpv6";
  static constexpr std::uint32_t kBytes = 40;
  static constexpr std::uint8_t kOtherVersion = 4;
  static PacketBuilder ip(PacketBuilder builder = {}) {
    return builder.ip(address6("2001:db8::1"), address6("2001:db8::2"));
  }
  static std::uint16_t lengthField(unsigned behind) { return static_cast<std::uint16_t>(behind); }
};

template <class Family>
class IpPacket : public testing::Test {
 protected:
  static std::string ipThen(const std::string& rest) {
    return std::string("Ethernet ") + Family::kText + ' ' + rest;
  }
};
using Families = testing::Types<Ipv4, Ipv6>;
TYPED_TEST_SUITE(IpPacket, Families);

TYPED_TEST(IpPacket, TcpAndUdpAreFoundWithTheirPlaces) {
  const auto tcp = parse(TypeParam::ip().tcp(1, 2).payload(3).build());
  EXPECT_EQ(names(tcp), this->ipThen("Tcp"));
  const auto udp = parse(TypeParam::ip().udp(1, 2).payload(3).build());
  EXPECT_EQ(names(udp), this->ipThen("Udp"));
  for (const auto* parsed : {&tcp, &udp}) {
    const auto* ip = parsed->firstHeaderIpAnyVersion();
    ASSERT_NE(ip, nullptr);
    EXPECT_EQ(ip->name(), TypeParam::kName);
    EXPECT_EQ(ip->position(), 1);
    EXPECT_EQ(ip->offset(), kEthernet);
    EXPECT_EQ(ip->length(), TypeParam::kBytes);
    EXPECT_EQ(behindIp(*parsed).position(), 2);
    EXPECT_EQ(behindIp(*parsed).offset(), kEthernet + TypeParam::kBytes);
  }
  EXPECT_EQ(behindIp(tcp).length(), 20U);
  EXPECT_EQ(behindIp(udp).length(), 8U);
}

TYPED_TEST(IpPacket, OtherProtocolsHaveTheirNames) {
  EXPECT_EQ(names(TypeParam::ip().icmp().build()), this->ipThen(TypeParam::kIcmp));
  const std::pair<std::uint8_t, const char*> known[] = {{47, "Gre"}, {50, "Esp"}, {51, "Ah"}, {132, "Sctp"}};
  for (const auto& [number, name] : known) {
    EXPECT_EQ(names(TypeParam::ip().protocol(number).payload(20).build()), this->ipThen(name));
  }
  for (const std::uint8_t number : Numbers{4, 41, 59, 255}) {
    EXPECT_EQ(names(TypeParam::ip().protocol(number).payload(20).build()), this->ipThen("Payload"));
  }
}

TYPED_TEST(IpPacket, AnIpHeaderWithNothingBehindItHasAnEmptyPayload) {
  for (const std::uint8_t number : Numbers{6, 17, 1, 58, 0, 59}) {
    const auto parsed = parse(TypeParam::ip().protocol(number).build());
    EXPECT_EQ(names(parsed), this->ipThen("Payload")) << int{number};
    EXPECT_EQ(behindIp(parsed).offset(), kEthernet + TypeParam::kBytes);
    EXPECT_EQ(behindIp(parsed).length(), 0U);
  }
}

TYPED_TEST(IpPacket, AnL4HeaderThatIsNotWhollyCapturedIsPayload) {
  const std::uint32_t behind = kEthernet + TypeParam::kBytes;
  EXPECT_EQ(names(TypeParam::ip().tcp(1, 2).payload(9).cutTo(behind + 20).build()), this->ipThen("Tcp"));
  EXPECT_EQ(names(TypeParam::ip().tcp(1, 2).payload(9).cutTo(behind + 19).build()), this->ipThen("Payload"));
  EXPECT_EQ(names(TypeParam::ip().udp(1, 2).payload(9).cutTo(behind + 8).build()), this->ipThen("Udp"));
  EXPECT_EQ(names(TypeParam::ip().udp(1, 2).payload(9).cutTo(behind + 7).build()), this->ipThen("Payload"));
}

TYPED_TEST(IpPacket, AnL4HeaderBeyondTheIpLengthIsPayload) {
  const auto tcp = [](unsigned behind) {
    return TypeParam::ip().tcp(1, 2).lengthField(TypeParam::lengthField(behind));
  };
  EXPECT_EQ(names(tcp(20).trailer(6).build()), this->ipThen("Tcp"));
  const auto cut = parse(tcp(19).trailer(6).build());
  EXPECT_EQ(names(cut), this->ipThen("Payload"));
  EXPECT_EQ(behindIp(cut).length(), 19U);
  const auto udp = [](unsigned behind) {
    return TypeParam::ip().udp(1, 2).lengthField(TypeParam::lengthField(behind));
  };
  EXPECT_EQ(names(udp(8).build()), this->ipThen("Udp"));
  EXPECT_EQ(names(udp(7).build()), this->ipThen("Payload"));
}

TYPED_TEST(IpPacket, ALengthFieldOfZeroDoesNotBound) {
  EXPECT_EQ(names(TypeParam::ip().tcp(1, 2).payload(3000).lengthField(0).build()), this->ipThen("Tcp"));
  EXPECT_EQ(names(TypeParam::ip().udp(1, 2).lengthField(0).build()), this->ipThen("Udp"));
  const auto cut =
      parse(TypeParam::ip().tcp(1, 2).lengthField(0).cutTo(kEthernet + TypeParam::kBytes + 5).build());
  EXPECT_EQ(names(cut), this->ipThen("Payload"));
  EXPECT_EQ(behindIp(cut).length(), 5U);
}

TYPED_TEST(IpPacket, ALengthFieldBeyondTheFrameIsBoundByTheCapture) {
  const auto parsed = parse(TypeParam::ip().protocol(253).payload(10).lengthField(60000).build());
  EXPECT_EQ(names(parsed), this->ipThen("Payload"));
  EXPECT_EQ(behindIp(parsed).length(), 10U);
  EXPECT_EQ(names(TypeParam::ip().tcp(1, 2).lengthField(65535).build()), this->ipThen("Tcp"));
}

TYPED_TEST(IpPacket, PaddingBehindTheIpPacketBelongsToNoHeader) {
  const auto parsed = parse(TypeParam::ip().protocol(253).payload(3).trailer(40).build());
  EXPECT_EQ(behindIp(parsed).length(), 3U);
}

TYPED_TEST(IpPacket, FramesOf64KilobytesAndMoreAreParsed) {
  const auto parsed = parse(TypeParam::ip().tcp(1, 2).payload(80'000).lengthField(0).build());
  EXPECT_EQ(names(parsed), this->ipThen("Tcp"));
}

TYPED_TEST(IpPacket, AnotherVersionThanTheEthernetTypeSaysIsNoIpHeader) {
  for (std::uint8_t version = 0; version < 16; ++version) {
    const auto parsed = parse(TypeParam::ip().tcp(1, 2).versionField(version).build());
    const bool right = version == (TypeParam::kOtherVersion == 6 ? 4 : 6);
    EXPECT_EQ(parsed.firstHeaderIpAnyVersion() != nullptr, right) << int{version};
    EXPECT_EQ(names(parsed) == "Ethernet Payload", !right) << names(parsed);
  }
}

TYPED_TEST(IpPacket, AnIpHeaderThatIsCutShortIsNone) {
  for (std::uint32_t captured = 0; captured < TypeParam::kBytes; ++captured) {
    const auto parsed = parse(TypeParam::ip().tcp(1, 2).cutTo(kEthernet + captured).build());
    EXPECT_EQ(parsed.firstHeaderIpAnyVersion(), nullptr);
    EXPECT_EQ(names(parsed), "Ethernet Payload");
    EXPECT_EQ(parsed.headers()[1].length(), captured);
  }
}

TYPED_TEST(IpPacket, EveryCutOfAPacketIsParsedWithinItsBytes) {
  const auto whole = TypeParam::ip(PacketBuilder().vlan(1).vlan(2)).tcp(1, 2).payload(5).build();
  for (std::size_t captured = 0; captured <= whole.bytes.size(); ++captured) {
    const Packet cut{{whole.bytes.begin(), whole.bytes.begin() + static_cast<std::ptrdiff_t>(captured)},
                     whole.wireLength};
    const auto parsed = parse(cut);
    for (const auto& header : parsed.headers()) EXPECT_LE(header.offset() + header.length(), captured);
    const auto* ip = parsed.firstHeaderIpAnyVersion();
    EXPECT_EQ(ip != nullptr, captured >= kEthernet + 8 + TypeParam::kBytes);
    EXPECT_TRUE(ip == nullptr || parsed.header(ip->position() + 1U) != nullptr);
  }
}

TYPED_TEST(IpPacket, TagsAreSkippedAndTheFirstOneTells) {
  const auto parsed =
      parse(TypeParam::ip(PacketBuilder().vlan(7, 0x88a8, 5).vlan(9).vlan(11)).udp(1, 2).build());
  EXPECT_EQ(names(parsed), std::string("Ethernet Vlan ") + TypeParam::kText + " Udp");
  EXPECT_TRUE(parsed.tagged());
  EXPECT_EQ(parsed.firstTag(), 5 << 13 | 7);
  EXPECT_EQ(parsed.headers()[1].offset(), kEthernet);
  EXPECT_EQ(parsed.headers()[1].length(), 12U);
  EXPECT_EQ(parsed.firstHeaderIpAnyVersion()->position(), 2);
  EXPECT_EQ(parsed.firstHeaderIpAnyVersion()->offset(), kEthernet + 12);
}

TYPED_TEST(IpPacket, VlanZeroIsATagToo) {
  const auto parsed = parse(TypeParam::ip(PacketBuilder().vlan(0)).tcp(1, 2).build());
  EXPECT_TRUE(parsed.tagged());
  EXPECT_EQ(parsed.firstTag(), 0);
  EXPECT_FALSE(parse(TypeParam::ip().tcp(1, 2).build()).tagged());
}

TYPED_TEST(IpPacket, AnyNumberOfTagsIsSkipped) {
  PacketBuilder builder;
  for (std::uint16_t id = 1; id <= 300; ++id) builder.vlan(id, id % 2 == 0 ? 0x8100 : 0x88a8);
  const auto parsed = parse(TypeParam::ip(builder).tcp(1, 2).build());
  EXPECT_EQ(names(parsed), std::string("Ethernet Vlan ") + TypeParam::kText + " Tcp");
  EXPECT_EQ(parsed.firstTag(), 1);
}

TYPED_TEST(IpPacket, ParsingTwiceChangesNothing) {
  const auto packet = TypeParam::ip(PacketBuilder().vlan(3)).tcp(1, 2).build();
  ParsedPacket parsed(packet.pkt());
  parsed.maybeDoFullParse();
  parsed.maybeDoFullParse();
  EXPECT_EQ(parsed.headers().size(), 4U);
}

TEST(ParsedPacket, HasNoHeadersBeforeItIsParsed) {
  const auto packet = Ipv4::ip().tcp(1, 2).build();
  const ParsedPacket parsed(packet.pkt());
  EXPECT_TRUE(parsed.headers().empty());
  EXPECT_EQ(parsed.firstHeaderIpAnyVersion(), nullptr);
  EXPECT_EQ(parsed.header(0), nullptr);
}

TEST(ParsedPacket, LessThanAnEthernetHeaderIsPayload) {
  for (std::size_t captured = 0; captured < kEthernet; ++captured) {
    const auto parsed = parse(PacketBuilder().cutTo(captured).build());
    EXPECT_EQ(names(parsed), "Payload");
    EXPECT_EQ(parsed.headers()[0].length(), captured);
    EXPECT_EQ(parsed.firstHeaderIpAnyVersion(), nullptr);
  }
}

TEST(ParsedPacket, NoPacketAtAllIsAnEmptyPayload) {
  ParsedPacket parsed;
  parsed.maybeDoFullParse();
  EXPECT_EQ(names(parsed), "Payload");
}

TEST(ParsedPacket, AnEthernetHeaderAloneHasAnEmptyPayload) {
  const auto parsed = parse(PacketBuilder().etherType(0x0800).build());
  EXPECT_EQ(names(parsed), "Ethernet Payload");
  EXPECT_EQ(parsed.header(2), nullptr);
}

TEST(ParsedPacket, NothingButIpIsLookedThrough) {
  const auto ip = Ipv4::ip().tcp(1, 2).build().bytes;
  const std::vector<std::uint8_t> inner(ip.begin() + kEthernet, ip.end());
  for (const std::uint16_t type :
       std::initializer_list<std::uint16_t>{0x8847, 0x8848, 0x8864, 0x9100, 0x9200, 0x0040, 0x88cc, 0xffff}) {
    const auto parsed = parse(PacketBuilder().etherType(type).payload(inner).build());
    EXPECT_EQ(names(parsed), "Ethernet Payload") << type;
    EXPECT_EQ(parsed.firstHeaderIpAnyVersion(), nullptr);
    EXPECT_EQ(parsed.headers()[1].length(), inner.size());
  }
}

TEST(ParsedPacket, IpInLlcSnapIsNoIpHeader) {
  const auto parsed = parse(PacketBuilder()
                                .etherType(50)
                                .payload(std::vector<std::uint8_t>{0xaa, 0xaa, 3, 0, 0, 0, 8, 0})
                                .payload(40, 0x45)
                                .build());
  EXPECT_EQ(names(parsed), "Ethernet Payload");
}

TEST(ParsedPacket, ArpHasItsName) {
  EXPECT_EQ(names(PacketBuilder().etherType(0x0806).payload(28).build()), "Ethernet Arp");
  EXPECT_EQ(names(PacketBuilder().vlan(5).etherType(0x0806).build()), "Ethernet Vlan Arp");
}

TEST(ParsedPacket, ATagThatIsCutShortIsNotRead) {
  for (std::size_t captured = kEthernet; captured < kEthernet + 4; ++captured) {
    const auto parsed = parse(PacketBuilder().vlan(5).cutTo(captured).build());
    EXPECT_FALSE(parsed.tagged());
    EXPECT_EQ(names(parsed), "Ethernet Payload");
  }
  const auto second = parse(PacketBuilder().vlan(5).vlan(6).cutTo(kEthernet + 7).build());
  EXPECT_EQ(second.firstTag(), 5);
  EXPECT_EQ(names(second), "Ethernet Vlan Payload");
  EXPECT_EQ(second.headers()[2].length(), 3U);
}

TEST(ParsedPacket, AVlanTagBehindAnotherTagTypeIsNotSkipped) {
  EXPECT_EQ(names(Ipv4::ip(PacketBuilder().vlan(5, 0x9100).vlan(6)).tcp(1, 2).build()), "Ethernet Payload");
  EXPECT_EQ(names(Ipv4::ip(PacketBuilder().vlan(5).vlan(6, 0x9100)).tcp(1, 2).build()),
            "Ethernet Vlan Payload");
}

TEST(ParsedPacket, OnlyTheFirstIpHeaderCounts) {
  const auto inner = Ipv6::ip().tcp(1, 2).build().bytes;
  const auto tunnel = parse(Ipv4::ip()
                                .protocol(41)
                                .payload(std::vector<std::uint8_t>(inner.begin() + kEthernet, inner.end()))
                                .build());
  EXPECT_EQ(names(tunnel), "Ethernet Ipv4 Payload");
}

TEST(Ipv4Packet, OptionsBelongToTheHeader) {
  for (std::size_t words = 1; words <= 10; ++words) {
    const auto parsed =
        parse(Ipv4::ip().ipv4Options(std::vector<std::uint8_t>(words * 4, 1)).tcp(1, 2).build());
    EXPECT_EQ(names(parsed), "Ethernet Ipv4 Tcp");
    EXPECT_EQ(parsed.firstHeaderIpAnyVersion()->length(), 20 + words * 4);
    EXPECT_EQ(behindIp(parsed).offset(), kEthernet + 20 + words * 4);
  }
}

TEST(Ipv4Packet, AHeaderOfLessThanFiveWordsIsNone) {
  for (std::uint8_t words = 0; words < 5; ++words) {
    EXPECT_EQ(names(Ipv4::ip().tcp(1, 2).headerWordsField(words).build()), "Ethernet Payload");
  }
}

TEST(Ipv4Packet, OptionsThatAreCutShortMakeItNone) {
  const auto builder = Ipv4::ip().ipv4Options(std::vector<std::uint8_t>(8, 1)).tcp(1, 2);
  EXPECT_EQ(names(PacketBuilder(builder).cutTo(kEthernet + 27).build()), "Ethernet Payload");
  EXPECT_EQ(names(PacketBuilder(builder).cutTo(kEthernet + 28).build()), "Ethernet Ipv4 Payload");
}

TEST(Ipv4Packet, ATotalLengthShorterThanTheHeaderMakesItNone) {
  EXPECT_EQ(names(Ipv4::ip().tcp(1, 2).lengthField(1).build()), "Ethernet Payload");
  EXPECT_EQ(names(Ipv4::ip().tcp(1, 2).lengthField(19).build()), "Ethernet Payload");
  EXPECT_EQ(names(Ipv4::ip().tcp(1, 2).lengthField(20).build()), "Ethernet Ipv4 Payload");
  const auto options = Ipv4::ip().ipv4Options(std::vector<std::uint8_t>(4, 1)).tcp(1, 2);
  EXPECT_EQ(names(PacketBuilder(options).lengthField(23).build()), "Ethernet Payload");
  EXPECT_EQ(names(PacketBuilder(options).lengthField(24).build()), "Ethernet Ipv4 Payload");
}

TEST(Ipv4Packet, AFirstFragmentHasItsL4HeaderALaterOneHasNot) {
  EXPECT_EQ(names(Ipv4::ip().ipv4Fragment(0, true).udp(1, 2).payload(8).build()), "Ethernet Ipv4 Udp");
  EXPECT_EQ(names(Ipv4::ip().ipv4Fragment(1, true).udp(1, 2).payload(8).build()), "Ethernet Ipv4 Payload");
  EXPECT_EQ(names(Ipv4::ip().ipv4Fragment(0x1fff, false).tcp(1, 2).build()), "Ethernet Ipv4 Payload");
  EXPECT_EQ(names(Ipv4::ip().ipv4Fragment(185, false).icmp().build()), "Ethernet Ipv4 Payload");
}

TEST(Ipv4Packet, DoNotFragmentIsNoFragment) {
  EXPECT_EQ(names(Ipv4::ip().ipv4Fragment(0x4000, false).tcp(1, 2).build()), "Ethernet Ipv4 Tcp");
}

TEST(Ipv4Packet, AFirstFragmentTooSmallForItsL4HeaderHasPayload) {
  const auto parsed = parse(Ipv4::ip().ipv4Fragment(0, true).protocol(6).payload(16).build());
  EXPECT_EQ(names(parsed), "Ethernet Ipv4 Payload");
  EXPECT_EQ(behindIp(parsed).length(), 16U);
}

TEST(Ipv4Packet, Ipv6OnlyProtocolsArePayload) {
  for (const std::uint8_t number : Numbers{0, 43, 44, 58, 60, 135}) {
    EXPECT_EQ(names(Ipv4::ip().protocol(number).payload(16).build()), "Ethernet Ipv4 Payload") << int{number};
  }
  EXPECT_EQ(names(Ipv4::ip().protocol(2).payload(8).build()), "Ethernet Ipv4 Igmp");
}

TEST(Ipv6Packet, TheFirstExtensionHeaderStandsBehindTheIpHeader) {
  const std::pair<std::uint8_t, const char*> known[] = {
      {0, "Ipv6HopByHop"}, {43, "Ipv6Routing"}, {60, "Ipv6DestinationOptions"}, {135, "Ipv6Mobility"}};
  for (const auto& [number, name] : known) {
    const auto parsed = parse(Ipv6::ip().ipv6Extension(number, 8).tcp(1, 2).build());
    EXPECT_EQ(names(parsed), std::string("Ethernet Ipv6 ") + name);
    EXPECT_EQ(behindIp(parsed).offset(), kEthernet + 40);
  }
  EXPECT_EQ(names(Ipv6::ip().ipv6Extension(0).ipv6Extension(43).udp(1, 2).build()),
            "Ethernet Ipv6 Ipv6HopByHop");
}

TEST(Ipv6Packet, AFragmentHeaderHidesWhatIsBehindIt) {
  EXPECT_EQ(names(Ipv6::ip().ipv6Fragment(0, true).udp(1, 2).build()), "Ethernet Ipv6 Ipv6Fragment");
  EXPECT_EQ(names(Ipv6::ip().ipv6Fragment(100, false).udp(1, 2).build()), "Ethernet Ipv6 Ipv6Fragment");
  EXPECT_EQ(names(Ipv6::ip().ipv6Fragment(0, false).tcp(1, 2).build()), "Ethernet Ipv6 Ipv6Fragment");
}

TEST(Ipv6Packet, AnExtensionHeaderThatIsCutShortIsPayload) {
  EXPECT_EQ(names(Ipv6::ip().ipv6Extension(0).cutTo(kEthernet + 47).build()), "Ethernet Ipv6 Payload");
  EXPECT_EQ(names(Ipv6::ip().ipv6Extension(0).cutTo(kEthernet + 48).build()), "Ethernet Ipv6 Ipv6HopByHop");
}

TEST(Ipv6Packet, AJumbogramShowsItsOption) {
  const auto parsed = parse(Ipv6::ip().ipv6Extension(0).tcp(1, 2).payload(70'000).lengthField(0).build());
  EXPECT_EQ(names(parsed), "Ethernet Ipv6 Ipv6HopByHop");
}

TEST(Ipv6Packet, Ipv4OnlyProtocolsArePayload) {
  EXPECT_EQ(names(Ipv6::ip().protocol(1).payload(16).build()), "Ethernet Ipv6 Payload");
  EXPECT_EQ(names(Ipv6::ip().protocol(2).payload(16).build()), "Ethernet Ipv6 Payload");
}

TEST(HeaderName, EveryNameHasItsText) {
  EXPECT_EQ(Pexa::stringValue(HeaderName::Ethernet), "Ethernet");
  EXPECT_EQ(Pexa::stringValue(HeaderName::Ipv6DestinationOptions), "Ipv6DestinationOptions");
  EXPECT_EQ(Pexa::stringValue(HeaderName::Sctp), "Sctp");
  EXPECT_EQ(Pexa::stringValue(HeaderName::Payload), "Payload");
}

}  // namespace

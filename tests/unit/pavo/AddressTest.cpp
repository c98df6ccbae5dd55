#include <gtest/gtest.h>

#include "PacketBuilder.h"
#include "Pavo.h"

namespace {

using Pavo::addressFromText;
using Pavo::Ip6Addr;
using Pavo::IpAddr;

TEST(Address, TextIsDottedQuadForIpv4) {
  EXPECT_EQ(Pavo::stringValue(IpAddr{{10, 0, 255, 1}}), "10.0.255.1");
  EXPECT_EQ(addressFromText<IpAddr>("10.0.255.1"), (IpAddr{{10, 0, 255, 1}}));
}

TEST(Address, TextIsTheShortestFormForIpv6) {
  Ip6Addr address;
  address.bytes[0] = 0x20;
  address.bytes[1] = 0x01;
  address.bytes[15] = 1;
  EXPECT_EQ(Pavo::stringValue(address), "2001::1");
  EXPECT_EQ(addressFromText<Ip6Addr>("2001:0:0::1"), address);
  EXPECT_EQ(Pavo::stringValue(Ip6Addr{}), "::");
}

template <class A>
class AddressText : public testing::Test {};
using Addresses = testing::Types<IpAddr, Ip6Addr>;
TYPED_TEST_SUITE(AddressText, Addresses);

TYPED_TEST(AddressText, RefusesWhatIsNoAddressOfTheFamily) {
  const std::string foreign = TypeParam::kBytes == 4 ? "::1" : "10.0.0.1";
  for (const std::string& text :
       {std::string(), std::string("10.0.0"), std::string("10.0.0.256"), std::string("::g"), foreign,
        std::string("10.0.0.1\0", 9), std::string("::1\0", 4), std::string(" ::1")}) {
    EXPECT_THROW(addressFromText<TypeParam>(text), Kiv::ValueError) << text;
  }
}

TYPED_TEST(AddressText, ErrorSaysWhatWasExpectedAndWhatWasGiven) {
  try {
    addressFromText<TypeParam>("nonsense");
    FAIL();
  } catch (const Kiv::ValueError& error) {
    const std::string family = TypeParam::kBytes == 4 ? "IPv4" : "IPv6";
    EXPECT_NE(std::string(error.what()).find(family), std::string::npos) << error.what();
    EXPECT_NE(std::string(error.what()).find("nonsense"), std::string::npos) << error.what();
  }
}

TYPED_TEST(AddressText, ReadsBackWhatItWrote) {
  TypeParam address;
  for (std::size_t i = 0; i < TypeParam::kBytes; ++i)
    address.bytes[i] = static_cast<std::uint8_t>(17 * i + 3);
  EXPECT_EQ(addressFromText<TypeParam>(Pavo::stringValue(address)), address);
  EXPECT_EQ(Kiv::ValueTraits<TypeParam>::fromValue(Kiv::ValueTraits<TypeParam>::toValue(address)), address);
}

TEST(IpProto, NamesKnownProtocolsAndNumbersTheRest) {
  EXPECT_EQ(Pavo::stringValue(Pavo::IpProto::ipProtoTcp), "ipProtoTcp");
  EXPECT_EQ(Pavo::stringValue(Pavo::IpProto::ipProtoUdp), "ipProtoUdp");
  EXPECT_EQ(Pavo::stringValue(Pavo::IpProto{47}), "ipProtoGre");
  EXPECT_EQ(Pavo::stringValue(Pavo::IpProto{253}), "253");
  EXPECT_EQ(Pavo::stringValue(Pavo::IpProto{4294967295U}), "4294967295");
}

TEST(IpProto, NamesEveryNamedNumberOnce) {
  unsigned named = 0;
  for (std::uint32_t number = 0; number < 256; ++number) {
    named += Pavo::stringValue(Pavo::IpProto{number}).starts_with("ipProto") ? 1 : 0;
  }
  EXPECT_EQ(named, 14U);
}

}  // namespace

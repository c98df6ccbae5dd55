// How values print in traces.
#include "SftPexa/DrovaPrint.h"

#include <gtest/gtest.h>

#include "HoFlowState.h"
#include "PexaSftHoCounter.h"

namespace SampledFlowTracker {
namespace {

using FlowTracking::HoFlowState;

TEST(DrovaPrintTest, AnOptionalPrintsItsValueOrNone) {
  EXPECT_EQ(drovaText(std::optional<std::uint32_t>(7)), "Optional( 7 )");
  EXPECT_EQ(drovaText(std::optional<std::uint32_t>()), "None");
  EXPECT_EQ(drovaText(std::optional(true)), "Optional( true )");
  EXPECT_EQ(drovaText(std::optional(HoFlowState::inHardware)), "Optional( 2 )");
  EXPECT_EQ(drovaText(std::optional<std::optional<bool>>(std::in_place)), "Optional( None )");
}

TEST(DrovaPrintTest, ATuplePrintsItsMembers) {
  EXPECT_EQ(drovaText(std::tuple(1U, true)), "Tuple( 1, true )");
  EXPECT_EQ(drovaText(std::tuple(std::optional(HoFlowState::overflow), 4294967295U, 1U)),
            "Tuple( Optional( 3 ), 4294967295, 1 )");
  EXPECT_EQ(drovaText(std::tuple(std::optional<bool>(), false)), "Tuple( None, false )");
  EXPECT_EQ(drovaText(std::tuple(std::tuple(1U), 2U)), "Tuple( Tuple( 1 ), 2 )");
  EXPECT_EQ(drovaText(std::optional(std::tuple(1U, true))), "Optional( Tuple( 1, true ) )");
}

TEST(DrovaPrintTest, ABoolPrintsAsAWordAndTheStreamIsLeftAsItWas) {
  EXPECT_EQ(drovaText(true), "true");
  EXPECT_EQ(drovaText(false), "false");
  std::ostringstream out;
  drovaPrint(out, true);
  out << ' ' << true;
  EXPECT_EQ(out.str(), "true 1");
}

TEST(DrovaPrintTest, UnsignedIntegersPrintInDecimal) {
  EXPECT_EQ(drovaText(std::uint8_t{65}), "65");
  EXPECT_EQ(drovaText(std::uint16_t{65535}), "65535");
  EXPECT_EQ(drovaText(std::uint32_t{4294967295U}), "4294967295");
  EXPECT_EQ(drovaText(std::uint64_t{18446744073709551615U}), "18446744073709551615");
}

TEST(DrovaPrintTest, KeysPrintTheirText) {
  const FlowTracking::HoIpFlowKey key;
  EXPECT_EQ(drovaText(key), key.str());
  EXPECT_EQ(drovaText(std::optional(key)), "Optional( " + key.str() + " )");
  EXPECT_EQ(drovaText(std::string_view("text")), "text");
}

TEST(DrovaPrintTest, APointerToALocalCounterPrintsTheCounter) {
  const FlowTracking::Ip6FlowKey key;
  const auto counter = Kiv::makePtr<Pexa::Counter::PexaSftHoIp6Counter>(key);
  const std::string text = "PexaSftHoIp6Counter( " + key.str() + ", , 0, 0, 0.000000 )";
  EXPECT_EQ(drovaText(*counter), text);
  EXPECT_EQ(drovaText(counter), text);
  EXPECT_EQ(drovaText(std::optional(counter)), "Optional( " + text + " )");
  EXPECT_EQ(drovaText(Kiv::Ptr<Pexa::Counter::PexaSftHoIp6Counter>()), "None");
}

}  // namespace
}  // namespace SampledFlowTracker

#include "capture/TraceFilters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PacketBuilder.h"
#include "capture/CaptureError.h"

namespace {

using Capture::CaptureError;
using Capture::TraceFilter;
using Capture::TraceFilters;
using testing::HasSubstr;
using TestSupport::PacketBuilder;

const auto kTcp = PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").tcp(1234, 80).payload(10).build();
const auto kUdp6 = PacketBuilder().ipv6("2001:db8::1", "2001:db8::2").udp(5000, 53).payload(10).build();

TEST(TraceFilter, MatchesWhatItsExpressionSays) {
  EXPECT_TRUE(TraceFilter("f", "tcp port 80").matches(kTcp.pkt()));
  EXPECT_FALSE(TraceFilter("f", "tcp port 80").matches(kUdp6.pkt()));
  EXPECT_TRUE(TraceFilter("f", "host 2001:db8::2 and udp").matches(kUdp6.pkt()));
  EXPECT_TRUE(TraceFilter("f", "host 10.0.0.1").matches(kTcp.pkt()));
}

TEST(TraceFilter, SeesTagsWhenItAsksForThem) {
  const auto tagged = PacketBuilder().vlan(7).ipv4("10.0.0.1", "10.0.0.2").tcp(1, 80).build();
  EXPECT_TRUE(TraceFilter("f", "vlan 7 and tcp port 80").matches(tagged.pkt()));
  EXPECT_FALSE(TraceFilter("f", "vlan 8").matches(tagged.pkt()));
}

TEST(TraceFilter, ReadsNothingBehindTheCapturedBytes) {
  for (std::size_t cut = 0; cut < kTcp.bytes.size(); ++cut) {
    const auto packet = PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").tcp(1234, 80).cutTo(cut).build();
    EXPECT_EQ(TraceFilter("f", "tcp port 80").matches(packet.pkt()), cut >= 38) << cut;
  }
}

TEST(TraceFilter, ABadExpressionIsRefusedByName) {
  try {
    const TraceFilter filter("web", "tcp prot 80");
    FAIL();
  } catch (const CaptureError& error) {
    EXPECT_THAT(error.what(), HasSubstr("trace filter web"));
    EXPECT_THAT(error.what(), HasSubstr("tcp prot 80"));
    EXPECT_THAT(error.what(), HasSubstr("syntax error"));
  }
  EXPECT_THROW(TraceFilter("f", "host no-such-host.invalid."), CaptureError);
}

TEST(TraceFilters, TheFirstOneThatMatchesNamesThePacket) {
  TraceFilters filters;
  EXPECT_TRUE(filters.empty());
  EXPECT_EQ(filters.match(kTcp.pkt()), "");
  filters.filterIs("web", "tcp port 80");
  filters.filterIs("all", "ip or ip6");
  EXPECT_EQ(filters.match(kTcp.pkt()), "web");
  EXPECT_EQ(filters.match(kUdp6.pkt()), "all");
}

TEST(TraceFilters, AFilterIsReplacedAndTakenOutByItsName) {
  TraceFilters filters;
  filters.filterIs("f", "tcp");
  filters.filterIs("f", "udp");
  ASSERT_EQ(filters.all().size(), 1U);
  EXPECT_EQ(filters.all()[0]->expression(), "udp");
  EXPECT_EQ(filters.match(kTcp.pkt()), "");
  EXPECT_EQ(filters.match(kUdp6.pkt()), "f");
  filters.filterIs("f", "");
  filters.filterIs("absent", "");
  EXPECT_TRUE(filters.empty());
}

TEST(TraceFilters, ABadExpressionChangesNothing) {
  TraceFilters filters;
  filters.filterIs("f", "tcp");
  EXPECT_THROW(filters.filterIs("f", "tcp and and"), CaptureError);
  EXPECT_EQ(filters.match(kTcp.pkt()), "f");
}

}  // namespace

// One record of a shared table, or none.
#include "TableLookup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HoFlowStatus.h"
#include "quell/TableFile.h"

namespace FlowTracking {
namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

class TableLookupTest : public ::testing::Test {
 protected:
  TableLookupTest() {
    Quell::attachAnonymous(map());
    map().corruptionHandlerIs([this](std::string_view text) { reports.emplace_back(text); });
  }
  static HoIpFlowKey key(std::uint16_t n) {
    HoIpFlowKey made;
    made.ipFlowKey.srcPort = n;
    return made;
  }
  HoFlowStatus::Map4& map() { return status->map<Pavo::Traits::IPv4>(); }
  HoIpFlowStatus store(std::uint16_t n) {
    HoIpFlowStatus record;
    record.key = key(n);
    record.creationTime = n;
    map().insert(record);
    return record;
  }
  Kiv::Ptr<HoFlowStatus> status = Kiv::makePtr<HoFlowStatus>("status");
  std::vector<std::string> reports;
};

TEST_F(TableLookupTest, GivesTheRecordUnderAKey) {
  const auto record = store(1);
  store(2);
  EXPECT_EQ(lookUp(map(), key(1)), record);
}

TEST_F(TableLookupTest, GivesNothingForAnAbsentKey) {
  store(1);
  EXPECT_FALSE(lookUp(map(), key(2)));
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(TableLookupTest, GivesNothingWithoutATable) {
  store(1);
  map().tableIs(nullptr);
  EXPECT_FALSE(lookUp(map(), key(1)));
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(TableLookupTest, ReportsADamagedRecordEachTimeAndGivesNothing) {
  store(1);
  auto* word = &map().table()->file()->slot(0)[8];
  word->store(word->load() ^ 0x100U);
  EXPECT_FALSE(lookUp(map(), key(1)));
  EXPECT_THAT(reports, SizeIs(1));
  EXPECT_FALSE(lookUp(map(), key(1)));
  EXPECT_THAT(reports, SizeIs(2));
  EXPECT_EQ(map().corruptions(), 2U);
  const auto record = store(1);
  EXPECT_EQ(lookUp(map(), key(1)), record) << "a store heals";
}

}  // namespace
}  // namespace FlowTracking

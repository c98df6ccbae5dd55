#include "top/TableSweep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "ManualClock.h"
#include "RecordTypes.h"
#include "TempDir.h"
#include "TopThings.h"
#include "quell/SharedTables.h"

namespace {

using namespace TopTest;
using namespace FlowTracking;
using testing::ElementsAre;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr auto kAtOnce = Clock::time_point::max();
constexpr auto kTooLate = Clock::time_point::min();

class TableSweepTest : public testing::Test {
 protected:
  void SetUp() override { recordTypesRegister(); }

  // Makes the tables, as an agent and a flow tracker do.
  void mountTables() {
    tables_ = Kiv::makePtr<Quell::SharedTables>("test", context_.runDir);
    wanted_ = mounted<HoFlowConfig>();
    status_ = mounted<HoFlowStatus>();
    counter_ = mounted<HoFlowCounter>();
    states_ = mounted<HosStateCounter>();
  }
  template <class Container>
  Kiv::Ptr<Container> mounted() {
    const auto found = tables_->doMount(Sft::tablePath<Container>(), Kiv::String(Container::kivType().name()),
                                        KivQuell::MountInfo(KivQuell::KivQuellType::written));
    return Kiv::Ptr<Container>(&dynamic_cast<Container&>(*found));
  }
  static std::vector<std::uint16_t> ports(std::initializer_list<std::uint16_t> all) { return all; }
  static HoIpFlowKey keyOf(std::uint16_t port) { return std::get<HoIpFlowKey>(four(port).key); }
  void want(std::uint16_t port) { wanted_->hoIpFlowConfigIs({.key = keyOf(port)}); }
  void admit(std::uint16_t port) {
    HoIpFlowStatus record;
    record.key = keyOf(port);
    record.state = HoFlowState::inHardware;
    status_->hoIpFlowStatusIs(record);
  }
  void count(std::uint16_t port, std::uint64_t packets) {
    HoIpFlowCounter record;
    record.key = keyOf(port).ipFlowKey;
    record.packets = packets;
    record.bytes = 100 * packets;
    record.creationTime = kNow;
    record.lastUpdateTime = clock_.now();
    counter_->hoIpFlowCounterIs(record);
  }
  TableLook look(const Selection& selection = {}) {
    sweep_.begin(selection);
    return *sweep_.goOn(kAtOnce);
  }

  TestSupport::ManualClock clock_{kNow};
  TestSupport::TempDir dir_;
  Sft::Context context_{.runDir = dir_.path()};
  Kiv::Ptr<Quell::SharedTables> tables_;
  Kiv::Ptr<HoFlowConfig> wanted_;
  Kiv::Ptr<HoFlowStatus> status_;
  Kiv::Ptr<HoFlowCounter> counter_;
  Kiv::Ptr<HosStateCounter> states_;
  TableSweep sweep_{context_};
};

TEST_F(TableSweepTest, WithoutTablesThereAreNoFlowsAndTablesThatComeAreSeen) {
  EXPECT_EQ(look().met, 0U);
  mountTables();
  want(1);
  const TableLook seen = look();
  EXPECT_EQ(seen.met, 1U);
  EXPECT_EQ(seen.problem, "");
  EXPECT_EQ(seen.rows.at(0).stands(), "waiting");
}

TEST_F(TableSweepTest, ReadsWhereFlowsStandAndTheirRates) {
  mountTables();
  for (const std::uint16_t port : ports({1, 2, 3})) want(port);
  for (const std::uint16_t port : ports({1, 2, 4})) admit(port);
  for (const std::uint16_t port : ports({1, 2, 4})) count(port, 100);
  states_->hosStateIpCounterIs({.key = HoFlowState::inHardware, .count = 3});
  states_->hosStateIp6CounterIs({.key = HoFlowState::overflow, .count = 9});
  look();
  clock_.advance(2);
  count(1, 120);
  count(2, 300);
  const TableLook seen = look();
  EXPECT_THAT(portsOf(seen.rows), ElementsAre(2, 1, 3, 4));
  EXPECT_EQ(seen.rows[0].rate, (Rate{100, 10000}));
  EXPECT_EQ(seen.rows[1].rate, (Rate{10, 1000}));
  EXPECT_EQ(seen.rows[2].stands(), "waiting");
  EXPECT_EQ(seen.rows[3].stands(), "unwanted");
  EXPECT_EQ(seen.families[0].inHardware, 3U);
  EXPECT_EQ(seen.families[1].overflow, 9U);
}

TEST_F(TableSweepTest, GoesOnWhereItStoppedWhileTheTablesGrow) {
  mountTables();
  for (std::uint16_t port = 1; port <= 500; ++port) want(port);
  sweep_.begin({});
  unsigned slices = 0;
  std::optional<TableLook> seen;
  while (!(seen = sweep_.goOn(kTooLate))) {
    ++slices;
    if (slices > 5) continue;
    for (unsigned port = 0; port < 1000; ++port) want(static_cast<std::uint16_t>(1000 * slices + port));
  }
  EXPECT_GE(slices, 7U);  // 64 flows each, when there is no time
  std::vector<std::uint16_t> ports = portsOf(seen->rows);
  std::sort(ports.begin(), ports.end());
  EXPECT_EQ(std::adjacent_find(ports.begin(), ports.end()), ports.end());
  for (std::uint16_t port = 1; port <= 500; ++port) EXPECT_EQ(ports[port - 1], port);
}

TEST_F(TableSweepTest, ADroppedLookIsBegunAnew) {
  mountTables();
  for (std::uint16_t port = 1; port <= 200; ++port) want(port);
  sweep_.begin({});
  EXPECT_FALSE(sweep_.goOn(kTooLate));
  EXPECT_EQ(look({.text = ":17 "}).rows.size(), 1U);
  EXPECT_FALSE(sweep_.running());
}

TEST_F(TableSweepTest, AFamilyThatIsOffIsNotRead) {
  mountTables();
  want(1);
  EXPECT_EQ(look({.ipv4 = false}).met, 0U);
}

TEST_F(TableSweepTest, ATableThatIsNoneIsSaidAndTheOthersAreShown) {
  mountTables();
  want(1);
  wanted_->hoIp6FlowConfigIs({.key = std::get<HoIp6FlowKey>(six(9).key)});
  const auto name =
      Quell::TablePlace{dir_.path(), Sft::tablePath<HoFlowStatus>(), "hoIpFlowStatus"}.fileName();
  std::ofstream(name, std::ios::trunc) << "no table";
  const TableLook seen = look();
  EXPECT_THAT(seen.problem, HasSubstr("hoIpFlowStatus"));
  EXPECT_EQ(seen.damages, 1U);
  EXPECT_THAT(portsOf(seen.rows), ElementsAre(9));
}

TEST_F(TableSweepTest, AFolderThatWasMadeAnewIsReadAnew) {
  mountTables();
  want(1);
  look();
  tables_ = {};
  wanted_ = {};
  status_ = {};
  counter_ = {};
  states_ = {};
  std::filesystem::remove_all(dir_.path());
  EXPECT_EQ(look().met, 0U);
  std::filesystem::create_directory(dir_.path());
  mountTables();
  want(2);
  EXPECT_THAT(portsOf(look().rows), ElementsAre(2));
}

}  // namespace

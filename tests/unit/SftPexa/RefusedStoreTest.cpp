// A table that does not take a store: counted, logged once, and everything else goes on.
#include "StateMachineFixture.h"
#include "TempDir.h"
#include "quell/TablePlace.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

// The lines of one trace handle.
class HandleLines : public Kiv::TraceSink {
 public:
  explicit HandleLines(std::string handle) : handle_(std::move(handle)), former_(Kiv::traceSinkIs(this)) {}
  ~HandleLines() override { Kiv::traceSinkIs(former_); }
  void write(const Kiv::TraceRecord& record) override {
    if (record.handle != handle_) return;
    texts.emplace_back(record.text);
    levels.push_back(record.level);
  }
  std::vector<std::string> texts;
  std::vector<unsigned> levels;

 private:
  std::string handle_;
  Kiv::TraceSink* former_;
};

template <class Domain>
class RefusedStoreTest : public StateMachineTest<Domain> {
 protected:
  // Puts the statuses into a file that can have another writer.
  void SetUp() override {
    own_ = tableOf(this->statuses());
    other_ = tableOf(this->statuses());
    this->statuses().tableIs(own_);
  }
  void somebodyElseWrites() {
    own_->writingDel();
    other_->writingIs();
  }
  void nobodyElseWrites() { other_->writingDel(); }

 private:
  std::shared_ptr<Quell::Table> tableOf(Quell::MapBase& map) const {
    Quell::TableFile::Creation creation;
    creation.type = &map.type();
    creation.containerType = map.owner().fwkType().name();
    return std::make_shared<Quell::Table>(Quell::TableFile::openOrCreate(
        {dir_.path(), "statuses", map.name()}, creation, Quell::TableFile::Access::read));
  }
  TestSupport::TempDir dir_;
  std::shared_ptr<Quell::Table> own_;
  std::shared_ptr<Quell::Table> other_;
};
TYPED_TEST_SUITE(RefusedStoreTest, Families);

TYPED_TEST(RefusedStoreTest, TheRestOfTheEventGoesOn) {
  this->budgetIs(0);
  this->start();
  this->somebodyElseWrites();
  this->want(this->key(1));
  EXPECT_EQ(this->sm->storesFailed(), 1U);
  EXPECT_EQ(this->outputs().status.storesFailed(), 1U);
  EXPECT_EQ(this->outputs().counter.storesFailed(), 0U);
  EXPECT_FALSE(this->statusOf(this->key(1)));
  EXPECT_THAT(this->waitingKeys(), ElementsAre(this->key(1)));
}

TYPED_TEST(RefusedStoreTest, OtherOffloadsAndOtherTablesGoOn) {
  this->start();
  this->want(this->key(1));
  this->somebodyElseWrites();
  this->want(this->key(2));
  this->nobodyElseWrites();
  this->want(this->key(3));
  EXPECT_EQ(this->sm->storesFailed(), 1U);
  EXPECT_EQ(this->stateOf(this->key(1)), kInHardware);
  EXPECT_FALSE(this->statusOf(this->key(2)));
  EXPECT_EQ(this->stateOf(this->key(3)), kInHardware);
  EXPECT_EQ(this->count(kInHardware), 2U);
  this->want(this->key(2), 1);
  EXPECT_EQ(this->stateOf(this->key(2)), kInHardware) << "made up for when it is next written";
}

TYPED_TEST(RefusedStoreTest, ADeletionThatIsRefusedIsCountedToo) {
  this->start();
  this->want(this->key(1));
  this->somebodyElseWrites();
  this->unwant(this->key(1));
  EXPECT_EQ(this->sm->storesFailed(), 1U);
  EXPECT_TRUE(this->statusOf(this->key(1)));
}

TYPED_TEST(RefusedStoreTest, AMessageIsLoggedOnceAndCountedEachTime) {
  this->start();
  this->somebodyElseWrites();
  HandleLines log("Pexa::Sft");
  this->wantMany(1, 5);
  EXPECT_EQ(this->sm->storesFailed(), 5U);
  EXPECT_EQ(Kiv::attribute(*this->sm, "storesFailed"), Kiv::Value(5U));
  ASSERT_THAT(log.texts, SizeIs(1));
  EXPECT_THAT(log.texts[0], HasSubstr("statuses"));
  EXPECT_THAT(log.levels, ElementsAre(0U));
}

TYPED_TEST(RefusedStoreTest, AReconciliationThatMayNotDeleteComesToItsEnd) {
  for (std::uint32_t n = 1; n <= 3; ++n) this->leaveStatus(this->key(n));
  this->somebodyElseWrites();
  this->start(TestFixture::kTasks);
  this->runAllInSlices();
  EXPECT_TRUE(this->sm->ready());
  EXPECT_EQ(this->sm->storesFailed(), 3U);
  EXPECT_EQ(this->statuses().size(), 3U);
}

TYPED_TEST(RefusedStoreTest, AScanWhoseStoresAreRefusedComesToItsEnd) {
  this->wantMany(1, 3);
  this->somebodyElseWrites();
  this->start();
  EXPECT_TRUE(this->sm->ready());
  EXPECT_EQ(this->sm->storesFailed(), 3U);
  EXPECT_EQ(this->count(kInHardware), std::nullopt);
}

TYPED_TEST(RefusedStoreTest, WithoutATableNothingStopsEither) {
  this->start();
  const auto table = this->counters().table();
  this->counters().tableIs(nullptr);
  this->want(this->key(1));
  EXPECT_EQ(this->sm->storesFailed(), 1U);
  EXPECT_EQ(this->stateOf(this->key(1)), kInHardware);
  EXPECT_EQ(this->count(kInHardware), 1U);
  this->counters().tableIs(table);
  this->want(this->key(2));
  EXPECT_TRUE(this->counterOf(this->flow(2)));
}

}  // namespace
}  // namespace SampledFlowTracker

// The overflow helper: the budget, the question whether it is used up, and the waiting flows.
#include "SftPexaHelper/SftPexaDrovaHelper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "quell/TableFile.h"

namespace SampledFlowTracker {
namespace {

using FlowTracking::HoFlowState;
using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr const char* kVariable = "MAX_HO_FLOW_ENTRIES";

// Sets the environment's budget while it lives; nothing: unset.
class BudgetVariable {
 public:
  explicit BudgetVariable(const std::optional<std::string>& value) {
    if (const char* former = std::getenv(kVariable)) former_ = former;
    is(value);
  }
  ~BudgetVariable() { is(former_); }
  BudgetVariable(const BudgetVariable&) = delete;
  BudgetVariable& operator=(const BudgetVariable&) = delete;

 private:
  static void is(const std::optional<std::string>& value) {
    if (value) {
      ::setenv(kVariable, value->c_str(), 1);
    } else {
      ::unsetenv(kVariable);
    }
  }
  std::optional<std::string> former_;
};

std::uint32_t budgetFor(const std::optional<std::string>& value) {
  const BudgetVariable variable(value);
  return sftPexaDrovaHelperFactory(nullptr)->maxInHardwareFlows();
}

TEST(DrovaHelperBudgetTest, IsReadFromTheEnvironment) {
  EXPECT_EQ(budgetFor(std::nullopt), 2048U);
  EXPECT_EQ(budgetFor("100"), 100U);
  EXPECT_EQ(budgetFor("0"), 0U);
  EXPECT_EQ(budgetFor("4294967295"), 4294967295U);
}

TEST(DrovaHelperBudgetTest, AnythingBehindTheNumberMeansTheDefault) {
  for (const char* value : {"100k", "100 ", "1e3", "0x10", "abc", " ", "-", "1.5"}) {
    EXPECT_EQ(budgetFor(value), 2048U) << value;
  }
}

TEST(DrovaHelperBudgetTest, AnEmptyValueIsZero) {
  EXPECT_EQ(budgetFor(""), 0U);
}

TEST(DrovaHelperBudgetTest, TheLow32BitsCount) {
  EXPECT_EQ(budgetFor("4294967296"), 0U);
  EXPECT_EQ(budgetFor("4294967396"), 100U);
  EXPECT_EQ(budgetFor("-1"), 4294967295U);
  EXPECT_EQ(budgetFor("99999999999999999999999"), 4294967295U) << "as strtoul has it";
}

TEST(DrovaHelperBudgetTest, BlanksSignsAndZerosAtTheFrontAreTakenAsStrtoulTakesThem) {
  EXPECT_EQ(budgetFor("  7"), 7U);
  EXPECT_EQ(budgetFor("+7"), 7U);
  EXPECT_EQ(budgetFor("010"), 10U) << "base 10";
}

TEST(DrovaHelperBudgetTest, IsReadOnce) {
  const BudgetVariable variable("100");
  const auto helper = sftPexaDrovaHelperFactory(nullptr);
  ::setenv(kVariable, "200", 1);
  EXPECT_EQ(helper->maxInHardwareFlows(), 100U);
  EXPECT_EQ(sftPexaDrovaHelperFactory(nullptr)->maxInHardwareFlows(), 200U);
}

TEST(DrovaHelperBudgetTest, CanBeReadAndWrittenByName) {
  const auto helper = sftPexaDrovaHelperFactory(nullptr);
  Kiv::attributeIs(*helper, "maxInHardwareFlows", Kiv::Value(5));
  EXPECT_EQ(helper->maxInHardwareFlows(), 5U);
  EXPECT_EQ(Kiv::attribute(*helper, "maxInHardwareFlows"), Kiv::Value(5U));
  EXPECT_THROW(Kiv::attributeIs(*helper, "maxInHardwareFlows", Kiv::Value(-1)), Kiv::ValueError);
  EXPECT_THROW(Kiv::attributeIs(*helper, "maxInHardwareFlows", Kiv::Value("many")), Kiv::ValueError);
  EXPECT_THROW(Kiv::attributeIs(*helper, "maxInHardwareFlows", Kiv::Value(std::uint64_t{1} << 32)),
               Kiv::ValueError);
  EXPECT_EQ(helper->maxInHardwareFlows(), 5U);
}

template <class Domain>
class DrovaHelperTest : public ::testing::Test {
 protected:
  using Key = FlowTracking::HoFlowKey<Domain>;
  static constexpr bool kV4 = FlowTracking::IpFamily<Domain>::kIndex == 0;
  using Other = std::conditional_t<kV4, Pavo::Traits::IPv6, Pavo::Traits::IPv4>;

  DrovaHelperTest() {
    for (Quell::MapBase* map : counters->collections()) Quell::attachAnonymous(*map);
  }
  template <class Family = Domain>
  void countIs(HoFlowState state, std::uint32_t flows) {
    FlowTracking::HosStateCounterEntry entry;
    entry.key = state;
    entry.count = flows;
    counters->map<Family>().insert(entry);
  }
  bool out() const { return kV4 ? helper->outOfResources() : helper->outOfIpv6Resources(); }
  bool otherOut() const { return kV4 ? helper->outOfIpv6Resources() : helper->outOfResources(); }
  static Key key(std::uint16_t n) {
    Key made;
    made.ipFlowKey.srcPort = n;
    made.intfId = Pavo::IntfId("Ethernet1");
    return made;
  }
  // The named operations of the family.
  void is(const Key& each) {
    if constexpr (kV4) {
      helper->overflowEntriesIs(each);
    } else {
      helper->overflow6EntriesIs(each);
    }
  }
  void del(const Key& each) {
    if constexpr (kV4) {
      helper->overflowEntriesDel(each);
    } else {
      helper->overflow6EntriesDel(each);
    }
  }
  void delAll() { kV4 ? helper->overflowEntriesDelAll() : helper->overflow6EntriesDelAll(); }
  bool has(const Key& each) const {
    if constexpr (kV4) {
      return helper->overflowEntriesHas(each);
    } else {
      return helper->overflow6EntriesHas(each);
    }
  }
  const OverflowSet<Domain>& set() const { return std::as_const(*helper).template overflow<Domain>(); }

  const BudgetVariable variable{std::nullopt};
  Kiv::Ptr<FlowTracking::HosStateCounter> counters = Kiv::makePtr<FlowTracking::HosStateCounter>("states");
  Kiv::Ptr<SftPexaDrovaHelper> helper = sftPexaDrovaHelperFactory(counters);
};
using Families = ::testing::Types<Pavo::Traits::IPv4, Pavo::Traits::IPv6>;
TYPED_TEST_SUITE(DrovaHelperTest, Families);

TYPED_TEST(DrovaHelperTest, WithoutACountThereIsRoomUnlessTheBudgetIsZero) {
  EXPECT_FALSE(this->out());
  this->helper->maxInHardwareFlowsIs(0);
  EXPECT_TRUE(this->out());
  EXPECT_TRUE(this->otherOut());
  this->countIs(HoFlowState::inHardware, 0);
  EXPECT_TRUE(this->out());
}

TYPED_TEST(DrovaHelperTest, TheBudgetIsUsedUpWhenAsManyFlowsAreInHardware) {
  this->countIs(HoFlowState::inHardware, 2047);
  EXPECT_FALSE(this->out());
  this->countIs(HoFlowState::inHardware, 2048);
  EXPECT_TRUE(this->out());
  this->countIs(HoFlowState::inHardware, 2049);
  EXPECT_TRUE(this->out());
  EXPECT_FALSE(this->otherOut()) << "the other family has a count of its own";
  this->template countIs<typename TestFixture::Other>(HoFlowState::inHardware, 2048);
  EXPECT_TRUE(this->otherOut());
}

TYPED_TEST(DrovaHelperTest, CountsAreComparedWithoutASign) {
  this->countIs(HoFlowState::inHardware, 4294967295U);
  EXPECT_TRUE(this->out());
  this->helper->maxInHardwareFlowsIs(4294967295U);
  EXPECT_TRUE(this->out());
  this->countIs(HoFlowState::inHardware, 4294967294U);
  EXPECT_FALSE(this->out());
}

TYPED_TEST(DrovaHelperTest, OnlyFlowsInHardwareCount) {
  this->countIs(HoFlowState::overflow, 5000);
  this->countIs(HoFlowState::pending, 5000);
  this->countIs(HoFlowState::none, 5000);
  EXPECT_FALSE(this->out());
}

TYPED_TEST(DrovaHelperTest, AnotherBudgetTakesEffectWithTheNextQuestion) {
  this->countIs(HoFlowState::inHardware, 10);
  this->helper->maxInHardwareFlowsIs(10);
  EXPECT_TRUE(this->out());
  this->helper->maxInHardwareFlowsIs(11);
  EXPECT_FALSE(this->out());
}

TYPED_TEST(DrovaHelperTest, ADamagedCountIsReportedAndCountsAsNone) {
  this->countIs(HoFlowState::inHardware, 5000);
  auto& map = this->counters->template map<TypeParam>();
  const auto& file = map.table()->file();
  for (std::uint64_t slot = 0; slot < file->slotsInFile(); ++slot) {
    auto* words = file->slot(slot);
    if (words[1].load() != 0) words[1].store(words[1].load() ^ 1ULL << 40);
  }
  std::vector<std::string> reports;
  map.corruptionHandlerIs([&](std::string_view text) { reports.emplace_back(text); });
  EXPECT_FALSE(this->out());
  EXPECT_THAT(reports, SizeIs(1));
  this->helper->maxInHardwareFlowsIs(0);
  EXPECT_TRUE(this->out());
}

TYPED_TEST(DrovaHelperTest, WithoutCountsNoFlowIsInHardware) {
  this->helper = sftPexaDrovaHelperFactory(nullptr);
  EXPECT_FALSE(this->out());
  this->helper->maxInHardwareFlowsIs(0);
  EXPECT_TRUE(this->out());
}

TYPED_TEST(DrovaHelperTest, CanBeAskedByName) {
  const char* question = TestFixture::kV4 ? "outOfResources" : "outOfIpv6Resources";
  EXPECT_EQ(Kiv::invoke(*this->helper, question, {}), Kiv::Value(false));
  this->countIs(HoFlowState::inHardware, 2048);
  EXPECT_EQ(Kiv::invoke(*this->helper, question, {}), Kiv::Value(true));
}

TYPED_TEST(DrovaHelperTest, AWaitingFlowIsInTheSetOnce) {
  EXPECT_TRUE(this->set().empty());
  this->is(this->key(1));
  this->is(this->key(1));
  this->is(this->key(2));
  EXPECT_EQ(this->set().size(), 2U);
  EXPECT_TRUE(this->has(this->key(1)));
  EXPECT_FALSE(this->has(this->key(3)));
}

TYPED_TEST(DrovaHelperTest, WaitingFlowsCanBeTakenOut) {
  for (std::uint16_t n = 1; n <= 3; ++n) this->is(this->key(n));
  this->del(this->key(2));
  this->del(this->key(9));
  EXPECT_EQ(this->set().size(), 2U);
  EXPECT_FALSE(this->has(this->key(2)));
  this->delAll();
  EXPECT_TRUE(this->set().empty());
  this->delAll();
}

TYPED_TEST(DrovaHelperTest, TheSetsOfTheFamiliesAreTheirOwn) {
  this->is(this->key(1));
  EXPECT_EQ(this->helper->overflowEntries().size() + this->helper->overflow6Entries().size(), 1U);
}

TYPED_TEST(DrovaHelperTest, AWalkBearsTheDeletionOfTheCurrentEntry) {
  for (std::uint16_t n = 1; n <= 20; ++n) this->is(this->key(n));
  unsigned met = 0;
  for (const auto* entry = this->set().first(); entry != nullptr; ++met) {
    const auto key = entry->key;
    this->del(key);
    entry = this->set().after(key);
  }
  EXPECT_EQ(met, 20U);
  EXPECT_TRUE(this->set().empty());
}

TYPED_TEST(DrovaHelperTest, WaitingFlowsCanBeSeenByName) {
  const char* name = TestFixture::kV4 ? "overflowEntries" : "overflow6Entries";
  EXPECT_EQ(Kiv::attribute(*this->helper, name), Kiv::Value(Kiv::Value::List{}));
  this->is(this->key(1));
  EXPECT_EQ(Kiv::attribute(*this->helper, name), Kiv::Value(Kiv::Value::List{this->key(1).str()}));
}

TYPED_TEST(DrovaHelperTest, WaitingFlowsCanBeWalkedByName) {
  const std::string name = TestFixture::kV4 ? "overflowEntries" : "overflow6Entries";
  const auto ask = [&](const std::string& what, const std::string& key) {
    return Kiv::invoke(*this->helper, name + what, {{"key", Kiv::Value(key)}});
  };
  for (std::uint16_t n = 1; n <= 5; ++n) this->is(this->key(n));
  std::vector<std::string> walked;
  for (std::string at = ask("After", "").text(); !at.empty(); at = ask("After", at).text()) {
    walked.push_back(at);
    EXPECT_EQ(ask("Has", at), Kiv::Value(true));
  }
  std::vector<std::string> expected;
  for (const auto* entry = this->set().first(); entry != nullptr; entry = this->set().after(entry->key)) {
    expected.push_back(entry->key.str());
  }
  EXPECT_EQ(walked, expected);
  EXPECT_EQ(ask("Has", this->key(6).str()), Kiv::Value(false));
  EXPECT_THROW(ask("Has", "no key"), Kiv::ValueError);
  EXPECT_THROW(ask("After", "no key"), Kiv::ValueError);
}

TEST(DrovaHelperEntityTest, ListsItsAttributesInTheirOrder) {
  std::vector<std::string> names;
  for (const auto* attribute : SftPexaDrovaHelper::kivType().attributes()) names.push_back(attribute->name);
  EXPECT_THAT(names,
              ElementsAre("hosStateCounter", "maxInHardwareFlows", "overflowEntries", "overflow6Entries"));
}

TEST(DrovaHelperEntityTest, IsMadeWithItsCountsItsNotificationsActiveAndNobodyWaiting) {
  const auto counters = Kiv::makePtr<FlowTracking::HosStateCounter>("states");
  for (const auto& helper :
       {sftPexaDrovaHelperFactory(counters), SftPexaDrovaHelper::SftPexaDrovaHelperIs(counters)}) {
    EXPECT_EQ(helper->hosStateCounter(), counters);
    EXPECT_TRUE(helper->hasNotificationActive());
    EXPECT_TRUE(helper->overflowEntries().empty());
    EXPECT_TRUE(helper->overflow6Entries().empty());
  }
  EXPECT_EQ(counters->references(), 1U);
}

// Whoever is told of damage may drop the helper's counts, and the helper.
TEST(DrovaHelperEntityTest, TheCountsLiveAsLongAsAQuestionLasts) {
  auto counters = Kiv::makePtr<FlowTracking::HosStateCounter>("states");
  auto& map = counters->map<Pavo::Traits::IPv4>();
  Quell::attachAnonymous(map);
  FlowTracking::HosStateCounterEntry entry;
  entry.key = HoFlowState::inHardware;
  entry.count = 5000;
  map.insert(entry);
  auto* word = &map.table()->file()->slot(0)[1];
  word->store(word->load() ^ 1ULL << 40);
  auto helper = sftPexaDrovaHelperFactory(counters);
  const auto table = map.table();
  counters.reset();
  bool told = false;
  map.corruptionHandlerIs([&](std::string_view) { told = true; });
  EXPECT_FALSE(helper->outOfResources());
  EXPECT_TRUE(told);
}

}  // namespace
}  // namespace SampledFlowTracker

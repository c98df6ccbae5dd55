#include "PexaSftHoCounterCollection.h"

#include <gtest/gtest.h>

#include <set>

#include "Keys.h"
#include "ManualClock.h"
#include "RecordValues.h"

namespace {

using LocalCountersTest::flow;
using Pavo::IntfId;
using Pexa::Counter::PexaSftHoCounterCollection;
using Pexa::Counter::pexaSftHoCounterCollectionFactory;

// Remembers the removals that it was told of.
template <class Domain>
class RemovalWatcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttributeKey(Kiv::AttributeId attribute, Kiv::KeyRef key) override {
    attributes.insert(attribute);
    keys.push_back(key.as<FlowTracking::FlowKey<Domain>>());
  }
  std::set<Kiv::AttributeId> attributes;
  std::vector<FlowTracking::FlowKey<Domain>> keys;
};

template <class Domain>
class CollectionTest : public testing::Test {
 protected:
  using Other =
      std::conditional_t<FlowTracking::IpFamily<Domain>::kIndex == 0, Pavo::Traits::IPv6, Pavo::Traits::IPv4>;
  static constexpr Kiv::AttributeId kAttribute = FlowTracking::IpFamily<Domain>::kIndex + 1;

  CollectionTest() {
    watcher->notifierIs(collection);
    watcher->hasNotificationActiveIs(true);
  }
  Kiv::Ptr<PexaSftHoCounterCollection> collection = pexaSftHoCounterCollectionFactory("SftHardwareOffload");
  Kiv::Ptr<RemovalWatcher<Domain>> watcher = Kiv::makePtr<RemovalWatcher<Domain>>();
};
TYPED_TEST_SUITE(CollectionTest, LocalCountersTest::Families);

TYPED_TEST(CollectionTest, TheSameKeyGivesTheSameRecord) {
  const auto first = this->collection->counterIs(flow<TypeParam>(1));
  EXPECT_EQ(first->flowKey(), flow<TypeParam>(1));
  EXPECT_TRUE(first->hasNotificationActive());
  EXPECT_EQ(this->collection->counterIs(flow<TypeParam>(1)), first);
  EXPECT_NE(this->collection->counterIs(flow<TypeParam>(2)), first);
  EXPECT_EQ(this->collection->template counters<TypeParam>().size(), 2U);
  EXPECT_EQ(this->collection->template counters<typename TestFixture::Other>().size(), 0U);
}

TYPED_TEST(CollectionTest, IsWalkedAndEmptiedByTheKeysTexts) {
  const Kiv::String prefix = TestFixture::kAttribute == 1 ? "counterCollection" : "counterIp6Collection";
  const auto call = [&](const char* what, const Kiv::String& key) {
    return Kiv::invoke(*this->collection, prefix + what, {{"key", key}});
  };
  const auto after = [&](const Kiv::String& key) {
    return Kiv::ValueTraits<Kiv::String>::fromValue(call("After", key));
  };
  for (const std::uint16_t port : {std::uint16_t{1}, std::uint16_t{2}, std::uint16_t{3}})
    this->collection->counterIs(flow<TypeParam>(port));
  std::set<Kiv::String> met;
  for (Kiv::String at = after(""); !at.empty(); at = after(at)) EXPECT_TRUE(met.insert(at).second) << at;
  EXPECT_EQ(met, (std::set{flow<TypeParam>(1).str(), flow<TypeParam>(2).str(), flow<TypeParam>(3).str()}));
  EXPECT_EQ(call("Drop", flow<TypeParam>(2).str()), Kiv::Value(true));
  EXPECT_EQ(call("Drop", flow<TypeParam>(2).str()), Kiv::Value(false));
  EXPECT_EQ(this->watcher->keys, std::vector{flow<TypeParam>(2)});
  EXPECT_EQ(this->collection->template counters<TypeParam>().size(), 2U);
  EXPECT_THROW(call("Drop", "no key"), Kiv::ValueError);
  EXPECT_THROW(call("After", "no key"), Kiv::ValueError);
}

TYPED_TEST(CollectionTest, RemovingTellsTheKeyAndGivesTheRecord) {
  const auto record = this->collection->counterIs(flow<TypeParam>(1));
  this->collection->counterIs(flow<TypeParam>(2));
  EXPECT_EQ(this->collection->counterDel(flow<TypeParam>(1)), record);
  EXPECT_EQ(this->watcher->keys, std::vector{flow<TypeParam>(1)});
  EXPECT_EQ(this->watcher->attributes, std::set{TestFixture::kAttribute});
  EXPECT_FALSE(this->collection->template counters<TypeParam>().has(flow<TypeParam>(1)));
  EXPECT_TRUE(this->collection->template counters<TypeParam>().has(flow<TypeParam>(2)));
}

TYPED_TEST(CollectionTest, RemovingAnAbsentKeyGivesNullAndTellsNobody) {
  EXPECT_FALSE(this->collection->counterDel(flow<TypeParam>(1)));
  EXPECT_TRUE(this->watcher->keys.empty());
}

TYPED_TEST(CollectionTest, RemovingAllTellsEachKeyAndLeavesTheOtherFamily) {
  std::set<FlowTracking::FlowKey<TypeParam>> expected;
  for (std::uint16_t port = 1; port <= 100; ++port) {
    this->collection->counterIs(flow<TypeParam>(port));
    expected.insert(flow<TypeParam>(port));
  }
  this->collection->counterIs(flow<typename TestFixture::Other>(1));
  this->collection->template counterDelAll<TypeParam>();
  EXPECT_TRUE(this->collection->template counters<TypeParam>().empty());
  EXPECT_EQ(this->watcher->keys.size(), 100U);
  EXPECT_EQ(std::set(this->watcher->keys.begin(), this->watcher->keys.end()), expected);
  EXPECT_EQ(this->collection->template counters<typename TestFixture::Other>().size(), 1U);
}

TYPED_TEST(CollectionTest, ARecordOutlivesItsRemovalWhileItIsHeld) {
  const auto held = this->collection->counterIs(flow<TypeParam>(1));
  this->collection->template counterDelAll<TypeParam>();
  held->hoCount(IntfId("Ethernet1"), 60);
  EXPECT_EQ(held->packets(), 1U);
  EXPECT_NE(this->collection->counterIs(flow<TypeParam>(1)), held);
}

TYPED_TEST(CollectionTest, IsWalkedInOneOrderWhateverGoesMeanwhile) {
  for (std::uint16_t port = 1; port <= 50; ++port) this->collection->counterIs(flow<TypeParam>(port));
  const auto& counters = this->collection->template counters<TypeParam>();
  std::set<std::uint16_t> met;
  FlowTracking::FlowKey<TypeParam> key;
  for (const auto* entry = counters.first(); entry != nullptr; entry = counters.after(key)) {
    key = entry->key();
    EXPECT_EQ(entry->value->flowKey(), key);
    EXPECT_TRUE(met.insert(key.srcPort).second);
    this->collection->counterDel(key);
  }
  EXPECT_EQ(met.size(), 50U);
}

TEST(Collection, NamedOperationsGoToTheirFamily) {
  const auto collection = PexaSftHoCounterCollection::PexaSftHoCounterCollectionIs("SftHardwareOffload");
  EXPECT_EQ(collection->name(), "SftHardwareOffload");
  EXPECT_TRUE(collection->hasNotificationActive());
  const auto record = collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(1));
  const auto record6 = collection->counterIp6CollectionIs(flow<Pavo::Traits::IPv6>(1));
  EXPECT_EQ(collection->counterCollection().find(flow<Pavo::Traits::IPv4>(1))->value, record);
  EXPECT_EQ(collection->counterIp6Collection().find(flow<Pavo::Traits::IPv6>(1))->value, record6);
  collection->counterCollectionDelAll();
  EXPECT_TRUE(collection->counterCollection().empty());
  EXPECT_EQ(collection->counterIp6CollectionDel(flow<Pavo::Traits::IPv6>(1)), record6);
  EXPECT_FALSE(collection->counterCollectionDel(flow<Pavo::Traits::IPv4>(1)));
  collection->counterIp6CollectionIs(flow<Pavo::Traits::IPv6>(2));
  collection->counterIp6CollectionDelAll();
  EXPECT_TRUE(collection->counterIp6Collection().empty());
}

TEST(Collection, IsBuiltByNameFromItsName) {
  const Kiv::Type* type = Kiv::typeByName("Pexa::Counter::PexaSftHoCounterCollection");
  ASSERT_NE(type, nullptr);
  const auto built = Kiv::ptrCast<PexaSftHoCounterCollection>(type->construct({Kiv::Value("local")}));
  ASSERT_TRUE(built);
  EXPECT_EQ(built->name(), "local");
  EXPECT_EQ(&built->fwkType(), type);
}

// Also in the same bit of two words: a sum that takes one of them by xor alone would let a peer aim.
TYPED_TEST(CollectionTest, KeysThatDifferInABitOrTwoHaveOtherHashes) {
  constexpr std::size_t kWords = sizeof(flow<TypeParam>(1)) / 8;
  const Pexa::Counter::FlowKeyHash hash;
  std::set<std::uint64_t> hashes;
  for (std::size_t bit = 0; bit < 64; ++bit) {
    for (std::size_t first = 0; first < kWords; ++first) {
      for (std::size_t second = first; second < kWords; ++second) {
        auto key = flow<TypeParam>(1);
        auto* const bytes = reinterpret_cast<unsigned char*>(&key) + bit / 8;
        bytes[8 * first] ^= static_cast<unsigned char>(1U << bit % 8);
        if (second != first) bytes[8 * second] ^= static_cast<unsigned char>(1U << bit % 8);
        EXPECT_TRUE(hashes.insert(hash(key)).second) << bit << ' ' << first << ' ' << second;
      }
    }
  }
}

TEST(Collection, RecordsShowsBothFamiliesIpv4First) {
  TestSupport::ManualClock clock(100.5);
  const auto collection = pexaSftHoCounterCollectionFactory("SftHardwareOffload");
  EXPECT_TRUE(collection->records().empty());
  collection->counterIp6CollectionIs(flow<Pavo::Traits::IPv6>(2))->hoCount(IntfId("Ethernet2"), 40);
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(1))->hoCount(IntfId("Ethernet1"), 60);
  const auto records = collection->records();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0],
            Kiv::Value(Kiv::Value::Object{
                {"key", Kiv::ValueTraits<FlowTracking::IpFlowKey>::toValue(flow<Pavo::Traits::IPv4>(1))},
                {"packets", 1},
                {"bytes", 60},
                {"intfId", "Ethernet1"},
                {"updateTime", 100.5}}));
  EXPECT_EQ(*records[1].member("key"),
            Kiv::ValueTraits<FlowTracking::Ip6FlowKey>::toValue(flow<Pavo::Traits::IPv6>(2)));
  EXPECT_EQ(*records[1].member("bytes"), Kiv::Value(40));
}

}  // namespace

// What the audit reaches by name in the tracker's entities: it walks and drops as their own operations do.
#include "AuditFixture.h"

namespace SampledFlowTracker {
namespace {

template <class Domain>
class TrackerNamesTest : public ::testing::Test {
 protected:
  static Kiv::Value call(Kiv::PtrInterface& object, std::string_view handler, const Kiv::String& key) {
    return Kiv::invoke(object, handler, {{"key", key}});
  }
  // All keys that a walk by name meets.
  static std::vector<Kiv::String> walk(Kiv::PtrInterface& object, std::string_view handler) {
    std::vector<Kiv::String> met;
    Kiv::String place;
    for (;;) {
      place = Kiv::ValueTraits<Kiv::String>::fromValue(call(object, handler, place));
      if (place.empty()) return met;
      met.push_back(place);
    }
  }
};
TYPED_TEST_SUITE(TrackerNamesTest, Families);

TYPED_TEST(TrackerNamesTest, WalkTheOverflowEntriesInTheirOrder) {
  using Names = TrackerNames<TypeParam>;
  const auto helper = Kiv::makePtr<SftPexaDrovaHelper>(nullptr);
  auto& set = helper->template overflow<TypeParam>();
  EXPECT_TRUE(this->walk(*helper, Names::kOverflowAfter).empty());
  for (std::uint32_t number = 0; number < 50; ++number) set.insert(keyOf<TypeParam>(number));
  std::vector<Kiv::String> expected;
  for (const auto* entry = set.first(); entry != nullptr; entry = set.after(entry->key)) {
    expected.push_back(entry->key.str());
  }
  EXPECT_EQ(this->walk(*helper, Names::kOverflowAfter), expected);

  const Kiv::String key = keyOf<TypeParam>(7).str();
  const Kiv::Value behind = this->call(*helper, Names::kOverflowAfter, key);
  EXPECT_EQ(this->call(*helper, Names::kOverflowHas, key), Kiv::Value(true));
  set.erase(keyOf<TypeParam>(7));
  EXPECT_EQ(this->call(*helper, Names::kOverflowHas, key), Kiv::Value(false));
  EXPECT_EQ(this->call(*helper, Names::kOverflowAfter, key), behind) << "behind a key that is not in";
  EXPECT_THROW(this->call(*helper, Names::kOverflowHas, "no key"), Kiv::ValueError);
}

TYPED_TEST(TrackerNamesTest, WalkAndDropTheLocalCounters) {
  using Names = TrackerNames<TypeParam>;
  using Collection = Pexa::Counter::PexaSftHoCounterCollection;
  const auto collection = Collection::PexaSftHoCounterCollectionIs("SftHardwareOffload");
  for (std::uint32_t number = 0; number < 50; ++number) collection->counterIs(flowOf<TypeParam>(number));
  std::vector<Kiv::String> expected;
  const auto& map = std::as_const(*collection).template counters<TypeParam>();
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry)) {
    expected.push_back(entry->key().str());
  }
  EXPECT_EQ(this->walk(*collection, Names::kLocalAfter), expected);

  const Kiv::String key = flowOf<TypeParam>(7).str();
  EXPECT_EQ(this->call(*collection, Names::kLocalDrop, key), Kiv::Value(true));
  EXPECT_EQ(this->call(*collection, Names::kLocalDrop, key), Kiv::Value(false));
  EXPECT_EQ(map.size(), 49U);
  EXPECT_THROW(this->call(*collection, Names::kLocalAfter, "no key"), Kiv::ValueError);
}

}  // namespace
}  // namespace SampledFlowTracker

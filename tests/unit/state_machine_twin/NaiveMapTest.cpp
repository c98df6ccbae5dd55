// The naive maps against the real ones: the order of their walks, and what damage makes of them.
#include <gtest/gtest.h>

#include "NaiveSubject.h"
#include "NaiveTwin.h"

using namespace Naive;

namespace {

template <class Domain>
class WalkOrder : public testing::Test {
 protected:
  using Config = typename Tables<Domain>::Config;
  using Key = FlowTracking::HoFlowKey<Domain>;

  // Keys of the map as a walk meets them, up to its end or the first damage.
  template <class NaiveMap>
  static std::vector<Key> walk(const NaiveMap& map) {
    std::vector<Key> keys;
    for (auto at = map.first(); at; at = map.after(*at)) keys.push_back(*at);
    return keys;
  }
  std::vector<Key> walkReal() const {
    std::vector<Key> keys;
    const auto& map = subject.config->map<Domain>();
    try {
      Config record;
      for (bool more = map.first(record); more; more = map.after(record.key, record))
        keys.push_back(record.key);
    } catch (const Fenn::CorruptionDetectedException&) {
    }
    return keys;
  }

  Subject subject;
  Map<Key, Config, SharedTableOrder> naive;
};

using Families = testing::Types<V4, V6>;
TYPED_TEST_SUITE(WalkOrder, Families);

}  // namespace

TYPED_TEST(WalkOrder, IsThatOfASharedTable) {
  for (unsigned i = 0; i < kKeys; ++i) {
    typename TestFixture::Config config;
    config.key = keyOf<TypeParam>(i);
    this->subject.config->template map<TypeParam>().insert(config);
    this->naive.put(config.key, config);
  }
  EXPECT_EQ(this->walk(this->naive).size(), kKeys);
  EXPECT_EQ(this->walk(this->naive), this->walkReal());
}

TYPED_TEST(WalkOrder, EndsAtDamageAsThatOfASharedTable) {
  for (unsigned i = 0; i < kKeys; ++i) {
    typename TestFixture::Config config;
    config.key = keyOf<TypeParam>(i);
    this->subject.config->template map<TypeParam>().insert(config);
    this->naive.put(config.key, config);
  }
  const auto order = this->walk(this->naive);
  for (auto last = order.rbegin(); last != order.rend(); ++last) {
    damageRecord(this->subject.config->template map<TypeParam>(), *last);
    this->naive.damage(*last);
    EXPECT_EQ(this->walk(this->naive), this->walkReal());
    EXPECT_LT(this->walk(this->naive).size(), order.size());
    EXPECT_FALSE(this->naive.get(*last).has_value());
    typename TestFixture::Config record;
    EXPECT_THROW(this->subject.config->template map<TypeParam>().find(*last, record),
                 Fenn::CorruptionDetectedException);
  }
}

TYPED_TEST(WalkOrder, IsThatOfTheWaitingFlows) {
  SampledFlowTracker::OverflowSet<TypeParam>& set = this->subject.helper().template overflow<TypeParam>();
  Map<typename TestFixture::Key, std::monostate, EntityMapOrder> expected;
  for (unsigned i = 0; i < kKeys; ++i) {
    set.insert(keyOf<TypeParam>(i));
    expected.put(keyOf<TypeParam>(i), {});
  }
  std::vector<typename TestFixture::Key> keys;
  for (const auto* at = set.first(); at != nullptr; at = set.after(at->key)) keys.push_back(at->key);
  EXPECT_EQ(keys.size(), kKeys);
  EXPECT_EQ(this->walk(expected), keys);
}

TYPED_TEST(WalkOrder, IsThatOfTheLocalCounters) {
  using Flow = FlowTracking::FlowKey<TypeParam>;
  Map<Flow, LocalCount, EntityMapOrder> expected;
  for (unsigned i = 0; i < kFlows; ++i) {
    this->subject.template countPacket<TypeParam>(flowOf<TypeParam>(i), interfaceOf(0), 1);
    expected.put(flowOf<TypeParam>(i), {});
  }
  std::vector<Flow> real;
  const auto& counters = this->subject.counters().template counters<TypeParam>();
  for (const auto* at = counters.first(); at != nullptr; at = counters.after(at)) real.push_back(at->key());
  std::vector<Flow> met;
  for (auto at = expected.first(); at; at = expected.after(*at)) met.push_back(*at);
  EXPECT_EQ(real.size(), kFlows);
  EXPECT_EQ(met, real);
}

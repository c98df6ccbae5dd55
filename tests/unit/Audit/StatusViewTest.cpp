// What the audit knows of the statuses, and the map that it keeps them in.
#include "StatusView.h"

#include <gtest/gtest.h>

#include "AuditFixture.h"

namespace SampledFlowTracker {
namespace {

template <class Domain>
class StatusViewTest : public ::testing::Test {
 protected:
  StatusView<Domain> view;
};
TYPED_TEST_SUITE(StatusViewTest, Families);

TYPED_TEST(StatusViewTest, KnowsNothingAtFirst) {
  EXPECT_EQ(this->view.size(), 0U);
  EXPECT_EQ(this->view.count(HoFlowState::inHardware), 0U);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(1)), 0U);
}

TYPED_TEST(StatusViewTest, WhatWasToldLastOfAKeyHolds) {
  const auto key = keyOf<TypeParam>(1);
  this->view.statusIs(key, HoFlowState::overflow);
  this->view.statusIs(key, HoFlowState::inHardware);
  this->view.statusIs(key, HoFlowState::inHardware);
  EXPECT_EQ(this->view.size(), 1U);
  EXPECT_EQ(this->view.count(HoFlowState::overflow), 0U);
  EXPECT_EQ(this->view.count(HoFlowState::inHardware), 1U);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(1)), 1U);
  this->view.statusIs(key, std::nullopt);
  this->view.statusIs(key, std::nullopt);
  EXPECT_EQ(this->view.size(), 0U);
  EXPECT_EQ(this->view.count(HoFlowState::inHardware), 0U);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(1)), 0U);
}

TYPED_TEST(StatusViewTest, StatusesThatShareAFlowAreCountedForIt) {
  this->view.statusIs(keyOf<TypeParam>(1), HoFlowState::inHardware);
  this->view.statusIs(keyOf<TypeParam>(1, true), HoFlowState::overflow);
  this->view.statusIs(keyOf<TypeParam>(2), HoFlowState::inHardware);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(1)), 2U);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(2)), 1U);
  this->view.statusIs(keyOf<TypeParam>(1, true), std::nullopt);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(1)), 1U);
  EXPECT_EQ(this->view.count(HoFlowState::overflow), 0U);
  EXPECT_EQ(this->view.count(HoFlowState::inHardware), 2U);
}

TYPED_TEST(StatusViewTest, GoesPartByPartUntilNothingIsLeft) {
  for (std::uint32_t n = 0; n < 1000; ++n) this->view.statusIs(keyOf<TypeParam>(n), HoFlowState::pending);
  ASSERT_EQ(this->view.size(), 1000U);
  unsigned parts = 0;
  for (std::size_t left = this->view.size(); this->view.dropPart(); ++parts) {
    EXPECT_TRUE(this->view.size() < left || left == 0) << "a part holds something";
    left = this->view.size();
  }
  EXPECT_EQ(this->view.size(), 0U);
  EXPECT_EQ(this->view.references(flowOf<TypeParam>(7)), 0U) << "the flows went too";
  EXPECT_GT(parts, 400U) << "no part is large, of the statuses and of the flows";
  EXPECT_LE(parts, 512U) << "none is empty";
  EXPECT_FALSE(this->view.dropPart());
}

}  // namespace
}  // namespace SampledFlowTracker

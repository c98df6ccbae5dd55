// The real state machine leaves behind what the naive one says, after each operation of any history.
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <spdlog/spdlog.h>

#include "NaiveSideBySide.h"

using namespace Naive;

namespace {

using Kind = Operation::Kind;

// Few keys more often than all of them.
rc::Gen<std::uint8_t> subject() {
  return rc::gen::map(rc::gen::tuple(rc::gen::weightedOneOf<unsigned>(
                                         {{3, rc::gen::inRange(0U, 5U)}, {1, rc::gen::inRange(0U, kKeys)}}),
                                     rc::gen::inRange(0U, 4U)),
                      [](const std::tuple<unsigned, unsigned>& drawn) {
                        const auto& [key, family] = drawn;
                        return static_cast<std::uint8_t>(key << 1 | (family == 3 ? 1U : 0U));
                      });
}

// How often each kind comes, against the others.
using Weights = std::vector<std::pair<std::size_t, Kind>>;

rc::Gen<Operation> operation(const Weights& weights) {
  std::vector<Kind> kinds;
  for (const auto& [weight, kind] : weights) kinds.insert(kinds.end(), weight, kind);
  return rc::gen::build<Operation>(rc::gen::set(&Operation::kind, rc::gen::elementOf(kinds)),
                                   rc::gen::set(&Operation::subject, subject()),
                                   rc::gen::set(&Operation::value, rc::gen::inRange<std::uint8_t>(0, 255)));
}

void property(const char* text, const Weights& before, const Weights& after) {
  spdlog::set_level(spdlog::level::off);
  EXPECT_TRUE(rc::check(text, [&] {
    auto history = *rc::gen::container<History>(operation(before)).as("before the first start");
    history.push_back({Kind::construct, 0, *rc::gen::inRange<std::uint8_t>(0, 8).as("how it starts")});
    const auto rest = *rc::gen::container<History>(operation(after)).as("after it");
    history.insert(history.end(), rest.begin(), rest.end());
    if (const auto difference = firstDifference(history)) RC_FAIL(*difference);
  }));
  spdlog::set_level(spdlog::level::info);
}

}  // namespace

TEST(Twin, AgreesAboutAnyHistoryOfWantedOffloads) {
  property("wanted offloads, budgets, packets and time",
           {{8, Kind::configIs}, {2, Kind::budgetIs}, {2, Kind::countPacket}},
           {{8, Kind::configIs},
            {6, Kind::configDel},
            {3, Kind::budgetIs},
            {4, Kind::countPacket},
            {8, Kind::work},
            {1, Kind::settle},
            {2, Kind::advance}});
}

TEST(Twin, AgreesAboutAnyHistoryWithRestarts) {
  property("the same, what others left behind, and starts at any time",
           {{8, Kind::leftBehind}, {5, Kind::configIs}, {3, Kind::budgetIs}, {2, Kind::countPacket}},
           {{6, Kind::configIs},
            {4, Kind::configDel},
            {2, Kind::budgetIs},
            {3, Kind::countPacket},
            {12, Kind::work},
            {1, Kind::settle},
            {2, Kind::advance},
            {2, Kind::construct},
            {1, Kind::teardown},
            {3, Kind::leftBehind},
            {1, Kind::notificationsOff}});
}

TEST(Twin, AgreesAboutAnyHistoryWithDamage) {
  property("the same, and damaged records",
           {{8, Kind::leftBehind},
            {5, Kind::configIs},
            {4, Kind::damage},
            {3, Kind::budgetIs},
            {2, Kind::countPacket}},
           {{6, Kind::configIs},
            {4, Kind::configDel},
            {2, Kind::budgetIs},
            {3, Kind::countPacket},
            {10, Kind::work},
            {1, Kind::settle},
            {2, Kind::advance},
            {5, Kind::damage},
            {1, Kind::construct},
            {2, Kind::leftBehind}});
}

TEST(Twin, AgreesAboutAnyHistoryWithChangesThatWereNotTold) {
  property("the same, and wanted offloads that changed unseen",
           {{8, Kind::leftBehind}, {5, Kind::configIs}, {3, Kind::budgetIs}, {2, Kind::countPacket}},
           {{4, Kind::configIs},
            {3, Kind::configDel},
            {2, Kind::budgetIs},
            {2, Kind::countPacket},
            {8, Kind::work},
            {6, Kind::configQuietly},
            {2, Kind::lookAgain},
            {1, Kind::settle},
            {1, Kind::damage},
            {1, Kind::construct}});
}

TEST(History, IsTheSameAfterItWasBytes) {
  History history;
  for (unsigned kind = 0; kind < Operation::kKinds; ++kind) {
    history.push_back({static_cast<Kind>(kind), static_cast<std::uint8_t>(3 * kind), 200});
  }
  EXPECT_EQ(decode(encode(history)), history);
}

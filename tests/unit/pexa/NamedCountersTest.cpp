#include "pexa/NamedCounters.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

namespace {

using Pexa::NamedCounters;

TEST(NamedCounters, CountsEachReasonByItself) {
  NamedCounters counters;
  for (int i = 0; i < 3; ++i) counters.count("Drop", "Sft", "No flow status");
  counters.count("Action", "Sft", " Offloading IPv4");
  EXPECT_EQ(counters.value("Drop", "Sft", "No flow status"), 3U);
  EXPECT_EQ(counters.value("Action", "Sft", " Offloading IPv4"), 1U);
  EXPECT_EQ(counters.value("Action", "Sft", "Offloading IPv4"), 0U);
}

TEST(NamedCounters, TellsCategoriesAndSourcesApart) {
  NamedCounters counters;
  counters.count("Drop", "Sft", "x");
  counters.count("Action", "Sft", "x");
  counters.count("Drop", "Pexa", "x");
  EXPECT_EQ(counters.all().size(), 3U);
  EXPECT_EQ(counters.value("Drop", "Sft", "x"), 1U);
}

TEST(NamedCounters, ListsEveryCountInOrder) {
  NamedCounters counters;
  counters.count("Drop", "Sft", "b");
  counters.count("Drop", "Sft", "a");
  counters.count("Action", "Z", "c");
  counters.count("Drop", "Sft", "b");
  const auto all = counters.all();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].category, "Action");
  EXPECT_EQ(all[0].source, "Z");
  EXPECT_EQ(all[1].reason, "a");
  EXPECT_EQ(all[2].reason, "b");
  EXPECT_EQ(all[2].count, 2U);
  EXPECT_TRUE(NamedCounters().all().empty());
}

TEST(NamedCounters, ABufferThatHoldsAnotherTextIsAnotherReason) {
  NamedCounters counters;
  std::array<char, 2> buffer{};
  for (int i = 0; i < 100; ++i) {
    buffer[0] = static_cast<char>('a' + i % 2);
    counters.count("Drop", "Sft", {buffer.data(), 1});
  }
  EXPECT_EQ(counters.value("Drop", "Sft", "a"), 50U);
  EXPECT_EQ(counters.value("Drop", "Sft", "b"), 50U);
}

TEST(NamedCounters, TheSameTextElsewhereIsTheSameReason) {
  NamedCounters counters;
  for (int i = 0; i < 100; ++i) {
    const std::string category("Drop");
    const std::string reason(static_cast<std::size_t>(40), 'r');
    const auto copy = std::make_unique<std::string>(reason);
    counters.count(category, "Sft", *copy);
    counters.count("Drop", std::string("Sft"), reason);
  }
  EXPECT_EQ(counters.all().size(), 1U);
  EXPECT_EQ(counters.value("Drop", "Sft", std::string(40, 'r')), 200U);
}

TEST(NamedCounters, AFloodOfReasonsIsCountedTogether) {
  NamedCounters counters;
  const std::size_t flood = NamedCounters::kMostReasons + 1000;
  for (std::size_t i = 0; i < flood; ++i) counters.count("Drop", "Sft", "packet " + std::to_string(i));
  EXPECT_EQ(counters.all().size(), NamedCounters::kMostReasons + 1);
  EXPECT_EQ(counters.value("Drop", "Sft", NamedCounters::kOtherReasons), 1000U);
  counters.count("Drop", "Sft", "packet 0");
  EXPECT_EQ(counters.value("Drop", "Sft", "packet 0"), 2U);
}

TEST(NamedCounters, TextsThatDifferInOneByteAreTwoReasonsAtEveryLength) {
  for (std::size_t length = 1; length <= 40; ++length) {
    std::string text(length, 'x');  // one buffer for all: its address alone tells nothing
    NamedCounters counters;
    counters.count("Drop", "Sft", text);
    for (char& c : text) {
      c = 'y';
      counters.count("Drop", "Sft", text);
      c = 'x';
      counters.count("Drop", "Sft", text);
    }
    EXPECT_EQ(counters.all().size(), length + 1);
    EXPECT_EQ(counters.value("Drop", "Sft", text), length + 1);
  }
}

TEST(NamedCounters, AnEmptyReasonIsAReason) {
  NamedCounters counters;
  counters.count({}, {}, {});
  EXPECT_EQ(counters.value("", "", ""), 1U);
}

}  // namespace

// Reading a key's text part by part.
#include "KeyText.h"

#include <gtest/gtest.h>

#include "Pavo.h"

namespace {

using FlowTracking::KeyText;

std::string refusal(const std::function<void()>& read) {
  try {
    read();
  } catch (const Kiv::ValueError& error) {
    return error.what();
  }
  return {};
}

TEST(KeyTextTest, PartsAreTakenInTheirOrderUpToTheEnd) {
  KeyText text("7/Ethernet1/2");
  EXPECT_EQ(text.number("first", 7), 7U);
  Kiv::String held;
  text.textInto(held, "second");
  EXPECT_EQ(held, "Ethernet1");
  EXPECT_EQ(refusal([&] { text.end(); }), "expected the end of the key, got \"2\"");
  EXPECT_EQ(text.number("third", 9), 2U);
  EXPECT_EQ(refusal([&] { text.end(); }), "");
  EXPECT_EQ(refusal([&] { text.number("fourth", 9); }),
            "fourth: expected, but the key's text ends before it");
}

TEST(KeyTextTest, TheRestMayHoldAnyCharacterAndIsTheEnd) {
  KeyText text("7/Ethernet1/2");
  text.number("first", 7);
  Pavo::IntfId held;
  text.restInto(held, "second");
  EXPECT_EQ(held, Pavo::IntfId("Ethernet1/2"));
  EXPECT_EQ(refusal([&] { text.end(); }), "");
  EXPECT_EQ(refusal([&] { text.restInto(held, "third"); }),
            "third: expected, but the key's text ends before it");
}

TEST(KeyTextTest, SeveralPartsAreTakenWithTheSeparatorsBetweenThem) {
  KeyText text("1/22/333/4");
  EXPECT_EQ(text.parts(3), "1/22/333");
  EXPECT_EQ(text.number("last", 9), 4U);
  EXPECT_EQ(refusal([&] { text.end(); }), "");
}

TEST(KeyTextTest, EmptyPartsAreParts) {
  EXPECT_EQ(KeyText("1//2/3").parts(2), "1/");
  EXPECT_EQ(KeyText("1//2/3").parts(3), "1//2");
  EXPECT_EQ(KeyText("/1/2").parts(1), "");
  EXPECT_EQ(KeyText("/1/2").parts(2), "/1");
  EXPECT_EQ(KeyText("//1/2").parts(2), "/");
}

TEST(KeyTextTest, FewerPartsThanWantedAreAllOfTheText) {
  for (const std::size_t wanted : {std::size_t{2}, std::size_t{3}}) {
    KeyText text("1/22");
    EXPECT_EQ(text.parts(wanted), "1/22");
    EXPECT_EQ(refusal([&] { text.end(); }), "");
    EXPECT_EQ(refusal([&] { text.number("next", 9); }), "next: expected, but the key's text ends before it");
  }
}

TEST(KeyTextTest, ASeparatorAtTheEndBeginsAnEmptyPart) {
  KeyText text("1/22/");
  EXPECT_EQ(text.parts(2), "1/22");
  EXPECT_EQ(refusal([&] { text.number("next", 9); }), "next: expected a number up to 9, got \"\"");
}

TEST(KeyTextTest, ANumberIsDigitsAlone) {
  for (const std::string wrong :
       {"", "x", "1x", "x1", " 1", "1 ", "-1", "+1", "11", "99999999999999999999"}) {
    EXPECT_EQ(refusal([&] { KeyText(wrong).number("n", 10); }),
              "n: expected a number up to 10, got \"" + wrong + '"');
  }
  EXPECT_EQ(refusal([&] { KeyText("1\n").number("n", 10); }),
            R"(n: expected a number up to 10, got "1\u000a")")
      << "in one line";
  EXPECT_EQ(refusal([&] { KeyText("\n").end(); }), R"(expected the end of the key, got "\u000a")");
  EXPECT_EQ(KeyText("10").number("n", 10), 10U);
  EXPECT_EQ(KeyText("0").number("n", 0), 0U);
}

}  // namespace

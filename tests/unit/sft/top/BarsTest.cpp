#include "top/Bars.h"

#include <gtest/gtest.h>

#include <limits>

#include "top/Grid.h"

namespace {

using namespace Sft::Top;

TEST(Bars, FillAShareOfTheirWidth) {
  EXPECT_EQ(bar(0.5, 8, BarKind::hashes), U"####    ");
  EXPECT_EQ(bar(1, 3, BarKind::hashes), U"###");
  EXPECT_EQ(bar(0, 3, BarKind::hashes), U"   ");
  EXPECT_EQ(bar(7, 3, BarKind::hashes), U"###");
  EXPECT_EQ(bar(0.5, 0, BarKind::hashes), U"");
}

TEST(Bars, ShowTheLeastThatIsNotNothing) {
  EXPECT_EQ(bar(0.0001, 4, BarKind::hashes), U"#   ");
  EXPECT_EQ(bar(0.0001, 4, BarKind::blocks), U"\u258f   ");
}

TEST(Bars, GoByEighthsInBlocks) {
  EXPECT_EQ(bar(0.5, 3, BarKind::blocks), U"\u2588\u258c ");
  EXPECT_EQ(bar(7.0 / 8, 1, BarKind::blocks), U"\u2589");
  EXPECT_EQ(bar(1, 2, BarKind::blocks), U"\u2588\u2588");
}

TEST(Bars, AShareOfNothingIsNone) {
  EXPECT_EQ(bar(std::numeric_limits<double>::quiet_NaN(), 2, BarKind::hashes), U"  ");
}

TEST(ShortNumber, HasAtMostFiveCharacters) {
  EXPECT_EQ(shortNumber({}), "-");
  EXPECT_EQ(shortNumber(0), "0");
  EXPECT_EQ(shortNumber(0.254), "0.25");
  EXPECT_EQ(shortNumber(0.999), "1");
  EXPECT_EQ(shortNumber(3), "3");
  EXPECT_EQ(shortNumber(9.52), "9.5");
  EXPECT_EQ(shortNumber(9.96), "10");
  EXPECT_EQ(shortNumber(9999), "9999");
  EXPECT_EQ(shortNumber(9999.6), "10.0k");
  EXPECT_EQ(shortNumber(12'345), "12.3k");
  EXPECT_EQ(shortNumber(99'960), "100k");
  EXPECT_EQ(shortNumber(999'400), "999k");
  EXPECT_EQ(shortNumber(999'600), "1.00M");
  EXPECT_EQ(shortNumber(1.234e9), "1.23G");
  EXPECT_EQ(shortNumber(1.8e19), "18.0E");
  for (double number = 0.011; number < 1e19; number *= 1.37)
    EXPECT_LE(shortNumber(number).size(), 5U) << number;
}

TEST(Grid, CutsWhatDoesNotFitAndShowsNoControlCharacters) {
  Grid grid({2, 6});
  EXPECT_EQ(grid.put(0, 2, "a\x1b[\xc3"), 6U);
  EXPECT_EQ(grid.put(1, 4, "longer"), 10U);
  grid.put(9, 0, "outside");
  EXPECT_EQ(grid.line(0), "  a?[?");
  EXPECT_EQ(grid.line(1), "    lo");
}

TEST(Grid, LinesAreUtf8WithoutBlanksAtTheEnd) {
  Grid grid({1, 10});
  grid.put(0, 0, std::u32string_view(U"\u2588 x"));
  EXPECT_EQ(grid.line(0), "\xe2\x96\x88 x");
}

}  // namespace

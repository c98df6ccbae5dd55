#include "top/PanelTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TopThings.h"

namespace {

using namespace Sft::Top;
using testing::ElementsAre;
using Kind = Column::Kind;

const std::vector<Column> kColumns{
    {"name", Kind::left, 6, 12, 0}, {"extra", Kind::left, 5, 5, 2}, {"rate", Kind::right, 4, 4, 1}};

TEST(ColumnWidths, LeavesOutWhatMattersLeast) {
  EXPECT_THAT(columnWidths(kColumns, 17), ElementsAre(6, 5, 4));
  EXPECT_THAT(columnWidths(kColumns, 16), ElementsAre(11, 0, 4));
  EXPECT_THAT(columnWidths(kColumns, 10), ElementsAre(10, 0, 0));
  EXPECT_THAT(columnWidths(kColumns, 5), ElementsAre(0, 0, 0));
}

TEST(ColumnWidths, GivesRoomThatIsLeftToThoseThatMatterMost) {
  EXPECT_THAT(columnWidths(kColumns, 20), ElementsAre(9, 5, 4));
  EXPECT_THAT(columnWidths(kColumns, 99), ElementsAre(12, 5, 4));
}

TEST(DrawTable, PutsCellsBelowTheirHeadings) {
  PanelTable table{.columns = kColumns, .lines = {}, .empty = "none"};
  table.lines.push_back({.cells = {"a longer name", "x", "12"}});
  Grid grid({3, 20});
  drawTable(grid, {0, 0, {3, 20}}, table, true, BarKind::hashes);
  EXPECT_THAT(TopTest::linesOf(grid), ElementsAre("name      extra rate", "a longer~ x       12", ""));
  EXPECT_EQ(grid.at(0, 19).style, Style::heading);
}

TEST(DrawTable, StaysInItsPlace) {
  PanelTable table{.columns = kColumns, .lines = {}, .empty = "none"};
  for (int i = 0; i < 5; ++i) table.lines.push_back({.cells = {"abcdefghijkl", "x", "1"}});
  Grid grid({4, 20});
  drawTable(grid, {1, 4, {2, 6}}, table, true, BarKind::hashes);
  EXPECT_THAT(TopTest::linesOf(grid), ElementsAre("", "    name", "    abcde~", ""));
}

TEST(DrawTable, SaysWhenThereIsNothing) {
  Grid grid({2, 20});
  drawTable(grid, {0, 0, {2, 20}}, {.columns = kColumns, .lines = {}, .empty = "none"}, true,
            BarKind::hashes);
  EXPECT_EQ(grid.line(1), "none");
}

}  // namespace

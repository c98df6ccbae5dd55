// Shows rows: one JSON object a line, or columns for people.
#pragma once

#include <string>
#include <vector>

#include "Kiv.h"
#include "terminal/Progress.h"

namespace Sft {

// Columns are the members of the rows in the order in which they first come; members of members have columns
// of their own. Numbers stand to the right. A member that ends in "Time" is shown as a UTC date and time.
//
// With JSON each row is written as it comes; columns need all rows, and are written by finish(). How many
// rows there are by now is shown as long as standard output is not in use on the terminal.
class Output {
 public:
  explicit Output(bool json);
  void row(const Kiv::Value& row);
  // Writes what is left, and checks that everything was written: throws CommandError when it was not.
  void finish();

 private:
  struct Cell {
    std::string text;
    bool number = false;
  };
  struct Column {
    std::string path;  // "key.ipFlowKey.srcAddr": tells columns apart
    std::string name;  // "srcAddr": the heading
    std::size_t width = 0;
    bool numbers = true;
  };
  using Line = std::vector<Cell>;  // by column; may be shorter

  void addCells(const std::string& path, const std::string& name, const Kiv::Value& value, Line& line);
  std::size_t column(const std::string& path, const std::string& name);
  void printColumns() const;
  void printLine(const Line& line) const;

  bool json_;
  bool quiet_;  // rows go to the terminal by now, where progress would stand
  Terminal::Progress progress_{"rows"};
  std::uint64_t rows_ = 0;
  std::vector<Column> columns_;
  std::vector<Line> lines_;
};

// A UTC date and time, to the millisecond; "-" for 0, which stands for none.
std::string timeText(double seconds);
// The same as a row's member: null for 0.
Kiv::Value timeOrNone(double seconds);

// Plain text, to standard output.
void print(std::string_view text);

// A line of this program, to standard error.
void tell(std::string_view what);

}  // namespace Sft

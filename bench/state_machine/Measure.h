// Time, memory, and the table that a run prints.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace SftBench {

// Seconds: of this thread on a processor, and of the clock on the wall.
struct Seconds {
  double cpu = 0;
  double wall = 0;
  Seconds operator+(const Seconds& other) const { return {cpu + other.cpu, wall + other.wall}; }
  Seconds operator-(const Seconds& other) const { return {cpu - other.cpu, wall - other.wall}; }
  static Seconds now();
};

// Bytes that this process has got from its heap and not given back.
std::uint64_t heapBytes();
// Bytes that the files below a folder take.
std::uint64_t fileBytes(const std::string& folder);

// What is known to be so after a phase. What is not ends the run: a number of work that was not done is worth
// nothing.
void require(bool holds, const std::string& what);

// Lines by name, a column a size, in the order in which they came.
class Report {
 public:
  // The column that numbers go into from now on.
  void columnIs(const std::string& name);
  void put(const std::string& line, const std::string& unit, double value);
  // The same for a phase of so many items: nanoseconds of the processor an item.
  void put(const std::string& line, const Seconds& took, std::uint64_t items);
  // The value put last under a name in this column; 0 when there is none.
  double value(const std::string& line) const;
  // Whether anything was put under a name in this column.
  bool has(const std::string& line) const;
  std::string text() const;

 private:
  struct Line {
    std::string name;
    std::string unit;
    std::vector<double> values;  // by column; not a number where nothing was put
  };
  std::vector<std::string> columns_;
  std::vector<Line> lines_;
};

}  // namespace SftBench

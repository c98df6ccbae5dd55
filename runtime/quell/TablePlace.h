// Where a collection's file stands: RUN_DIR/tables/<table path>/<collection>.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Quell {

inline constexpr std::string_view kTablesFolder = "tables";

struct TablePlace {
  std::string runDir;
  std::string path;
  std::string collection;

  // "RUN_DIR/tables/path/collection", for messages and for opening.
  std::string fileName() const;
  // The parts of the table's path. Throws TableError when one of them is empty, "." or "..", begins with a
  // dot, or when the collection's name is no plain file name.
  std::vector<std::string> folders() const;
};

// A descriptor, closed when it goes.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_ = -1;
};

// The folder that holds a table's collections, opened step by step without following symbolic links below the
// run directory. Not valid when it is absent and not to be created. Throws TableError.
Descriptor openFolder(const TablePlace& place, bool create);

}  // namespace Quell

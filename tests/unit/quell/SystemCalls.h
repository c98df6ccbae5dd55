// System calls as a test sees them before the kernel does: watched, or answered with an error in its place.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace QuellTest {

// Leaves the stack below full of ones, for who has to clear what it takes of it.
void soilStack();

struct SystemCall {
  std::string_view name;
  int descriptor = -1;
  std::uint64_t offset = 0;  // of a mapping its address
  std::uint64_t bytes = 0;
};

// While it lives, each call of this process asks `answer`: 0 lets it go on to the kernel, an error is what it
// ends with, kDone ends it well. What the answer itself calls goes to the kernel. One at a time, on one
// thread.
class SystemCalls {
 public:
  static constexpr int kDone = -1;
  using Answer = std::function<int(const SystemCall&)>;
  explicit SystemCalls(Answer answer);
  // Every call of this name ends with this error.
  SystemCalls(std::string_view name, int error);
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;
};

}  // namespace QuellTest

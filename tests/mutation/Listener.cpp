// In each test program of scripts/mutate: writes which places each case reaches to the file
// SFT_MUTANT_RECORD, a line a case: name, milliseconds, "passed" or "failed", numbers. Places reached before
// the first case stand under the name "*".
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "Mutant.h"

namespace {

class Listener : public testing::EmptyTestEventListener {
 public:
  explicit Listener(const char* path) : out_(path) {}

 private:
  void OnTestProgramStart(const testing::UnitTest&) override { write("*", 0, true); }
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    write(std::string(test.test_suite_name()) + "." + test.name(), result.elapsed_time(), !result.Failed());
  }
  void write(const std::string& name, long long milliseconds, bool passed) {
    out_ << name << ' ' << milliseconds << (passed ? " passed" : " failed");
    for (int number = 0; number < Mutant::kMost; ++number) {
      if (Mutant::reached[number] != 0) out_ << ' ' << number;
    }
    out_ << std::endl;
    std::memset(Mutant::reached, 0, Mutant::kMost);
  }

  std::ofstream out_;
};

[[maybe_unused]] const bool listening = [] {
  const char* const path = std::getenv("SFT_MUTANT_RECORD");
  if (path == nullptr || Mutant::reached == nullptr) return false;
  testing::UnitTest::GetInstance()->listeners().Append(new Listener(path));
  // A death test may start this program anew: that one would begin the file anew too.
  unsetenv("SFT_MUTANT_RECORD");
  return true;
}();

}  // namespace

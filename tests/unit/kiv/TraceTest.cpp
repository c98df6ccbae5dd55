#include "KivTrace.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class RecordingSink : public Kiv::TraceSink {
 public:
  RecordingSink() : former_(Kiv::traceSinkIs(this)) {}
  ~RecordingSink() override { Kiv::traceSinkIs(former_); }
  void write(const Kiv::TraceRecord& record) override {
    lines.push_back(std::string(record.handle) + " " + std::to_string(record.level) + " " +
                    std::string(record.function) + ": " + std::string(record.text));
  }
  std::vector<std::string> lines;

 private:
  Kiv::TraceSink* former_;
};

TEST(Trace, LevelsAreOffUntilSwitchedOnUpToALevel) {
  const Kiv::TraceHandle handle("Test::Levels", 0);
  EXPECT_FALSE(handle.enabled(0));
  Kiv::TraceHandle::levelIs("Test::Levels", 3);
  EXPECT_TRUE(handle.enabled(0));
  EXPECT_TRUE(handle.enabled(3));
  EXPECT_FALSE(handle.enabled(4));
  Kiv::TraceHandle::levelIs("Test::Levels", -1);
  EXPECT_FALSE(handle.enabled(0));
}

TEST(Trace, HandlesOfOneNameShareTheirLevelsAlsoWhenSetBefore) {
  Kiv::TraceHandle::levelIs("Test::Early", 0);
  const Kiv::TraceHandle first("Test::Early", 0);
  const Kiv::TraceHandle second("Test::Early", 0);
  EXPECT_TRUE(first.enabled(0));
  Kiv::TraceHandle::levelIs("Test::Early", -1);
  EXPECT_FALSE(second.enabled(0));
}

TEST(Trace, AHelperCarriesItsPlaceToTheSink) {
  RecordingSink sink;
  const Kiv::TraceHandle handle("Test::Helper", 0);
  Kiv::TraceHelper(handle, 2, "Some.cpp", 7, "doIt").write("happened");
  EXPECT_EQ(sink.lines, std::vector<std::string>{"Test::Helper 2 doIt: happened"});
}

TEST(Trace, StatesNameEachHandleWithItsHighestLevel) {
  Kiv::TraceHandle::levelIs("Test::State", 5);
  bool found = false;
  for (const auto& state : Kiv::TraceHandle::states())
    found |= state.name == "Test::State" && state.level == 5;
  EXPECT_TRUE(found);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Fenn.h"
#include "TempDir.h"

namespace {

class Toggle : public testing::Test {
 protected:
  Toggle() : former_(spdlog::default_logger()) {
    ::setenv("PEXA_TOGGLE_DIR", dir_.path().c_str(), 1);
    auto logger =
        std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_mt>(log_));
    logger->set_pattern("%v");
    spdlog::set_default_logger(logger);
  }
  ~Toggle() override {
    spdlog::set_default_logger(former_);
    ::unsetenv("PEXA_TOGGLE_DIR");
  }
  std::string path() const { return dir_.path() + "/FlowTracker.json"; }
  void file(const std::string& text) const { std::ofstream(path()) << text; }
  static bool state(bool defaultState) {
    return getToggleState("HwFlowTrackingOffloadV6", "FlowTracker.json", defaultState);
  }
  std::string log() const { return log_.str(); }

 private:
  TestSupport::TempDir dir_;
  std::ostringstream log_;
  std::shared_ptr<spdlog::logger> former_;
};

TEST_F(Toggle, HasItsDefaultWithoutAFile) {
  EXPECT_TRUE(state(true));
  EXPECT_FALSE(state(false));
  EXPECT_EQ(log(), "");
}

TEST_F(Toggle, HasItsDefaultWhenTheFileDoesNotNameIt) {
  file(R"({"Other": false})");
  EXPECT_TRUE(state(true));
  EXPECT_FALSE(state(false));
  EXPECT_EQ(log(), "");
}

TEST_F(Toggle, IsWhatTheFileSays) {
  file(R"({"Other": true, "HwFlowTrackingOffloadV6": false})");
  EXPECT_FALSE(state(true));
  file(R"({"HwFlowTrackingOffloadV6": true})");
  EXPECT_TRUE(state(false));
  EXPECT_EQ(log(), "");
}

TEST_F(Toggle, HasItsDefaultAndOneLineInTheLogWhenTheFileIsDamaged) {
  for (const char* text : {"", "{\"HwFlowTrackingOffloadV6\": fal", "[true]", "\xff\xfe"}) {
    file(text);
    const std::size_t before = log().size();
    EXPECT_TRUE(state(true));
    EXPECT_EQ(log().substr(before), "toggle file " + path() +
                                        ": expected a JSON object of names and booleans; "
                                        "HwFlowTrackingOffloadV6 is true\n");
  }
}

TEST_F(Toggle, HasItsDefaultAndOneLineInTheLogWhenItIsNoBoolean) {
  file(R"({"HwFlowTrackingOffloadV6": "false"})");
  EXPECT_TRUE(state(true));
  EXPECT_EQ(log(), "toggle file " + path() +
                       ": expected true or false for \"HwFlowTrackingOffloadV6\", got \"false\"; "
                       "HwFlowTrackingOffloadV6 is true\n");
}

TEST_F(Toggle, HasItsDefaultWhenTheFileCannotBeRead) {
  std::filesystem::create_directory(path());
  EXPECT_FALSE(state(false));
  EXPECT_THAT(log(), testing::HasSubstr("cannot be read; HwFlowTrackingOffloadV6 is false"));
}

}  // namespace

#include "AuditCommands.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "FakeServer.h"
#include "TempDir.h"

namespace {

using Sft::CommandError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

const std::string kEnd = "{\"end\":true}\n";

class AuditCommandsTest : public testing::Test {
 protected:
  // What is found by an audit that answers so when it is asked for its findings.
  std::vector<std::string> found(const std::vector<std::string>& results) {
    std::vector<std::string> answers{kEnd, resultOf("7")};
    for (const std::string& each : results) answers.push_back(resultOf(each));
    const TestSupport::FakeServer server(dir_.path() + "/control.sock", answers);
    std::vector<std::string> found;
    Sft::auditFindings({.runDir = dir_.path()},
                       [&](const Kiv::Value& finding) { found.push_back(finding.member("kind")->text()); });
    return found;
  }

 private:
  static std::string resultOf(const std::string& value) {
    return "{\"row\":{\"result\":" + value + "}}\n" + kEnd;
  }

  TestSupport::TempDir dir_;
};

TEST_F(AuditCommandsTest, FindingsAreTakenUntilTheAuditIsDoneAndHasNoMore) {
  const std::string totals = R"("statuses":2,"differences":2,"repaired":0,"stopped":null})";
  EXPECT_THAT(found({R"({"running":true,"findings":[{"kind":"a"}],)" + totals,
                     R"({"running":false,"findings":[{"kind":"b"}],)" + totals,
                     R"({"running":false,"findings":[],)" + totals}),
              ElementsAre("a", "b"));
}

TEST_F(AuditCommandsTest, AnAuditThatStoppedSaysWhy) {
  EXPECT_THAT(
      [&] {
        found(
            {R"({"running":false,"findings":[],"statuses":0,"differences":0,"repaired":0,"stopped":"no"})"});
      },
      ThrowsMessage<CommandError>("the audit did not come to its end: no"));
}

TEST_F(AuditCommandsTest, AnAnswerThatIsNotAnAuditsIsOneError) {
  const std::string rest = R"("statuses":0,"differences":0,"repaired":0,"stopped":null})";
  for (const auto& [answer, wrong] : std::vector<std::pair<std::string, std::string>>{
           {"null", "has no \"findings\""},
           {"{}", "has no \"findings\""},
           {R"({"findings":[],)" + rest, "has no \"running\""},
           {R"({"findings":[],"running":false})", "has no \"stopped\""},
           {R"({"findings":7,"running":false,)" + rest, "\"findings\": expected a list"},
           {R"({"findings":["a"],"running":false,)" + rest, "expected an object"},
           {R"({"findings":[],"running":1,)" + rest, "\"running\": expected true or false"},
           {R"({"findings":[],"running":false,"statuses":-1,"differences":0,"repaired":0,"stopped":null})",
            "\"statuses\": expected a whole number"}}) {
    EXPECT_THAT([&] { found({answer}); }, ThrowsMessage<CommandError>(HasSubstr(wrong))) << answer;
  }
}

}  // namespace

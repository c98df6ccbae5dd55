#include "ControlClient.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "FakeServer.h"
#include "RowMembers.h"
#include "TempDir.h"

namespace {

using Sft::CommandError;
using Sft::ControlClient;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;
using TestSupport::FakeServer;

class ControlClientTest : public testing::Test {
 protected:
  std::string path() const { return dir_.path() + "/control.sock"; }
  ControlClient client(std::chrono::milliseconds patience = ControlClient::kPatience) {
    return {path(), "agent", "an agent", patience};
  }
  static std::vector<std::string> rowsOf(ControlClient& client) {
    std::vector<std::string> rows;
    client.ask(Kiv::Value::Object{{"request", "any"}},
               [&](const Kiv::Value& row) { rows.push_back(row.text()); });
    return rows;
  }

  TestSupport::TempDir dir_;
};

TEST_F(ControlClientTest, IsUsableBehindARefusal) {
  const FakeServer server(path(), {"{\"error\":\"no such thing\"}\n", "{\"row\":\"a\"}\n{\"end\":true}\n"});
  ControlClient asks = client();
  EXPECT_THAT([&] { rowsOf(asks); }, ThrowsMessage<Sft::Refused>("no such thing"));
  EXPECT_THAT(rowsOf(asks), ElementsAre("a"));
}

TEST_F(ControlClientTest, IsDoneWithAnAgentThatFellSilentAsItsAnswerMayComeLate) {
  const FakeServer server(path(), {"{\"row\":\"a\"}\n"});
  ControlClient asks = client(std::chrono::milliseconds(50));
  EXPECT_THAT([&] { rowsOf(asks); }, ThrowsMessage<CommandError>(HasSubstr("nothing came for 0.05 seconds")));
  EXPECT_THAT([&] { rowsOf(asks); }, ThrowsMessage<CommandError>(HasSubstr("an earlier request")));
}

TEST_F(ControlClientTest, SilenceIsNoRefusal) {
  const FakeServer server(path(), {""});
  ControlClient asks = client(std::chrono::milliseconds(50));
  try {
    rowsOf(asks);
    FAIL() << "nothing was answered";
  } catch (const Sft::Refused&) {
    FAIL() << "nothing was refused";
  } catch (const CommandError&) {
  }
}

TEST_F(ControlClientTest, TellsWhatWasAnsweredInsteadOfRowsAndAnEnd) {
  for (const std::string answer : {"no JSON", "[]", R"({"roww":1})"}) {
    const FakeServer server(path(), {answer + "\n"});
    ControlClient asks = client();
    EXPECT_THAT([&] { rowsOf(asks); },
                ThrowsMessage<CommandError>(AllOf(
                    HasSubstr("the agent at " + path() + " answers something else"), HasSubstr(answer))));
  }
}

TEST_F(ControlClientTest, TellsOfARowThatIsNotAsItWasExpected) {
  const FakeServer server(path(), {"{\"row\":{\"a\":1}}\n{\"end\":true}\n"});
  ControlClient asks = client();
  EXPECT_THAT([&] { asks.ask(Kiv::Value::Object{}, [](const Kiv::Value& row) { Sft::memberOf(row, "b"); }); },
              ThrowsMessage<CommandError>(HasSubstr("has no \"b\", in {\"row\":{\"a\":1}}")));
}

}  // namespace

#include "ControlClient.h"

#include <gmock/gmock.h>

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <thread>
#include <vector>

#include "TempDir.h"

namespace {

using asio::local::stream_protocol;
using Sft::CommandError;
using Sft::ControlClient;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

// Answers each request with the next of the texts; behind the last one it stays, and is silent.
class FakeServer {
 public:
  FakeServer(const std::string& path, std::vector<std::string> answers)
      : acceptor_(io_, stream_protocol::endpoint(path)), thread_([this, answers = std::move(answers)] {
          stream_protocol::socket socket = acceptor_.accept();
          std::string in;
          for (const std::string& each : answers) {
            in.erase(0, asio::read_until(socket, asio::dynamic_buffer(in), '\n'));
            asio::write(socket, asio::buffer(each));
          }
          std::error_code gone;
          asio::read(socket, asio::dynamic_buffer(in), gone);
        }) {}
  ~FakeServer() { thread_.join(); }

 private:
  asio::io_context io_;
  stream_protocol::acceptor acceptor_;
  std::thread thread_;
};

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

}  // namespace

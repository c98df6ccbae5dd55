#include "top/AgentLink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio/buffer.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <memory>

#include "TempDir.h"

namespace {

using namespace Sft::Top;
using asio::local::stream_protocol;
using testing::HasSubstr;

constexpr auto kAnswers =
    R"({"row":{"intfId":"Ethernet1","direction":"ingress","rate":10,"pool":7,"samples":5,"drops":1}}
{"end":true}
{"row":{"category":"Drop","source":"Sft","reason":"No flow status","count":3}}
{"end":true}
{"row":{"name":"Ethernet1","kind":"capture","packetsIn":1,"bytesIn":2,"dropsIn":3,"packetsOut":4,"bytesOut":5,"dropsOut":6,"vlan":1,"up":true,"replay":"running"}}
{"end":true}
{"row":{"maxInHardwareFlows":2048}}
{"end":true}
)";

// An agent of the test's: answers each four requests with the same text. What was begun on its sockets
// outlives it, for the moment that it takes to end.
class FakeAgent {
 public:
  FakeAgent(asio::io_context& io, const std::string& path, std::string answer)
      : peer_(std::make_shared<Peer>(io, path, std::move(answer))) {
    peer_->acceptor.async_accept(peer_->socket, [peer = peer_](const auto& error) {
      if (!error) serve(peer);
    });
  }
  ~FakeAgent() {
    peer_->acceptor.close();
    peer_->socket.close();
  }
  FakeAgent(const FakeAgent&) = delete;
  FakeAgent& operator=(const FakeAgent&) = delete;

  const std::string& heard() const { return peer_->heard; }
  unsigned requests() const { return peer_->requests; }

 private:
  struct Peer {
    Peer(asio::io_context& io, const std::string& path, std::string text)
        : acceptor(io, stream_protocol::endpoint(path)), socket(io), answer(std::move(text)) {}
    stream_protocol::acceptor acceptor;
    stream_protocol::socket socket;
    std::string answer, in, heard;
    unsigned requests = 0;
  };

  static void serve(const std::shared_ptr<Peer>& peer) {
    asio::async_read_until(peer->socket, asio::dynamic_buffer(peer->in), '\n',
                           [peer](const auto& error, std::size_t bytes) {
                             if (error) return;
                             peer->heard += peer->in.substr(0, bytes);
                             peer->in.erase(0, bytes);
                             if (++peer->requests % 4 == 0 && !peer->answer.empty())
                               asio::write(peer->socket, asio::buffer(peer->answer));
                             serve(peer);
                           });
  }

  std::shared_ptr<Peer> peer_;
};

class AgentLinkTest : public testing::Test {
 protected:
  std::string path() const { return dir_.path() + "/control.sock"; }
  AgentLink link(std::chrono::seconds patience = AgentLink::kPatience) {
    return {io_,
            dir_.path(),
            {.answered = [this](const AgentLook& look) { looks_.push_back(look); },
             .away = [this](const std::string& why) { away_.push_back(why); }},
            patience};
  }
  template <class Condition>
  void runUntil(const Condition& condition) {
    io_.restart();  // it stops when it has nothing to wait for
    while (!condition() && io_.run_one() > 0) {
    }
    ASSERT_TRUE(condition());
  }
  std::unique_ptr<FakeAgent> agent(const std::string& answer) {
    return std::make_unique<FakeAgent>(io_, path(), answer);
  }

  TestSupport::TempDir dir_;
  asio::io_context io_;
  std::vector<AgentLook> looks_;
  std::vector<std::string> away_;
};

TEST_F(AgentLinkTest, AsksForAllAtOnceAndGivesTheAnswer) {
  const auto agent = this->agent(kAnswers);
  AgentLink link = this->link();
  link.ask();
  runUntil([&] { return looks_.size() == 1; });
  EXPECT_THAT(agent->heard(), HasSubstr(R"({"request":"reasons"})"));
  const AgentLook& look = looks_[0];
  EXPECT_EQ(look.budget, 2048);
  ASSERT_EQ(look.samplings.size(), 1U);
  EXPECT_EQ(look.samplings[0].samples, 5U);
  ASSERT_EQ(look.reasons.size(), 1U);
  EXPECT_EQ(look.reasons[0].reason, "No flow status");
  ASSERT_EQ(look.ports.size(), 1U);
  EXPECT_EQ(look.ports[0].replay, "running");
  EXPECT_EQ(look.ports[0].dropsOut, 6U);
  link.ask();  // over the same connection
  runUntil([&] { return looks_.size() == 2; });
  EXPECT_TRUE(away_.empty());
}

TEST_F(AgentLinkTest, ARequestThatTheAgentRefusesLeavesTheOthers) {
  std::string answers = kAnswers;
  answers.replace(answers.find(R"({"row":{"maxIn)"), std::string::npos, "{\"error\":\"no such entity\"}\n");
  const auto agent = this->agent(answers);
  AgentLink link = this->link();
  link.ask();
  runUntil([&] { return looks_.size() == 1; });
  EXPECT_EQ(looks_[0].budget, std::nullopt);
  EXPECT_EQ(looks_[0].ports.size(), 1U);
}

TEST_F(AgentLinkTest, SaysThatNoAgentIsThereAndFindsItWhenItComes) {
  AgentLink link = this->link();
  link.ask();
  runUntil([&] { return away_.size() == 1; });
  EXPECT_EQ(away_[0], "no agent answers: No such file or directory");
  const auto agent = this->agent(kAnswers);
  link.ask();
  runUntil([&] { return looks_.size() == 1; });
}

TEST_F(AgentLinkTest, FindsAnAgentThatWasStartedAnew) {
  auto agent = this->agent(kAnswers);
  AgentLink link = this->link();
  link.ask();
  runUntil([&] { return looks_.size() == 1; });
  agent.reset();
  std::filesystem::remove(path());
  link.ask();
  runUntil([&] { return away_.size() == 1; });
  agent = this->agent(kAnswers);
  link.ask();
  runUntil([&] { return looks_.size() == 2; });
}

TEST_F(AgentLinkTest, AnAgentThatHangsIsToldOfWithoutWaitingAndHeardWhenItGoesOn) {
  const auto agent = this->agent("");
  AgentLink link = this->link(std::chrono::seconds(0));
  link.ask();
  runUntil([&] { return agent->requests() == 4; });
  EXPECT_TRUE(away_.empty());
  link.ask();
  link.ask();
  EXPECT_EQ(away_.size(), 2U);
  EXPECT_THAT(away_[0], HasSubstr("has not answered for"));
  EXPECT_EQ(agent->requests(), 4U);  // and is not asked the same again
}

TEST_F(AgentLinkTest, AnAnswerThatIsNoneEndsTheConnection) {
  for (const std::string answer : {"nonsense\n", "{\"row\":{\"intfId\":1}}\n", "{}\n", "[]\n"}) {
    std::filesystem::remove(path());
    away_.clear();
    const auto agent = this->agent(answer);
    AgentLink link = this->link();
    link.ask();
    runUntil([&] { return away_.size() == 1; });
    EXPECT_THAT(away_[0], HasSubstr("its answer is none")) << answer;
    EXPECT_TRUE(looks_.empty());
  }
}

TEST_F(AgentLinkTest, APathTooLongForASocketIsSaid) {
  AgentLink link(io_, std::string(200, 'x'),
                 {.answered = [](const AgentLook&) {},
                  .away = [this](const std::string& why) { away_.push_back(why); }});
  link.ask();
  EXPECT_EQ(away_.size(), 1U);
}

}  // namespace

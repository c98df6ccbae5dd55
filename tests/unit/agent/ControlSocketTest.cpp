#include "agent/ControlSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <asio.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "TempDir.h"
#include "json/JsonText.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// A client that never blocks, so that a test can turn the server's wheel between its steps.
class Client {
 public:
  explicit Client(const std::filesystem::path& path)
      : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    connected_ = ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~Client() { ::close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool connected() const { return connected_; }
  void send(std::string_view text) const {
    EXPECT_EQ(::send(socket_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }
  // What has come by now; sets closed() when the server has left.
  std::string received() {
    std::string result;
    char bytes[65536];
    ssize_t got = 0;
    while ((got = ::recv(socket_, bytes, sizeof bytes, 0)) > 0)
      result.append(bytes, static_cast<std::size_t>(got));
    // A server that leaves with bytes of ours unread resets the connection.
    closed_ = got == 0 || errno == ECONNRESET;
    return result;
  }
  bool closed() const { return closed_; }

 private:
  int socket_;
  bool connected_ = false;
  bool closed_ = false;
};

class ControlSocketTest : public ::testing::Test {
 protected:
  void serve(Pexa::ControlSocket::Handler handler) { server_.emplace(io_, path_, std::move(handler)); }
  void serveEcho() {
    serve([](const Kiv::Value& request) { return Pexa::oneRow(request); });
  }
  void turn() {
    while (io_.poll() != 0) continue;
    io_.restart();
  }
  std::string answerTo(Client& client, std::string_view request) {
    client.send(request);
    turn();
    return client.received();
  }

  TestSupport::TempDir dir_;
  const std::filesystem::path path_ = std::filesystem::path(dir_.path()) / "control.sock";
  asio::io_context io_;
  std::optional<Pexa::ControlSocket> server_;
};

TEST_F(ControlSocketTest, AnswersRowsThenTheEnd) {
  serve([](const Kiv::Value&) { return Pexa::rowsOf({1, "two"}); });
  Client client(path_);
  EXPECT_EQ(answerTo(client, "{\"request\":\"x\"}\n"), "{\"row\":1}\n{\"row\":\"two\"}\n{\"end\":true}\n");
}

TEST_F(ControlSocketTest, AnswersOneRequestAfterAnother) {
  serveEcho();
  Client client(path_);
  EXPECT_EQ(answerTo(client, "{\"a\":1}\n{\"b\":2}\n"),
            "{\"row\":{\"a\":1}}\n{\"end\":true}\n{\"row\":{\"b\":2}}\n{\"end\":true}\n");
  EXPECT_EQ(answerTo(client, "{\"c\":3}\n"), "{\"row\":{\"c\":3}}\n{\"end\":true}\n");
}

TEST_F(ControlSocketTest, ARequestMayComeInPieces) {
  serveEcho();
  Client client(path_);
  EXPECT_EQ(answerTo(client, "{\"a\""), "");
  EXPECT_EQ(answerTo(client, ":1}\n"), "{\"row\":{\"a\":1}}\n{\"end\":true}\n");
}

TEST_F(ControlSocketTest, ARequestThatIsWrongIsToldSoAndTheNextIsAnswered) {
  serve([](const Kiv::Value& request) {
    if (request.member("bad") != nullptr) throw Kiv::TypeError("no such thing");
    return Pexa::noRows();
  });
  Client client(path_);
  EXPECT_THAT(answerTo(client, "nonsense\n"), StartsWith("{\"error\":\"not JSON at byte 2"));
  EXPECT_EQ(answerTo(client, "[1]\n"), "{\"error\":\"a request is a JSON object\"}\n");
  EXPECT_EQ(answerTo(client, "{\"bad\":1}\n"), "{\"error\":\"no such thing\"}\n");
  EXPECT_EQ(answerTo(client, "{}\n"), "{\"end\":true}\n");
}

TEST_F(ControlSocketTest, AnErrorInTheMiddleEndsTheAnswer) {
  serve([](const Kiv::Value&) {
    return [left = 2]() mutable -> std::optional<Kiv::Value> {
      if (left-- == 0) throw std::runtime_error("lost");
      return Kiv::Value(left);
    };
  });
  Client client(path_);
  EXPECT_EQ(answerTo(client, "{}\n"), "{\"row\":1}\n{\"row\":0}\n{\"error\":\"lost\"}\n");
}

TEST_F(ControlSocketTest, ARequestTooLongIsRefusedAndTheClientLeft) {
  serveEcho();
  Client client(path_);
  client.send(std::string(Pexa::ControlSocket::kMostRequestBytes + 1, 'x'));
  turn();
  EXPECT_EQ(client.received(), "{\"error\":\"request longer than 65536 bytes\"}\n");
  EXPECT_TRUE(client.closed());
  EXPECT_EQ(server_->clients(), 0U);
}

TEST_F(ControlSocketTest, AClientThatDoesNotReadHoldsUpNobodyAndNoMemory) {
  std::size_t formed = 0;
  serve([&](const Kiv::Value& request) -> Pexa::ControlSocket::Rows {
    if (request.member("quick") != nullptr) return Pexa::noRows();
    return [&formed]() -> std::optional<Kiv::Value> {
      ++formed;
      return Kiv::Value(std::string(1000, 'x'));
    };
  });
  Client slow(path_);
  slow.send("{}\n");
  turn();
  const std::size_t formedForSlow = formed;
  EXPECT_LT(formedForSlow, 10'000U);  // what the socket took and one slice, of an endless answer
  Client quick(path_);
  EXPECT_EQ(answerTo(quick, "{\"quick\":1}\n"), "{\"end\":true}\n");
  EXPECT_EQ(formed, formedForSlow);
  slow.received();
  turn();
  EXPECT_GT(formed, formedForSlow);
}

TEST_F(ControlSocketTest, AClientThatLeavesIsForgotten) {
  serveEcho();
  {
    Client client(path_);
    turn();
    EXPECT_EQ(server_->clients(), 1U);
  }
  turn();
  EXPECT_EQ(server_->clients(), 0U);
}

TEST_F(ControlSocketTest, OneClientTooManyIsRefused) {
  serveEcho();
  std::vector<std::unique_ptr<Client>> clients;
  for (std::size_t i = 0; i < Pexa::ControlSocket::kMostClients; ++i) {
    clients.push_back(std::make_unique<Client>(path_));
    turn();
  }
  Client extra(path_);
  turn();
  EXPECT_THAT(extra.received(), HasSubstr("64 clients are connected already"));
  EXPECT_TRUE(extra.closed());
  clients.pop_back();
  turn();
  Client next(path_);
  EXPECT_EQ(answerTo(next, "{}\n"), "{\"row\":{}}\n{\"end\":true}\n");
}

TEST_F(ControlSocketTest, WithoutDescriptorsAClientIsToldAndTheProcessRests) {
  serveEcho();
  Client waiting(path_);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = ::dup(0);  // the lowest free one: nothing above it can be opened
  ::close(next);
  const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::size_t turns = 0;
  for (; turns < 1000 && io_.poll() != 0; ++turns) io_.restart();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_LT(turns, 10U);  // else it tries again and again at once
  EXPECT_THAT(waiting.received(), HasSubstr("{\"error\":\"no connection can be taken: Too many open files"));
  EXPECT_TRUE(waiting.closed());
  io_.restart();
  Client later(path_);
  later.send("{}\n");
  std::string answer;
  while (answer.empty() && io_.run_one_for(std::chrono::seconds(60)) != 0) answer = later.received();
  EXPECT_EQ(answer, "{\"row\":{}}\n{\"end\":true}\n");
}

TEST_F(ControlSocketTest, AnAnswerForWhichThereIsNoMemoryIsAnError) {
  serve([](const Kiv::Value& request) -> Pexa::ControlSocket::Rows {
    if (request.member("at once") != nullptr) throw std::bad_alloc();
    return []() -> std::optional<Kiv::Value> { throw std::bad_alloc(); };
  });
  Client client(path_);
  for (const char* request : {"{\"at once\":1}\n", "{}\n"}) {
    EXPECT_EQ(answerTo(client, request), "{\"error\":\"there is not enough memory for the answer\"}\n");
  }
}

TEST_F(ControlSocketTest, AnOldAgentsLinkIsTakenAwayAndNotFollowed) {
  const auto victim = path_.parent_path() / "victim";
  std::ofstream(victim) << "precious";
  std::filesystem::create_symlink(victim, path_);
  serveEcho();
  EXPECT_TRUE(Client(path_).connected());
  EXPECT_TRUE(std::filesystem::is_socket(std::filesystem::symlink_status(path_)));
  EXPECT_EQ(std::filesystem::file_size(victim), 8U);
}

TEST_F(ControlSocketTest, ItsFileIsNoWiderThanTheRightsOfTheDirectory) {
  const auto modeWithDirectory = [&](unsigned directory) {
    server_.reset();
    std::filesystem::permissions(path_.parent_path(), std::filesystem::perms(directory));
    const mode_t before = ::umask(0077);  // whatever this is
    serveEcho();
    ::umask(before);
    return static_cast<unsigned>(std::filesystem::status(path_).permissions());
  };
  EXPECT_EQ(modeWithDirectory(0700), 0600U);
  EXPECT_EQ(modeWithDirectory(0750), 0660U);
  EXPECT_EQ(modeWithDirectory(0755), 0660U);
}

TEST_F(ControlSocketTest, TakesTheFileOfADeadAgentAndLeavesNone) {
  std::ofstream(path_) << "left behind";
  serveEcho();
  EXPECT_TRUE(Client(path_).connected());
  server_.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(ControlSocketTest, APathTooLongForASocketIsSaidSo) {
  const auto longPath = std::filesystem::path(dir_.path()) / std::string(120, 'x');
  try {
    Pexa::ControlSocket(io_, longPath, [](const Kiv::Value&) { return Pexa::noRows(); });
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("too long for a socket, expected at most 107 bytes"));
  }
}

}  // namespace

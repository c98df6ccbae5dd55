// The endpoint as a client meets it.
#include "metrics/MetricEndpoint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <asio.hpp>
#include <thread>

#include "Kiv.h"

namespace {

using asio::ip::tcp;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Metrics::ListenAddress;

// What the server answers to these bytes, until it closes.
std::string answerTo(const ListenAddress& server, const std::string& request) {
  asio::io_context io;
  tcp::socket socket(io);
  socket.connect({asio::ip::make_address(server.address), server.port});
  asio::write(socket, asio::buffer(request));
  std::string answer;
  asio::error_code end;
  asio::read(socket, asio::dynamic_buffer(answer), end);
  return answer;
}
std::string get(const ListenAddress& server, const std::string& path = "/metrics") {
  return answerTo(server, "GET " + path + " HTTP/1.1\r\nHost: x\r\n\r\n");
}

class MetricEndpointTest : public testing::Test {
 protected:
  // Serves while the test asks; the test's thread is the client.
  void serve(std::function<Metrics::Snapshot()> take) {
    endpoint_.serve(io_, std::move(take));
    thread_ = std::thread([this] {
      const auto guard = asio::make_work_guard(io_);
      io_.run();
    });
  }
  ~MetricEndpointTest() override {
    io_.stop();
    if (thread_.joinable()) thread_.join();
  }

  asio::io_context io_;
  Metrics::MetricEndpoint endpoint_{ListenAddress{"127.0.0.1", 0}};
  const ListenAddress at_ = endpoint_.listening();
  std::thread thread_;
};

TEST_F(MetricEndpointTest, TheTextHasFamiliesNumbersAndBuckets) {
  serve([] {
    Metrics::Snapshot snapshot;
    snapshot.counter("sacks_total", "Sacks.").add({{"corn", "rye"}}, 7);
    snapshot.gauge("level", "Of \"water\".").add(0.5);
    Metrics::Histogram histogram(std::array{0.25, 0.5});
    histogram.observe(0.3);
    histogram.observe(2);
    snapshot.histogram("sizes", "Of sacks.").add({{"of", "rye"}}, histogram);
    snapshot.counter("nothing_total", "Not shown.");
    return snapshot;
  });
  const std::string answer = get(at_);
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(
      answer,
      HasSubstr("# HELP sacks_total Sacks.\n# TYPE sacks_total counter\nsacks_total{corn=\"rye\"} 7\n"));
  EXPECT_THAT(answer, HasSubstr("# TYPE level gauge\nlevel 0.5\n"));
  EXPECT_THAT(answer, HasSubstr("sizes_count{of=\"rye\"} 2\n"));
  EXPECT_THAT(answer, HasSubstr("sizes_bucket{of=\"rye\",le=\"0.25\"} 0\n"));
  EXPECT_THAT(answer, HasSubstr("sizes_bucket{of=\"rye\",le=\"0.5\"} 1\n"));
  EXPECT_THAT(answer, HasSubstr("sizes_bucket{of=\"rye\",le=\"+Inf\"} 2\n"));
  EXPECT_THAT(answer, HasSubstr("pexa_metrics_age_seconds "));
  EXPECT_THAT(answer, Not(HasSubstr("nothing_total")));
}

TEST_F(MetricEndpointTest, ALabelOfAnyBytesLeavesTheAnswerReadable) {
  serve([] {
    Metrics::Snapshot snapshot;
    snapshot.counter("sacks_total", "").add({{"corn", "a\"b\\c\nd\xff\xc3\xa9"}}, 1);
    return snapshot;
  });
  EXPECT_THAT(get(at_), HasSubstr("sacks_total{corn=\"a\\\"b\\\\c\\nd\xef\xbf\xbd\xc3\xa9\"} 1\n"));
}

TEST_F(MetricEndpointTest, OtherPathsAndWhatIsNoRequestAreRefused) {
  serve([] { return Metrics::Snapshot(); });
  EXPECT_THAT(get(at_, "/"), StartsWith("HTTP/1.1 404"));
  EXPECT_THAT(get(at_, "/../../etc/passwd"), Not(HasSubstr("root:")));
  EXPECT_THAT(answerTo(at_, "nonsense\r\n\r\n"), HasSubstr(" 400 Bad Request\r\n"));
}

TEST_F(MetricEndpointTest, BeforeItServesThereIsNothing) {
  EXPECT_THAT(get(at_), StartsWith("HTTP/1.1 404"));
}

TEST_F(MetricEndpointTest, ATakenPortIsToldWithTheSystemsReason) {
  try {
    Metrics::MetricEndpoint second(at_);
    FAIL() << "two on one port";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Address already in use");
  }
}

TEST(MetricEndpointEndTest, EndsWhileClientsWaitForAnAgentThatIsSilent) {
  asio::io_context nobodyRunsIt;
  auto endpoint = std::make_unique<Metrics::MetricEndpoint>(ListenAddress{"127.0.0.1", 0});
  const ListenAddress at = endpoint->listening();
  endpoint->serve(nobodyRunsIt, [] { return Metrics::Snapshot(); });
  asio::io_context io;
  tcp::socket asks(io);
  tcp::socket saysNothing(io);
  for (tcp::socket* client : {&asks, &saysNothing})
    client->connect({asio::ip::make_address(at.address), at.port});
  asio::write(asks, asio::buffer(std::string("GET /metrics HTTP/1.1\r\n\r\n")));
  endpoint.reset();
  tcp::socket late(io);
  asio::error_code refused;
  late.connect({asio::ip::make_address(at.address), at.port}, refused);
  EXPECT_EQ(refused, asio::error::connection_refused);
}

TEST(ListenAddressTest, AddressAndPortAreReadAndWritten) {
  for (const char* text : {"127.0.0.1:9475", "0.0.0.0:0", "10.1.2.3:65535"})
    EXPECT_EQ(ListenAddress::of(text).text(), text);
  EXPECT_EQ(ListenAddress::of("10.1.2.3:80").address, "10.1.2.3");
}

TEST(ListenAddressTest, AnythingElseIsRefused) {
  for (const char* text :
       {"", "9475", ":9475", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:80s",
        "localhost:80", "::1:80", "[::1]", "[127.0.0.1]:80", "[::1]:80", "127.0.0.1:80,+81"}) {
    EXPECT_THROW(ListenAddress::of(text), Kiv::ValueError) << text;
  }
}

}  // namespace

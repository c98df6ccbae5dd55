#include "metrics/MetricEndpoint.h"

#include <fmt/format.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <asio.hpp>
#include <charconv>
#include <future>

#include "KivValue.h"
#include "json/JsonText.h"
#include "metrics/SnapshotDesk.h"

namespace Metrics {
namespace {

// Requests that are answered at a time; one that waits for its client's words waits so long.
constexpr const char* kThreads = "4";
constexpr const char* kRequestMilliseconds = "2000";

prometheus::MetricType typeOf(Kind kind) {
  switch (kind) {
    case Kind::counter:
      return prometheus::MetricType::Counter;
    case Kind::gauge:
      return prometheus::MetricType::Gauge;
    case Kind::histogram:
      return prometheus::MetricType::Histogram;
  }
  return prometheus::MetricType::Untyped;
}

// One byte that is not UTF-8 would cost the reader the whole answer.
std::string utf8(const std::string& text) {
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return c >= 0; });
  return ascii ? text : *Json::parse(Json::text(text)).as<Kiv::String>();
}

prometheus::ClientMetric metricOf(const Labels& labels) {
  prometheus::ClientMetric metric;
  for (const auto& [name, value] : labels) metric.label.push_back({name, utf8(value)});
  return metric;
}

prometheus::ClientMetric numberOf(Kind kind, const Labels& labels, double value) {
  prometheus::ClientMetric metric = metricOf(labels);
  (kind == Kind::counter ? metric.counter.value : metric.gauge.value) = value;
  return metric;
}

prometheus::ClientMetric histogramOf(const Labels& labels, const Histogram& histogram) {
  prometheus::ClientMetric metric = metricOf(labels);
  metric.histogram.sample_count = histogram.count();
  metric.histogram.sample_sum = histogram.sum();
  for (const Histogram::Bucket& bucket : histogram.buckets())
    metric.histogram.bucket.push_back({bucket.count, bucket.bound});
  return metric;
}

std::vector<prometheus::MetricFamily> familiesOf(const Snapshot& snapshot) {
  std::vector<prometheus::MetricFamily> families;
  for (const auto& [name, family] : snapshot.families()) {
    prometheus::MetricFamily made{name, family.help(), typeOf(family.kind()), {}};
    for (const auto& [labels, value] : family.numbers())
      made.metric.push_back(numberOf(family.kind(), labels, value));
    for (const auto& [labels, histogram] : family.histograms())
      made.metric.push_back(histogramOf(labels, histogram));
    if (!made.metric.empty()) families.push_back(std::move(made));
  }
  return families;
}

// Asked on the server's threads.
class DeskCollectable : public prometheus::Collectable {
 public:
  explicit DeskCollectable(SnapshotDesk& desk) : desk_(desk) {}
  // The server's threads are not made for exceptions.
  std::vector<prometheus::MetricFamily> Collect() const override {
    try {
      return collect();
    } catch (const std::exception& error) {
      spdlog::error("metrics: {}", error.what());
      return {};
    }
  }

 private:
  std::vector<prometheus::MetricFamily> collect() const {
    const SnapshotDesk::Answer answer = desk_.ask(MetricEndpoint::kPatience);
    if (!answer.snapshot) return {};
    auto families = familiesOf(*answer.snapshot);
    Snapshot own;
    own.gauge("pexa_metrics_age_seconds",
              "How long ago these numbers were taken: seconds when the agent's loop does not answer.")
        .add(answer.age.count());
    for (auto& family : familiesOf(own)) families.push_back(std::move(family));
    return families;
  }

  SnapshotDesk& desk_;
};

// The library's server tells nobody why it cannot listen.
void tryToListen(const ListenAddress& listen) {
  asio::io_context io;
  asio::ip::tcp::acceptor acceptor(io);
  const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(listen.address), listen.port);
  acceptor.open(endpoint.protocol());
  acceptor.set_option(asio::socket_base::reuse_address(true));
  acceptor.bind(endpoint);
}

// Connects and leaves.
void knockAt(const ListenAddress& listen) {
  asio::io_context io;
  asio::ip::tcp::socket socket(io);
  asio::error_code ignored;
  socket.connect({asio::ip::make_address(listen.address), listen.port}, ignored);
}

}  // namespace

ListenAddress ListenAddress::of(const std::string& text) {
  const auto refused = [&] {
    return Kiv::ValueError(
        fmt::format("\"{}\", expected a numeric IPv4 address and a port, as in \"127.0.0.1:9475\"", text));
  };
  const auto colon = text.rfind(':');
  if (colon == std::string::npos) throw refused();
  ListenAddress result{text.substr(0, colon), 0};
  asio::error_code wrong;
  asio::ip::make_address_v4(result.address, wrong);
  if (wrong) throw refused();
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data() + colon + 1, end, result.port);
  if (parsed.ec != std::errc() || parsed.ptr != end) throw refused();
  return result;
}

std::string ListenAddress::text() const {
  return fmt::format("{}:{}", address, port);
}

class MetricEndpoint::Server {
 public:
  explicit Server(const ListenAddress& listen)
      : address_(listen.address),
        exposer_(std::make_unique<prometheus::Exposer>(
            std::vector<std::string>{"listening_ports", listen.text(), "num_threads", kThreads,
                                     "request_timeout_ms", kRequestMilliseconds})) {}
  // Its threads wait at the desk at most, which closes first. It looks whether it is to end when somebody
  // connects, and else every two seconds only: so somebody does.
  ~Server() {
    const ListenAddress self{address_, port()};
    if (desk_) desk_->close();
    const auto ended = std::async(std::launch::async, [this] { exposer_.reset(); });
    while (ended.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) knockAt(self);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void serve(asio::io_context& io, std::function<Snapshot()> take) {
    desk_ = std::make_unique<SnapshotDesk>(io, std::move(take));
    collectable_ = std::make_shared<DeskCollectable>(*desk_);
    exposer_->RegisterCollectable(collectable_);
  }
  std::uint16_t port() const { return static_cast<std::uint16_t>(exposer_->GetListeningPorts().at(0)); }

 private:
  const std::string address_;
  std::unique_ptr<SnapshotDesk> desk_;
  std::shared_ptr<DeskCollectable> collectable_;
  std::unique_ptr<prometheus::Exposer> exposer_;
};

MetricEndpoint::MetricEndpoint(const ListenAddress& listen) : listening_(listen) {
  try {
    tryToListen(listen);
    server_ = std::make_unique<Server>(listen);
  } catch (const asio::system_error& error) {
    throw std::runtime_error(error.code().message());
  }
  listening_.port = server_->port();
}

MetricEndpoint::~MetricEndpoint() = default;

void MetricEndpoint::serve(asio::io_context& io, std::function<Snapshot()> take) {
  server_->serve(io, std::move(take));
}

}  // namespace Metrics

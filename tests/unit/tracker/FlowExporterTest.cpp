#include "FlowExporter.h"

#include <gtest/gtest.h>

#include <asio.hpp>

#include "IpfixReader.h"
#include "ManualClock.h"

namespace {

using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

// A collector's end: reads what has arrived on the loopback interface, where it arrives while it is sent.
class Receiver {
 public:
  explicit Receiver(asio::io_context& io)
      : socket_(io, asio::ip::udp::endpoint(asio::ip::address_v4::loopback(), 0)) {
    socket_.non_blocking(true);
  }
  asio::ip::udp::endpoint endpoint() const { return socket_.local_endpoint(); }
  TestSupport::IpfixReader& read() {
    std::vector<std::uint8_t> bytes(65535);
    asio::error_code error;
    for (;;) {
      const std::size_t length = socket_.receive(asio::buffer(bytes), 0, error);
      if (error) return reader_;
      reader_.message({bytes.data(), length});
    }
  }

 private:
  asio::ip::udp::socket socket_;
  TestSupport::IpfixReader reader_;
};

class FlowExporterTest : public testing::Test {
 protected:
  static Tracker::FlowRecord<IPv4> record4() {
    Tracker::FlowRecord<IPv4> record;
    record.counts.add(1, 100, 1, 2);
    return record;
  }
  Tracker::FlowExporter exporterTo(const std::vector<asio::ip::udp::endpoint>& endpoints) {
    std::vector<Tracker::Collector> collectors;
    for (const auto& each : endpoints) collectors.emplace_back(io_, "collector", each);
    return {config_, std::move(collectors)};
  }

  TestSupport::ManualClock clock_;
  asio::io_context io_;
  Tracker::ExportConfig config_{.observationDomain = 5, .templateRefresh = 60};
};

TEST_F(FlowExporterTest, EveryCollectorGetsEverything) {
  Receiver first(io_);
  Receiver second(io_);
  auto exporter = exporterTo({first.endpoint(), second.endpoint()});
  exporter.record(record4());
  exporter.record(Tracker::FlowRecord<IPv6>{{}, 0, 0, record4().counts, {}});
  exporter.tick();
  for (Receiver* each : {&first, &second}) {
    EXPECT_EQ(each->read().records.size(), 2U);
    EXPECT_EQ(each->read().domain, 5U);
  }
  EXPECT_EQ(exporter.collectors()[0].sent(), 2U);
  EXPECT_EQ(exporter.collectors()[1].lost(), 0U);
}

TEST_F(FlowExporterTest, RecordsWaitForTheTick) {
  Receiver receiver(io_);
  auto exporter = exporterTo({receiver.endpoint()});
  exporter.record(record4());
  EXPECT_EQ(receiver.read().records.size(), 0U);
  exporter.tick();
  EXPECT_EQ(receiver.read().records.size(), 1U);
}

TEST_F(FlowExporterTest, TemplatesComeFirstAndAgain) {
  Receiver receiver(io_);
  auto exporter = exporterTo({receiver.endpoint()});
  exporter.tick();
  EXPECT_EQ(receiver.read().templates, 4U);
  clock_.advance(59);
  exporter.tick();
  EXPECT_EQ(receiver.read().templates, 4U);
  clock_.advance(1);
  exporter.tick();
  EXPECT_EQ(receiver.read().templates, 8U);
  clock_.advance(-5000);  // set back
  exporter.tick();
  EXPECT_EQ(receiver.read().templates, 12U);
}

TEST_F(FlowExporterTest, ACollectorWhereNobodyListensIsInNobodysWay) {
  std::optional<Receiver> gone(std::in_place, io_);
  Receiver receiver(io_);
  auto exporter = exporterTo({gone->endpoint(), receiver.endpoint()});
  gone.reset();
  for (int i = 0; i < 5; ++i) {
    exporter.record(record4());
    exporter.tick();
  }
  EXPECT_EQ(receiver.read().records.size(), 5U);
  EXPECT_GT(exporter.collectors()[0].refused(), 0U);
  EXPECT_EQ(exporter.collectors()[1].refused(), 0U);
  EXPECT_EQ(exporter.failed(), 0U);
}

TEST_F(FlowExporterTest, WithoutCollectorsNothingIsEncoded) {
  auto exporter = exporterTo({});
  exporter.record(record4());
  exporter.tick();
  EXPECT_EQ(exporter.failed(), 0U);
  EXPECT_TRUE(exporter.value().as<Kiv::Value::List>()->empty());
}

}  // namespace

// The agent's Prometheus endpoint: http://ADDRESS:PORT/metrics.
//
// The library's server runs on threads of its own, which touch nothing of the agent's: they ask a
// SnapshotDesk for numbers and write them out. A client that is slow, or many, hold up only each other.
//
// Beside the snapshot's families stand those of the library's server (exposer_...), and
// pexa_metrics_age_seconds: when the agent's loop does not answer in time, the numbers are the latest that
// are known, and it tells how old.
//
// Threading: everything is called on the event thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Metrics.h"

namespace asio {
class io_context;
}

namespace Metrics {

// Where to listen: a numeric IPv4 address and a port, 0 for any. Debian's build of the server that the
// library uses knows no IPv6.
struct ListenAddress {
  std::string address;
  std::uint16_t port = 0;

  // Of "127.0.0.1:9475". Throws Kiv::ValueError with what was expected.
  static ListenAddress of(const std::string& text);
  // The same text again.
  std::string text() const;
};

class MetricEndpoint {
 public:
  static constexpr std::chrono::seconds kPatience{2};  // with the event thread

  // Listens, and answers that nothing is there. Throws std::runtime_error with why it cannot.
  explicit MetricEndpoint(const ListenAddress& listen);
  // Ends all requests, answered or not.
  ~MetricEndpoint();
  MetricEndpoint(const MetricEndpoint&) = delete;
  MetricEndpoint& operator=(const MetricEndpoint&) = delete;

  // To be called once: answers with snapshots from now on, taken from within the io_context.
  void serve(asio::io_context& io, std::function<Snapshot()> take);
  // Where it listens, with the port that it got.
  const ListenAddress& listening() const { return listening_; }

 private:
  class Server;
  std::unique_ptr<Server> server_;
  ListenAddress listening_;
};

}  // namespace Metrics

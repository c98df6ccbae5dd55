#include "Daemon.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <optional>
#include <utility>

#include "DatagramSocket.h"
#include "FlowExporter.h"
#include "FlowTracker.h"
#include "HostPort.h"
#include "TrackerRequests.h"
#include "agent/ControlSocket.h"
#include "agent/RunDir.h"
#include "json/JsonText.h"

namespace Tracker {
namespace {

using Pexa::ControlSocket;

constexpr std::string_view kSocketName = "flow-tracker.sock";
constexpr std::chrono::seconds kTick(1);
constexpr std::chrono::milliseconds kLookPause(250);  // between looks at what is published, at least

asio::ip::udp::endpoint listenEndpoint(const TrackerConfig& config) {
  try {
    return endpointOf(config.listen, 0);
  } catch (const Kiv::ValueError& error) {
    throw Pexa::ConfigError(config.listenPlace, fmt::format("listen {}", error.what()));
  }
}

DatagramSocket boundSocket(asio::io_context& io, const TrackerConfig& config) {
  const auto endpoint = listenEndpoint(config);
  try {
    return {io, endpoint};
  } catch (const std::system_error& error) {
    throw Pexa::ConfigError(
        config.listenPlace,
        fmt::format("listen \"{}\": {}, expected an address of this machine and a port that "
                    "nobody listens on",
                    config.listen, error.code().message()));
  }
}

std::vector<Collector> collectorsOf(asio::io_context& io, const TrackerConfig& config) {
  std::vector<Collector> collectors;
  for (const CollectorConfig& each : config.collectors) {
    try {
      collectors.emplace_back(io, each.address, endpointOf(each.address));
    } catch (const Kiv::ValueError& error) {
      throw Pexa::ConfigError(each.place, fmt::format("collector {}", error.what()));
    }
  }
  return collectors;
}

// The rights of root were for the sockets: what comes after them is done as whom it belongs to.
const std::string& madeRunDir(const TrackerConfig& config) {
  Pexa::runDirIs(config.runDir, config.security.user);
  if (config.security.user) Guard::become(*config.security.user, Guard::Keep::nothing);
  return config.runDir.native();
}

}  // namespace

class Daemon::Impl {
 public:
  explicit Impl(const TrackerConfig& config)
      : exporter_(config.ipfix, collectorsOf(io_, config)),
        socket_(boundSocket(io_, config)),
        tables_(madeRunDir(config)),
        tracker_(config.limits, config.interfaces, tables_, exporter_),
        control_(
            io_, config.runDir / kSocketName,
            [this](const Kiv::Value& request) { return requests_.answer(request); },
            ControlSocket::Access{config.security.groups, {}}) {
    const auto adopted =
        tracker_.table<Pavo::Traits::IPv4>().size() + tracker_.table<Pavo::Traits::IPv6>().size();
    if (adopted != 0) spdlog::info("{} wanted offloads taken over", adopted);
  }

  void run() {
    socket_.start([this](std::span<const std::uint8_t> bytes) { tracker_.datagram(bytes); },
                  [this] { tracker_.flush(); });
    waitForTick();
    waitForSignal();
    waitForTables();
    spdlog::info("ready: listening on {}", textOf(socket_.endpoint()));
    io_.run();
    socket_.finish();
    tracker_.finish();
    exporter_.tick();
  }

 private:
  void waitForTick() {
    timer_.expires_after(kTick);
    timer_.async_wait([this](const asio::error_code& error) {
      if (error) return;
      look();
      exporter_.tick();
      waitForTick();
    });
  }

  void waitForSignal() {
    signals_.async_wait([this](const asio::error_code& error, int signal) {
      if (error) return;
      if (signal != SIGUSR1) {
        spdlog::info("signal {}: ending", signal);
        io_.stop();
        return;
      }
      spdlog::info("statistics: {}", Json::text(requests_.statistics()));
      waitForSignal();
    });
  }

  void waitForTables() {
    notices_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const asio::error_code& error) {
      if (error) return;
      tables_.deliver();
      lookSoon();
      waitForTables();
    });
  }

  // At once, unless there was a look just now.
  void lookSoon() {
    if (std::exchange(lookIsDue_, true)) return;
    look_.expires_at(lastLook_ + kLookPause);
    look_.async_wait([this](const asio::error_code& error) {
      if (error) return;
      lookIsDue_ = false;
      look();
    });
  }

  // At every flow that is wanted, so the pause is between the end of one and the next: datagrams come
  // meanwhile.
  void look() {
    tracker_.tick();
    lastLook_ = std::chrono::steady_clock::now();
  }

  asio::io_context io_;
  FlowExporter exporter_;
  DatagramSocket socket_;
  OffloadTables tables_;
  FlowTracker tracker_;
  TrackerRequests requests_{tracker_, exporter_, socket_};
  ControlSocket control_;
  asio::steady_timer timer_{io_};
  asio::steady_timer look_{io_};
  std::chrono::steady_clock::time_point lastLook_;
  bool lookIsDue_ = false;
  asio::signal_set signals_{io_, SIGTERM, SIGINT, SIGUSR1};
  asio::posix::stream_descriptor notices_{io_, ::dup(tables_.descriptor())};
};

Daemon::Daemon(const TrackerConfig& config) : impl_(std::make_unique<Impl>(config)) {}

Daemon::~Daemon() = default;

void Daemon::run() {
  impl_->run();
}

}  // namespace Tracker

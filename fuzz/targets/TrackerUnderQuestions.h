// A flow tracker that has seen any history of samples, hardware and time, behind its control socket.
#pragma once

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "ControlClient.h"
#include "DatagramSocket.h"
#include "FlowExporter.h"
#include "FlowTracker.h"
#include "FuzzInput.h"
#include "ManualClock.h"
#include "MemoryTables.h"
#include "SflowText.h"
#include "TempDir.h"
#include "TrackerRequests.h"

namespace FuzzSupport {

class TrackerUnderQuestions {
 public:
  static constexpr std::size_t kFlows = 16;

  TrackerUnderQuestions() = default;
  TrackerUnderQuestions(const TrackerUnderQuestions&) = delete;
  TrackerUnderQuestions& operator=(const TrackerUnderQuestions&) = delete;

  // Takes two bytes: what happens, and to which flow, or for how long.
  void step(FuzzInput& input) {
    const auto kind = input.take<std::uint8_t>() % 6U;
    const std::size_t which = input.take<std::uint8_t>();
    const auto sample = sampleOf(which % kFlows);
    if (kind <= 1) {
      tracker_.datagram(sample);
    } else if (kind == 2) {
      tracker_.datagram(sample.first(std::min(which, sample.size())));
    } else if (kind == 3) {
      ofWanted(which,
               [this](const auto& key) { memory_.stateIs(key, FlowTracking::HoFlowState::inHardware); });
    } else if (kind == 4) {
      packets_ += which;
      ofWanted(which, [this](const auto& key) {
        memory_.counterIs(key.ipFlowKey, packets_, 100 * packets_, clock_.now());
      });
    } else {
      clock_.advance(static_cast<double>(which));
      tracker_.tick();
    }
  }
  std::string answersTo(std::string_view lines) {
    ControlClient client(path_);
    client.send(lines);
    return client.answers([this] {
      io_.poll();
      io_.restart();
    });
  }
  const Tracker::FlowTracker& tracker() const { return tracker_; }

 private:
  // The bytes of a datagram. Lowest bit of the flow: its family; the next: its direction; the others: its
  // port.
  static std::vector<std::uint8_t> datagramOf(unsigned flow) {
    using TestSupport::PacketBuilder;
    auto packet = (flow & 1U) == 0 ? PacketBuilder().ipv4("10.0.0.1", "10.0.0.2")
                                   : PacketBuilder().ipv6("2001:db8::1", "2001:db8::2");
    packet.tcp(static_cast<std::uint16_t>(1000 + (flow >> 2U)), 80);
    return TestSupport::SflowText()
        .flowSample({.source = 1 + (flow >> 1U & 1U)},
                    {TestSupport::sampledHeader(packet.build()), TestSupport::extendedSwitch(9)})
        .bytes();
  }
  static std::span<const std::uint8_t> sampleOf(std::size_t flow) {
    static const auto kSamples = [] {
      std::array<std::vector<std::uint8_t>, kFlows> all;
      for (unsigned each = 0; each < kFlows; ++each) all[each] = datagramOf(each);
      return all;
    }();
    return kSamples[flow];
  }
  static Tracker::Interfaces twoInterfaces() {
    Tracker::Interfaces interfaces;
    interfaces.add({std::nullopt, 1, Pavo::IntfId("Ethernet1"), 1});
    interfaces.add({std::nullopt, 2, Pavo::IntfId("Ethernet2"), 1});
    return interfaces;
  }
  static std::filesystem::path socketPath() {
    static const TestSupport::TempDir kDir;
    return std::filesystem::path(kDir.path()) / "flow-tracker.sock";
  }
  // Calls with one key of what is wanted, when there are so many.
  template <class Each>
  void ofWanted(std::size_t which, const Each& each) {
    std::size_t at = 0;
    const auto of = [&](const auto& record) {
      if (at++ == which % kFlows) each(record.key);
    };
    memory_.tables.wanted<Pavo::Traits::IPv4>(of);
    memory_.tables.wanted<Pavo::Traits::IPv6>(of);
  }

  TestSupport::ManualClock clock_;
  asio::io_context io_;
  TestSupport::MemoryTables memory_;
  Tracker::FlowExporter exporter_{{}, {}};
  Tracker::DatagramSocket datagrams_{io_, {asio::ip::address_v4::loopback(), 0}};
  // So little room that samples push candidates out, and flows are refused.
  Tracker::FlowTracker tracker_{
      {.samplesToLearn = 2, .maxFlows = 3, .maxCandidates = 4}, twoInterfaces(), memory_.tables, exporter_};
  Tracker::TrackerRequests requests_{tracker_, exporter_, datagrams_};
  const std::filesystem::path path_ = socketPath();
  Pexa::ControlSocket socket_{io_, path_,
                              [this](const Kiv::Value& request) { return requests_.answer(request); }};
  std::uint64_t packets_ = 0;
};

}  // namespace FuzzSupport

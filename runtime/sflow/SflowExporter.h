// Exports samples and interface counters as sFlow version 5 datagrams over UDP.
//
//   sampler -> sampleIs() -> datagram being filled -> flush() -> every collector
//
// A port is one data source (ifIndex, its port index + 1), whichever way it is sampled: a collector tells the
// direction by whether the source is the sample's input or its output. So both directions, and all samplers,
// of a port share one sequence of flow samples, and the pool and the drops sent with a sample are the sums
// over them; only then do a collector's differences between two samples of a source make sense. Counter
// samples have a sequence of their own.
//
// A datagram goes out when the next sample would take it above 1,400 bytes, and at flush(). A sample whose
// datagram none of the collectors could be sent is lost: its sampler counts it, and the drops of later
// samples tell.
//
// Threading: the agent's event thread. Nothing waits; nothing allocates per sample.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Sflow.h"
#include "sflow/Collector.h"
#include "sflow/Counters.h"
#include "sflow/DatagramWriter.h"

namespace Sflow {

struct ExporterConfig {
  std::string agent = "127.0.0.1";  // this agent's address, IPv4 or IPv6, as the datagrams name it
  std::uint32_t subAgentId = 0;
  std::vector<std::string> collectors;  // "HOST:PORT"; without one samples are taken and go nowhere
  double counterInterval = 20;          // seconds between two counter samples of a port; 0: none
};

class SflowExporter : public SampleReceiver {
 public:
  struct CollectorState {
    std::unique_ptr<DatagramChannel> channel;
    std::uint64_t datagrams = 0;  // handed to the network
    std::uint64_t lost = 0;       // that did not get out, or that the collector refused
    bool formerSent = false;      // whether the datagram before was handed to the network
  };

  // Throws Kiv::ValueError when the agent's address or a collector is no such thing. The counter source, if
  // any, must outlive the exporter.
  explicit SflowExporter(const ExporterConfig& config, const CounterSource* counters = nullptr);
  // The same over channels of the caller's own; config.collectors is not looked at.
  SflowExporter(const ExporterConfig& config, const CounterSource* counters,
                std::vector<std::unique_ptr<DatagramChannel>> channels);
  ~SflowExporter() override;

  bool sampleIs(const Sample& sample) override;
  void samplerAdded(SflowSamplerHelperBase& sampler) override;
  void samplerRemoved(SflowSamplerHelperBase& sampler) override;
  const std::vector<SflowSamplerHelperBase*>& samplers() const { return samplers_; }

  // Sends what is in the datagram being filled. Call it at the end of a burst of packets, or of a slice.
  void flush();
  // Adds the counter samples that are due; each port has its own time within the interval. They go out with
  // the next flush().
  void countersDue();
  // UTC seconds at which countersDue() has something to do next; infinite when it never has.
  double nextCounters();

  const std::vector<CollectorState>& collectors() const { return collectors_; }

 private:
  // A data source: a port.
  struct Source {
    std::uint32_t flowSequence = 0;
    std::uint32_t counterSequence = 0;
    std::uint64_t formerPool = 0;  // of samplers that are gone
    std::uint64_t formerDrops = 0;
    double counterTime = 0;  // when its next counter sample is due, UTC
  };
  // Whose samples are in a datagram.
  struct Contents {
    struct Origin {
      SflowSamplerHelperBase* sampler = nullptr;
      std::uint32_t portIndex = 0;
      Bridging::AllowedTrafficDirection direction = Bridging::AllowedTrafficDirection::ingress;
    };
    std::vector<Origin> origins;
    std::size_t missedBy = 0;  // collectors that did not get it
  };

  Source& source(std::uint32_t portIndex);
  DatagramWriter::FlowSample flowSample(const Sample& sample);
  void addCounters(std::uint32_t portIndex);
  void missed(Contents& contents);
  void forget(const SflowSamplerHelperBase& sampler, Contents& contents);
  std::uint32_t uptime() const;

  const double started_;
  const double counterInterval_;
  const CounterSource* const counters_;
  DatagramWriter writer_;
  std::uint32_t datagramSequence_ = 0;
  std::vector<CollectorState> collectors_;
  std::vector<SflowSamplerHelperBase*> samplers_;
  std::vector<Source> sources_;  // by port index
  Contents filling_;
  Contents former_;  // of the datagram before, which a collector may still refuse
};

}  // namespace Sflow

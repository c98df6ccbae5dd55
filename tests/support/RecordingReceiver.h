// Where a test's samples go.
#pragma once

#include <vector>

#include "Pexa.h"
#include "Sflow.h"

namespace TestSupport {

// The receiver of a port table while it lives. To be made before the sampler, and to outlive it.
class RecordingReceiver : public Sflow::SampleReceiver {
 public:
  explicit RecordingReceiver(Kiv::Ptr<Pexa::Ports> ports) : ports_(std::move(ports)) {
    ports_->sampleReceiverIs(this);
  }
  ~RecordingReceiver() override { ports_->sampleReceiverIs(nullptr); }
  RecordingReceiver(const RecordingReceiver&) = delete;
  RecordingReceiver& operator=(const RecordingReceiver&) = delete;

  bool sampleIs(const Sflow::Sample& sample) override {
    samples.push_back(sample);
    return true;
  }
  void samplerAdded(Sflow::SflowSamplerHelperBase&) override {}
  void samplerRemoved(Sflow::SflowSamplerHelperBase&) override {}
  std::vector<Sflow::Sample> samples;

 private:
  Kiv::Ptr<Pexa::Ports> ports_;
};

}  // namespace TestSupport

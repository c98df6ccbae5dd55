// The library's entry: its one static instance registers with the agent's loader while the library is loaded;
// the loader calls init, which makes the root entity and hands it to the agent. From there on the agent
// drives the root entity (SftPexaPlugin.h).
#pragma once

#include "PexaPlugin.h"
#include "SftPexaPlugin.h"

namespace SampledFlowTracker {

class PexaSampledFlowTrackerPluginInst : public PluginBase<Pexa::PluginContext> {
 public:
  // Registers with the agent's default loader as "PexaSampledFlowTrackerPlugin".
  PexaSampledFlowTrackerPluginInst();
  // Drops the root entity and leaves the loader.
  ~PexaSampledFlowTrackerPluginInst() override;

  // Makes the root entity, in place of an earlier one, and lets it join the agent's plugin manager.
  // REQUIRES: a context.
  void init(Pexa::PluginContext* context) override;

  const Kiv::Ptr<SftPexaPlugin>& plugin() const { return plugin_; }

 private:
  Kiv::Ptr<SftPexaPlugin> plugin_;
};

}  // namespace SampledFlowTracker

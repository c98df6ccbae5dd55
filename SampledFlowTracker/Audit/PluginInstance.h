// The library's entry: its one static instance registers with the agent's loader while the library is loaded.
#pragma once

#include "PexaPlugin.h"

namespace SampledFlowTracker {

// Makes the root entity (SftPexaAudit.h), and leaves it to the agent's plugin manager alone: it goes as the
// agent drops its plugins, while all of their libraries are still loaded, and with it every reference to what
// belongs to the tracker's library.
class PexaSftAuditPluginInst : public PluginBase<Pexa::PluginContext> {
 public:
  // Registers with the agent's default loader as "PexaSftAuditPlugin".
  PexaSftAuditPluginInst();
  // REQUIRES: a context.
  void init(Pexa::PluginContext* context) override;
};

}  // namespace SampledFlowTracker

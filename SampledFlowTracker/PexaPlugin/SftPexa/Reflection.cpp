// What of the state machine can be seen and called by name.
#include "SftPexaFtHOCSM.h"

namespace SampledFlowTracker {

namespace {

using Self = SftPexaFtHOCSM;
using Builder = Kiv::TypeBuilder<Self>;

Kiv::String taskNameOf(const OutputBase& output) {
  return output.reconciliationTask() ? output.reconciliationTask()->name() : Kiv::String();
}

// The reconciliation state of one output.
void addOutput(Builder& builder, OutputId id) {
  const std::string name(nameOf(id));
  builder.attribute(name + "Seen", [id](const Self& self) { return self.output(id).seenCount(); })
      .attribute(name + "Bookmark", [id](const Self& self) { return self.output(id).bookmarkText(); })
      .attribute(name + "UseBookmark", [id](const Self& self) { return self.output(id).useBookmark(); })
      .attribute(name + "Reconciling", [id](const Self& self) { return self.output(id).reconciling(); })
      .attribute(name + "ReconciliationTask", [id](const Self& self) { return taskNameOf(self.output(id)); });
}

// Attributes that state machines of every kind have; none of them changes what this one does.
void addGeneral(Builder& builder) {
  builder.attribute("codefEnabled", [](const Self&) { return true; })
      .attribute("defaultSynchronous", [](const Self&) { return false; })
      .attribute("version", [](const Self&) { return 1U; })
      .attribute("validate", [](const Self&) { return true; })
      .attribute("unused", [](const Self&) { return false; })
      .attribute("newHosEntries", &Self::newHosEntries)
      .attribute("task", [](const Self& self) { return self.drovaControl().taskName; });
}

}  // namespace

const Kiv::Type& SftPexaFtHOCSM::kivType() {
  static const Kiv::Type type = [] {
    Builder builder("SampledFlowTracker::SftPexaFtHOCSM");
    builder.attribute("hoFlowConfig", &Self::hoFlowConfig)
        .attribute("hoFlowStatus", &Self::hoFlowStatus)
        .attribute("hoFlowCounter", &Self::hoFlowCounter)
        .attribute("hosStateCounter", &Self::hosStateCounter)
        .attribute("localCounter", &Self::localCounter)
        .attribute("helper", &Self::helper)
        .attribute("synchronous", &Self::synchronous)
        .attribute("initialScanDone", &Self::initialScanDone)
        .attribute("initialized", &Self::initialized)
        .attribute("inputSmScanState", &Self::inputSmScanState)
        .attribute("outputState", &Self::outputState)
        .attribute("hoIpFlowConfigSm0", &Self::hoIpFlowConfigSm0)
        .attribute("hoIp6FlowConfigSm1", &Self::hoIp6FlowConfigSm1)
        .attribute("copyLocalCountersTask", &Self::copyLocalCountersTask)
        .attribute("copyLocalIp6CountersTask", &Self::copyLocalIp6CountersTask)
        .attribute("ready", &Self::ready)
        .attribute("idle", &Self::idle)
        .attribute("storesFailed", &Self::storesFailed);
    for (std::size_t i = 0; i < kOutputs; ++i) addOutput(builder, static_cast<OutputId>(i));
    addGeneral(builder);
    return builder.handler("handleInitialized", &Self::handleInitialized)
        .handler("handleInitialScanDone", &Self::handleInitialScanDone)
        .handler("handleCopyLocalCountersCodefInputReady", &Self::handleCopyLocalCountersCodefInputReady)
        .handler("handleCopyLocalIp6CountersCodefInputReady",
                 &Self::handleCopyLocalIp6CountersCodefInputReady)
        .build();
  }();
  return type;
}

}  // namespace SampledFlowTracker

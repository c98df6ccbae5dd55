#include "Statements.h"

#include "Admission.h"
#include "Counters.h"

namespace SampledFlowTracker {

template <class Domain>
void Statements<Domain>::eventToInput(const Key& key, const std::optional<Config>& config) {
  if (!frame_.initialScanDone()) return;  // S3
  frame_.trace()(SmTrace::kStatement, Texts::kInputHandler, Texts::kInputStream, key, config);
  const Event event = eventOf(key, helper_->template outOf<Domain>(), config);
  mergedStreams(event);
  overflowStream(event);
  replacementStream(event);
}

template <class Domain>
void Statements<Domain>::mergedStreams(const Event& event) {
  statusStream(event);
  const State curState = stateOf(FlowTracking::lookUp(outputs_.status.table().map(), event.key));  // S1
  flowCounterStream(event, curState);
  hosStateCounterStream(event, curState);
  changes_.count(stateOf(event.status), curState);
}

template <class Domain>
typename Statements<Domain>::Event Statements<Domain>::eventOf(const Key& key, bool outOfResources,
                                                               const std::optional<Config>& config) const {
  return {key, outOfResources, config, FlowTracking::lookUp(outputs_.status.table().map(), key),
          FlowTracking::lookUp(outputs_.counter.table().map(), key.ipFlowKey)};
}

template class Statements<Pavo::Traits::IPv4>;
template class Statements<Pavo::Traits::IPv6>;

}  // namespace SampledFlowTracker

// Admission: what becomes of a wanted offload. Bodies of Statements, for Statements.cpp to include and nobody
// else: a family is one unit for the compiler.
#pragma once

#include "Statements.h"

namespace SampledFlowTracker {

template <class Domain>
void Statements<Domain>::statusStream(const Event& event) {
  frame_.trace()(SmTrace::kStatement, Texts::kStatusName, Texts::kStatusStream, event.key,
                 event.outOfResources, event.config, event.status);
  if (!event.config) {
    outputs_.status.erase(Texts::kStatusName, Texts::kStatusPlace, event.key);
    return;
  }
  Status status;
  status.key = event.key;
  status.state = newState(event.outOfResources);
  status.creationTime = statusTime(event.status, status.state, Kiv::System::currentTimeUtc());
  status.lastUpdateTime = status.creationTime;
  outputs_.status.insert(Texts::kStatusName, Texts::kStatusPlace, event.key, status);
}

template <class Domain>
void Statements<Domain>::overflowStream(const Event& event) {
  const SmTrace& trace = frame_.trace();
  trace(SmTrace::kStatement, Texts::kOverflowName, Texts::kOverflowStream, event.key, event.outOfResources,
        event.config);
  if (!event.config) {
    outputs_.overflow.erase(Texts::kOverflowName, Texts::kOverflowPlace, event.key);
  } else if (event.outOfResources) {
    outputs_.overflow.insert(Texts::kOverflowName, Texts::kOverflowPlace, event.key);
  } else {
    trace(SmTrace::kFilter, Texts::kOverflowName, Texts::kAdmitted);
  }
}

template <class Domain>
void Statements<Domain>::replacementStream(const Event& event) {
  const SmTrace& trace = frame_.trace();
  trace(SmTrace::kStatement, Texts::kReplacementName, Texts::kReplacementStream, event.config);
  if (event.config) {  // only an offload that goes can make room
    trace(SmTrace::kFilter, Texts::kReplacementName, Texts::kNotDeleted);
    return;
  }
  const OverflowSet<Domain>& waiting = helper_->template overflow<Domain>();
  trace(SmTrace::kFlatten, Texts::kReplacementName, Texts::kFlattenOverflow, waiting.size());
  for (const auto* entry = waiting.first(); entry != nullptr;) {
    const Key key = entry->key;
    trace(SmTrace::kElement, Texts::kReplacementName, Texts::kElement, key);
    if (helper_->template outOf<Domain>()) {  // asked anew: the flow before may have taken the last room
      trace(SmTrace::kFilter, Texts::kReplacementName, Texts::kStillOut);
    } else {
      promote(key);
    }
    entry = waiting.after(key);
  }
}

template <class Domain>
void Statements<Domain>::promote(const Key& key) {
  const Event event = eventOf(key, false, FlowTracking::lookUp(hoFlowConfig_->map<Domain>(), key));
  outputs_.overflow.erase(Texts::kReplacementName, Texts::kReplacementPlace, key);
  mergedStreams(event);
}

}  // namespace SampledFlowTracker

// The counters that follow a flow's status. Bodies of Statements, for Statements.cpp to include and nobody
// else: a family is one unit for the compiler.
#pragma once

#include <tuple>

#include "Statements.h"

namespace SampledFlowTracker {

template <class Domain>
void Statements<Domain>::flowCounterStream(const Event& event, State curState) {
  const FlowKey& key = event.key.ipFlowKey;
  frame_.trace()(SmTrace::kStatement, Texts::kFlowCounterName, Texts::kFlowCounterStream, event.key,
                 event.status, event.counter);
  const State oldState = stateOf(event.status);
  const auto references = event.counter ? std::optional(event.counter->hosEntries) : std::nullopt;
  const std::uint32_t hosEntries = newHosEntries(references, oldState, curState);
  if (counterKept(hosEntries, oldState, curState)) {
    Counter counter;
    if (event.counter) {
      counter = *event.counter;
    } else {
      counter.key = key;
      counter.creationTime = counter.lastUpdateTime = Kiv::System::currentTimeUtc();
    }
    counter.intfId = event.key.intfId;
    counter.hosEntries = hosEntries;
    outputs_.counter.insert(Texts::kFlowCounterName, Texts::kFlowCounterPlace, key, counter);
  } else {
    outputs_.counter.erase(Texts::kFlowCounterName, Texts::kFlowCounterPlace, key);
  }
  deleteLocalCounters(hosEntries, key);
}

template <class Domain>
void Statements<Domain>::deleteLocalCounters(std::uint32_t newHosEntries, const FlowKey& key) {
  const SmTrace& trace = frame_.trace();
  frame_.newHosEntriesIs(newHosEntries);
  trace(SmTrace::kStatement, Texts::kDeleteLocalName, Texts::kDeleteLocal, newHosEntries, key);
  if (newHosEntries != 0) {
    trace(SmTrace::kFilter, Texts::kDeleteLocalName, Texts::kStillReferred);
    return;
  }
  outputs_.localCounter.erase(Texts::kDeleteLocalName, Texts::kLocalPlace, key);
}

template <class Domain>
void Statements<Domain>::hosStateCounterStream(const Event& event, State curState) {
  const SmTrace& trace = frame_.trace();
  trace(SmTrace::kStatement, Texts::kStateCounterName, Texts::kStateCounterStream, event.key, event.status);
  const State oldState = stateOf(event.status);
  if (!oldState && !curState) {
    trace(SmTrace::kFilter, Texts::kStateCounterName, Texts::kNoStatus);
    return;
  }
  const auto steps = stateSteps(oldState, curState);
  trace(SmTrace::kFlatten, Texts::kStateCounterName, Texts::kFlattenStates, steps.size());
  for (const StateStep& step : steps) {
    trace(SmTrace::kElement, Texts::kStateCounterName, Texts::kElement,
          std::tuple(step.state, step.delta, step.initial));
    if (step.state) {
      stateCountIs(step);
    } else {
      trace(SmTrace::kFilter, Texts::kStateCounterName, Texts::kNoState);
    }
  }
}

// A count is only ever stored, never deleted: a state that no flow is in any more keeps its 0.
template <class Domain>
void Statements<Domain>::stateCountIs(const StateStep& step) {
  FlowTracking::HosStateCounterEntry entry;
  entry.key = FlowTracking::HosStateCounterKey(*step.state);
  const auto stored = FlowTracking::lookUp(outputs_.stateCounter.table().map(), entry.key);
  entry.count = newCount(stored ? std::optional(stored->count) : std::nullopt, step);
  outputs_.stateCounter.insert(Texts::kStateCounterName, Texts::kStateCounterPlace, entry.key, entry);
}

}  // namespace SampledFlowTracker

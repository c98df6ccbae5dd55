#include "NaiveStateMachine.h"

namespace Naive {

namespace {
constexpr std::uint32_t kMinusOne = 0xffffffffU;

template <class Status>
std::optional<HoFlowState> stateOf(const std::optional<Status>& status) {
  if (!status) return std::nullopt;
  return status->state;
}
}  // namespace

void StateMachine::see(Output output, const AnyKey& key) {
  if (state(output).reconciling) state(output).seen.insert(key);
}

template <class Domain>
void StateMachine::configChanged(const FlowTracking::HoFlowKey<Domain>& key) {
  if (active_) event<Domain>(key);
}

template <class Domain>
void StateMachine::event(const FlowTracking::HoFlowKey<Domain>& key) {
  if (!initialScanDone_) return;
  const Event<Domain> event = eventOf<Domain>(key, outOfResources<Domain>());
  decide<Domain>(event);
  overflowStream<Domain>(event);
  replacementStream<Domain>(event);
}

template <class Domain>
StateMachine::Event<Domain> StateMachine::eventOf(const FlowTracking::HoFlowKey<Domain>& key,
                                                  bool outOfResources) {
  const Tables<Domain>& tables = world_.tables<Domain>();
  return {key, outOfResources, tables.config.get(key).has_value(), tables.status.get(key),
          tables.counter.get(key.ipFlowKey)};
}

template <class Domain>
bool StateMachine::outOfResources() {
  const auto inHardware = world_.tables<Domain>().states.get(HoFlowState::inHardware);
  return (inHardware ? inHardware->count : 0) >= world_.budget;
}

template <class Domain>
void StateMachine::decide(const Event<Domain>& event) {
  statusStream<Domain>(event);
  flowCounterStream<Domain>(event);
  stateCounterStream<Domain>(event);
}

template <class Domain>
void StateMachine::statusStream(const Event<Domain>& event) {
  auto& statuses = world_.tables<Domain>().status;
  see(OutputsOf<Domain>::kStatus, event.key);
  if (!event.wanted) return statuses.del(event.key);
  typename Tables<Domain>::Status status;
  status.key = event.key;
  status.state = event.outOfResources ? HoFlowState::overflow : HoFlowState::inHardware;
  const bool same = event.status && event.status->state == status.state;
  status.creationTime = same ? event.status->creationTime : world_.now;
  status.lastUpdateTime = status.creationTime;
  statuses.put(event.key, status);
}

template <class Domain>
void StateMachine::flowCounterStream(const Event<Domain>& event) {
  Tables<Domain>& tables = world_.tables<Domain>();
  const auto& flow = event.key.ipFlowKey;
  const State old = stateOf(event.status);
  const State now = stateOf(tables.status.get(event.key));
  const std::uint32_t entries = event.counter ? event.counter->hosEntries : 0;
  const std::uint32_t newEntries = entries + (!now ? kMinusOne : now != old ? 1 : 0);

  see(OutputsOf<Domain>::kCounter, flow);
  const bool hardware = now == HoFlowState::inHardware || old == HoFlowState::inHardware;
  if (newEntries != 0 && hardware) {
    typename Tables<Domain>::Counter counter;
    counter.key = flow;
    counter.creationTime = counter.lastUpdateTime = world_.now;
    if (event.counter) counter = *event.counter;
    counter.intfId = event.key.intfId;
    counter.hosEntries = newEntries;
    tables.counter.put(flow, counter);
  } else {
    tables.counter.del(flow);
  }
  if (newEntries == 0) {
    see(OutputsOf<Domain>::kLocal, flow);
    tables.local.del(flow);
  }
}

template <class Domain>
void StateMachine::stateCounterStream(const Event<Domain>& event) {
  const State old = stateOf(event.status);
  const State now = stateOf(world_.tables<Domain>().status.get(event.key));
  if (!old && !now) return;
  countState<Domain>(old, old && now != old ? 1 : 0, 0);
  countState<Domain>(now, now && now != old ? kMinusOne : 0, 1);
}

template <class Domain>
void StateMachine::countState(State state, std::uint32_t delta, std::uint32_t initial) {
  if (!state) return;
  auto& states = world_.tables<Domain>().states;
  FlowTracking::HosStateCounterEntry entry;
  entry.key = *state;
  const auto held = states.get(entry.key);
  entry.count = held ? held->count - delta : initial;
  see(OutputsOf<Domain>::kStates, entry.key);
  states.put(entry.key, entry);
}

template <class Domain>
void StateMachine::overflowStream(const Event<Domain>& event) {
  auto& overflow = world_.tables<Domain>().overflow;
  if (event.wanted && !event.outOfResources) return;
  see(OutputsOf<Domain>::kOverflow, event.key);
  if (event.wanted) {
    overflow.put(event.key, {});
  } else {
    overflow.del(event.key);
  }
}

template <class Domain>
void StateMachine::replacementStream(const Event<Domain>& event) {
  if (event.wanted) return;
  auto& overflow = world_.tables<Domain>().overflow;
  for (auto waiting = overflow.first(); waiting; waiting = overflow.after(*waiting)) {
    if (outOfResources<Domain>()) continue;
    const Event<Domain> promotion = eventOf<Domain>(*waiting, false);
    see(OutputsOf<Domain>::kOverflow, *waiting);
    overflow.del(*waiting);
    decide<Domain>(promotion);
  }
}

template void StateMachine::event<V4>(const FlowTracking::HoIpFlowKey&);
template void StateMachine::event<V6>(const FlowTracking::HoIp6FlowKey&);
template void StateMachine::configChanged<V4>(const FlowTracking::HoIpFlowKey&);
template void StateMachine::configChanged<V6>(const FlowTracking::HoIp6FlowKey&);

}  // namespace Naive

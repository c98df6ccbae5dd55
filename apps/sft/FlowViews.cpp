#include "FlowViews.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <vector>

#include "FlowJoin.h"
#include "FlowWords.h"

namespace Sft {
namespace {

using namespace FlowTracking;
using Kiv::Value;
using Object = Value::Object;

constexpr std::string_view kWaiting = "waiting";
constexpr std::string_view kUnwanted = "unwanted";

// What --state says.
struct StateWanted {
  bool all = true;
  bool waiting = false;
  bool unwanted = false;
  std::optional<HoFlowState> state;

  template <class Domain>
  bool takes(const HoFlowStatusRecord<Domain>& record) const {
    return all || state == record.state;
  }
  template <class Domain>
  bool takes(const JoinedFlow<Domain>& flow) const {
    if (all) return true;
    if (waiting) return !flow.status;
    if (unwanted) return !flow.wanted;
    return flow.status && takes(*flow.status);
  }
};

StateWanted stateWanted(const std::string& text, bool ofFlows) {
  StateWanted wanted{.all = text.empty(),
                     .waiting = ofFlows && text == kWaiting,
                     .unwanted = ofFlows && text == kUnwanted,
                     .state = stateNamed(text)};
  std::uint8_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) wanted.state = HoFlowState{number};
  if (wanted.all || wanted.waiting || wanted.unwanted || wanted.state) return wanted;
  throw MisuseError(
      fmt::format("--state \"{}\", expected in-hardware, overflow, pending{} or a state's number", text,
                  ofFlows ? ", waiting, unwanted" : ""));
}

Value ageOrNone(double time, double now) {
  return time == 0 ? Value() : Value(now - time);
}

template <class T>
Object members(const T& record) {
  return *Kiv::ValueTraits<T>::toValue(record).template as<Object>();
}

template <class Domain>
Object flowWords(const HoFlowKey<Domain>& key) {
  return {{"flow", flowText(key.ipFlowKey)},
          {"direction", directionText(key.direction)},
          {"interface", key.intfId.name()}};
}

void append(Object& row, Object more) {
  std::move(more.begin(), more.end(), std::back_inserter(row));
}

// --- Status

template <class Domain>
Object jsonRow(const HoFlowStatusRecord<Domain>& record, double now) {
  Object row = members(record);
  append(row, {{"family", IpFamily<Domain>::kName},
               {"flow", flowText(record.key.ipFlowKey)},
               {"directionName", directionText(record.key.direction)},
               {"stateName", stateText(record.state)},
               {"since", timeOrNone(record.lastUpdateTime)},
               {"age", ageOrNone(record.lastUpdateTime, now)}});
  return row;
}

template <class Domain>
Object peopleRow(const HoFlowStatusRecord<Domain>& record, double now) {
  Object row = flowWords(record.key);
  append(row, {{"state", stateText(record.state)},
               {"since", timeText(record.lastUpdateTime)},
               {"age", ageText(record.lastUpdateTime, now)}});
  return row;
}

// --- Counters

template <class Domain>
Object jsonRow(const HoFlowCounterRecord<Domain>& record, double) {
  Object row = members(record);
  append(row, {{"family", IpFamily<Domain>::kName},
               {"flow", flowText(record.key)},
               {"since", timeOrNone(record.creationTime)},
               {"lastUpdate", timeOrNone(record.lastUpdateTime)}});
  return row;
}

template <class Domain>
Object peopleRow(const HoFlowCounterRecord<Domain>& record, double) {
  return {{"flow", flowText(record.key)},
          {"packets", record.packets},
          {"bytes", record.bytes},
          {"last seen on", record.intfId.name()},
          {"last update", timeText(record.lastUpdateTime)},
          {"counted since", timeText(record.creationTime)},
          {"references", record.hosEntries}};
}

// --- Flows

template <class Domain>
std::string stands(const JoinedFlow<Domain>& flow) {
  if (!flow.status) return "waiting: wanted, no status yet";
  const std::string state = stateText(flow.status->state);
  if (!flow.wanted) return state + ": not wanted any more";
  return flow.status->state == HoFlowState::overflow ? state + ": waiting for room" : state;
}

template <class Domain>
double statusTime(const JoinedFlow<Domain>& flow) {
  return flow.status ? flow.status->lastUpdateTime : 0;
}

template <class Domain, class Member>
Value counted(const JoinedFlow<Domain>& flow, Member member) {
  return flow.counter ? Value((*flow.counter).*member) : Value();
}

template <class Domain>
Object jsonRow(const JoinedFlow<Domain>& flow, double now) {
  using Counter = HoFlowCounterRecord<Domain>;
  return {{"key", Kiv::ValueTraits<HoFlowKey<Domain>>::toValue(flow.key)},
          {"family", IpFamily<Domain>::kName},
          {"flow", flowText(flow.key.ipFlowKey)},
          {"directionName", directionText(flow.key.direction)},
          {"wanted", flow.wanted.has_value()},
          {"requestTime", flow.wanted ? Value(flow.wanted->requestTime) : Value()},
          {"state", flow.status ? Value(static_cast<unsigned>(flow.status->state)) : Value()},
          {"stateName", flow.status ? stateText(flow.status->state) : std::string(kWaiting)},
          {"stands", stands(flow)},
          {"since", timeOrNone(statusTime(flow))},
          {"age", ageOrNone(statusTime(flow), now)},
          {"packets", counted(flow, &Counter::packets)},
          {"bytes", counted(flow, &Counter::bytes)},
          {"lastUpdateTime", counted(flow, &Counter::lastUpdateTime)}};
}

template <class Domain>
Object peopleRow(const JoinedFlow<Domain>& flow, double now) {
  using Counter = HoFlowCounterRecord<Domain>;
  Object row = flowWords(flow.key);
  append(row, {{"stands", stands(flow)},
               {"since", timeText(statusTime(flow))},
               {"age", ageText(statusTime(flow), now)},
               {"packets", counted(flow, &Counter::packets)},
               {"bytes", counted(flow, &Counter::bytes)}});
  return row;
}

// Rows on their way out: at once with JSON, sorted for people.
template <class Row>
class Rows {
 public:
  Rows(Output& output, bool json) : output_(output), json_(json), now_(Kiv::System::currentTimeUtc()) {}
  void add(Row row) {
    if (json_) {
      output_.row(jsonRow(row, now_));
    } else {
      rows_.push_back(std::move(row));
    }
  }
  void finish() {
    std::sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) { return a.key < b.key; });
    for (const Row& each : rows_) output_.row(peopleRow(each, now_));
  }

 private:
  Output& output_;
  bool json_;
  double now_;
  std::vector<Row> rows_;
};

// A walk over one family's records of a container; those that are taken are shown.
template <class Container, class Domain, class Takes>
void showRecords(const Context& context, Output& output, Damages& damages, const Takes& takes) {
  using Table = Published<Container, Domain>;
  const Table table(context, damages);
  Rows<typename Table::Record> rows(output, context.json);
  for (typename Table::Walk walk(table); !walk.atEnd(); walk.next()) {
    if (takes(walk.record())) rows.add(walk.record());
  }
  rows.finish();
}

// What every view does: the families asked for, one behind the other, and what is wrong at the end.
template <class ShowFamily>
void show(const Context& context, const FlowFilter& filter, const ShowFamily& showFamily) {
  requireRunDir(context);
  Output output(context.json);
  Damages damages;
  if (filter.ipv4) showFamily.template operator()<Pavo::Traits::IPv4>(output, damages);
  if (filter.ipv6) showFamily.template operator()<Pavo::Traits::IPv6>(output, damages);
  output.finish();
  damages.requireNone();
}

template <class Domain>
void showFamilyStates(const Context& context, Output& output, Damages& damages) {
  using Table = Published<HosStateCounter, Domain>;
  const Table table(context, damages);
  std::vector<HosStateCounterEntry> entries;
  for (typename Table::Walk walk(table); !walk.atEnd(); walk.next()) entries.push_back(walk.record());
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  std::uint64_t total = 0;
  for (const HosStateCounterEntry& each : entries) {
    Object row = context.json ? members(each) : Object();
    append(row, {{"family", IpFamily<Domain>::kName},
                 {context.json ? "stateName" : "state", stateText(each.key.state)}});
    if (!context.json) row.emplace_back("flows", each.count);
    output.row(row);
    total += each.count;
  }
  if (!context.json)
    output.row(Object{{"family", IpFamily<Domain>::kName}, {"state", "all"}, {"flows", total}});
}

}  // namespace

void showFlows(const Context& context, const FlowFilter& filter) {
  const StateWanted wanted = stateWanted(filter.state, true);
  show(context, filter, [&]<class Domain>(Output& output, Damages& damages) {
    Rows<JoinedFlow<Domain>> rows(output, context.json);
    joinFlows<Domain>(context, damages, [&](JoinedFlow<Domain> flow) {
      if (wanted.takes(flow)) rows.add(std::move(flow));
    });
    rows.finish();
  });
}

void showStatus(const Context& context, const FlowFilter& filter) {
  const StateWanted wanted = stateWanted(filter.state, false);
  show(context, filter, [&]<class Domain>(Output& output, Damages& damages) {
    showRecords<HoFlowStatus, Domain>(context, output, damages,
                                      [&](const auto& record) { return wanted.takes(record); });
  });
}

void showCounters(const Context& context, const FlowFilter& filter) {
  show(context, filter, [&]<class Domain>(Output& output, Damages& damages) {
    showRecords<HoFlowCounter, Domain>(context, output, damages, [](const auto&) { return true; });
  });
}

void showStates(const Context& context, const FlowFilter& filter) {
  show(context, filter, [&]<class Domain>(Output& output, Damages& damages) {
    showFamilyStates<Domain>(context, output, damages);
  });
}

}  // namespace Sft

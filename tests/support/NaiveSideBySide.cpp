#include "NaiveSideBySide.h"

#include <fmt/format.h>

namespace Naive {

namespace {
// More runs than any work that ends can take.
constexpr unsigned kMostRuns = 5000;
}  // namespace

SideBySide::SideBySide() {
  advance(1000);
}

void SideBySide::apply(const Operation& operation) {
  using Kind = Operation::Kind;
  const auto both = [this](const auto& call) {
    call(subject_);
    call(twin_);
  };
  switch (operation.kind) {
    case Kind::construct:
      return both([&](auto& side) { side.construct(Start(operation.value)); });
    case Kind::teardown:
      return both([](auto& side) { side.teardown(); });
    case Kind::notificationsOff:
      return both([](auto& side) { side.notificationsOff(); });
    case Kind::budgetIs:
      return both([&](auto& side) { side.budgetIs(budgetOf(operation.value)); });
    case Kind::work: {
      const unsigned entries = everyRunYields() ? 1 : entriesOf(operation.value);
      return both([&](auto& side) { side.work(entries); });
    }
    case Kind::settle:
      return settle();
    case Kind::advance:
      return advance(secondsOf(operation.value));
    case Kind::configIs:
    case Kind::configDel:
    case Kind::countPacket:
    case Kind::damage:
    case Kind::leftBehind:
    case Kind::configQuietly:
    case Kind::lookAgain:
      return operation.six() ? applyToRecord<V6>(operation) : applyToRecord<V4>(operation);
  }
}

void SideBySide::settle() {
  const auto run = [](auto& side, unsigned entries) {
    unsigned runs = 0;
    for (; side.works() != 0 && runs < kMostRuns; ++runs) side.work(entries);
    return runs < kMostRuns;
  };
  const unsigned entries = everyRunYields() ? 1 : 1000;
  const bool real = run(subject_, entries);
  settled_ = run(twin_, entries) && real;
}

void SideBySide::advance(double seconds) {
  now_ += seconds;
  subject_.nowIs(now_);
  twin_.nowIs(now_);
}

template <class Domain>
void SideBySide::applyToRecord(const Operation& operation) {
  const auto key = keyOf<Domain>(operation.key());
  const auto both = [this](const auto& call) {
    call(subject_);
    call(twin_);
  };
  switch (operation.kind) {
    case Operation::Kind::configIs:
      return both(
          [&, config = newConfig<Domain>(key)](auto& side) { side.template configIs<Domain>(config); });
    case Operation::Kind::configQuietly:
      return changeQuietly<Domain>(key, appearsQuietly(operation.value));
    case Operation::Kind::lookAgain:
      both([](auto& side) { side.template lookAgain<Domain>(); });
      return settle();
    case Operation::Kind::configDel:
      return both([&](auto& side) { side.template configDel<Domain>(key); });
    case Operation::Kind::countPacket:
      return both([&](auto& side) {
        side.template countPacket<Domain>(key.ipFlowKey, interfaceOf(operation.value), 60U + operation.value);
      });
    case Operation::Kind::damage:
      return damage<Domain>(damagedTable(operation.value), operation);
    default:
      return leaveBehind<Domain>(tableLeft(operation.value), operation);
  }
}

template <class Domain>
typename Tables<Domain>::Config SideBySide::newConfig(const FlowTracking::HoFlowKey<Domain>& key) {
  typename Tables<Domain>::Config config;
  config.key = key;
  config.requestTime = ++configs_;
  return config;
}

template <class Domain>
void SideBySide::changeQuietly(const FlowTracking::HoFlowKey<Domain>& key, bool appears) {
  if (appears) {
    const auto config = newConfig<Domain>(key);
    subject_.configQuietlyIs<Domain>(config);
    twin_.configQuietlyIs<Domain>(config);
  } else {
    subject_.configQuietlyDel<Domain>(key);
    twin_.configQuietlyDel<Domain>(key);
  }
}

template <class Domain>
void SideBySide::damage(TableName table, const Operation& operation) {
  const auto key = keyOf<Domain>(operation.key());
  Tables<Domain>& naive = twin_.world.tables<Domain>();
  const auto both = [](auto& map, auto& naiveMap, const auto& at) {
    if (!naiveMap.whole(at)) return;
    damageRecord(map, at);
    naiveMap.damage(at);
  };
  switch (table) {
    case TableName::config:
      return both(subject_.config->map<Domain>(), naive.config, key);
    case TableName::status:
      return both(subject_.status->map<Domain>(), naive.status, key);
    case TableName::counter:
      return both(subject_.counter->map<Domain>(), naive.counter, key.ipFlowKey);
    case TableName::states:
      return both(subject_.states->map<Domain>(), naive.states,
                  FlowTracking::HosStateCounterKey(stateOf(operation.value)));
    case TableName::overflow:
      return;
  }
}

template <class Domain>
void SideBySide::leaveBehind(TableName table, const Operation& operation) {
  if (twin_.machine() != nullptr) return;
  const auto key = keyOf<Domain>(operation.key());
  Tables<Domain>& naive = twin_.world.tables<Domain>();
  const auto both = [](auto& map, auto& naiveMap, const auto& record) {
    map.insert(record);
    naiveMap.put(record.key, record);
  };
  switch (table) {
    case TableName::status: {
      typename Tables<Domain>::Status record;
      record.key = key;
      record.state = stateOf(operation.value);
      record.creationTime = record.lastUpdateTime = 7;
      return both(subject_.status->map<Domain>(), naive.status, record);
    }
    case TableName::counter: {
      typename Tables<Domain>::Counter record;
      record.key = key.ipFlowKey;
      record.intfId = key.intfId;
      record.packets = record.bytes = operation.value;
      record.creationTime = record.lastUpdateTime = 8;
      record.hosEntries = countOf(operation.value);
      return both(subject_.counter->map<Domain>(), naive.counter, record);
    }
    case TableName::states: {
      FlowTracking::HosStateCounterEntry record;
      record.key = stateOf(operation.value);
      record.count = countOf(operation.value);
      return both(subject_.states->map<Domain>(), naive.states, record);
    }
    case TableName::overflow:
      subject_.helper().overflow<Domain>().insert(key);
      return naive.overflow.put(key, {});
    case TableName::config:
      return;
  }
}

std::string SideBySide::difference() {
  return comparison_.difference() + (settled_ ? "" : "  work without an end\n");
}

std::optional<std::string> firstDifference(const History& history) {
  SideBySide sides;
  std::string told;
  for (const Operation& operation : history) {
    told += fmt::format("  {}\n", text(operation));
    sides.apply(operation);
    const std::string difference = sides.difference();
    if (!difference.empty()) {
      return fmt::format("after\n{}the state machine differs:\n{}", told, difference);
    }
  }
  return std::nullopt;
}

}  // namespace Naive

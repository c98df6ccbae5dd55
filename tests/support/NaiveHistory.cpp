#include "NaiveHistory.h"

#include <fmt/format.h>

namespace Naive {

namespace {

std::string_view nameOf(TableName table) {
  switch (table) {
    case TableName::config:
      return "config";
    case TableName::status:
      return "status";
    case TableName::counter:
      return "counter";
    case TableName::states:
      return "states";
    case TableName::overflow:
      return "overflow";
  }
  return "?";
}

std::string subjectOf(const Operation& operation) {
  return fmt::format("{} key {}", operation.six() ? "IPv6" : "IPv4", operation.key());
}

std::string recordOf(const Operation& operation, TableName table) {
  if (table != TableName::states) return fmt::format("{} {}", nameOf(table), subjectOf(operation));
  return fmt::format("states {} {}", operation.six() ? "IPv6" : "IPv4", unsigned(stateOf(operation.value)));
}

std::string leftText(const Operation& operation) {
  const TableName table = tableLeft(operation.value);
  std::string record = "left behind: " + recordOf(operation, table);
  switch (table) {
    case TableName::status:
      return fmt::format("{} state {}", record, unsigned(stateOf(operation.value)));
    case TableName::counter:
      return fmt::format("{} hosEntries {}", record, countOf(operation.value));
    case TableName::states:
      return fmt::format("{} count {}", record, countOf(operation.value));
    default:
      return record;
  }
}

std::string constructText(std::uint8_t value) {
  const Start start(value);
  return fmt::format("construct {}{}{}", start.synchronous ? "synchronous" : "tasks",
                     start.sameHelper ? ", same helper" : "", start.sameCounters ? ", same counters" : "");
}

}  // namespace

History decode(std::span<const std::uint8_t> bytes) {
  History history;
  for (std::size_t at = 0; at + 3 <= bytes.size() && history.size() < kMostOperations; at += 3) {
    history.push_back(
        {static_cast<Operation::Kind>(bytes[at] % Operation::kKinds), bytes[at + 1], bytes[at + 2]});
  }
  return history;
}

std::vector<std::uint8_t> encode(const History& history) {
  std::vector<std::uint8_t> bytes;
  for (const Operation& each : history) {
    bytes.insert(bytes.end(), {static_cast<std::uint8_t>(each.kind), each.subject, each.value});
  }
  return bytes;
}

std::string text(const Operation& operation) {
  using Kind = Operation::Kind;
  const std::uint8_t value = operation.value;
  switch (operation.kind) {
    case Kind::construct:
      return constructText(value);
    case Kind::teardown:
      return "teardown";
    case Kind::notificationsOff:
      return "notifications off";
    case Kind::configIs:
      return "config " + subjectOf(operation);
    case Kind::configDel:
      return "no config " + subjectOf(operation);
    case Kind::budgetIs:
      return fmt::format("budget {}", budgetOf(value));
    case Kind::countPacket:
      return fmt::format("packet {} ({})", subjectOf(operation), unsigned(value));
    case Kind::work:
      return fmt::format("work {}", entriesOf(value));
    case Kind::settle:
      return "settle";
    case Kind::advance:
      return fmt::format("advance {} s", secondsOf(value));
    case Kind::damage:
      return "damage " + recordOf(operation, damagedTable(value));
    case Kind::leftBehind:
      return leftText(operation);
    case Kind::configQuietly:
      return (appearsQuietly(value) ? "quietly config " : "quietly no config ") + subjectOf(operation);
    case Kind::lookAgain:
      return std::string("look again at ") + (operation.six() ? "IPv6" : "IPv4");
  }
  return "?";
}

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << text(operation);
}

}  // namespace Naive

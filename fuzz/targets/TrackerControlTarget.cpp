// Any bytes from a client of the flow tracker's control socket, after any history: each line is answered by
// rows and one end, or by an error, and what was asked in the right way is answered with what the tracker
// has.
//
// An input is a count of steps, the steps (TrackerUnderQuestions.h), and the client's lines.
#include <spdlog/spdlog.h>

#include <algorithm>
#include <set>
#include <string>

#include "FuzzTarget.h"
#include "TrackerUnderQuestions.h"

namespace {

using FlowTracking::FlowPattern;
using FuzzSupport::ControlAnswer;
using Kiv::Value;
using Pavo::Traits::IPv4;
using Pavo::Traits::IPv6;

constexpr std::size_t kMostSteps = 48;

std::uint64_t numberAt(const Value& row, std::initializer_list<std::string_view> path) {
  const Value* at = &row;
  for (const std::string_view name : path) {
    at = at->member(name);
    FUZZ_REQUIRE(at != nullptr);
  }
  return Kiv::unsignedFromValue(*at, ~std::uint64_t{0});
}

// The keys of rows, each of which is there once.
std::set<std::string> keysOf(const Value::List& rows) {
  std::set<std::string> keys;
  for (const Value& row : rows) {
    const Value* key = row.member("key");
    FUZZ_REQUIRE(key != nullptr && keys.insert(Json::text(*key)).second);
  }
  return keys;
}

// A request as it is meant to be; nothing when it is to be refused.
struct AskedCandidates {
  FlowPattern pattern;
  std::uint64_t most = Tracker::TrackerRequests::kMostCandidates;

  static std::optional<AskedCandidates> of(const Value& request) {
    AskedCandidates asked;
    try {
      if (const Value* match = request.member("match"))
        asked.pattern = Kiv::ValueTraits<FlowPattern>::fromValue(*match);
    } catch (const Kiv::ValueError&) {
      return std::nullopt;
    }
    const Value* most = request.member("most");
    if (most == nullptr) return asked;
    // A count that is negative, a fraction or no number is not equal to any of these.
    for (asked.most = 0; asked.most <= Tracker::TrackerRequests::kMostCandidates; ++asked.most)
      if (*most == Value(asked.most)) return asked;
    return std::nullopt;
  }
};

class Checked {
 public:
  explicit Checked(const Tracker::FlowTracker& tracker) : tracker_(tracker) {}

  void answer(std::string_view line, const ControlAnswer& answer) const {
    Value request;
    try {
      request = Json::parse(line);
    } catch (const Kiv::ValueError&) {
      FUZZ_REQUIRE(answer.refused);
      return;
    }
    const Value* name = request.member("request");
    const Kiv::String text = name != nullptr ? name->text() : Kiv::String();
    if (text == "statistics") {
      statistics(answer);
    } else if (text == "flows") {
      flows(answer);
    } else if (text == "candidates") {
      candidates(AskedCandidates::of(request), answer);
    } else {
      FUZZ_REQUIRE(answer.refused);
    }
    FUZZ_REQUIRE(!answer.refused || answer.rows.empty());
  }

 private:
  void statistics(const ControlAnswer& answer) const {
    FUZZ_REQUIRE(!answer.refused && answer.rows.size() == 1);
    const Value& row = answer.rows.front();
    FUZZ_REQUIRE(numberAt(row, {"ipv4", "flows"}) == tracker_.table<IPv4>().size());
    FUZZ_REQUIRE(numberAt(row, {"ipv6", "flows"}) == tracker_.table<IPv6>().size());
    FUZZ_REQUIRE(numberAt(row, {"ipv4", "candidates"}) == tracker_.table<IPv4>().candidates().size());
    FUZZ_REQUIRE(numberAt(row, {"ipv6", "candidates"}) == tracker_.table<IPv6>().candidates().size());
    FUZZ_REQUIRE(numberAt(row, {"datagramsDropped"}) == 0);
  }
  void flows(const ControlAnswer& answer) const {
    FUZZ_REQUIRE(!answer.refused);
    std::set<std::string> known;
    const auto add = [&](const auto& key, const Tracker::Flow&) { known.insert(text(key)); };
    tracker_.table<IPv4>().flows(add);
    tracker_.table<IPv6>().flows(add);
    FUZZ_REQUIRE(keysOf(answer.rows) == known);
  }
  void candidates(const std::optional<AskedCandidates>& asked, const ControlAnswer& answer) const {
    FUZZ_REQUIRE(answer.refused == !asked);
    if (!asked) return;
    FUZZ_REQUIRE(!answer.rows.empty());
    const Value::List rows(answer.rows.begin(), answer.rows.end() - 1);
    std::set<std::string> shown;
    const std::size_t meant = meantOf<IPv4>(*asked, shown) + meantOf<IPv6>(*asked, shown);
    FUZZ_REQUIRE(numberAt(answer.rows.back(), {"candidates"}) == meant);
    FUZZ_REQUIRE(keysOf(rows) == shown);
  }
  // How many a family has; those that are to be shown go into `shown`.
  template <class Domain>
  std::size_t meantOf(const AskedCandidates& asked, std::set<std::string>& shown) const {
    std::size_t meant = 0;
    tracker_.table<Domain>().candidates().forEach([&](const Tracker::Candidate<Domain>& each) {
      if (asked.pattern.holds(each.key) && ++meant <= asked.most) shown.insert(text(each.key));
    });
    return meant;
  }
  template <class Key>
  static std::string text(const Key& key) {
    return Json::text(Kiv::ValueTraits<Key>::toValue(key));
  }

  const Tracker::FlowTracker& tracker_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  spdlog::set_level(spdlog::level::off);
  FuzzInput input(data, size);
  FuzzSupport::TrackerUnderQuestions tracker;
  for (std::size_t left = input.take<std::uint8_t>() % kMostSteps; left != 0; --left) tracker.step(input);
  std::string lines(input.rest());
  if (lines.size() >= Pexa::ControlSocket::kMostRequestBytes)
    return 0;  // one line too long: the connection ends with it
  lines += '\n';
  const auto answers = FuzzSupport::requireAnswers(
      tracker.answersTo(lines), static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n')));
  const Checked checked(tracker.tracker());
  std::string_view rest(lines);
  for (const ControlAnswer& answer : answers) {
    checked.answer(rest.substr(0, rest.find('\n')), answer);
    rest.remove_prefix(rest.find('\n') + 1);
  }
  return 0;
}

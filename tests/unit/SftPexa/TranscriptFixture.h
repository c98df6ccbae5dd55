// Transcripts of events, put together from the transcripts of their statements.
#pragma once

#include "ExpectedTexts.h"
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {

inline constexpr const char* kNow = "1000000.000000";
inline constexpr const char* kStatesFlatten =
    "flatten( [ ( oldState, decOld, 0 ), ( curState, ( decNew - incCase ), 1 ) ] ) flattening 2 elements";
inline constexpr const char* kStateFilter = "filter( state ) failed, terminating pipeline";
inline constexpr const char* kConfigFilter = "filter( ( config == None ) ) failed, terminating pipeline";
inline constexpr const char* kReferredFilter =
    "filter( ( newHosEntries == 0 ) ) failed, terminating pipeline";

template <class Domain>
class TranscriptFixture : public StateMachineTest<Domain> {
 protected:
  using Lines = std::vector<TraceLine>;
  static constexpr const ExpectedTexts& words = kExpected<Domain>;

  template <class... Values>
  static std::string text(const char* form, const Values&... values) {
    return fmt::format(fmt::runtime(form), values...);
  }
  static std::string optional(const std::string& value) { return "Optional( " + value + " )"; }
  static std::string flowText(int n) { return text("16777215/10/{}/6/{}/0", words.addresses, n); }
  static std::string keyText(int n) { return flowText(n) + "/1/Ethernet1"; }
  static std::string configText(int n, const char* time = "0.000000") {
    return optional(text(words.config, keyText(n), time));
  }
  static std::string statusText(int n, int state) {
    return text(words.statusRecord, keyText(n), state, kNow, kNow);
  }
  static std::string counterText(int n, int references) {
    return text(words.counterRecord, flowText(n), "Ethernet1", 0, 0, kNow, kNow, references);
  }
  static std::string stateElement(const char* state, const char* delta, int initial) {
    return text("Flattening element: Tuple( {}, {}, {} )", state, delta, initial);
  }
  static std::string stateEntry(int state, unsigned count) {
    return text(words.stateInsert, state, text("HosStateCounterEntry( {}, {} )", state, count));
  }
  static Lines joined(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }

  // The parts of an event.
  static Lines input(int n, const std::string& config) {
    return {{8, words.input, "k: " + keyText(n)},
            {7, words.input, text(words.inputText, keyText(n), config)}};
  }
  static Lines status(int n, bool out, const std::string& config, const std::string& before, int state) {
    return {{7, words.status, text(words.statusText, keyText(n), out, config, before)},
            state == 0
                ? TraceLine{7, words.status, text(words.statusDelete, keyText(n))}
                : TraceLine{7, words.status, text(words.statusInsert, keyText(n), statusText(n, state))}};
  }
  // References 0 and more than 2: nothing is kept.
  static Lines counter(int n, const std::string& status, const std::string& before, unsigned references,
                       bool kept) {
    Lines lines{
        {7, words.flowCounter, text(words.flowCounterText, keyText(n), status, before)},
        kept ? TraceLine{7, words.flowCounter,
                         text(words.counterInsert, flowText(n), counterText(n, static_cast<int>(references)))}
             : TraceLine{7, words.flowCounter, text(words.counterDelete, flowText(n))},
        {7, words.deleteLocal, text(words.deleteLocalText, references, flowText(n))}};
    lines.push_back(references == 0 ? TraceLine{7, words.deleteLocal, text(words.localDelete, flowText(n))}
                                    : TraceLine{6, words.deleteLocal, kReferredFilter});
    return lines;
  }
  static Lines states(int n, const std::string& status) {
    return {{7, words.stateCounter, text(words.stateCounterText, keyText(n), status)},
            {6, words.stateCounter, kStatesFlatten}};
  }
  static Lines overflow(int n, bool out, const std::string& config) {
    return {{7, words.overflow, text(words.overflowText, keyText(n), out, config)}};
  }
  static Lines replacement(const std::string& config) {
    return {{7, words.replacement, text(words.replacementText, config)}};
  }

  static Lines admittedTranscript() {
    return joined({input(1, configText(1)),
                   status(1, false, configText(1), "None", 2),
                   counter(1, "None", "None", 1, true),
                   states(1, "None"),
                   {{9, words.stateCounter, stateElement("None", "0", 0)},
                    {6, words.stateCounter, kStateFilter},
                    {9, words.stateCounter, stateElement("Optional( 2 )", "4294967295", 1)},
                    {7, words.stateCounter, stateEntry(2, 1)}},
                   overflow(1, false, configText(1)),
                   {{6, words.overflow, words.admitted}},
                   replacement(configText(1)),
                   {{6, words.replacement, kConfigFilter}}});
  }
};

}  // namespace SampledFlowTracker

// What the frame traces from construction to readiness.
#include "StateMachineFixture.h"
#include "TraceLines.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

// In the order in which everything is created and visited, and in that in which the outputs become ready.
constexpr std::array kCanonical{"LocalCounterCounterIp6Collection",  "LocalCounterCounterCollection",
                                "HosStateCounterHosStateIp6Counter", "HoFlowStatusHoIpFlowStatus",
                                "HosStateCounterHosStateIpCounter",  "HelperOverflowEntries",
                                "HoFlowCounterHoIp6FlowCounter",     "HoFlowStatusHoIp6FlowStatus",
                                "HoFlowCounterHoIpFlowCounter",      "HelperOverflow6Entries"};
constexpr std::array kChain{"LocalCounterCounterCollection",
                            "LocalCounterCounterIp6Collection",
                            "HoFlowStatusHoIpFlowStatus",
                            "HoFlowStatusHoIp6FlowStatus",
                            "HoFlowCounterHoIpFlowCounter",
                            "HoFlowCounterHoIp6FlowCounter",
                            "HosStateCounterHosStateIpCounter",
                            "HosStateCounterHosStateIp6Counter",
                            "HelperOverflowEntries",
                            "HelperOverflow6Entries"};

std::string outputName(std::string name) {
  name[0] = 'l' + (name[0] - 'L');
  return name + "Output";
}

// Builds the transcript that is expected, line by line.
class Expected {
 public:
  std::vector<TraceLine> lines;

  void frame(const std::string& handler, const std::string& text) { lines.push_back({9, handler, text}); }
  void initialized(const std::string& text) { frame("handleInitialized", text); }
  void scanDone(const std::string& text) { frame("handleInitialScanDone", text); }
  void scan(const std::string& text) { frame("doInputScan", text); }
  void handler(const std::string& name) { frame("handle" + name + "OutputInputReady", ""); }
  // The four that hear of the input scans, while it is not their turn.
  void heard() {
    handler("HelperOverflow6Entries");
    handler("HoFlowCounterHoIpFlowCounter");
    handler("HoFlowCounterHoIp6FlowCounter");
    handler("HelperOverflowEntries");
  }
  void complete(const std::string& name) {
    frame("handle" + name + "OutputInputReady", "Input scans for " + outputName(name) + " complete");
  }
  void alreadyReady(const std::string& name) {
    handler(name);
    frame("handle" + name + "OutputInputReady", " .. not reconciling.");
  }
  // The turn of an output without anything to reconcile: it is ready, and with it those behind it, each of
  // which tells those behind it again.
  void turn(std::size_t at) {
    handler(kChain[at]);
    complete(kChain[at]);
    ready_[at] = true;
    for (std::size_t next = at + 1; next < kChain.size(); ++next) {
      if (ready_[next]) {
        alreadyReady(kChain[next]);
      } else {
        turn(next);
      }
    }
  }

 private:
  std::array<bool, 10> ready_{};
};

class FrameTranscriptTest : public ::testing::Test, public FamilyWorld<Pavo::Traits::IPv4> {};

TEST_F(FrameTranscriptTest, InlineOverEmptyTables) {
  Expected expected;
  expected.initialized("create local SMs");
  for (const char* name : kCanonical) expected.initialized("Reconciling " + outputName(name) + ": false");
  expected.initialized("create non-public arg SMs");
  expected.scan("scan complete: false resumed: false scan: false");
  expected.scan("HoIp6FlowConfigSm1 initial scan, and parent scan, complete.");
  expected.scanDone(" inputStream scan is false");
  expected.scan("scan complete: false resumed: false scan: false");
  expected.scan("HoIpFlowConfigSm0 initial scan, and parent scan, complete.");
  expected.scanDone("Initial scan done for child SM SftPexaFtHOCSM.");
  expected.initialized("initialized");
  expected.scanDone("Initial scan done for child SMs. Now scanning with events triggered.");
  expected.heard();  // one scan taken note of
  expected.heard();  // the other
  expected.scan("scan complete: false resumed: false scan: false");
  expected.heard();
  expected.scan("HoIp6FlowConfigSm1 scan, and parent scan, complete.");
  expected.scan("scan complete: false resumed: false scan: false");
  expected.heard();
  expected.scan("HoIpFlowConfigSm0 scan, and parent scan, complete.");
  expected.lines.push_back({7, "copyLocalIp6Counters", "copyLocalIp6Counters = Poll fired"});
  expected.lines.push_back(
      {6, "copyLocalIp6Counters", "flatten( localCounter.counterIp6Collection ) flattening 0 elements"});
  expected.lines.push_back({7, "copyLocalCounters", "copyLocalCounters = Poll fired"});
  expected.lines.push_back(
      {6, "copyLocalCounters", "flatten( localCounter.counterCollection ) flattening 0 elements"});
  expected.handler("LocalCounterCounterIp6Collection");  // not its turn: the chain begins with the next
  expected.turn(0);
  for (std::size_t at = 2; at < kCanonical.size(); ++at) expected.alreadyReady(kCanonical[at]);
  expected.frame("handleCopyLocalIp6CountersCodefInputReady", "");
  expected.frame("handleCopyLocalIp6CountersCodefInputReady", "Inputs for copyLocalIp6CountersCodef ready");
  expected.frame("handleCopyLocalCountersCodefInputReady", "");
  expected.frame("handleCopyLocalCountersCodefInputReady", "Inputs for copyLocalCountersCodef ready");

  TraceLines trace;
  start(kSynchronous);
  EXPECT_THAT(trace.lines, ElementsAreArray(expected.lines));
}

TEST_F(FrameTranscriptTest, WithTasksTheConstructionEndsBeforeTheScans) {
  for (std::uint32_t n = 1; n <= 2; ++n) leaveStatus(key(n));
  Expected expected;
  expected.initialized("create local SMs");
  for (const char* name : kCanonical) {
    const bool reconciles = std::string_view(name) == "HoFlowStatusHoIpFlowStatus";
    expected.initialized("Reconciling " + outputName(name) + (reconciles ? ": true" : ": false"));
  }
  expected.initialized("create non-public arg SMs");
  expected.initialized("initialized");
  TraceLines trace;
  start(kTasks);
  EXPECT_THAT(trace.lines, ElementsAreArray(expected.lines));
}

TEST_F(FrameTranscriptTest, AScanInSlicesTellsHowFarItIs) {
  wantMany(1, 2);
  const auto order = keysOf(configs());
  start(kTasks);
  ASSERT_TRUE(runSlice());  // the other family's scan
  TraceLines trace;
  ASSERT_TRUE(runSlice());
  EXPECT_THAT(
      trace.take(),
      ElementsAre(TraceLine{9, "doInputScan", "scan complete: false resumed: false scan: false"},
                  TraceLine{8, "handleHoIpFlowConfig", "k: " + order[0].str()},
                  TraceLine{9, "doInputScan",
                            "HoIpFlowConfigSm0 initial scan yielding after 1 iterations (1 remaining)"}));
  ASSERT_TRUE(runSlice());
  EXPECT_THAT(trace.of("doInputScan"),
              ElementsAre("scan complete: false resumed: true scan: false",
                          "HoIpFlowConfigSm0 initial scan, and parent scan, complete."));
}

// Each output's own texts: every table has something left.
TEST_F(FrameTranscriptTest, EveryOutputTellsOfItsReconciliation) {
  FamilyWorld<Pavo::Traits::IPv6> ipv6;  // for its keys only
  const auto leave = [](auto& map, auto first, auto second) {
    typename std::decay_t<decltype(map)>::RecordTypeT record;
    record.key = first;
    map.insert(record);
    record.key = second;
    map.insert(record);
  };
  leave(statuses(), key(1), key(2));
  leave(hoFlowStatus->map<Pavo::Traits::IPv6>(), ipv6.key(1), ipv6.key(2));
  leave(counters(), flow(1), flow(2));
  leave(hoFlowCounter->map<Pavo::Traits::IPv6>(), ipv6.flow(1), ipv6.flow(2));
  leave(counts(), HoFlowState::pending, HoFlowState::none);
  leave(hosStateCounter->map<Pavo::Traits::IPv6>(), HoFlowState::pending, HoFlowState::none);
  for (std::uint32_t n = 3; n <= 4; ++n) {
    localCounters->counterIs<Pavo::Traits::IPv4>(flow(n));
    localCounters->counterIs<Pavo::Traits::IPv6>(ipv6.flow(n));
    helper->overflowEntriesIs(key(n));
    helper->overflow6EntriesIs(ipv6.key(n));
  }
  TraceLines trace;
  start(kTasks);
  EXPECT_THAT(trace.starting("Reconciling "), ::testing::Each(::testing::EndsWith(": true")));
  runAllInSlices();
  EXPECT_TRUE(sm->ready());
  for (const char* name : kCanonical) {
    const std::string handler = std::string("handle") + name + "OutputInputReady";
    auto texts = trace.of(handler);
    std::erase(texts, "");
    std::erase(texts, " .. not reconciling.");
    const std::string complete = "Input scans for " + outputName(name) + " complete";
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    EXPECT_THAT(
        texts,
        ElementsAre(
            complete,
            "Yielding in reconciliation processing after processing 1 items, including 1 deletions .",
            complete,
            "Deletion scan for reconciliation is done, last task run processed 1 items, deleting 1 items."))
        << name;
  }
}

}  // namespace
}  // namespace SampledFlowTracker

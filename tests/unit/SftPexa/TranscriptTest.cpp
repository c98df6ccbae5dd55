// What the statements trace: every text of both families, each at its level and under its statement's name.
#include "RecordingTraces.h"
#include "TranscriptFixture.h"

namespace SampledFlowTracker {
namespace {

using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

template <class Domain>
class TranscriptTest : public TranscriptFixture<Domain> {};
TYPED_TEST_SUITE(TranscriptTest, Families);

TYPED_TEST(TranscriptTest, AnOffloadIsAdmitted) {
  this->start();
  TraceLines trace;
  this->want(this->key(1));
  EXPECT_THAT(trace.lines, ElementsAreArray(this->admittedTranscript()));
}

TYPED_TEST(TranscriptTest, AnAdmittedOffloadIsUpdated) {
  this->start();
  this->want(this->key(1));
  TraceLines trace;
  this->want(this->key(1), 7);
  const ExpectedTexts& e = this->words;
  const auto config = this->configText(1, "7.000000");
  const auto before = this->optional(this->statusText(1, 2));
  EXPECT_THAT(trace.lines, ElementsAreArray(this->joined(
                               {this->input(1, config),
                                this->status(1, false, config, before, 2),
                                this->counter(1, before, this->optional(this->counterText(1, 1)), 1, true),
                                this->states(1, before),
                                {{9, e.stateCounter, this->stateElement("Optional( 2 )", "0", 0)},
                                 {7, e.stateCounter, this->stateEntry(2, 1)},
                                 {9, e.stateCounter, this->stateElement("Optional( 2 )", "0", 1)},
                                 {7, e.stateCounter, this->stateEntry(2, 1)}},
                                this->overflow(1, false, config),
                                {{6, e.overflow, e.admitted}},
                                this->replacement(config),
                                {{6, e.replacement, kConfigFilter}}})));
}

TYPED_TEST(TranscriptTest, AnOffloadIsHeldBack) {
  this->budgetIs(0);
  this->start();
  TraceLines trace;
  this->want(this->key(1));
  const ExpectedTexts& e = this->words;
  const auto config = this->configText(1);
  EXPECT_THAT(trace.lines, ElementsAreArray(this->joined(
                               {this->input(1, config),
                                this->status(1, true, config, "None", 3),
                                this->counter(1, "None", "None", 1, false),
                                this->states(1, "None"),
                                {{9, e.stateCounter, this->stateElement("None", "0", 0)},
                                 {6, e.stateCounter, kStateFilter},
                                 {9, e.stateCounter, this->stateElement("Optional( 3 )", "4294967295", 1)},
                                 {7, e.stateCounter, this->stateEntry(3, 1)}},
                                this->overflow(1, true, config),
                                {{7, e.overflow, this->text(e.overflowInsert, this->keyText(1))}},
                                this->replacement(config),
                                {{6, e.replacement, kConfigFilter}}})));
}

TYPED_TEST(TranscriptTest, AWithdrawalPromotesOneOfTwoThatWait) {
  this->budgetIs(1);
  this->start();
  this->wantMany(1, 3);
  const int promoted = this->waitingKeys()[0] == this->key(2) ? 2 : 3;
  const int left = 5 - promoted;
  TraceLines trace;
  this->unwant(this->key(1));
  const ExpectedTexts& e = this->words;
  const auto before = this->optional(this->statusText(1, 2));
  const auto waited = this->optional(this->statusText(promoted, 3));
  const auto config = this->configText(promoted);
  EXPECT_THAT(
      trace.lines,
      ElementsAreArray(this->joined(
          {this->input(1, "None"),
           this->status(1, true, "None", before, 0),
           this->counter(1, before, this->optional(this->counterText(1, 1)), 0, false),
           this->states(1, before),
           {{9, e.stateCounter, this->stateElement("Optional( 2 )", "1", 0)},
            {7, e.stateCounter, this->stateEntry(2, 0)},
            {9, e.stateCounter, this->stateElement("None", "0", 1)},
            {6, e.stateCounter, kStateFilter}},
           this->overflow(1, true, "None"),
           {{7, e.overflow, this->text(e.overflowDelete, this->keyText(1))}},
           this->replacement("None"),
           {{6, e.replacement, this->text(e.waitingFlatten, 2)},
            {9, e.replacement, "Flattening element: " + this->keyText(promoted)},
            {7, e.replacement, this->text(e.promotedDelete, this->keyText(promoted))}},
           this->status(promoted, false, config, waited, 2),
           this->counter(promoted, waited, "None", 1, true),
           this->states(promoted, waited),
           {{9, e.stateCounter, this->stateElement("Optional( 3 )", "1", 0)},
            {7, e.stateCounter, this->stateEntry(3, 1)},
            {9, e.stateCounter, this->stateElement("Optional( 2 )", "4294967295", 1)},
            {7, e.stateCounter, this->stateEntry(2, 1)},
            {9, e.replacement, "Flattening element: " + this->keyText(left)},
            {6, e.replacement, "filter( ( !stillOutOfResources ) ) failed, terminating pipeline"}}})));
}

TYPED_TEST(TranscriptTest, WithNoRoomEachWaitingFlowIsAskedOnce) {
  this->budgetIs(0);
  this->start();
  this->wantMany(1, 4);
  TraceLines trace;
  this->unwant(this->key(1));
  const ExpectedTexts& e = this->words;
  std::vector<TraceLine> expected{{7, e.replacement, this->text(e.replacementText, "None")},
                                  {6, e.replacement, this->text(e.waitingFlatten, 3)}};
  for (const auto& key : this->waitingKeys()) {
    expected.push_back({9, e.replacement, "Flattening element: " + key.str()});
    expected.push_back({6, e.replacement, "filter( ( !stillOutOfResources ) ) failed, terminating pipeline"});
  }
  ASSERT_GE(trace.lines.size(), expected.size());
  EXPECT_THAT(
      std::vector(trace.lines.end() - static_cast<std::ptrdiff_t>(expected.size()), trace.lines.end()),
      ElementsAreArray(expected));
}

TYPED_TEST(TranscriptTest, AnUnknownOffloadIsWithdrawn) {
  this->start();
  TraceLines trace;
  this->inputSm().handleConfig(this->key(1));
  const ExpectedTexts& e = this->words;
  EXPECT_THAT(trace.lines,
              ElementsAreArray(this->joined(
                  {this->input(1, "None"),
                   this->status(1, false, "None", "None", 0),
                   this->counter(1, "None", "None", 4294967295U, false),
                   {{7, e.stateCounter, this->text(e.stateCounterText, this->keyText(1), "None")},
                    {6, e.stateCounter, "filter( ( status || newStatus ) ) failed, terminating pipeline"}},
                   this->overflow(1, false, "None"),
                   {{7, e.overflow, this->text(e.overflowDelete, this->keyText(1))}},
                   this->replacement("None"),
                   {{6, e.replacement, this->text(e.waitingFlatten, 0)}}})));
}

TYPED_TEST(TranscriptTest, ThePollPublishesWhatHasARecord) {
  this->start();
  this->want(this->key(1));
  this->countPacket(this->flow(1));
  TraceLines trace;
  this->second();
  const ExpectedTexts& e = this->words;
  const auto local = this->text(e.localCounter, 1, "Ethernet1", 1, 100, kNow);
  const auto published = this->text(e.counterRecord, this->flowText(1), "Ethernet1", 1, 100, kNow, kNow, 1);
  EXPECT_THAT(trace.of(e.copy),
              ::testing::ElementsAre(
                  e.copyFired, this->text(e.copyFlatten, 1), "Flattening element: " + local, e.copyMerge,
                  this->text(e.copyText, this->flowText(1), local, this->optional(this->counterText(1, 1))),
                  this->text(e.copyInsert, this->flowText(1), published)));
  std::vector<unsigned> levels;
  for (const TraceLine& line : trace.lines) {
    if (line.handler == e.copy) levels.push_back(line.level);
  }
  EXPECT_THAT(levels, ::testing::ElementsAre(7, 6, 9, 7, 7, 7));
}

TYPED_TEST(TranscriptTest, ThePollPassesOverWhatHasNone) {
  this->start();
  this->countPacket(this->flow(1));
  TraceLines trace;
  this->second();
  const ExpectedTexts& e = this->words;
  std::erase_if(trace.lines, [&](const TraceLine& line) { return line.handler != e.copy; });
  EXPECT_THAT(
      trace.lines,
      ::testing::ElementsAre(
          TraceLine{7, e.copy, e.copyFired}, TraceLine{6, e.copy, this->text(e.copyFlatten, 1)},
          TraceLine{9, e.copy,
                    "Flattening element: " + this->text(e.localCounter, 1, "Ethernet1", 1, 100, kNow)},
          TraceLine{7, e.copy, e.copyMerge},
          TraceLine{3, e.copy, this->text(e.copyUnmatched, this->flowText(1))},
          TraceLine{6, e.copy, "filter( value ) failed, terminating pipeline"}));
}

TYPED_TEST(TranscriptTest, ALevelShowsItsLinesAndThoseOfLowerOnes) {
  this->start();
  for (int level = -1; level <= 9; ++level) {
    TraceLines trace(level);
    this->want(this->key(1));
    auto expected = this->admittedTranscript();
    std::erase_if(expected, [&](const TraceLine& line) { return static_cast<int>(line.level) > level; });
    EXPECT_THAT(trace.lines, ElementsAreArray(expected)) << level;
    // As if nothing had been.
    Kiv::TraceHandle::levelIs(SmTrace::kName, -1);
    this->unwant(this->key(1));
    this->counts().erase(HoFlowState::inHardware);
  }
}

TYPED_TEST(TranscriptTest, TheDebugHandlerSwitchesSingleLevels) {
  this->start();
  TraceLines trace(-1);
  const auto handler = Fenn::Platform::getDebugHandler(SmTrace::kName, 0);
  handler->levelsIs(1U << 8);
  this->want(this->key(1));
  handler->levelsIs(0);
  this->want(this->key(2));
  EXPECT_THAT(trace.lines, ::testing::ElementsAre(TraceLine{8, this->words.input, "k: " + this->keyText(1)}));
}

TYPED_TEST(TranscriptTest, WhatIsTracedGoesToTheRingThatIsGiven) {
  TestSupport::RecordingRing ring;
  this->control.traceHandle = &ring;
  this->start();
  EXPECT_THAT(ring.texts(), IsEmpty()) << "no level is on";
  TraceLines trace(7);
  this->want(this->key(1));
  std::vector<std::string> texts;
  for (const TraceLine& line : trace.take()) texts.push_back(line.text);
  EXPECT_FALSE(texts.empty());
  EXPECT_EQ(ring.texts(), texts);
  EXPECT_EQ(ring.records[0].volume, Skein::Volume::event);
  ring.records.clear();
  this->sm->skeinHandleIs(nullptr);
  EXPECT_EQ(this->sm->drovaControl().traceHandle, nullptr);
  this->want(this->key(2));
  EXPECT_THAT(ring.texts(), IsEmpty());
  this->sm->skeinHandleIs(&ring);
  this->want(this->key(3));
  EXPECT_FALSE(ring.texts().empty());
}

}  // namespace
}  // namespace SampledFlowTracker

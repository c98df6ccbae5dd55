#include "agent/LoopSlices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio.hpp>

#include "CountedWork.h"
#include "agent/EventLoop.h"

namespace {

using ::testing::Contains;
using ::testing::Pair;

// Kind of work -> slices.
std::map<std::string, std::uint64_t> counts(const Pexa::LoopSlices& slices) {
  Metrics::Snapshot snapshot;
  slices.metricsInto(snapshot);
  std::map<std::string, std::uint64_t> result;
  for (const auto& [labels, histogram] : snapshot.families().at("pexa_loop_slice_seconds").histograms())
    result[labels.at(0).second] = histogram.count();
  return result;
}

TEST(LoopSlicesTest, EachSliceIsOneOfItsKind) {
  Pexa::LoopSlices slices;
  const auto sacks = slices.kindIs("sacks");
  const auto idle = slices.kindIs("idle");
  EXPECT_EQ(slices.kindIs("sacks"), sacks);
  slices.begin();
  slices.ended(sacks);
  slices.ended(sacks);
  EXPECT_EQ(counts(slices), (std::map<std::string, std::uint64_t>{{"sacks", 2}, {"idle", 0}}));
  slices.ended(idle);
  EXPECT_EQ(counts(slices).at("idle"), 1U);
}

TEST(LoopSlicesTest, TheLoopNotesASliceForEachRunOfWorkAndNoneForRoundsWithoutPackets) {
  asio::io_context io;
  Pexa::AgentPorts ports{Pexa::AgentConfig{}};
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Pexa::NamedCounters reasons;
  Capture::TraceFilters filters;
  Pexa::PatchPanel panel{ports, steps, reasons, filters};
  Pexa::EventLoop loop{io, ports, panel};
  TestSupport::CountedWork work(3);
  loop.workIs(&work);
  loop.run(true);
  EXPECT_EQ(counts(loop.slices()),
            (std::map<std::string, std::uint64_t>{{"control", 0}, {"other", 3}, {"packets", 0}}));
}

}  // namespace

#include "pexa/PacketPipeline.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "FakePorts.h"
#include "pexa/NamedCounters.h"

namespace {

using Pexa::PacketPipeline;
using Pexa::StepResult;

// Writes down what it is called with: "name:look(packets)" and "name:packet".
using Journal = std::vector<std::string>;
using Decide = std::function<StepResult(std::uint64_t packet)>;

template <class Base, class Context>
class JournalStep : public Base {
 public:
  JournalStep(Kiv::String name, unsigned position, Journal& journal, Decide decide)
      : Base(std::move(name), position), journal_(journal), decide_(std::move(decide)) {}
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<JournalStep>("Test::JournalStep").build();
    return type;
  }
  StepResult process(Context context) override {
    const std::uint64_t number = numberOf(context);
    journal_.push_back(this->name() + ":" + std::to_string(number));
    return decide_(number);
  }
  void lookAhead(std::span<const Context> burst) override {
    std::string packets;
    for (const Context& context : burst) packets += ' ' + std::to_string(numberOf(context));
    journal_.push_back(this->name() + ":look" + packets);
    if (lookAheadThrows) throw std::runtime_error("ahead");
  }
  bool lookAheadThrows = false;

 private:
  static std::uint64_t numberOf(Pexa::PacketContext context) { return context.packetNumber(); }
  static std::uint64_t numberOf(const Pexa::OutputPipelineContext& context) {
    return context.packetContext().packetNumber();
  }
  Journal& journal_;
  Decide decide_;
};

StepResult proceed(std::uint64_t) {
  return StepResult::proceed;
}

// Both pipelines behave alike: what differs is how they are entered.
struct Input {
  using Step = JournalStep<Pexa::InputPipelineStep, Pexa::PacketContext>;
  static PacketPipeline::PacketSet run(const PacketPipeline& pipeline, std::span<Pexa::PacketState> burst,
                                       PacketPipeline::PacketSet going, const TestSupport::FakePorts&) {
    return pipeline.input(burst, going);
  }
};
struct Output {
  using Step = JournalStep<Pexa::OutputPipelineStep, Pexa::OutputPipelineContext>;
  static PacketPipeline::PacketSet run(const PacketPipeline& pipeline, std::span<Pexa::PacketState> burst,
                                       PacketPipeline::PacketSet going, const TestSupport::FakePorts& ports) {
    return pipeline.output(burst, going, ports[1]);
  }
};

template <class Direction>
class Pipeline : public testing::Test {
 protected:
  Pipeline() : burst_(3) {
    for (std::size_t i = 0; i < burst_.size(); ++i) {
      burst_[i].packetNumber = i;
      burst_[i].namedCounters = &counters_;
      burst_[i].inputPort = &ports_[0];
    }
  }
  Kiv::Ptr<typename Direction::Step> add(const std::string& name, unsigned position,
                                         Decide decide = proceed) {
    auto step = Kiv::makePtr<typename Direction::Step>(name, position, journal_, std::move(decide));
    steps_->addStep(step);
    return step;
  }
  PacketPipeline::PacketSet run(PacketPipeline::PacketSet going = 7) {
    return Direction::run(PacketPipeline(steps_), burst_, going, ports_);
  }

  TestSupport::FakePorts ports_{2};
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps_ = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  Pexa::NamedCounters counters_;
  std::vector<Pexa::PacketState> burst_;
  Journal journal_;
};
using Directions = testing::Types<Input, Output>;
TYPED_TEST_SUITE(Pipeline, Directions);

TYPED_TEST(Pipeline, EachStepLooksAheadAndThenProcessesInOrder) {
  this->add("B", 20);
  this->add("A", 10);
  EXPECT_EQ(this->run(), 7U);
  EXPECT_EQ(this->journal_,
            (Journal{"A:look 0 1 2", "A:0", "A:1", "A:2", "B:look 0 1 2", "B:0", "B:1", "B:2"}));
}

TYPED_TEST(Pipeline, WithoutStepsEveryPacketGoesOn) {
  EXPECT_EQ(this->run(), 7U);
  EXPECT_EQ(this->run(5), 5U);
}

TYPED_TEST(Pipeline, AnEmptyBurstReachesNoStep) {
  this->add("A", 10);
  EXPECT_EQ(this->run(0), 0U);
  EXPECT_TRUE(this->journal_.empty());
}

TYPED_TEST(Pipeline, OnlyThePacketsThatAreGoingAreTaken) {
  this->add("A", 10);
  EXPECT_EQ(this->run(5), 5U);
  EXPECT_EQ(this->journal_, (Journal{"A:look 0 2", "A:0", "A:2"}));
}

TYPED_TEST(Pipeline, AStoppedPacketReachesNoLaterStepAndIsCounted) {
  this->add("A", 10,
            [](std::uint64_t packet) { return packet == 1 ? StepResult::stop : StepResult::proceed; });
  this->add("B", 20);
  EXPECT_EQ(this->run(), 5U);
  EXPECT_EQ(this->journal_, (Journal{"A:look 0 1 2", "A:0", "A:1", "A:2", "B:look 0 2", "B:0", "B:2"}));
  EXPECT_EQ(this->counters_.value("Drop", "Pexa", "stopped by step A"), 1U);
}

TYPED_TEST(Pipeline, WhenEveryPacketIsStoppedTheStepsBehindRest) {
  this->add("A", 10, [](std::uint64_t) { return StepResult::stop; });
  this->add("B", 20);
  EXPECT_EQ(this->run(), 0U);
  EXPECT_EQ(this->journal_.size(), 4U);
}

TYPED_TEST(Pipeline, AStepThatThrowsIsCountedAndItsPacketGoesOn) {
  this->add("A", 10, [](std::uint64_t packet) -> StepResult {
    if (packet == 0) throw std::range_error("value > 4095 not allowed");
    if (packet == 1) throw 7;
    return StepResult::proceed;
  });
  this->add("B", 20);
  EXPECT_EQ(this->run(), 7U);
  EXPECT_EQ(this->counters_.value("Error", "Pexa", "step A: value > 4095 not allowed"), 1U);
  EXPECT_EQ(this->counters_.value("Error", "Pexa", "step A: unknown exception"), 1U);
  EXPECT_EQ(this->journal_.back(), "B:2");
}

TYPED_TEST(Pipeline, ALookAheadThatThrowsIsCountedAndThePacketsAreProcessed) {
  this->add("A", 10)->lookAheadThrows = true;
  EXPECT_EQ(this->run(), 7U);
  EXPECT_EQ(this->counters_.value("Error", "Pexa", "step A: ahead"), 1U);
  EXPECT_EQ(this->journal_.back(), "A:2");
}

TYPED_TEST(Pipeline, ALongReasonIsCut) {
  this->add("A", 10, [](std::uint64_t) -> StepResult { throw std::runtime_error(std::string(5'000, 'x')); });
  EXPECT_EQ(this->run(1), 1U);
  const auto all = this->counters_.all();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_LT(all[0].reason.size(), 1'000U);
  EXPECT_TRUE(all[0].reason.starts_with("step A: xxx"));
}

TYPED_TEST(Pipeline, WithoutNamedCountersFailuresPassUncounted) {
  for (auto& state : this->burst_) state.namedCounters = nullptr;
  this->add("A", 10, [](std::uint64_t packet) -> StepResult {
    return packet == 0 ? throw std::runtime_error("x") : StepResult::stop;
  });
  EXPECT_EQ(this->run(), 1U);
}

TYPED_TEST(Pipeline, AFullBurstIsTaken) {
  this->burst_.resize(PacketPipeline::kMostBurst);
  for (std::size_t i = 0; i < this->burst_.size(); ++i) this->burst_[i].packetNumber = i;
  this->add("A", 10,
            [](std::uint64_t packet) { return packet % 2 == 1 ? StepResult::stop : StepResult::proceed; });
  EXPECT_EQ(this->run(PacketPipeline::allOf(32)), 0x55555555U);
  EXPECT_EQ(this->journal_.size(), 33U);
}

TEST(PacketPipeline, KnowsTheSetOfABurst) {
  EXPECT_EQ(PacketPipeline::allOf(0), 0U);
  EXPECT_EQ(PacketPipeline::allOf(3), 7U);
  EXPECT_EQ(PacketPipeline::allOf(31), 0x7fffffffU);
  EXPECT_EQ(PacketPipeline::allOf(32), 0xffffffffU);
}

}  // namespace

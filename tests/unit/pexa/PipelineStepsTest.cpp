#include <gtest/gtest.h>

#include "PexaPipeline.h"

namespace {

template <class Base, class Context>
class NamedStep : public Base {
 public:
  using Base::Base;
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<NamedStep>("Test::Step").build();
    return type;
  }
  Pexa::StepResult process(Context) override { return Pexa::StepResult::proceed; }
};
using InputStep = NamedStep<Pexa::InputPipelineStep, Pexa::PacketContext>;
using OutputStep = NamedStep<Pexa::OutputPipelineStep, Pexa::OutputPipelineContext>;

template <class Steps>
std::string names(const Steps& steps) {
  std::string all;
  for (const auto& step : steps) all += step->name();
  return all;
}

TEST(AllGenericPipelineSteps, OrdersByPositionAndKeepsTheOrderOfEqualOnes) {
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  steps->addStep(Kiv::makePtr<InputStep>("c", 240));
  steps->addStep(Kiv::makePtr<InputStep>("e", 1000));
  steps->addStep(Kiv::makePtr<InputStep>("a", 0));
  steps->addStep(Kiv::makePtr<InputStep>("d", 240));
  steps->addStep(Kiv::makePtr<InputStep>("b", 239));
  EXPECT_EQ(names(steps->input()), "abcde");
  EXPECT_TRUE(steps->output().empty());
}

TEST(AllGenericPipelineSteps, PutsEachStepIntoItsOwnPipeline) {
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  steps->addStep(Kiv::makePtr<OutputStep>("o", 310));
  steps->addStep(Kiv::makePtr<InputStep>("i", 240));
  EXPECT_EQ(names(steps->input()), "i");
  EXPECT_EQ(names(steps->output()), "o");
  EXPECT_EQ(Kiv::attribute(*steps, "inputSteps"), Kiv::Value(1U));
}

TEST(AllGenericPipelineSteps, ReleasesItsStepsWhenCleared) {
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
  const auto step = Kiv::makePtr<InputStep>("i", 240);
  steps->addStep(step);
  EXPECT_EQ(step->references(), 2U);
  steps->clear();
  EXPECT_EQ(step->references(), 1U);
  EXPECT_TRUE(steps->input().empty());
}

TEST(AllGenericPipelineStepsDeath, RefusesAStepOfNoPipeline) {
  class NoPipeline : public Pexa::GenericPipelineStep {
   public:
    using Pexa::GenericPipelineStep::GenericPipelineStep;
    const Kiv::Type& fwkType() const override { return Pexa::AllGenericPipelineSteps::kivType(); }
  };
  const auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
#ifndef NDEBUG
  EXPECT_DEATH(steps->addStep(Kiv::makePtr<NoPipeline>("n", 1)), "an input or an output step");
#else
  steps->addStep(Kiv::makePtr<NoPipeline>("n", 1));
  EXPECT_TRUE(steps->input().empty() && steps->output().empty());
#endif
}

}  // namespace

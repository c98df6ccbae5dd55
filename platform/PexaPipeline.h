// The packet pipelines: steps in the order of their positions, input steps on received packets, output steps
// on transmitted ones.
#pragma once

#include <span>
#include <vector>

#include "Kiv.h"
#include "PexaPacket.h"

namespace Pexa {

// What a step says of a packet.
enum class StepResult : int { stop = 0, proceed = 1 };

class GenericPipelineStep : public Kiv::Entity {
 public:
  GenericPipelineStep(Kiv::String name, unsigned position)
      : Kiv::Entity(std::move(name)), position_(position) {}
  // Orders the steps of a pipeline; steps of equal position run in the order in which they were added.
  unsigned position() const { return position_; }

 private:
  unsigned position_;
};

class InputPipelineStep : public GenericPipelineStep {
 public:
  using GenericPipelineStep::GenericPipelineStep;
  virtual StepResult process(PacketContext packetContext) = 0;
  // Called with a burst before its packets are processed one by one: what can be looked up ahead may be. Must
  // not change what process() does. The base does nothing.
  virtual void lookAhead(std::span<const PacketContext> burst);
};

class OutputPipelineStep : public GenericPipelineStep {
 public:
  using GenericPipelineStep::GenericPipelineStep;
  virtual StepResult process(OutputPipelineContext context) = 0;
  virtual void lookAhead(std::span<const OutputPipelineContext> burst);
};

// The agent's steps, of both pipelines.
class AllGenericPipelineSteps : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Puts a step at its position in its pipeline. REQUIRES: an input or an output step.
  void addStep(const Kiv::Ptr<GenericPipelineStep>& step);
  void clear();
  const std::vector<Kiv::Ptr<InputPipelineStep>>& input() const { return input_; }
  const std::vector<Kiv::Ptr<OutputPipelineStep>>& output() const { return output_; }

 private:
  std::vector<Kiv::Ptr<InputPipelineStep>> input_;
  std::vector<Kiv::Ptr<OutputPipelineStep>> output_;
};

}  // namespace Pexa

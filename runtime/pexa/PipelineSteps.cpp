#include <algorithm>
#include <cassert>

#include "PexaPipeline.h"

namespace Pexa {
namespace {

template <class Step>
bool addTo(std::vector<Kiv::Ptr<Step>>& steps, const Kiv::Ptr<GenericPipelineStep>& step) {
  const Kiv::Ptr<Step> typed = Kiv::ptrCast<Step>(step);
  if (!typed) return false;
  const auto behind = [](unsigned position, const Kiv::Ptr<Step>& other) {
    return position < other->position();
  };
  steps.insert(std::upper_bound(steps.begin(), steps.end(), typed->position(), behind), typed);
  return true;
}

}  // namespace

void InputPipelineStep::lookAhead(std::span<const PacketContext>) {}
void OutputPipelineStep::lookAhead(std::span<const OutputPipelineContext>) {}

const Kiv::Type& AllGenericPipelineSteps::kivType() {
  static const Kiv::Type type =
      Kiv::TypeBuilder<AllGenericPipelineSteps>("Pexa::AllGenericPipelineSteps")
          .attribute("inputSteps", [](const AllGenericPipelineSteps& steps) { return steps.input().size(); })
          .attribute("outputSteps",
                     [](const AllGenericPipelineSteps& steps) { return steps.output().size(); })
          .build();
  return type;
}

void AllGenericPipelineSteps::addStep(const Kiv::Ptr<GenericPipelineStep>& step) {
  [[maybe_unused]] const bool added = addTo(input_, step) || addTo(output_, step);
  assert(added && "an input or an output step");
}

void AllGenericPipelineSteps::clear() {
  input_.clear();
  output_.clear();
}

}  // namespace Pexa

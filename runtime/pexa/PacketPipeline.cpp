#include "pexa/PacketPipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <exception>
#include <new>
#include <type_traits>
#include <utility>

namespace Pexa {
namespace {

constexpr std::string_view kSource = "Pexa";

// The contexts of those packets of a burst that are still going, side by side for the steps.
template <class Context>
class Going {
 public:
  template <class Make>
  Going(PacketPipeline::PacketSet set, const Make& make) : set_(set) {
    for (; set != 0; set &= set - 1) {
      const auto packet = static_cast<std::size_t>(std::countr_zero(set));
      packets_[count_] = static_cast<std::uint8_t>(packet);
      new (at(count_++)) Context(make(packet));
    }
  }
  std::span<const Context> contexts() const {
    return {std::launder(reinterpret_cast<const Context*>(bytes_)), count_};
  }
  bool empty() const { return count_ == 0; }

  // Keeps those for which the call says so. Where all are kept, as almost always, nothing is moved.
  template <class Keep>
  void filter(const Keep& keep) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count_; ++i) {
      const Context& context = contexts()[i];
      if (!keep(context)) {
        set_ &= ~(PacketPipeline::PacketSet{1} << packets_[i]);
        continue;
      }
      if (kept != i) {
        packets_[kept] = packets_[i];
        new (at(kept)) Context(context);
      }
      ++kept;
    }
    count_ = kept;
  }
  PacketPipeline::PacketSet set() const { return set_; }

 private:
  static_assert(std::is_trivially_destructible_v<Context>);
  void* at(std::size_t place) { return bytes_ + place * sizeof(Context); }

  alignas(Context) std::byte bytes_[PacketPipeline::kMostBurst * sizeof(Context)];
  std::array<std::uint8_t, PacketPipeline::kMostBurst> packets_;
  std::size_t count_ = 0;
  PacketPipeline::PacketSet set_;
};

PacketContext packetContextOf(PacketContext context) {
  return context;
}
PacketContext packetContextOf(const OutputPipelineContext& context) {
  return context.packetContext();
}

// Counts a reason that is put together, without allocating; a long one is cut.
template <class Context, class... Args>
[[gnu::cold]] void countReason(const Context& context, std::string_view category,
                               fmt::format_string<Args...> format, Args&&... args) {
  PexaNamedCounters* counters = packetContextOf(context).namedCounters();
  if (counters == nullptr) return;
  std::array<char, 160> text;
  const auto written = fmt::format_to_n(text.data(), text.size(), format, std::forward<Args>(args)...);
  counters->count(category, kSource, {text.data(), std::min(written.size, text.size())});
}

template <class Context>
[[gnu::cold]] void countFailure(const Context& context, const GenericPipelineStep& step,
                                std::string_view what) {
  countReason(context, "Error", "step {}: {}", step.name(), what);
}

template <class Step, class Context>
void lookAhead(Step& step, std::span<const Context> burst) {
  try {
    step.lookAhead(burst);
  } catch (const std::exception& failure) {
    countFailure(burst.front(), step, failure.what());
  } catch (...) {
    countFailure(burst.front(), step, "unknown exception");
  }
}

// Whether the packet goes on.
template <class Step, class Context>
bool process(Step& step, const Context& context) {
  try {
    if (step.process(context) != StepResult::stop) [[likely]]
      return true;
    countReason(context, "Drop", "stopped by step {}", step.name());
    return false;
  } catch (const std::exception& failure) {
    countFailure(context, step, failure.what());
  } catch (...) {
    countFailure(context, step, "unknown exception");
  }
  return true;
}

template <class Step, class Context>
PacketPipeline::PacketSet run(const std::vector<Kiv::Ptr<Step>>& steps, Going<Context> going) {
  for (const Kiv::Ptr<Step>& step : steps) {
    if (going.empty()) break;
    lookAhead(*step, going.contexts());
    going.filter([&](const Context& context) { return process(*step, context); });
  }
  return going.set();
}

}  // namespace

PacketPipeline::PacketSet PacketPipeline::input(std::span<PacketState> burst, PacketSet going) const {
  assert(burst.size() <= kMostBurst && (going & ~allOf(burst.size())) == 0);
  const auto make = [&](std::size_t packet) { return PacketContext(burst[packet]); };
  return run(steps_->input(), Going<PacketContext>(going, make));
}

PacketPipeline::PacketSet PacketPipeline::output(std::span<PacketState> burst, PacketSet going,
                                                 const Kiv::Ptr<const PexaPortBase>& outputPort) const {
  assert(burst.size() <= kMostBurst && (going & ~allOf(burst.size())) == 0);
  const auto make = [&](std::size_t packet) {
    return OutputPipelineContext(PacketContext(burst[packet]), outputPort);
  };
  return run(steps_->output(), Going<OutputPipelineContext>(going, make));
}

}  // namespace Pexa

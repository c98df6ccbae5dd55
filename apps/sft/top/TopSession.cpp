#include "top/TopSession.h"

#include <utility>

namespace Sft::Top {

using Clock = std::chrono::steady_clock;

TopSession::TopSession(asio::io_context& io, const Context& context, const TopSettings& settings,
                       std::function<void()> changed)
    : model_(context.runDir.native(), settings.interval, settings.selection, settings.panel),
      interval_(settings.interval),
      changed_(std::move(changed)),
      sweep_(context),
      link_(io, context.runDir,
            {.answered =
                 [this](const AgentLook& seen) {
                   model_.agentIs(seen, Kiv::System::currentTimeUtc());
                   ++answers_;
                   changed_();
                 },
             .away =
                 [this](const std::string& why) {
                   model_.agentIsAway(why);
                   ++answers_;
                   changed_();
                 }}),
      ticks_(io),
      slices_(io) {
  ticks_.expires_after(Clock::duration::zero());
  ticks_.async_wait([this](const auto& error) {
    if (!error) tick();
  });
}

void TopSession::tick() {
  ticks_.expires_after(std::chrono::duration_cast<Clock::duration>(interval_));
  ticks_.async_wait([this](const auto& error) {
    if (!error) tick();
  });
  model_.timeIs(Kiv::System::currentTimeUtc());
  if (!model_.paused()) {
    link_.ask();
    if (!sweep_.running()) look();
  }
  changed_();
}

void TopSession::look() {
  sweep_.begin(model_.selection());
  slice();
}

void TopSession::slice() {
  if (!sweep_.running()) return;
  if (auto seen = sweep_.goOn(Clock::now() + kSlice)) {
    model_.tablesAre(std::move(*seen));
    ++looks_;
    changed_();
    return;
  }
  slices_.expires_after(kSlice);
  slices_.async_wait([this](const auto& error) {
    if (!error) slice();
  });
}

void TopSession::keyIs(Key pressed, std::size_t page) {
  const Selection before = model_.selection();
  model_.keyIs(pressed, page);
  if (model_.selection() != before && !model_.paused()) look();
  changed_();
}

}  // namespace Sft::Top

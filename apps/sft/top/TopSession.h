// A model that is kept up to date: reads the tables and asks the agent once an interval, and whenever the
// selection has changed.
//
// The tables are read in slices of 10 ms with a pause of as long behind each, so that keys are heard, and
// half a processor is left to others, however many flows there are. Threading: the io_context's thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>

#include "Command.h"
#include "top/AgentLink.h"
#include "top/TableSweep.h"
#include "top/TopModel.h"

namespace Sft::Top {

struct TopSettings {
  double interval = 1;  // seconds
  Selection selection;
  Panel panel = Panel::flows;
};

class TopSession {
 public:
  static constexpr std::chrono::milliseconds kSlice{10};

  // Calls `changed` when there is something new to show. The context must outlive this.
  TopSession(asio::io_context& io, const Context& context, const TopSettings& settings,
             std::function<void()> changed);

  const TopModel& model() const { return model_; }
  void keyIs(Key pressed, std::size_t page);
  // Looks that were complete, and answers of the agent or the news that there is none.
  unsigned looks() const { return looks_; }
  unsigned answers() const { return answers_; }

 private:
  void tick();
  void look();
  void slice();

  TopModel model_;
  const std::chrono::duration<double> interval_;
  std::function<void()> changed_;
  TableSweep sweep_;
  AgentLink link_;
  asio::steady_timer ticks_;
  asio::steady_timer slices_;
  unsigned looks_ = 0;
  unsigned answers_ = 0;
};

}  // namespace Sft::Top

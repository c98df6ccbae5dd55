// What `sft top` knows and shows: the looks that came last, their rates, and what the keys made of it.
//
// Neighbours: TableSweep and AgentLink bring looks; TopView draws a model; Keys.h says what a key asks for.
// Pure: it reads no clock, table or terminal. Times are UTC seconds, and come from outside.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "top/CounterRates.h"
#include "top/Keys.h"
#include "top/Looks.h"

namespace Sft::Top {

enum class Panel : std::uint8_t { flows, sampling, reasons, ports };
inline constexpr std::array<std::string_view, 4> kPanelNames{"flows", "sampling", "reasons", "ports"};

// Counts with what they grew by a second; none when that cannot be told yet.
using PerSecond = std::optional<double>;
inline PerSecond bits(const PerSecond& bytes) {
  return bytes ? PerSecond(8 * *bytes) : std::nullopt;
}
struct RatedSampling : SamplingCounts {
  PerSecond samplesRate, dropsRate;
};
struct RatedReason : ReasonCount {
  PerSecond perSecond;
};
struct RatedPort : PortCounts {
  PerSecond packetsInRate, bytesInRate, packetsOutRate, bytesOutRate, dropsRate;
};

class TopModel {
 public:
  TopModel(std::string runDir, double interval, Selection selection, Panel panel);

  // --- What is seen. While the display is paused all of it is passed over.
  void tablesAre(TableLook look);
  void agentIs(const AgentLook& look, double now);
  // No agent answers; why. Its counts are gone with it; the budget that it told stays.
  void agentIsAway(const std::string& why);
  void timeIs(double now);

  // --- What is asked for. `page`: how many rows are shown at once.
  void keyIs(Key pressed, std::size_t page);

  // --- What there is to show.
  const std::string& runDir() const { return runDir_; }
  double interval() const { return interval_; }
  double now() const { return now_; }
  bool ended() const { return ended_; }
  bool paused() const { return paused_; }
  bool helps() const { return helps_; }
  Panel panel() const { return panel_; }
  const Selection& selection() const { return selection_; }
  // The text of a filter that is being typed.
  const std::optional<std::string>& typing() const { return typing_; }
  // The first row of a panel that is shown, if the screen is full then.
  std::size_t scrolled(Panel panel) const { return scrolled_[static_cast<std::size_t>(panel)]; }

  std::size_t rows(Panel panel) const;
  // Those of the last look that the selection takes.
  const std::vector<FlowRow>& flows() const { return shown_; }
  const TableLook& tables() const { return tables_; }
  bool looked() const { return looked_; }  // whether there was a look at the tables
  // How many flows the selection takes, shown or not.
  std::uint64_t taken() const;
  const std::optional<std::uint64_t>& budget() const { return budget_; }
  const std::vector<RatedSampling>& samplings() const { return samplings_; }
  const std::vector<RatedReason>& reasons() const { return reasons_; }
  const std::vector<RatedPort>& ports() const { return ports_; }
  // Why no agent answers; empty when one does.
  const std::string& away() const { return away_; }
  bool asked() const { return asked_; }  // whether it is known if one answers

 private:
  void command(Command wanted, std::size_t page);
  void type(Key pressed);
  void scrollTo(std::size_t row, std::size_t page);
  void select(Selection wanted);
  void showTaken();
  void keepScrolled();

  std::string runDir_;
  double interval_;
  double now_ = 0;
  bool ended_ = false;
  bool paused_ = false;
  bool helps_ = false;
  Panel panel_;
  Selection selection_;
  std::optional<std::string> typing_;
  std::string typedBefore_;  // the filter that leaving the typing goes back to
  std::array<std::size_t, kPanelNames.size()> scrolled_{};

  TableLook tables_;
  bool looked_ = false;
  std::vector<FlowRow> shown_;
  std::optional<std::uint64_t> budget_;
  CounterRates rates_;
  std::vector<RatedSampling> samplings_;
  std::vector<RatedReason> reasons_;
  std::vector<RatedPort> ports_;
  std::string away_;
  bool asked_ = false;
};

}  // namespace Sft::Top

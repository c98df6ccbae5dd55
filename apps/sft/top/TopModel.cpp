#include "top/TopModel.h"

#include <algorithm>
#include <utility>

namespace Sft::Top {
namespace {

template <class Enum, std::size_t N>
Enum neighbour(Enum at, const std::array<std::string_view, N>&, std::size_t step) {
  return static_cast<Enum>((static_cast<std::size_t>(at) + step) % N);
}

std::string stateBehind(const std::string& state) {
  const auto* at = std::find(kStateFilters.begin(), kStateFilters.end(), state);
  const auto next = static_cast<std::size_t>(at - kStateFilters.begin()) + 1;
  return std::string(kStateFilters[next % kStateFilters.size()]);
}

bool isText(Key pressed) {
  return pressed >= key(' ') && pressed <= key('~');
}

}  // namespace

TopModel::TopModel(std::string runDir, double interval, Selection selection, Panel panel)
    : runDir_(std::move(runDir)), interval_(interval), panel_(panel), selection_(std::move(selection)) {}

// --- What is seen

void TopModel::timeIs(double now) {
  if (!paused_) now_ = now;
}

void TopModel::tablesAre(TableLook look) {
  if (paused_) return;
  tables_ = std::move(look);
  looked_ = true;
  showTaken();
  keepScrolled();
}

void TopModel::agentIs(const AgentLook& look, double now) {
  if (paused_) return;
  asked_ = true;
  away_.clear();
  if (look.budget) budget_ = look.budget;
  samplings_.clear();
  for (const SamplingCounts& each : look.samplings) {
    const std::string name = "sampling " + each.interface + " " + each.direction;
    samplings_.push_back({each, rates_.perSecond(name + " samples", each.samples, now),
                          rates_.perSecond(name + " drops", each.drops, now)});
  }
  reasons_.clear();
  for (const ReasonCount& each : look.reasons) {
    const std::string name = "reason " + each.category + "/" + each.source + "/" + each.reason;
    reasons_.push_back({each, rates_.perSecond(name, each.count, now)});
  }
  ports_.clear();
  for (const PortCounts& each : look.ports) {
    const std::string name = "port " + each.name;
    ports_.push_back({each, rates_.perSecond(name + " packets in", each.packetsIn, now),
                      rates_.perSecond(name + " bytes in", each.bytesIn, now),
                      rates_.perSecond(name + " packets out", each.packetsOut, now),
                      rates_.perSecond(name + " bytes out", each.bytesOut, now),
                      rates_.perSecond(name + " drops", each.dropsIn + each.dropsOut, now)});
  }
  keepScrolled();
}

void TopModel::agentIsAway(const std::string& why) {
  if (paused_) return;
  asked_ = true;
  away_ = why;
  rates_ = {};
  samplings_.clear();
  reasons_.clear();
  ports_.clear();
}

// Rows that went take a place behind them along.
void TopModel::keepScrolled() {
  for (std::size_t each = 0; each < scrolled_.size(); ++each) {
    const std::size_t all = rows(static_cast<Panel>(each));
    scrolled_[each] = std::min(scrolled_[each], all == 0 ? 0 : all - 1);
  }
}

// The rows that are held, by the selection of now. They are exact when they came by it, and until then the
// best that can be told.
void TopModel::showTaken() {
  if (tables_.selection == selection_) {
    shown_ = tables_.rows;
    return;
  }
  BestRows best(selection_, tables_.rows.size() + 1);
  for (const FlowRow& each : tables_.rows) best.offer(each);
  shown_ = best.finish();
}

std::uint64_t TopModel::taken() const {
  return tables_.selection == selection_ ? tables_.taken : shown_.size();
}

// --- What is asked for

void TopModel::keyIs(Key pressed, std::size_t page) {
  if (typing_) {
    type(pressed);
  } else {
    command(commandOf(pressed), std::max<std::size_t>(page, 1));
  }
}

void TopModel::type(Key pressed) {
  if (pressed == Key::enter) {
    typing_.reset();
    return;
  }
  if (pressed == Key::escape) {
    typing_ = typedBefore_;
  } else if (pressed == Key::backspace && !typing_->empty()) {
    typing_->pop_back();
  } else if (isText(pressed)) {
    *typing_ += static_cast<char>(pressed);
  }
  Selection wanted = selection_;
  wanted.text = *typing_;
  if (pressed == Key::escape) typing_.reset();
  select(std::move(wanted));
}

void TopModel::select(Selection wanted) {
  if (wanted == selection_) return;
  selection_ = std::move(wanted);
  scrolled_[static_cast<std::size_t>(Panel::flows)] = 0;
  showTaken();
}

std::size_t TopModel::rows(Panel panel) const {
  switch (panel) {
    case Panel::flows:
      return shown_.size();
    case Panel::sampling:
      return samplings_.size();
    case Panel::reasons:
      return reasons_.size();
    case Panel::ports:
      break;
  }
  return ports_.size();
}

void TopModel::scrollTo(std::size_t row, std::size_t page) {
  const std::size_t all = rows(panel_);
  const std::size_t last = all > page ? all - page : 0;
  scrolled_[static_cast<std::size_t>(panel_)] = std::min(row, last);
}

void TopModel::command(Command wanted, std::size_t page) {
  Selection selected = selection_;
  const std::size_t at = scrolled(panel_);
  switch (wanted) {
    case Command::none:
    case Command::redraw:
      return;
    case Command::quit:
      ended_ = true;
      return;
    case Command::help:
      helps_ = !helps_;
      return;
    case Command::pause:
      paused_ = !paused_;
      return;
    case Command::filter:
      panel_ = Panel::flows;
      typedBefore_ = selection_.text;
      typing_ = selection_.text;
      return;
    case Command::panelNext:
      panel_ = neighbour(panel_, kPanelNames, 1);
      return;
    case Command::panelBefore:
      panel_ = neighbour(panel_, kPanelNames, kPanelNames.size() - 1);
      return;
    case Command::up:
      return scrollTo(at - std::min<std::size_t>(at, 1), page);
    case Command::down:
      return scrollTo(at + 1, page);
    case Command::pageUp:
      return scrollTo(at - std::min(at, page), page);
    case Command::pageDown:
      return scrollTo(at + page, page);
    case Command::home:
      return scrollTo(0, page);
    case Command::end:
      return scrollTo(rows(panel_), page);
    case Command::reverse:
      selected.reversed = !selected.reversed;
      break;
    case Command::orderNext:
      selected.order = neighbour(selected.order, kOrderNames, 1);
      break;
    case Command::stateNext:
      selected.state = stateBehind(selected.state);
      break;
    case Command::clear:
      selected.text.clear();
      selected.state.clear();
      break;
    case Command::ipv4:
      selected.ipv4 = !selected.ipv4;
      break;
    case Command::ipv6:
      selected.ipv6 = !selected.ipv6;
      break;
    default:
      selected.order = static_cast<Order>(static_cast<int>(wanted) - static_cast<int>(Command::orderRate));
      break;
  }
  select(std::move(selected));
}

}  // namespace Sft::Top

#include "top/TableSweep.h"

namespace Sft::Top {
namespace {

using Clock = std::chrono::steady_clock;
using FlowTracking::HoFlowState;

constexpr unsigned kFlowsPerClock = 64;  // between two looks at the clock

}  // namespace

template <class Domain>
struct TableSweep::Family {
  FlowHistory history;
  std::unique_ptr<FlowJoin<Domain>> join;
};

TableSweep::TableSweep(const Context& context)
    : context_(context),
      damages_([this](const std::string& what) {
        ++look_.damages;
        if (look_.problem.empty()) look_.problem = what;
      }),
      four_(std::make_unique<Family<Pavo::Traits::IPv4>>()),
      six_(std::make_unique<Family<Pavo::Traits::IPv6>>()) {}

TableSweep::~TableSweep() = default;

void TableSweep::begin(const Selection& selection) {
  look_ = {};
  look_.selection = selection;
  best_.emplace(selection, kMostRows);
  running_ = true;
  beginFamily(*four_, selection.ipv4);
  beginFamily(*six_, selection.ipv6);
}

template <class Domain>
void TableSweep::beginFamily(Family<Domain>& family, bool shown) {
  family.history.begin();
  family.join.reset();
  if (!shown) return;
  try {
    family.join = std::make_unique<FlowJoin<Domain>>(context_, damages_);
  } catch (const Quell::TableError& error) {
    damages_.met(error.what());
  }
}

std::optional<TableLook> TableSweep::goOn(Clock::time_point until) {
  if (!running_ || !goOnFamily(*four_, until) || !goOnFamily(*six_, until)) return std::nullopt;
  return end();
}

template <class Domain>
bool TableSweep::goOnFamily(Family<Domain>& family, Clock::time_point until) {
  using Map = typename Published<FlowTracking::HoFlowStatus, Domain>::Map;
  if (!family.join) return true;
  const double now = Kiv::System::currentTimeUtc();
  for (unsigned count = 1; !family.join->atEnd(); ++count) {
    if (count % kFlowsPerClock == 0 && Clock::now() >= until) return false;
    const JoinedFlow<Domain> flow = family.join->take();
    FlowRow row = rowOf(flow);
    if (flow.counter) {
      row.rate = family.history.rate({.place = Quell::reverseBits(Map::hash(flow.key)),
                                      .packets = flow.counter->packets,
                                      .bytes = flow.counter->bytes,
                                      .created = flow.counter->creationTime,
                                      .counted = flow.counter->lastUpdateTime},
                                     now);
    }
    ++look_.met;
    best_->offer(row);
  }
  family.join.reset();
  family.history.end();
  return true;
}

template <class Domain>
void TableSweep::countStates() {
  using Table = Published<FlowTracking::HosStateCounter, Domain>;
  FamilyCounts& counts = look_.families[FlowTracking::IpFamily<Domain>::kIndex];
  try {
    const Table table(context_, damages_);
    for (typename Table::Walk walk(table); !walk.atEnd(); walk.next()) {
      const HoFlowState state = walk.record().key.state;
      (state == HoFlowState::inHardware ? counts.inHardware
       : state == HoFlowState::overflow ? counts.overflow
                                        : counts.others) += walk.record().count;
    }
  } catch (const Quell::TableError& error) {
    damages_.met(error.what());
  }
}

TableLook TableSweep::end() {
  countStates<Pavo::Traits::IPv4>();
  countStates<Pavo::Traits::IPv6>();
  look_.taken = best_->taken();
  look_.rows = best_->finish();
  running_ = false;
  return std::exchange(look_, {});
}

}  // namespace Sft::Top

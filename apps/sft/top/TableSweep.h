// Reads the flow tables of a run directory a bit at a time, so that the keys of who looks are heard meanwhile
// however many flows there are.
//
// The tables are opened by their files for each look: it makes no difference whether an agent runs, was
// started again, or the folder was made anew. A table may grow or change under a look (FlowJoin.h says what
// is met then). Between looks what stays is the rows that are shown and the counters' history
// (FlowHistory.h).
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "Command.h"
#include "top/FlowHistory.h"
#include "top/Looks.h"

namespace Sft::Top {

class TableSweep {
 public:
  static constexpr std::size_t kMostRows = 10000;  // of a look

  // The context must outlive this.
  explicit TableSweep(const Context& context);
  ~TableSweep();

  // Begins a look; one that is under way is dropped.
  void begin(const Selection& selection);
  bool running() const { return running_; }
  // Goes on until the time given, or the end of the look, which it gives then.
  std::optional<TableLook> goOn(std::chrono::steady_clock::time_point until);

 private:
  template <class Domain>
  struct Family;
  template <class Domain>
  void beginFamily(Family<Domain>& family, bool shown);
  template <class Domain>
  bool goOnFamily(Family<Domain>& family, std::chrono::steady_clock::time_point until);
  template <class Domain>
  void countStates();
  TableLook end();

  const Context& context_;
  Damages damages_;
  std::unique_ptr<Family<Pavo::Traits::IPv4>> four_;
  std::unique_ptr<Family<Pavo::Traits::IPv6>> six_;
  std::optional<BestRows> best_;
  TableLook look_;
  bool running_ = false;
};

}  // namespace Sft::Top

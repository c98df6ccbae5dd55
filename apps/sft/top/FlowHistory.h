// Rates of flows, from what their published counters were at the looks before.
//
// A look passes over a family's flows in table order, which is the same at each look: what is remembered of
// the last one is met in the same order, and nothing has to be searched for. 64 bytes a flow, during a look
// twice.
//
// A rate is that of the last publication that changed the counter: the packets since the publication before,
// over the time from that one's last packet to this one's. It is 0 once no publication has changed the
// counter for kStill seconds. Threading: one thread. Times are UTC seconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "top/FlowRow.h"

namespace Sft::Top {

class FlowHistory {
 public:
  static constexpr double kPublished = 1;  // seconds between two publications
  // Counters that do not change for so long stand still: a publication may be late, and so may the look.
  static constexpr double kStill = 3;
  // Packets that came together are a rate over no less than this.
  static constexpr double kLeastSeconds = 0.5;

  // What a counter says at a look.
  struct Reading {
    std::uint64_t place = 0;  // of the flow in table order (Published::Walk::place)
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    double created = 0;
    double counted = 0;  // when the last packet was
  };

  // Begins a look. One that was not ended is forgotten.
  void begin();
  // The rate by now; none when it cannot be told yet. REQUIRES: between begin and end; readings come in table
  // order.
  std::optional<Rate> rate(const Reading& reading, double now);
  // Ends a look: flows that it did not meet are forgotten.
  void end();

  std::size_t size() const { return before_.size(); }

 private:
  struct Track {
    Reading reading;
    double changed = 0;  // the look that first saw this reading
    double looked = 0;   // the last one that did
    float packets = 0;   // the rate
    float bytes = -1;    // the rate; negative: not known
  };
  static void follow(Track& track, const Track& old, double now);

  std::vector<Track> before_;
  std::vector<Track> now_;
  std::size_t at_ = 0;  // in before_
};

}  // namespace Sft::Top

#include "top/FlowHistory.h"

#include <algorithm>

namespace Sft::Top {

void FlowHistory::begin() {
  now_.clear();
  at_ = 0;
}

std::optional<Rate> FlowHistory::rate(const Reading& reading, double now) {
  while (at_ < before_.size() && before_[at_].reading.place < reading.place) ++at_;
  Track track{.reading = reading, .changed = now, .looked = now};
  if (at_ < before_.size() && before_[at_].reading.place == reading.place) {
    follow(track, before_[at_++], now);
  }
  now_.push_back(track);
  if (track.bytes < 0) return std::nullopt;
  return Rate{track.packets, track.bytes};
}

void FlowHistory::follow(Track& track, const Track& old, double now) {
  const Reading& reading = track.reading;
  const Reading& before = old.reading;
  const bool another =
      reading.created != before.created || reading.packets < before.packets || reading.bytes < before.bytes;
  if (another) return;
  if (reading.packets == before.packets) {
    track = old;
    track.looked = now;
    if (now - track.changed >= kStill) track.packets = track.bytes = 0;
    return;
  }
  // A counter that stood still was published, unchanged, at most one period before it was last looked at.
  const double from = std::max(before.counted, old.looked - kPublished);
  const double seconds = std::max(reading.counted - from, kLeastSeconds);
  track.packets = static_cast<float>(static_cast<double>(reading.packets - before.packets) / seconds);
  track.bytes = static_cast<float>(static_cast<double>(reading.bytes - before.bytes) / seconds);
}

void FlowHistory::end() {
  before_.swap(now_);
  now_.clear();
}

}  // namespace Sft::Top

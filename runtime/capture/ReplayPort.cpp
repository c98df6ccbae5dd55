#include "capture/ReplayPort.h"

#include <algorithm>
#include <utility>

namespace Capture {

ReplayPort::ReplayPort(std::string path, Pace pace) : reader_(std::move(path)), pace_(pace) {}

// Sees to it that a packet is pending; false when the capture has no more, or none beside those of this
// burst.
bool ReplayPort::fetch(bool beside) {
  if (havePending_) return true;
  if (state_ != ReplayState::running) return false;
  switch (beside ? reader_.nextBeside(pending_) : reader_.next(pending_)) {
    case CaptureReader::Result::packet: {
      const double silence = static_cast<double>(pending_.timeNs) / 1e9 - static_cast<double>(lastNs_) / 1e9;
      if (started_) due_ += std::clamp(silence, 0.0, kLongestSilence);
      started_ = true;
      lastNs_ = pending_.timeNs;
      return havePending_ = true;
    }
    case CaptureReader::Result::full:
      return false;
    case CaptureReader::Result::end:
      state_ = ReplayState::finished;
      return false;
    case CaptureReader::Result::damaged:
      state_ = ReplayState::damaged;
      error_ = reader_.error();
      return false;
  }
  return false;
}

std::size_t ReplayPort::receive(std::span<ReceivedPacket> room, double now) {
  if (held_) return 0;
  if (!started_) due_ = now;
  due_ = std::min(due_, now + kLongestSilence);  // the clock was set back
  const bool kept = havePending_;                // from the receive() before, with the packets of that one
  const std::size_t most = std::min(room.size(), kMostBurst);
  std::size_t count = 0;
  while (count < most && fetch(kept || count != 0)) {
    if (pace_ == Pace::recorded && due_ > now) break;
    room[count] = pending_;
    countIn(room[count].pkt);
    havePending_ = false;
    ++count;
  }
  return count;
}

void ReplayPort::transmit(const Pavo::Pkt&, double) {
  ++counts_.dropsOut;
}

double ReplayPort::nextReceive() const {
  if (held_ || (state_ != ReplayState::running && !havePending_)) return kNever;
  return pace_ == Pace::recorded && started_ ? due_ : 0.0;
}

}  // namespace Capture

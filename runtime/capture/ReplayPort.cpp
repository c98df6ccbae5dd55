#include "capture/ReplayPort.h"

#include <algorithm>
#include <utility>

namespace Capture {

ReplayPort::ReplayPort(std::string path, Pace pace) : reader_(std::move(path)), pace_(pace) {}

// The next packet; false when the capture has no more, or none beside those of this burst.
bool ReplayPort::read(ReceivedPacket& packet, bool beside) {
  if (state_ != ReplayState::running) return false;
  switch (beside ? reader_.nextBeside(packet) : reader_.next(packet)) {
    case CaptureReader::Result::packet:
      started_ = true;
      return true;
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

// Sees to it that a packet is pending, and says when it is due.
bool ReplayPort::fetch(bool beside) {
  if (havePending_) return true;
  const bool first = !started_;
  if (!read(pending_, beside)) return false;
  const double silence = static_cast<double>(pending_.timeNs) / 1e9 - static_cast<double>(lastNs_) / 1e9;
  if (!first) due_ += std::clamp(silence, 0.0, kLongestSilence);
  lastNs_ = pending_.timeNs;
  return havePending_ = true;
}

std::size_t ReplayPort::receive(std::span<ReceivedPacket> room, double now) {
  if (held_) return 0;
  room = room.first(std::min(room.size(), kMostBurst));
  return pace_ == Pace::fast ? receiveAll(room) : receiveDue(room, now);
}

std::size_t ReplayPort::receiveAll(std::span<ReceivedPacket> room) {
  std::size_t count = 0;
  while (count < room.size() && read(room[count], count != 0)) {
    countIn(room[count++].pkt);
    const std::size_t ready = reader_.ready(room.subspan(count));
    for (const std::size_t end = count + ready; count != end; ++count) countIn(room[count].pkt);
  }
  return count;
}

std::size_t ReplayPort::receiveDue(std::span<ReceivedPacket> room, double now) {
  if (!started_) due_ = now;
  due_ = std::min(due_, now + kLongestSilence);  // the clock was set back
  const bool kept = havePending_;                // from the receive() before, with the packets of that one
  std::size_t count = 0;
  while (count < room.size() && fetch(kept || count != 0) && due_ <= now) {
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

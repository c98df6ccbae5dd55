#include "capture/LivePort.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {

LivePort::LivePort(std::string interface) : interface_(std::move(interface)) {
  if (!open()) throw CaptureError(error_);
  LivePort::refresh();
}

bool LivePort::open() {
  const auto failed = [&](const std::string& why) {
    error_ = fmt::format("interface {}: {}", interface_.name(), why);
    return false;
  };
  const unsigned index = interface_.index();
  if (index == 0) return failed("there is no such interface");
  if (!interface_.isEthernet()) return failed("not an Ethernet interface");
  note_ = interface_.switchOffLargeReceive();
  const std::string why = socket_.open(index);
  if (!why.empty()) return failed(why);
  if (!socket_.hasReceiveBytes()) {
    if (!note_.empty()) note_ += "; ";
    note_ +=
        "no right to a receive buffer of its own size (CAP_NET_ADMIN, or a larger net.core.rmem_max): bursts "
        "may be lost";
  }
  index_ = index;
  dropsOutAtOpen_ = interface_.dropsOut();
  ++descriptorChanges_;
  return true;
}

// The socket's last counts are kept. What it had received and not delivered yet is still delivered.
void LivePort::closed() {
  lostIn_ += socket_.drops();
  lostOut_ = counts_.dropsOut - refused_;
  dropped_ = 0;
  socket_.close();
  index_ = 0;
  ++descriptorChanges_;
}

void LivePort::look(double now) {
  nextLook_ = now + kLookSeconds;
  const unsigned index = interface_.index();
  if (socket_.isOpen() && index != index_) {
    error_ = fmt::format("interface {}: went away", interface_.name());
    closed();
  }
  if (!socket_.isOpen() && undelivered()) {  // opening takes the frames away
    nextLook_ = now;
    return;
  }
  if (!socket_.isOpen() && (index == 0 || !open())) return;
  const std::string why = interface_.whyNot();
  error_ = why.empty() ? std::string() : fmt::format("interface {}: {}", interface_.name(), why);
}

std::size_t LivePort::receive(std::span<ReceivedPacket> room, double now) {
  if (now >= nextLook_ || nextLook_ > now + kLookSeconds) look(now);  // or the clock was set back
  cut_.clear();
  if (!undelivered()) {
    nextFrame_ = 0;
    received_ = socket_.isOpen() ? socket_.receive() : PacketSocket::Received();
    if (received_.unusable != 0) unusable(received_.unusable);
    if (received_.error != 0) look(now);
  }
  const auto timeNs = static_cast<std::int64_t>(now * 1e9);
  const std::size_t most = std::min(room.size(), kMostBurst);
  std::size_t count = 0;
  while (count < most && next(room[count].pkt)) {
    room[count].timeNs = timeNs;
    countIn(room[count].pkt);
    ++count;
  }
  more_ = received_.more || undelivered();
  return count;
}

// The next packet of the frames that were received, cut where they are to be.
bool LivePort::next(Pavo::Pkt& pkt) {
  while (!cutter_.more()) {
    if (nextFrame_ == received_.frames.size()) return false;
    SocketFrame& frame = received_.frames[nextFrame_++];
    if (!begin(frame)) {
      unusable(1);
    } else if (frame.offload.cut == FrameOffload::Cut::none) {
      pkt = {frame.bytes, frame.length, frame.length};
      return true;
    }
  }
  const std::uint32_t length = cutter_.nextLength();
  std::uint8_t* room = cut_.take(length);
  cutter_.next(room);
  ++offloads_.packetsCut;
  pkt = {room, length, length};
  return true;
}

// Finishes a frame, or has the cutter begin with it. False: it cannot be finished.
bool LivePort::begin(SocketFrame& frame) {
  if (frame.offload.cut != FrameOffload::Cut::none) {
    if (!cutter_.frameIs(frame.bytes, frame.length, frame.offload)) return false;
    ++offloads_.framesCut;
  } else if (frame.offload.checksumMissing) {
    if (!completeChecksum(frame.bytes, frame.length, frame.offload)) return false;
    ++offloads_.checksumsCompleted;
  }
  return true;
}

void LivePort::unusable(std::uint64_t frames) {
  offloads_.framesUnusable += frames;
  lostIn_ += frames;
  counts_.dropsIn += frames;
}

void LivePort::transmit(const Pavo::Pkt& pkt, double) {
  if (queued_ == queue_.size()) send();
  queue_[queued_++] = pkt;
}

void LivePort::send() {
  const std::span<const Pavo::Pkt> packets(queue_.data(), std::exchange(queued_, 0));
  if (packets.empty()) return;
  const PacketSocket::Sent sent = socket_.isOpen() ? socket_.send(packets) : PacketSocket::Sent();
  for (std::size_t i = 0; i < packets.size(); ++i) {
    if (sent.taken[i]) countOut(packets[i]);
  }
  refused_ += packets.size() - sent.taken.count() - sent.dropped;
  dropped_ += sent.dropped;
  counts_.dropsOut += packets.size() - sent.taken.count();
}

void LivePort::refresh() {
  if (!socket_.isOpen()) return;
  const std::string why = interface_.whyNot();
  error_ = why.empty() ? std::string() : fmt::format("interface {}: {}", interface_.name(), why);
  counts_.dropsIn = lostIn_ + socket_.drops();
  counts_.dropsOut = refused_ + lostOut_ + droppedOut();
}

// The interface counts what it drops. Some kernels tell it with the packet, too, others only there.
std::uint64_t LivePort::droppedOut() const {
  const std::uint64_t all = interface_.dropsOut();  // 0 when it is gone, or made anew
  return std::max(dropped_, all > dropsOutAtOpen_ ? all - dropsOutAtOpen_ : 0);
}

}  // namespace Capture

#include "capture/PacketSocket.h"

#include <fmt/format.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Capture {
namespace {

constexpr int kSendBytes = 4 * 1024 * 1024;

// Frames lie a page and a line further apart than they are long: their headers, at the same offset of each,
// would otherwise compete for the same lines of the cache.
constexpr std::size_t kStride = PacketSocket::kMostFrame + 4096 + 64;
constexpr std::size_t kHeadroom = 64;  // before each frame, for the tag that is put back

template <typename Value>
bool setOption(int descriptor, int level, int name, const Value& value) {
  return ::setsockopt(descriptor, level, name, &value, sizeof value) == 0;
}

// Takes a buffer of so many bytes, over the system's limit where this process may. False when it got less.
bool takeBuffer(int descriptor, int forced, int limited, int bytes) {
  if (setOption(descriptor, SOL_SOCKET, forced, bytes)) return true;
  setOption(descriptor, SOL_SOCKET, limited, bytes);
  int got = 0;  // twice what was granted: the kernel counts its own part in
  socklen_t size = sizeof got;
  return ::getsockopt(descriptor, SOL_SOCKET, limited, &got, &size) == 0 && got / 2 >= bytes;
}

TakenTag tagOf(msghdr& message) {
  for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr; each = CMSG_NXTHDR(&message, each)) {
    if (each->cmsg_level != SOL_PACKET || each->cmsg_type != PACKET_AUXDATA) continue;
    tpacket_auxdata data;
    std::memcpy(&data, CMSG_DATA(each), sizeof data);
    return {data.tp_status, data.tp_vlan_tpid, data.tp_vlan_tci};
  }
  return {};
}

}  // namespace

// One array an element of a message, set up once.
struct PacketSocket::Messages {
  struct alignas(cmsghdr) Control {
    std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> bytes;
  };
  struct Side {
    std::array<mmsghdr, kMostBurst> messages{};
    std::array<std::array<iovec, 2>, kMostBurst> parts{};
    std::array<OffloadHeader, kMostBurst> headers{};

    Side() {
      for (std::size_t i = 0; i < kMostBurst; ++i) {
        parts[i][0] = {&headers[i], sizeof headers[i]};
        messages[i].msg_hdr.msg_iov = parts[i].data();
        messages[i].msg_hdr.msg_iovlen = parts[i].size();
      }
    }
  };

  Messages() : bytes(new std::uint8_t[kMostBurst * kStride]) {
    for (std::size_t i = 0; i < kMostBurst; ++i) {
      in.parts[i][1] = {frame(i), kMostFrame};
      in.messages[i].msg_hdr.msg_control = controls[i].bytes.data();
    }
  }
  std::uint8_t* frame(std::size_t index) { return bytes.get() + index * kStride + kHeadroom; }

  std::unique_ptr<std::uint8_t[]> bytes;  // only what frames have ever filled is resident
  Side in;
  Side out;  // headers that say nothing: what is sent is finished
  std::array<Control, kMostBurst> controls;
};

PacketSocket::PacketSocket() : messages_(std::make_unique<Messages>()) {}

PacketSocket::~PacketSocket() {
  close();
}

std::string PacketSocket::failed(const char* what) {
  std::string text = fmt::format("{}: {}", what, std::strerror(errno));
  close();
  return text;
}

std::string PacketSocket::open(unsigned index) {
  close();
  ring_.close();
  drops_ = 0;
  queued_ = 0;
  // Of no protocol until it is bound: nothing of other interfaces gets in.
  descriptor_ = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ < 0) return failed("no packet socket");
  const int on = 1;
  if (!setOption(descriptor_, SOL_PACKET, PACKET_AUXDATA, on) ||
      !setOption(descriptor_, SOL_PACKET, PACKET_VNET_HDR, on) ||
      !setOption(descriptor_, SOL_PACKET, PACKET_IGNORE_OUTGOING, on)) {
    return failed("the packet socket refuses an option");
  }
  hasReceiveBytes_ = takeBuffer(descriptor_, SO_RCVBUFFORCE, SO_RCVBUF, kReceiveBytes);
  takeBuffer(descriptor_, SO_SNDBUFFORCE, SO_SNDBUF, kSendBytes);
  ring_.open(descriptor_);  // a kernel that has no memory for it hands over frames with system calls
  packet_mreq promiscuous{};
  promiscuous.mr_ifindex = static_cast<int>(index);
  promiscuous.mr_type = PACKET_MR_PROMISC;
  if (!setOption(descriptor_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, promiscuous))
    return failed("not promiscuous");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(index);
  if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return failed("the packet socket cannot be bound");
  }
  return {};
}

void PacketSocket::close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

PacketSocket::Received PacketSocket::receive() {
  if (!ring_.isOpen()) return receiveQueued(kMostBurst);
  ring_.giveBack();
  Received result;
  const PacketRing::Taken taken = ring_.take(frames_);
  result.frames = std::span(frames_).first(taken.frames);
  result.unusable = taken.unusable;
  if (taken.frames == 0) {
    queued_ += ring_.takeQueued(kMostBurst - std::min(queued_, kMostBurst));
    if (queued_ != 0) {
      result = receiveQueued(queued_);
      result.unusable += taken.unusable;
    } else {
      result.error = takeError();
    }
  }
  result.more = queued_ != 0 || ring_.more();
  return result;
}

// What became of the interface: a system call that reads would tell.
int PacketSocket::takeError() const {
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

PacketSocket::Received PacketSocket::receiveQueued(std::size_t most) {
  Messages::Side& in = messages_->in;
  for (std::size_t i = 0; i < kMostBurst; ++i) {  // the system call overwrote these
    in.messages[i].msg_hdr.msg_controllen = sizeof(Messages::Control);
    in.messages[i].msg_hdr.msg_flags = 0;
  }
  Received result;
  const int count =
      ::recvmmsg(descriptor_, in.messages.data(), static_cast<unsigned>(most), MSG_DONTWAIT, nullptr);
  queued_ -= std::min(queued_, static_cast<std::size_t>(std::max(count, 1)));
  if (count < 0) {
    if (errno == EAGAIN || errno == EINTR) return result;
    if (errno == EINVAL) {  // an offload that the header before the frame cannot tell of: the frame is gone
      result.unusable = 1;
      result.more = true;
      return result;
    }
    result.error = errno;
    return result;
  }
  std::size_t frames = 0;
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    const bool whole = (in.messages[i].msg_hdr.msg_flags & MSG_TRUNC) == 0;
    if (!whole || in.messages[i].msg_len < sizeof(OffloadHeader) + ETH_HLEN) {
      ++result.unusable;
    } else {
      frames_[frames++] = frameOf(i);
    }
  }
  result.frames = std::span(frames_).first(frames);
  result.more = static_cast<std::size_t>(count) == kMostBurst;
  return result;
}

SocketFrame PacketSocket::frameOf(std::size_t index) {
  mmsghdr& message = messages_->in.messages[index];
  SocketFrame frame{messages_->frame(index),
                    message.msg_len - static_cast<std::uint32_t>(sizeof(OffloadHeader)),
                    offloadOf(messages_->in.headers[index])};
  putBack(tagOf(message.msg_hdr), frame);
  return frame;
}

PacketSocket::Sent PacketSocket::send(std::span<const Pavo::Pkt> packets) {
  Messages::Side& out = messages_->out;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    // Only read: the interface of writing system calls has no other type.
    out.parts[i][1] = {const_cast<std::uint8_t*>(packets[i].front()), packets[i].capturedLength()};
  }
  Sent sent;
  for (std::size_t next = 0; next < packets.size();) {
    const int count = ::sendmmsg(descriptor_, out.messages.data() + next,
                                 static_cast<unsigned>(packets.size() - next), MSG_DONTWAIT);
    for (int i = 0; i < count; ++i) sent.taken.set(next++);
    if (count > 0) continue;
    if (errno == ENOBUFS) ++sent.dropped;
    ++next;  // the kernel does not take this one
  }
  return sent;
}

std::uint64_t PacketSocket::drops() {
  tpacket_stats stats{};  // since it was asked last
  socklen_t length = sizeof stats;
  if (isOpen() && ::getsockopt(descriptor_, SOL_PACKET, PACKET_STATISTICS, &stats, &length) == 0) {
    drops_ += stats.tp_drops;
  }
  return drops_;
}

}  // namespace Capture

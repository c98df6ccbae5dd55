#include "capture/LivePort.h"

#include <fmt/format.h>
#include <net/if.h>
#include <pcap/pcap.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {
namespace {

constexpr int kSnapLength = 256 * 1024;
constexpr int kRingBytes = 8 * 1024 * 1024;
constexpr int kSendBytes =
    4 * 1024 * 1024;            // queued at the most; without the right to it, the system's default
constexpr int kMostWaitMs = 1;  // that the kernel may hold a packet back, to hand over many at once

bool isUp(int socket, const std::string& interface) {
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), sizeof request.ifr_name - 1);
  return ::ioctl(socket, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_UP) != 0;
}

std::string statusText(pcap_t* handle, int status) {
  const char* detail = ::pcap_geterr(handle);
  return detail[0] != '\0' ? fmt::format("{}: {}", ::pcap_statustostr(status), detail)
                           : ::pcap_statustostr(status);
}

}  // namespace

LivePort::LivePort(std::string interface) : interface_(std::move(interface)) {
  if (open() == Opened::never) throw CaptureError(error_);
}

LivePort::~LivePort() {
  close();
}

LivePort::Opened LivePort::open() {
  const auto fail = [&](Opened result, const std::string& why) {
    error_ = fmt::format("interface {}: {}", interface_, why);
    close();
    return result;
  };
  if (::if_nametoindex(interface_.c_str()) == 0) return fail(Opened::never, "there is no such interface");
  char why[PCAP_ERRBUF_SIZE] = "";
  handle_ = ::pcap_create(interface_.c_str(), why);
  if (handle_ == nullptr) return fail(Opened::never, why);
  ::pcap_set_snaplen(handle_, kSnapLength);
  ::pcap_set_promisc(handle_, 1);
  ::pcap_set_timeout(handle_, kMostWaitMs);
  ::pcap_set_buffer_size(handle_, kRingBytes);
  ::pcap_set_tstamp_precision(handle_, PCAP_TSTAMP_PRECISION_NANO);
  const int status = ::pcap_activate(handle_);
  if (status < 0) {
    const bool down = status == PCAP_ERROR_IFACE_NOT_UP;
    return fail(down ? Opened::notNow : Opened::never, statusText(handle_, status));
  }
  if (::pcap_datalink(handle_) != DLT_EN10MB) return fail(Opened::never, "not an Ethernet interface");
  if (::pcap_setnonblock(handle_, 1, why) != 0) return fail(Opened::never, why);
  if (::pcap_setdirection(handle_, PCAP_D_IN) != 0) return fail(Opened::never, ::pcap_geterr(handle_));
  descriptor_ = ::pcap_get_selectable_fd(handle_);
  ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDBUFFORCE, &kSendBytes, sizeof kSendBytes);
  ++descriptorChanges_;
  error_.clear();
  return Opened::yes;
}

void LivePort::close() {
  if (handle_ == nullptr) return;
  formerDrops_ = counts_.dropsIn;
  ::pcap_close(handle_);
  handle_ = nullptr;
  if (descriptor_ != -1) ++descriptorChanges_;
  descriptor_ = -1;
}

void LivePort::reopen(double now) {
  if (now < nextOpen_) return;
  open();
  nextOpen_ = now + kReopenSeconds;
}

// What a delivery call fills.
struct LivePort::Burst {
  LivePort& port;
  std::span<ReceivedPacket> room;
  std::size_t count = 0;
};

void LivePort::delivered(unsigned char* user, const pcap_pkthdr* header, const unsigned char* bytes) {
  auto& burst = *reinterpret_cast<Burst*>(user);
  const Pavo::Pkt pkt(bytes, header->caplen, header->len);
  constexpr std::int64_t kSecond = 1'000'000'000;
  const std::int64_t time = header->ts.tv_sec * kSecond + header->ts.tv_usec;  // nanoseconds: see open()
  burst.room[burst.count] = {burst.port.buffer_.copy(pkt), time};
  burst.port.countIn(burst.room[burst.count].pkt);
  ++burst.count;
}

std::size_t LivePort::receive(std::span<ReceivedPacket> room, double now) {
  if (handle_ == nullptr) reopen(now);
  if (handle_ == nullptr || room.empty()) return 0;
  buffer_.clear();
  Burst burst{*this, room};
  const std::size_t most = std::min(room.size(), kMostBurst);
  const int status = ::pcap_dispatch(handle_, static_cast<int>(most), &LivePort::delivered,
                                     reinterpret_cast<unsigned char*>(&burst));
  more_ = burst.count == most;
  if (status < 0) {
    lost(::pcap_geterr(handle_));
    nextOpen_ = now + kReopenSeconds;
  }
  return burst.count;
}

void LivePort::lost(const std::string& why) {
  refresh();
  error_ = fmt::format("interface {}: {}", interface_, why);
  close();
}

double LivePort::nextReceive() const {
  if (handle_ == nullptr) return nextOpen_;
  return more_ ? 0.0 : kNever;
}

void LivePort::transmit(const Pavo::Pkt& pkt, double) {
  // Not pcap_inject: a full send queue must cost the packet, not the time until there is room.
  if (handle_ != nullptr && ::send(descriptor_, pkt.front(), pkt.capturedLength(), MSG_DONTWAIT) >= 0) {
    countOut(pkt);
  } else {
    ++counts_.dropsOut;
  }
}

void LivePort::refresh() {
  if (handle_ == nullptr) return;
  pcap_stat stats{};
  if (::pcap_stats(handle_, &stats) == 0) counts_.dropsIn = formerDrops_ + stats.ps_drop + stats.ps_ifdrop;
  error_ = isUp(descriptor_, interface_) ? std::string() : fmt::format("interface {}: is down", interface_);
}

}  // namespace Capture

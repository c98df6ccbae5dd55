#include "DatagramSocket.h"

#include <sys/socket.h>

#include <asio/io_context.hpp>
#include <cstring>

namespace Tracker {
namespace {

constexpr std::size_t kMostDatagramBytes = 65535;
constexpr unsigned kMostLastBursts = 2048;  // more than the receive buffer holds of the smallest datagrams

void setOption(int socket, int option, int value) {
  // What the kernel does not grant is not needed.
  static_cast<void>(::setsockopt(socket, SOL_SOCKET, option, &value, sizeof(value)));
}

}  // namespace

DatagramSocket::DatagramSocket(asio::io_context& io, const asio::ip::udp::endpoint& endpoint)
    : socket_(io, endpoint), buffer_(kMostDatagramBytes) {
  socket_.non_blocking(true);
  setOption(socket_.native_handle(), SO_RCVBUF, kReceiveBuffer);
  setOption(socket_.native_handle(), SO_RCVBUFFORCE, kReceiveBuffer);
  setOption(socket_.native_handle(), SO_RXQ_OVFL, 1);
}

void DatagramSocket::start(Receiver receiver, AfterBurst afterBurst) {
  receiver_ = std::move(receiver);
  afterBurst_ = std::move(afterBurst);
  wait();
}

void DatagramSocket::wait() {
  socket_.async_wait(asio::ip::udp::socket::wait_read, [this](const asio::error_code& error) {
    if (error) return;
    takeBurst();
    wait();
  });
}

void DatagramSocket::finish() {
  socket_.cancel();
  // Bounded: a sender that never pauses does not keep the process from ending.
  for (unsigned bursts = 0; bursts < kMostLastBursts && takeBurst() == kBurst; ++bursts) continue;
}

unsigned DatagramSocket::takeBurst() {
  unsigned taken = 0;
  while (taken < kBurst && takeOne()) ++taken;
  if (taken != 0) afterBurst_();
  return taken;
}

bool DatagramSocket::takeOne() {
  iovec part{buffer_.data(), buffer_.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(std::uint32_t))];
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  const ssize_t bytes = ::recvmsg(socket_.native_handle(), &message, MSG_DONTWAIT);
  if (bytes < 0) return false;
  for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr; each = CMSG_NXTHDR(&message, each)) {
    if (each->cmsg_level != SOL_SOCKET || each->cmsg_type != SO_RXQ_OVFL) continue;
    std::uint32_t now = 0;
    std::memcpy(&now, CMSG_DATA(each), sizeof(now));
    dropped_ += now - kernelDropped_;
    kernelDropped_ = now;
  }
  receiver_({buffer_.data(), static_cast<std::size_t>(bytes)});
  return true;
}

}  // namespace Tracker

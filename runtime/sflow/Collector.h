// One collector of sFlow datagrams, and the UDP channel to it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Sflow {

// Takes whole datagrams and never waits.
class DatagramChannel {
 public:
  enum class Sent : std::uint8_t {
    yes,
    no,  // this one did not get out: the socket's buffer is full, or there is no way to the collector
    yesNotFormer,  // this one did, but the collector refused the one before it
    neither,       // neither did
  };

  virtual ~DatagramChannel() = default;
  virtual Sent send(std::span<const std::uint8_t> datagram) = 0;
  // "HOST:PORT" as it was configured.
  virtual const std::string& name() const = 0;
};

// A UDP channel to "HOST:PORT", where HOST is an IPv4 address, an IPv6 address in brackets, or a name, which
// is looked up once, now. Throws Kiv::ValueError with the text and what is wrong with it.
std::unique_ptr<DatagramChannel> udpChannel(std::string_view collector);

}  // namespace Sflow

// What the kernel says of a network interface, asked by its name.
//
// Neighbours: LivePort.h asks. Threading: one thread. Each question costs a system call or a few.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Capture {

class NetInterface {
 public:
  // Throws CaptureError when this process can have no more descriptors.
  explicit NetInterface(std::string name);
  ~NetInterface();
  NetInterface(const NetInterface&) = delete;
  NetInterface& operator=(const NetInterface&) = delete;

  const std::string& name() const { return name_; }
  // 0: there is none of this name. An interface made anew has another one.
  unsigned index() const;
  bool isEthernet() const;
  // Why nothing can pass at present, empty when it can: it is down, or has no carrier.
  std::string whyNot() const;
  // Packets that the interface dropped in sending, whoever sent them, since it was made.
  std::uint64_t dropsOut() const;
  // Large receive glues packets together that cannot be told apart again, so it is switched off. A text
  // that says what was done, or that it could not be; empty when it was off.
  std::string switchOffLargeReceive() const;

 private:
  std::optional<std::uint32_t> ethtool(std::uint32_t command, std::uint32_t value = 0) const;
  bool request(unsigned long what, void* ifreq) const;

  std::string name_;
  int socket_;
};

}  // namespace Capture

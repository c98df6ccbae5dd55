#include "capture/NetInterface.h"

#include <fmt/format.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "capture/CaptureError.h"

namespace Capture {

NetInterface::NetInterface(std::string name)
    : name_(std::move(name)), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (socket_ < 0) {
    throw CaptureError(
        fmt::format("interface {}: no socket to ask the kernel: {}", name_, std::strerror(errno)));
  }
}

NetInterface::~NetInterface() {
  if (socket_ >= 0) ::close(socket_);
}

bool NetInterface::request(unsigned long what, void* request) const {
  auto& named = *static_cast<ifreq*>(request);
  if (name_.size() >= sizeof named.ifr_name) return false;
  std::memcpy(named.ifr_name, name_.c_str(), name_.size() + 1);
  return ::ioctl(socket_, what, request) == 0;
}

unsigned NetInterface::index() const {
  ifreq answer{};
  return request(SIOCGIFINDEX, &answer) ? static_cast<unsigned>(answer.ifr_ifindex) : 0;
}

bool NetInterface::isEthernet() const {
  ifreq answer{};
  if (!request(SIOCGIFHWADDR, &answer)) return false;
  return answer.ifr_hwaddr.sa_family == ARPHRD_ETHER || answer.ifr_hwaddr.sa_family == ARPHRD_LOOPBACK;
}

std::string NetInterface::whyNot() const {
  ifreq answer{};
  if (!request(SIOCGIFFLAGS, &answer)) return "there is no such interface";
  if ((answer.ifr_flags & IFF_UP) == 0) return "is down";
  return ethtool(ETHTOOL_GLINK) == 0 ? "has no carrier" : "";
}

std::uint64_t NetInterface::dropsOut() const {
  // A line an interface: name, then columns; the twelfth are packets dropped in sending.
  std::ifstream lines("/proc/self/net/dev");
  for (std::string line; std::getline(lines, line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    if (line.compare(line.find_first_not_of(' '), colon - line.find_first_not_of(' '), name_) != 0) continue;
    std::istringstream columns(line.substr(colon + 1));
    std::uint64_t value = 0;
    for (int column = 1; column <= 12; ++column) columns >> value;
    return columns ? value : 0;
  }
  return 0;
}

std::optional<std::uint32_t> NetInterface::ethtool(std::uint32_t command, std::uint32_t value) const {
  ethtool_value asked{command, value};
  ifreq answer{};
  answer.ifr_data = reinterpret_cast<char*>(&asked);
  if (!request(SIOCETHTOOL, &answer)) return std::nullopt;
  return asked.data;
}

std::string NetInterface::switchOffLargeReceive() const {
  const auto flags = ethtool(ETHTOOL_GFLAGS);
  if (!flags || (*flags & ETH_FLAG_LRO) == 0) return {};
  if (ethtool(ETHTOOL_SFLAGS, *flags & ~static_cast<std::uint32_t>(ETH_FLAG_LRO))) {
    return "large receive offload was on and has been switched off";
  }
  return fmt::format(
      "large receive offload is on and cannot be switched off ({}): packets may be counted as fewer and "
      "longer ones; "
      "ethtool -K {} lro off",
      std::strerror(errno), name_);
}

}  // namespace Capture

#include "guard/Peer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace Guard {

bool Peer::isIn(gid_t group) const {
  return std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::optional<Peer> peerOf(int socket) {
  ucred told{};
  socklen_t bytes = sizeof told;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &told, &bytes) != 0) return std::nullopt;
  Peer peer{told.uid, told.pid, {}};
  bytes = 0;
  // Asked with no room, the kernel says how much it takes.
  // cppcheck-suppress nullPointer; there is no room to write to
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &bytes) != 0 && errno == ERANGE) {
    peer.groups.resize(bytes / sizeof(gid_t));
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, peer.groups.data(), &bytes) != 0) peer.groups.clear();
  }
  peer.groups.push_back(told.gid);
  return peer;
}

}  // namespace Guard

// Who stands at the other end of a local socket, as the kernel tells it: what it was when it connected.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace Guard {

struct Peer {
  uid_t user = 0;
  pid_t process = 0;
  std::vector<gid_t> groups;  // its group, and the supplementary ones

  bool isIn(gid_t group) const;
};

// Of a connected socket. None when the kernel does not tell.
std::optional<Peer> peerOf(int socket);

}  // namespace Guard

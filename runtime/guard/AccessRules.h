// Who may ask a daemon, and who may change something in it, over the control socket of a run directory.
//
// The rights are those of the run directory itself unless a group was configured: who may read the tables
// there may ask, who may write them may change. The daemon's own user and root may do both.
//
//   asks       the daemon's user · root · whoever may change · `readers`, when given
//              · the directory's group, when it may read the directory
//   changes    the daemon's user · root · `changers`, when given; else the directory's group, when it may
//              write the directory
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "guard/Peer.h"

namespace Guard {

struct AccessGroups {
  std::optional<gid_t> readers;
  std::optional<gid_t> changers;
};

class AccessRules {
 public:
  // As the directory is now. One that cannot be looked at gives rights to nobody but this user and root.
  AccessRules(const std::filesystem::path& runDir, const AccessGroups& groups);

  bool mayRead(const Peer& peer) const;
  bool mayChange(const Peer& peer) const;

  // Of the socket's file: no wider than whom these rules let in. Connecting takes the right to write it.
  mode_t socketMode() const { return socketMode_; }
  // Whom the file's group is to be.
  std::optional<gid_t> socketGroup() const { return directoryGroup_; }

  // "root, user pexa or a member of group pexa": for refusals. Made beforehand; names are not looked up
  // later.
  const std::string& readersText() const { return readersText_; }
  const std::string& changersText() const { return changersText_; }

 private:
  static bool holds(const Peer& peer, uid_t user, const std::vector<gid_t>& groups);

  uid_t user_;
  std::optional<gid_t> directoryGroup_;  // none: it may not look into the directory
  std::vector<gid_t> readers_;
  std::vector<gid_t> changers_;
  mode_t socketMode_ = 0600;
  std::string readersText_;
  std::string changersText_;
};

}  // namespace Guard

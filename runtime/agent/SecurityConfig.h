// The table [security] of a daemon's configuration: whom it becomes, who may ask it, and what it may ask of
// the kernel. All of it may be left out.
//
//   user = "pexa"                 # started as root, the daemon becomes this user once its ports are open
//   read_group = "netops"         # who may ask over the control socket, besides those who may read the
//                                 # run directory
//   change_group = "netadmin"     # who may change something over it, in the place of the group that may
//                                 # write the run directory
//   filter_system_calls = true
//
// Neighbours: guard/ does what it says. Internal to reading configurations: readSecurity.
#pragma once

#include <optional>

#include "guard/AccessRules.h"
#include "guard/Privileges.h"
#include "guard/SystemCallFilter.h"

namespace Pexa {

class TomlTable;

struct SecurityConfig {
  std::optional<Guard::User> user;
  Guard::AccessGroups groups;
  bool filterSystemCalls = true;
};

// Throws ConfigError: an unknown key, a wrong type, a user or a group that this machine does not have.
SecurityConfig readSecurity(const TomlTable& table);

// What a program does when it is up, before its loop: no new privileges, the filter, and a line in the log
// that says what is in force. For good, and for the whole process.
void seal(const SecurityConfig& config, Guard::Sockets sockets);

}  // namespace Pexa

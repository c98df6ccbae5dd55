// Giving up what a daemon needed to start only. Neighbours: SystemCallFilter.h is the step after it.
#pragma once

#include <sys/types.h>

#include <string>

namespace Guard {

// A user that a daemon becomes: its id, and its group's.
struct User {
  std::string name;
  uid_t user = 0;
  gid_t group = 0;

  // By name, or by number. Throws Kiv::ValueError: "no such user".
  static User of(const std::string& name);
};

// By name, or by number. Throws Kiv::ValueError: "no such group".
gid_t groupOf(const std::string& name);

enum class Keep { nothing, rawPackets };

// Becomes this user, with its groups, for good. Of the rights of root nothing is left but, where so asked,
// the one to open packet sockets (CAP_NET_RAW); nor can any be had again. To be called by a process with one
// thread: threads made before keep what they have. Without root's rights, being that user already is all that
// is asked. Throws std::runtime_error when it cannot be done; the process must not go on then.
void become(const User& user, Keep keep);

// No program that this process starts gains rights, by set-uid bits or otherwise.
void noNewPrivileges();

}  // namespace Guard

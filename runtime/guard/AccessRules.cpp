#include "guard/AccessRules.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace Guard {
namespace {

std::string userName(uid_t user) {
  const passwd* entry = ::getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string groupName(gid_t group) {
  const ::group* entry = ::getgrgid(group);
  return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string textOf(uid_t user, const std::vector<gid_t>& groups) {
  std::vector<std::string> who{"root"};
  if (user != 0) who.push_back("user " + userName(user));
  for (const gid_t group : groups) who.push_back("a member of group " + groupName(group));
  std::string text = who.front();
  for (std::size_t i = 1; i < who.size(); ++i) text += (i + 1 == who.size() ? " or " : ", ") + who[i];
  return text;
}

void add(std::vector<gid_t>& groups, std::optional<gid_t> group) {
  if (group && std::find(groups.begin(), groups.end(), *group) == groups.end()) groups.push_back(*group);
}

}  // namespace

AccessRules::AccessRules(const std::filesystem::path& runDir, const AccessGroups& groups)
    : user_(::geteuid()) {
  struct stat status {};
  const bool known = ::stat(runDir.c_str(), &status) == 0;
  const auto groupHas = [&](mode_t bits) { return known && (status.st_mode & bits) == bits; };
  if (groupHas(S_IRGRP | S_IXGRP)) directoryGroup_ = status.st_gid;

  if (groups.changers) {
    add(changers_, groups.changers);
  } else if (groupHas(S_IWGRP | S_IXGRP)) {
    add(changers_, status.st_gid);
  }
  readers_ = changers_;
  add(readers_, groups.readers);
  add(readers_, directoryGroup_);

  const bool others =
      std::any_of(readers_.begin(), readers_.end(), [&](gid_t group) { return group != directoryGroup_; });
  if (others) {
    socketMode_ = 0666;  // a file has one group; the kernel's word on the peer decides
  } else if (directoryGroup_) {
    socketMode_ = 0660;
  }
  readersText_ = textOf(user_, readers_);
  changersText_ = textOf(user_, changers_);
}

bool AccessRules::mayRead(const Peer& peer) const {
  return holds(peer, user_, readers_);
}

bool AccessRules::mayChange(const Peer& peer) const {
  return holds(peer, user_, changers_);
}

bool AccessRules::holds(const Peer& peer, uid_t user, const std::vector<gid_t>& groups) {
  return peer.user == 0 || peer.user == user ||
         std::any_of(groups.begin(), groups.end(), [&](gid_t group) { return peer.isIn(group); });
}

}  // namespace Guard

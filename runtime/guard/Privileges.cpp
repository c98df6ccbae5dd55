#include "guard/Privileges.h"

#include <cap-ng.h>
#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "KivValue.h"

namespace Guard {
namespace {

std::optional<std::uint32_t> numberOf(const std::string& text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return number;
}

[[noreturn]] void fail(const User& user, std::string_view why) {
  throw std::runtime_error(fmt::format("cannot become user {}: {}", user.name, why));
}

}  // namespace

User User::of(const std::string& name) {
  const auto number = numberOf(name);
  const passwd* entry = number ? ::getpwuid(*number) : ::getpwnam(name.c_str());
  if (entry == nullptr) throw Kiv::ValueError(fmt::format("\"{}\", expected a user of this machine", name));
  return {entry->pw_name, entry->pw_uid, entry->pw_gid};
}

gid_t groupOf(const std::string& name) {
  const auto number = numberOf(name);
  const ::group* entry = number ? ::getgrgid(*number) : ::getgrnam(name.c_str());
  if (entry == nullptr) throw Kiv::ValueError(fmt::format("\"{}\", expected a group of this machine", name));
  return entry->gr_gid;
}

void become(const User& user, Keep keep) {
  if (::geteuid() != 0) {
    if (::geteuid() == user.user) return;
    fail(user, "started as another one, expected a start as root or as that user");
  }
  ::capng_clear(CAPNG_SELECT_BOTH);
  if (keep == Keep::rawPackets) {
    ::capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED), CAP_NET_RAW);
  }
  const auto flags = static_cast<capng_flags_t>(CAPNG_INIT_SUPP_GRP | CAPNG_CLEAR_BOUNDING);
  const int result = ::capng_change_id(static_cast<int>(user.user), static_cast<int>(user.group), flags);
  if (result != 0) fail(user, fmt::format("{} (step {})", std::strerror(errno), -result));
  if (user.user != 0 && ::setuid(0) == 0) fail(user, "root's rights came back, expected them to be gone");
}

void noNewPrivileges() {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
    throw std::runtime_error(fmt::format("new privileges cannot be ruled out: {}", std::strerror(errno)));
  }
}

}  // namespace Guard

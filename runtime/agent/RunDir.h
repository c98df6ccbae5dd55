// The agent's run directory: made when absent, and held by one agent at a time.
#pragma once

#include <filesystem>
#include <optional>

#include "guard/Privileges.h"

namespace Pexa {

// What this process makes from now on may be written by its group when the run directory may be written by
// its own: several users may share one, and each writes tables that another one made. To be called early, by
// a process with one thread.
void groupMayWriteAsIn(const std::filesystem::path& runDir);

// For a daemon: makes the directory when it is absent, readable by its group and nobody else, and the owner's
// when one is told, the user that this process is about to become. Then as above.
//
// Throws std::runtime_error when it cannot be made, when anybody may write it, or when it is somebody else's:
// neither root's, nor this process's or the owner's, nor open to a group of theirs.
void runDirIs(const std::filesystem::path& path, const std::optional<Guard::User>& owner = {});

class RunDir {
 public:
  // The directory as above, with its lock: a file named agent.lock that holds the agent's process id; the
  // lock goes with the process, however it ends. Throws std::runtime_error, too, when the directory cannot be
  // written, something else than a file stands in the lock's place, or another agent holds it (the text names
  // its process).
  explicit RunDir(const std::filesystem::path& path, const std::optional<Guard::User>& owner = {});
  ~RunDir();
  RunDir(const RunDir&) = delete;
  RunDir& operator=(const RunDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path controlSocket() const { return path_ / "control.sock"; }

 private:
  std::filesystem::path path_;
  int lock_;
};

}  // namespace Pexa

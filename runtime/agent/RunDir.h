// The agent's run directory: made when absent, and held by one agent at a time.
#pragma once

#include <filesystem>

namespace Pexa {

// What this process makes from now on may be written by its group when the run directory may be written by
// its own: several users may share one, and each writes tables that another one made. To be called early, by
// a process with one thread.
void groupMayWriteAsIn(const std::filesystem::path& runDir);

class RunDir {
 public:
  // Takes the directory's lock, a file named agent.lock that holds the agent's process id; the lock goes with
  // the process, however it ends. Throws std::runtime_error when the directory cannot be made or written, or
  // another agent holds it (the text names its process).
  explicit RunDir(const std::filesystem::path& path);
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

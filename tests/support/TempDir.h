// A folder that goes with its user, in memory where the machine has a tmpfs.
#pragma once

#include <unistd.h>

#include <cstdlib>  // mkdtemp
#include <filesystem>
#include <stdexcept>
#include <string>

namespace TestSupport {

class TempDir {
 public:
  TempDir() {
    path_ = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string()) +
            "/sft-test-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder for the test: " + path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace TestSupport

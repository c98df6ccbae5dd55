// Gives every file of the named folders to a fuzz target, once.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "FuzzTarget.h"

namespace {

unsigned replay(const std::filesystem::path& folder) {
  unsigned files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.path().filename().string().starts_with(".")) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::cout << entry.path().string() << std::endl;  // flushed: the last one named is the one that failed
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  return files;
}

}  // namespace

int main(int count, char** arguments) {
  unsigned files = 0;
  for (int i = 1; i < count; ++i) {
    if (std::filesystem::is_directory(arguments[i])) files += replay(arguments[i]);
  }
  std::cout << files << " inputs\n";
  return files == 0 ? 1 : 0;
}

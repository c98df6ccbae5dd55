#include "Mutant.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace Mutant {

namespace {

int wanted() {
  const char* const number = std::getenv("SFT_MUTANT");
  return number != nullptr ? std::atoi(number) : 0;
}

// The descriptor stays open for programs that this one executes, which find its number in the environment.
int recordFile() {
  if (const char* const number = std::getenv("SFT_MUTANT_RECORD_FILE")) return std::atoi(number);
  if (std::getenv("SFT_MUTANT_RECORD") == nullptr) return -1;
  const int file = memfd_create("reached", 0);
  if (file >= 0 && ftruncate(file, kMost) == 0)
    setenv("SFT_MUTANT_RECORD_FILE", std::to_string(file).c_str(), 1);
  return file;
}

unsigned char* record() {
  const int file = recordFile();
  if (file < 0) return nullptr;
  void* const bytes = mmap(nullptr, kMost, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  return bytes != MAP_FAILED ? static_cast<unsigned char*>(bytes) : nullptr;
}

}  // namespace

const int active = wanted();
unsigned char* const reached = record();

}  // namespace Mutant

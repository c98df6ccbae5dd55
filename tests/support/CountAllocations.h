// Counts every allocation of the test program whose one source includes this: it replaces the global
// operators.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {
std::uint64_t allocations = 0;

void* counted(std::size_t bytes) {
  ++allocations;
  if (void* memory = std::malloc(bytes)) return memory;
  throw std::bad_alloc();
}
}  // namespace

void* operator new(std::size_t bytes) {
  return counted(bytes);
}
void* operator new[](std::size_t bytes) {
  return counted(bytes);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

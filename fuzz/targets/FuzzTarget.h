// What a fuzz target offers: libFuzzer calls it in the fuzz build, the corpus replay in every other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Stops with the condition's text when it does not hold, also in builds without assertions.
#define FUZZ_REQUIRE(condition)                                                           \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)

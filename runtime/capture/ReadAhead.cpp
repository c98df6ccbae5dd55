#include "capture/ReadAhead.h"

#include <system_error>

namespace Capture {

ReadAhead::~ReadAhead() {
  if (!thread_.joinable()) return;
  stopped_ = true;
  free_.release();
  thread_.join();
}

const RecordBlock& ReadAhead::next() {
  const std::size_t number = taken_++;
  if (thread_.joinable()) {
    free_.release();
    filled_.acquire();
  } else {
    fill(number);
    if (number == 0 && !block(0).last()) begin();
  }
  return block(number);
}

void ReadAhead::fill(std::size_t number) {
  block(number).fill(form_, number != 0 ? &block(number - 1) : nullptr);
}

// Not for a capture that fits a block, nor with one processor, where it would only take turns.
void ReadAhead::begin() {
  if (std::thread::hardware_concurrency() < 2) return;
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error&) {  // no more threads: then without
  }
}

// REQUIRES: the first block is filled.
void ReadAhead::run() {
  for (std::size_t number = 1; !block(number - 1).last(); ++number) {
    free_.acquire();
    if (stopped_) return;
    fill(number);
    filled_.release();
  }
}

}  // namespace Capture

#include "capture/RecordBlock.h"

#include <unistd.h>

#include <cstring>

namespace Capture {
RecordBlock::RecordBlock() : bytes_(new std::uint8_t[kBytes]), places_(new std::uint32_t[kMostRecords + 1]) {}

void RecordBlock::fill(const RecordForm& form, const RecordBlock* before) {
  filled_ = 0;
  if (before != nullptr) {
    const std::uint32_t from = before->places_[before->count_];
    start_ = before->start_ + from;
    filled_ = before->filled_ - from;
    std::memcpy(&bytes_[0], &before->bytes_[from], filled_);
  }
  read(form.descriptor);
  findRecords(form);
}

void RecordBlock::read(int descriptor) {
  last_ = false;
  while (filled_ != kBytes && !last_) {
    const auto from = static_cast<off_t>(start_ + filled_);
    const ssize_t got = ::pread(descriptor, &bytes_[filled_], kBytes - filled_, from);
    if (got > 0) {
      filled_ += static_cast<std::size_t>(got);
    } else {
      last_ = true;
    }
  }
}

void RecordBlock::findRecords(const RecordForm& form) {
  std::size_t at = 0;
  count_ = 0;
  for (RecordHeader record; filled_ - at >= sizeof record; at += sizeof record + record.captured) {
    std::memcpy(&record, &bytes_[at], sizeof record);
    if (record.captured > form.mostCaptured || record.fraction >= kSecondNs / form.fractionNs) {
      last_ = true;
      break;
    }
    if (filled_ - at - sizeof record < record.captured) break;
    places_[count_++] = static_cast<std::uint32_t>(at);
  }
  places_[count_] = static_cast<std::uint32_t>(at);
  if (count_ == 0) last_ = true;
}

}  // namespace Capture

#include "skein/TraceReader.h"

#include <algorithm>
#include <utility>

#include "skein/RingMapping.h"

namespace Skein {

namespace {

class RecordText {
 public:
  explicit RecordText(const RecordWords& words)
      : at_(reinterpret_cast<const char*>(words.data()) + sizeof(RecordHeader)) {}
  void take(std::size_t bytes, std::string& text) {
    text.assign(at_, bytes);
    at_ += bytes;
  }

 private:
  const char* at_;
};

std::unique_ptr<RingMapping> openRing(const std::filesystem::path& file) {
  auto ring = RingMapping::open(file, RingMapping::Access::read);
  if (!ring->positionsSound()) {
    throw RingError("trace file " + file.string() + ": damaged header: impossible positions at byte 32");
  }
  return ring;
}

void decode(const RecordWords& words, TraceRecord& record) {
  const RecordHeader header = headerOf(words);
  record.serial = header.serial;
  record.time = header.time;
  record.line = static_cast<int>(header.line);
  record.volume = header.volume == 0 ? Volume::event : Volume::packet;
  RecordText text(words);
  text.take(header.categoryBytes, record.category);
  text.take(header.filterBytes, record.filter);
  text.take(header.fileBytes, record.file);
  text.take(header.functionBytes, record.function);
  text.take(header.textBytes, record.text);
}

}  // namespace

TraceReader::TraceReader(std::filesystem::path file)
    : path_(std::move(file)), ring_(openRing(path_)), position_(ring_->tail()) {}

TraceReader::~TraceReader() = default;

bool TraceReader::next(TraceRecord& record) {
  for (;;) {
    switch (tryNext(record)) {
      case Got::record:
        if (expectedSerial_ != 0 && record.serial > expectedSerial_) lost_ += record.serial - expectedSerial_;
        expectedSerial_ = record.serial + 1;
        return true;
      case Got::again:
        break;
      case Got::none:
        if (!takeReplacement()) return false;
        break;
    }
  }
}

TraceReader::Got TraceReader::tryNext(TraceRecord& record) {
  const std::uint64_t head = ring_->head();
  position_ = ring_->recordPosition(std::max(position_, ring_->tail()));
  if (position_ >= head) return Got::none;
  RecordWords words;
  const std::uint64_t bytes = ring_->copy(position_, words);
  if (ring_->tail() > position_) return Got::again;  // overwritten while it was read
  if (bytes == 0 || position_ + bytes > head || !valid(words, position_)) {
    if (!inDamage_) ++damaged_;
    inDamage_ = true;
    position_ += 8;
    return Got::again;
  }
  inDamage_ = false;
  position_ += bytes;
  if (isFiller(words)) return Got::again;
  decode(words, record);
  return Got::record;
}

// A file that a newer writer put under the name. Until there is one, the old file is read.
bool TraceReader::takeReplacement() {
  if (!ring_->replaced(path_)) return false;
  try {
    ring_ = openRing(path_);
  } catch (const RingError&) {
    return false;
  }
  position_ = ring_->tail();
  expectedSerial_ = 0;
  inDamage_ = false;
  return true;
}

}  // namespace Skein

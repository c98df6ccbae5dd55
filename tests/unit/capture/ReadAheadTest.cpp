#include "capture/ReadAhead.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "CaptureFile.h"
#include "TempDir.h"

namespace {

using Capture::ReadAhead;
using Capture::RecordBlock;
using TestSupport::PacketBuilder;
using TestSupport::PcapText;

// This thread on one processor, or on all it had.
class Processors {
 public:
  explicit Processors(bool one) {
    ::sched_getaffinity(0, sizeof before_, &before_);
    if (!one) return;
    cpu_set_t only;
    CPU_ZERO(&only);
    for (int each = 0; CPU_COUNT(&only) == 0; ++each) {
      if (CPU_ISSET(each, &before_)) CPU_SET(each, &only);
    }
    ::sched_setaffinity(0, sizeof only, &only);
  }
  ~Processors() { ::sched_setaffinity(0, sizeof before_, &before_); }

 private:
  cpu_set_t before_;
};

class ReadingAhead : public testing::TestWithParam<bool> {
 protected:
  ~ReadingAhead() override { ::close(descriptor_); }
  ReadAhead open(const PcapText& text) {
    text.writeTo(path_);
    descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    return ReadAhead({descriptor_, 65535, 1000});
  }
  // Nine blocks full of packets with their number at the end, and a piece of another.
  static PcapText longText() {
    PcapText text;
    for (std::uint32_t number = 0; text.size() < 9 * RecordBlock::kBytes + 1000; ++number) {
      text.packet(
          PacketBuilder().payload(number * 7 % 1400).payload(1, static_cast<std::uint8_t>(number)).build());
    }
    return text;
  }

  const Processors processors_{GetParam()};
  TestSupport::TempDir folder_;
  const std::string path_ = folder_.path() + "/long.pcap";
  int descriptor_ = -1;
};
INSTANTIATE_TEST_SUITE_P(WithAndWithoutAThread, ReadingAhead, testing::Values(false, true));

TEST_P(ReadingAhead, GivesEveryRecordOnceInItsOrderAndSaysWhereItWas) {
  const PcapText text = longText();
  ReadAhead ahead = open(text);
  std::vector<std::uint8_t> read(text.bytes().begin(), text.bytes().begin() + RecordBlock::kFileHeader);
  unsigned blocks = 0;
  for (bool last = false; !last; ++blocks) {
    const RecordBlock& block = ahead.next();
    for (std::size_t i = 0; i < block.records(); ++i) {
      EXPECT_EQ(block.offset(i), read.size());
      read.insert(read.end(), block.record(i), block.record(i) + (block.offset(i + 1) - block.offset(i)));
    }
    EXPECT_EQ(block.offset(block.records()), read.size());
    last = block.last();
  }
  EXPECT_GE(blocks, 10U);
  EXPECT_EQ(read, text.bytes());
}

TEST_P(ReadingAhead, EndsBeforeWhatIsNotUsual) {
  PcapText text = longText();
  const std::size_t usual = text.size();
  text.record(1, 1'000'000, 1, 1, {1}).packet(PacketBuilder().build());
  ReadAhead ahead = open(text);
  const RecordBlock* block = &ahead.next();
  while (!block->last()) block = &ahead.next();
  EXPECT_EQ(block->offset(block->records()), usual);
}

TEST_P(ReadingAhead, EndsWhereTheFileWasCutMeanwhile) {
  const PcapText text = longText();
  ReadAhead ahead = open(text);
  const RecordBlock* block = &ahead.next();
  std::filesystem::resize_file(path_, RecordBlock::kBytes + 1000);
  while (!block->last()) block = &ahead.next();
  const std::uint64_t end = block->offset(block->records());
  EXPECT_GT(end, 0U);
  EXPECT_LE(end, text.size());
}

TEST_P(ReadingAhead, MayBeLeftAtAnyTime) {
  const PcapText text = longText();
  for (int taken = 0; taken < 4; ++taken) {
    {
      ReadAhead ahead = open(text);
      for (int i = 0; i < taken; ++i) EXPECT_GT(ahead.next().records(), 0U);
    }
    ::close(std::exchange(descriptor_, -1));
  }
}

}  // namespace

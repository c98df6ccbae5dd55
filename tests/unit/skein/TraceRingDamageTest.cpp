#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RingThings.h"
#include "skein/RingFormat.h"

namespace Skein {
namespace {

using namespace TestSupport;
using testing::ElementsAre;

// A file of the smallest size with the records "one", "two" and "three", and nobody writing.
class DamagedRing : public testing::Test, protected RingThings {
 protected:
  DamagedRing() { write({"one", "two", "three"}); }
  void write(std::initializer_list<const char*> records) {
    TraceRing ring(file(), TraceRing::kLeastBytes);
    for (const char* each : records) ring.write(kEvent, each);
  }
  std::string readError() const {
    try {
      TraceReader reader(file());
      return "none";
    } catch (const RingError& error) {
      std::string text = error.what();
      const std::string start = "trace file " + file().string() + ": ";
      return text.starts_with(start) ? text.substr(start.size()) : text;
    }
  }
  std::uint64_t placeOf(std::string_view text) const { return content().find(text); }
};

TEST_F(DamagedRing, ADamagedRecordIsCountedAndPassedOver) {
  scribble(placeOf("two"), "TWO");
  TraceReader reader(file());
  EXPECT_THAT(rest(reader), ElementsAre("one", "three"));
  EXPECT_EQ(reader.damaged(), 1U);
  EXPECT_EQ(reader.lost(), 1U);
}

TEST_F(DamagedRing, ARecordWithAWildLengthIsPassedOver) {
  for (const std::string_view length :
       {std::string_view("\xff\xff\xff\x7f", 4), std::string_view("\0\0\0\0", 4),
        std::string_view("\xf8\x3f\0\0", 4), std::string_view("\x33\0\0\0", 4)}) {
    scribble(placeOf("SftSftPexaPlugin.cpp") - 40, length);
    TraceReader reader(file());
    EXPECT_THAT(rest(reader), ElementsAre("two", "three"));
    EXPECT_EQ(reader.damaged(), 1U);
  }
}

TEST_F(DamagedRing, AWriterGoesOnBehindDamage) {
  scribble(placeOf("one"), "ONE");
  write({"four"});
  EXPECT_THAT(texts(), ElementsAre("two", "three", "four"));
}

TEST_F(DamagedRing, AWriterWhoseFileIsScribbledOverGoesOn) {
  TraceRing ring(file(), TraceRing::kLeastBytes);
  for (int i = 0; i < 2000; ++i) {
    if (i % 97 == 0) scribble(64 + static_cast<std::uint64_t>(i) * 7 % 16000, std::string(200, '\x5a'));
    ring.write(kEvent, "record " + std::to_string(i));
  }
  EXPECT_EQ(texts().back(), "record 1999");
}

TEST_F(DamagedRing, AWriterThatDiedInTheMiddleLosesThatRecordOnly) {
  // It had moved the tail and begun to write behind the head, which it had not moved yet.
  const std::uint64_t head = 3 * (placeOf("two") - placeOf("one"));
  scribble(64 + head, std::string(60, '\x11'));
  EXPECT_THAT(texts(), ElementsAre("one", "two", "three"));
  write({"four"});
  EXPECT_THAT(texts(), ElementsAre("one", "two", "three", "four"));
}

struct HeaderDamage {
  std::uint64_t offset;
  std::string_view bytes;
  std::string error;
};

TEST_F(DamagedRing, ADamagedHeaderIsRefusedByReadersAndReplacedByWriters) {
  const std::string sound = content();
  const HeaderDamage damages[] = {
      {0, "X", "no trace file: expected \"SKEINRNG\" at byte 0"},
      {8, "\x02", "version 2: expected 1"},
      {17, "\x10", "damaged header: wrong checksum at byte 24"},
      {26, "\x77", "damaged header: wrong checksum at byte 24"},
      {32, "\xff", "damaged header: impossible positions at byte 32"},
      {45, "\xff", "damaged header: impossible positions at byte 32"},
  };
  for (const HeaderDamage& damage : damages) {
    std::ofstream(file(), std::ios::binary) << sound;
    scribble(damage.offset, damage.bytes);
    EXPECT_EQ(readError(), damage.error);
    write({"new"});
    EXPECT_THAT(texts(), ElementsAre("new"));
  }
}

TEST_F(DamagedRing, AFileOfTheWrongLengthIsRefusedByReadersAndReplacedByWriters) {
  std::filesystem::resize_file(file(), TraceRing::kLeastBytes + 8);
  EXPECT_EQ(readError(), "cut off or grown: expected 16384 bytes, got 16392");
  write({"new"});
  EXPECT_THAT(texts(), ElementsAre("new"));
  std::filesystem::resize_file(file(), 10);
  EXPECT_EQ(readError(), "too short for a trace file: 10 bytes, expected at least 16384");
  write({"new"});
  EXPECT_THAT(texts(), ElementsAre("new"));
}

TEST_F(DamagedRing, AMissingFileOrAFolderIsRefused) {
  std::filesystem::remove(file());
  EXPECT_EQ(readError(), "cannot open it: No such file or directory");
  std::filesystem::create_directory(file());
  EXPECT_EQ(readError(), "no regular file");
  EXPECT_THROW(TraceRing ring(file()), RingError);
}

TEST_F(DamagedRing, AFolderThatDoesNotExistIsOneClearError) {
  try {
    TraceRing ring(file() / "none" / "trace.ring");
    FAIL();
  } catch (const RingError& error) {
    EXPECT_THAT(std::string(error.what()), testing::HasSubstr("cannot create it: "));
  }
}

}  // namespace
}  // namespace Skein

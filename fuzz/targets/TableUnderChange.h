// A shared table's file of a fuzz target, the same at the start of each input, and what may be changed in it
// behind the backs of its users.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>
#include <vector>

#include "FuzzTarget.h"
#include "QuellThings.h"
#include "TempDir.h"
#include "quell/TableFile.h"

namespace FuzzSupport {

namespace Layout = Quell::Layout;
using QuellTest::Thing;
using QuellTest::Things;

class TableUnderChange {
 public:
  enum class Region { header, index, overflow, records };
  static constexpr std::uint32_t kNewId = 77777;   // of a thing that is not there
  static constexpr std::uint64_t kMostLied = 512;  // buckets; more of them only take longer to walk

  TableUnderChange() {
    made();
    std::filesystem::remove(fileName());
    file_ = Quell::Descriptor(::open(fileName().c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    FUZZ_REQUIRE(file_.valid());
    FUZZ_REQUIRE(::ftruncate(file_.get(), made().fileBytes) == 0);
    for (const Range& range : made().ranges) write(range.offset, range.bytes.data(), range.bytes.size());
    reader_ = open();
    FUZZ_REQUIRE(reader_);
    FUZZ_REQUIRE(
        reader_->red().has(QuellTest::keyOf(ids().front())));  // what it remembers is that of an intact table
  }
  TableUnderChange(const TableUnderChange&) = delete;
  TableUnderChange& operator=(const TableUnderChange&) = delete;

  // The things that are in it: twelve of one bucket, so that a bucket overflows, and others.
  static const std::vector<std::uint32_t>& ids() {
    static const std::vector<std::uint32_t> all = [] {
      std::vector<std::uint32_t> some;
      for (std::uint32_t id = 1000; some.size() < 12; ++id) {
        if ((Things::Map::hash(QuellTest::keyOf(id)) & 0x3fU) == 9) some.push_back(id);
      }
      for (std::uint32_t id = 0; some.size() < 40; ++id) some.push_back(id);
      return some;
    }();
    return all;
  }
  static Thing thingOf(std::uint32_t id) { return QuellTest::thing(id, id + 1); }

  // The reader that has the file open since before the changes.
  Things& reader() { return *reader_; }
  // Another one. Empty when the file is refused as a table.
  static Kiv::Ptr<Things> open() {
    try {
      auto things = Kiv::makePtr<Things>("test/things");
      Quell::TableFile::Creation creation;
      creation.type = &QuellTest::thingType();
      creation.containerType = "QuellTest::Things";
      creation.capacity = 4;
      auto file = Quell::TableFile::openOrCreate(place(), creation, Quell::TableFile::Access::read);
      file->requireType(QuellTest::thingType());
      things->red().tableIs(std::make_shared<Quell::Table>(std::move(file)));
      return things;
    } catch (const Quell::TableError& refused) {
      FUZZ_REQUIRE(*refused.what() != '\0');
      return {};
    }
  }

  void flip(Region region, std::uint64_t position, std::uint8_t bits) {
    const Range& range = made().ranges.at(static_cast<std::size_t>(region));
    const std::uint64_t within = position % range.bytes.size();
    if (region == Region::records) {
      touched_.insert(idAt(within / made().slotBytes * made().slotBytes));
    } else {
      recordsOnly_ = false;
    }
    std::uint8_t byte = 0;
    FUZZ_REQUIRE(::pread(file_.get(), &byte, 1, offsetOf(range, within)) == 1);
    byte ^= bits;
    write(range.offset + within, &byte, 1);
  }

  // A word that is wrong, with the check that it would have if it were right.
  void lie(unsigned what, std::uint16_t position, std::uint64_t value) {
    recordsOnly_ = false;
    switch (what % 6) {
      case 0:
        return lieInBucket(made().ranges[1], position,
                           [&](auto& words) { words[1 + position / 64 % 7] = value; });
      case 1:
        return lieInBucket(made().ranges[2], position,
                           [&](auto& words) { words[1 + position / 64 % 7] = value; });
      case 2:
        return lieInBucket(made().ranges[1 + position / 64 % 2], position, [&](auto& words) {
          words[0] = Layout::metaWord(words[0] & 0xfffeU, value & 0xffffffU, 0);
        });
      case 3:
        return word(offsetof(Layout::Header, state), Layout::stateWord(value % kMostLied, 0));
      case 4:
        return word(offsetof(Layout::Header, entries), Layout::countWord(value));
      default:
        return word(offsetof(Layout::Header, overflow), Layout::countWord(value));
    }
  }

  // Cuts the file off, about where its records are. Its reader has to let go of it before.
  void cutTo(std::uint16_t place) {
    recordsOnly_ = false;
    reader_.reset();
    const Range& records = made().ranges.back();
    const std::uint64_t end =
        records.offset - Layout::kPage + place % (records.bytes.size() + 2 * Layout::kPage);
    FUZZ_REQUIRE(::ftruncate(file_.get(), static_cast<off_t>(end)) == 0);
  }

  // Whether nothing but records was changed, and which of them.
  bool recordsOnly() const { return recordsOnly_; }
  bool touched(std::uint32_t id) const { return touched_.contains(id); }

 private:
  struct Range {
    std::uint64_t offset;
    std::vector<std::uint8_t> bytes;
  };
  struct Made {
    TestSupport::TempDir dir;
    off_t fileBytes = 0;
    std::uint64_t slotBytes = 0;
    std::vector<Range> ranges;  // in the order of Region
  };

  static Made& made() {
    static Made one;
    if (one.ranges.empty()) make(one);
    return one;
  }
  static Quell::TablePlace placeIn(const Made& in) { return {in.dir.path(), "test/things", "red"}; }
  static Quell::TablePlace place() { return placeIn(made()); }
  static std::string fileName() { return place().fileName(); }

  static void make(Made& into) {
    into.ranges.emplace_back();  // made() is called meanwhile
    const auto things = open();
    FUZZ_REQUIRE(things);
    for (const std::uint32_t id : ids()) things->red().insert(thingOf(id));
    things->red().table()->writingDel();
    const auto file = Quell::TableFile::open(placeIn(into), Quell::TableFile::Access::read);
    struct stat status {};
    FUZZ_REQUIRE(::fstat(file->descriptor(), &status) == 0);
    into.fileBytes = status.st_size;
    into.slotBytes = file->slotBytes();
    const std::uint64_t buckets = Layout::stateBuckets(file->header().state.load());
    const std::pair<std::uint64_t, std::uint64_t> places[] = {
        {0, sizeof(Layout::Header)},
        {Layout::kIndexOffset, buckets * sizeof(Layout::Bucket)},
        {Layout::kOverflowOffset, 4 * sizeof(Layout::Bucket)},
        {file->identity().recordsOffset, (ids().size() + 8) * file->slotBytes()}};
    into.ranges.clear();
    for (const auto& [offset, bytes] : places) {
      Range range{offset, std::vector<std::uint8_t>(bytes)};
      FUZZ_REQUIRE(::pread(file->descriptor(), range.bytes.data(), bytes, static_cast<off_t>(offset)) ==
                   static_cast<ssize_t>(bytes));
      into.ranges.push_back(std::move(range));
    }
  }

  static off_t offsetOf(const Range& range, std::uint64_t within) {
    return static_cast<off_t>(range.offset + within);
  }
  // Of the thing in a slot of the records' range.
  static std::uint32_t idAt(std::uint64_t within) {
    std::uint32_t id = 0;
    std::memcpy(&id, made().ranges.back().bytes.data() + within + 8, sizeof id);
    return id;
  }
  void write(std::uint64_t offset, const void* bytes, std::size_t size) const {
    FUZZ_REQUIRE(::pwrite(file_.get(), bytes, size, static_cast<off_t>(offset)) ==
                 static_cast<ssize_t>(size));
  }
  void word(std::uint64_t offset, std::uint64_t value) const { write(offset, &value, sizeof value); }

  template <class Change>
  void lieInBucket(const Range& range, std::uint16_t position, const Change& change) const {
    const std::uint64_t bucket =
        position % (range.bytes.size() / sizeof(Layout::Bucket)) * sizeof(Layout::Bucket);
    std::array<std::uint64_t, 8> words{};
    FUZZ_REQUIRE(::pread(file_.get(), words.data(), sizeof words, offsetOf(range, bucket)) ==
                 static_cast<ssize_t>(sizeof words));
    change(words);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < Layout::kEntriesPerBucket; ++i) sum += words[i + 1] * Layout::factor(i);
    words[0] = Layout::metaWord(Layout::metaSequence(words[0]), Layout::metaLink(words[0]), sum);
    write(range.offset + bucket, words.data(), sizeof words);
  }

  Quell::Descriptor file_;
  Kiv::Ptr<Things> reader_;
  bool recordsOnly_ = true;
  std::set<std::uint32_t> touched_;
};

}  // namespace FuzzSupport

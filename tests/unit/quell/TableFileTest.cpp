#include "quell/TableFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "QuellFiles.h"

using namespace QuellTest;
using testing::HasSubstr;

namespace {

class TableFiles : public testing::Test {
 protected:
  std::string openError() {
    return tableError([this] { Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read); });
  }
  std::string contents() {
    std::ifstream in(files_.fileName(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void replace(const std::string& text) { std::ofstream(files_.fileName(), std::ios::binary) << text; }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
};

}  // namespace

TEST_F(TableFiles, RecordsOutliveTheirWriter) {
  {
    auto things = files_.open();
    for (std::uint32_t id = 0; id < 1000; ++id) things->red().insert(thing(id, id));
  }
  auto things = files_.open();
  EXPECT_EQ(things->red().size(), 1000U);
  for (std::uint32_t id = 0; id < 1000; ++id) EXPECT_EQ(things->red().get(keyOf(id)), thing(id, id));
}

TEST_F(TableFiles, AReaderFollowsAGrowingTable) {
  auto writer = files_.open(4);
  auto reader = files_.open();
  for (std::uint32_t id = 0; id < 20000; ++id) {
    writer->red().insert(thing(id));
    ASSERT_TRUE(reader->red().has(keyOf(id))) << id;
  }
  EXPECT_EQ(reader->red().size(), 20000U);
}

TEST_F(TableFiles, AReaderSeesOverwritingAndErasing) {
  auto writer = files_.open();
  auto reader = files_.open();
  writer->red().insert(thing(1, 1));
  EXPECT_EQ(reader->red().get(keyOf(1)), thing(1, 1));
  writer->red().insert(thing(1, 2));
  EXPECT_EQ(reader->red().get(keyOf(1)), thing(1, 2));
  writer->red().erase(keyOf(1));
  EXPECT_FALSE(reader->red().has(keyOf(1)));
}

TEST_F(TableFiles, TheCapacityToStartWithIsThereFromTheStart) {
  auto things = files_.open(5000);
  const auto before = std::filesystem::file_size(files_.fileName());
  for (std::uint32_t id = 0; id < 5000; ++id) things->red().insert(thing(id));
  EXPECT_EQ(std::filesystem::file_size(files_.fileName()), before);
}

TEST_F(TableFiles, AnAbsentTableIsSaidToBeAbsent) {
  EXPECT_THAT(openError(), HasSubstr("there is no such table"));
  EXPECT_THAT(openError(), HasSubstr(files_.fileName()));
  EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/tables"));
}

TEST_F(TableFiles, ANewerLayoutIsRefusedAndLeftUntouched) {
  files_.open()->red().insert(thing(1));
  setByte(files_.fileName(), offsetof(Quell::Layout::Identity, version), 2);
  const auto written = std::filesystem::last_write_time(files_.fileName());
  EXPECT_THAT(openError(), HasSubstr("layout version 2 is newer than the newest known here, 1"));
  EXPECT_THROW(files_.open(), Quell::TableError);
  EXPECT_EQ(std::filesystem::last_write_time(files_.fileName()), written);
}

TEST_F(TableFiles, AnotherRecordTypeIsRefusedByNameAndBySize) {
  files_.open()->red().insert(thing(1));
  const auto file = Quell::TableFile::open(files_.place(), Quell::TableFile::Access::read);
  Quell::RecordType other = thingType();
  other.name = "QuellTest::Other";
  EXPECT_THAT(tableError([&] { file->requireType(other); }),
              HasSubstr("holds records of type QuellTest::Thing, expected QuellTest::Other"));
  other = thingType();
  other.recordBytes += 8;
  EXPECT_THAT(tableError([&] { file->requireType(other); }),
              HasSubstr("holds records of 56 bytes with keys of 12, expected 64"));
  other = thingType();
  other.keyBytes = 16;
  EXPECT_THAT(tableError([&] { file->requireType(other); }), HasSubstr("expected 56 with 16"));
}

TEST_F(TableFiles, AFileThatIsNoTableIsRefusedAndLeftAsItIs) {
  files_.open();
  for (const std::string& text : {std::string(), std::string("short"), std::string(10000, 'x')}) {
    replace(text);
    EXPECT_THAT(openError(), HasSubstr("no shared table"));
    EXPECT_THROW(files_.open(), Quell::TableError);
    EXPECT_EQ(contents(), text);
  }
}

TEST_F(TableFiles, ADamagedHeaderIsRefused) {
  files_.open();
  for (const std::uint64_t offset : {12U, 16U, 20U, 24U, 40U, 140U, 300U, 500U, 544U}) {
    const unsigned char byte = byteAt(files_.fileName(), offset);
    setByte(files_.fileName(), offset, byte ^ 0x10U);
    EXPECT_THAT(openError(), HasSubstr("damaged: the header does not match its check")) << offset;
    setByte(files_.fileName(), offset, byte);
  }
  EXPECT_EQ(openError(), "");
}

TEST_F(TableFiles, ATruncatedFileIsRefused) {
  files_.open()->red().insert(thing(1));
  std::filesystem::resize_file(files_.fileName(), 8192);
  EXPECT_THAT(openError(), HasSubstr("truncated: 8192 bytes"));
}

TEST_F(TableFiles, ATableCutOffInItsRecordsGivesDamageNotACrash) {
  {
    auto things = files_.open(4);
    for (std::uint32_t id = 0; id < 2000; ++id) things->red().insert(thing(id));
  }
  std::filesystem::resize_file(files_.fileName(), Quell::Layout::recordsOffset(sizeof(ThingKey)) + 4096);
  auto things = files_.open();
  unsigned damaged = 0;
  for (std::uint32_t id = 0; id < 2000; ++id) {
    Thing out;
    try {
      if (things->red().find(keyOf(id), out)) {
        EXPECT_EQ(out, thing(id));
      }
    } catch (const Fenn::CorruptionDetectedException& damage) {
      ++damaged;
      EXPECT_THAT(damage.what(), HasSubstr("test/things red"));
    }
  }
  EXPECT_GT(damaged, 1500U);
  things->red().insert(thing(5000));  // the next writer drops what is gone
  EXPECT_LT(things->red().size(), 100U);
  EXPECT_TRUE(things->red().has(keyOf(5000)));
}

TEST_F(TableFiles, SymbolicLinksAreNotFollowed) {
  files_.open();
  std::filesystem::rename(files_.fileName(), dir_.path() + "/elsewhere");
  std::filesystem::create_symlink(dir_.path() + "/elsewhere", files_.fileName());
  EXPECT_THAT(openError(), HasSubstr("symbolic link"));
  std::filesystem::rename(dir_.path() + "/tables/test", dir_.path() + "/folder");
  std::filesystem::create_symlink(dir_.path() + "/folder", dir_.path() + "/tables/test");
  EXPECT_THAT(openError(), HasSubstr("no links here"));
  EXPECT_THROW(files_.open(), Quell::TableError);
}

TEST_F(TableFiles, AFolderOrAPipeInAFilesPlaceIsRefused) {
  std::filesystem::create_directories(files_.fileName());
  EXPECT_THAT(openError(), HasSubstr("expected a file, found something else"));
  std::filesystem::remove(files_.fileName());
  ASSERT_EQ(::mkfifo(files_.fileName().c_str(), 0600), 0);
  EXPECT_THAT(openError(), HasSubstr("expected a file, found something else"));
}

TEST_F(TableFiles, PathsThatLeadOutsideAreRefused) {
  for (const std::string path : {"", "..", "a/../b", "/a", "a//b", "a/", ".hidden"}) {
    EXPECT_THAT(tableError([&] {
                  Quell::TableFile::open({dir_.path(), path, "red"}, Quell::TableFile::Access::read);
                }),
                HasSubstr("expected names separated by single slashes"))
        << path;
  }
  for (const std::string collection : {"", "a/b", "..", ".x"}) {
    EXPECT_THAT(tableError([&] {
                  Quell::TableFile::open({dir_.path(), "a", collection}, Quell::TableFile::Access::read);
                }),
                HasSubstr("expected the name of a collection"))
        << collection;
  }
}

TEST_F(TableFiles, ANameIsShorterThanTwoHundredBytesAndHasNoZeroInIt) {
  const auto error = [&](const std::string& path) {
    return tableError([&] {
      Quell::TableFile::open({dir_.path(), path, "red"}, Quell::TableFile::Access::read);
    });
  };
  EXPECT_THAT(error(std::string(200, 'a')), HasSubstr("expected names separated by single slashes"));
  EXPECT_THAT(error(std::string("a\0b", 3)), testing::StartsWith("table \"a"));  // what() ends there
  EXPECT_THAT(error(std::string(199, 'a')), HasSubstr("there is no such table"));
}

TEST_F(TableFiles, AFileInAFoldersPlaceIsRefused) {
  std::ofstream(dir_.path() + "/tables") << "no folder";
  EXPECT_THAT(openError(), HasSubstr("/tables: expected a folder, found something else"));
  EXPECT_THAT(tableError([this] { files_.open(); }),
              HasSubstr("/tables: expected a folder, found something else"));
}

TEST_F(TableFiles, AMissingRunDirectoryIsNamed) {
  const Quell::TablePlace place{dir_.path() + "/missing", "a", "red"};
  Quell::TableFile::Creation creation;
  creation.type = &thingType();
  EXPECT_THAT(
      tableError([&] { Quell::TableFile::openOrCreate(place, creation, Quell::TableFile::Access::read); }),
      HasSubstr(dir_.path() + "/missing: cannot be opened: No such file or directory"));
}

TEST_F(TableFiles, WithoutARunDirectoryThereIsNoTableToOpen) {
  const auto error = [](const std::string& run) {
    return tableError([&] { Quell::TableFile::open({run, "a", "red"}, Quell::TableFile::Access::read); });
  };
  EXPECT_EQ(error(dir_.path() + "/missing"), dir_.path() + "/missing/tables/a/red: there is no such table");
  std::ofstream(dir_.path() + "/file") << "no folder";
  EXPECT_EQ(error(dir_.path() + "/file"),
            "run directory " + dir_.path() + "/file: cannot be opened: Not a directory");
}

TEST_F(TableFiles, NoDraftIsLeftBehind) {
  files_.open();
  unsigned files = 0;
  for ([[maybe_unused]] const auto& each :
       std::filesystem::directory_iterator(dir_.path() + "/tables/test/things"))
    ++files;
  EXPECT_EQ(files, 1U);
}

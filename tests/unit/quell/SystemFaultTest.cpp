// What becomes of a table when the system refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>

#include "QuellFiles.h"
#include "SystemCalls.h"
#include "quell/SharedTables.h"
#include "quell/TableStore.h"

using namespace QuellTest;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

class SystemFaults : public testing::Test {
 protected:
  using Access = Quell::TableFile::Access;
  Quell::TableFile::Creation creation() const {
    Quell::TableFile::Creation creation;
    creation.type = &thingType();
    creation.containerType = "QuellTest::Things";
    return creation;
  }
  std::shared_ptr<Quell::TableFile> create(Access access = Access::read) const {
    return Quell::TableFile::openOrCreate(files_.place(), creation(), access);
  }
  std::string creationError(std::string_view call, int error) const {
    const SystemCalls calls(call, error);
    return tableError([&] { create(); });
  }
  std::string openError(std::string_view call, int error) const {
    const SystemCalls calls(call, error);
    return tableError([&] { Quell::TableFile::open(files_.place(), Access::read); });
  }
  std::vector<std::string> filesThere() const {
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::recursive_directory_iterator(dir_.path())) {
      if (!each.is_directory()) names.push_back(each.path().filename().string());
    }
    return names;
  }
  std::string draftName() const {
    return dir_.path() + "/tables/test/things/.red." + std::to_string(::getpid()) + ".new";
  }

  TestSupport::TempDir dir_;
  Files files_{dir_.path()};
};

}  // namespace

TEST_F(SystemFaults, ATableWhoseFirstWordsCannotBeWrittenIsNotCreated) {
  EXPECT_THAT(creationError("pwrite", ENOSPC), EndsWith("red: cannot be written: No space left on device"));
  EXPECT_TRUE(filesThere().empty());
}

TEST_F(SystemFaults, ATableThatGetsNoNameIsNotCreated) {
  EXPECT_THAT(creationError("linkat", EIO), EndsWith("red: cannot be created: Input/output error"));
  EXPECT_TRUE(filesThere().empty());
}

TEST_F(SystemFaults, ATableThatAnotherProcessCreatedMeanwhileIsTaken) {
  {
    const SystemCalls calls([&](const SystemCall& call) {
      if (call.name != "linkat") return 0;
      std::filesystem::create_hard_link(draftName(), files_.fileName());
      return EEXIST;
    });
    EXPECT_EQ(create()->place().fileName(), files_.fileName());
  }
  EXPECT_EQ(filesThere(), std::vector<std::string>{"red"});
}

TEST_F(SystemFaults, ADraftThatADeadProcessOfTheSameNumberLeftIsReplaced) {
  std::filesystem::create_directories(dir_.path() + "/tables/test/things");
  std::ofstream(draftName()) << "half a table";
  EXPECT_NO_THROW(create());
  EXPECT_EQ(filesThere(), std::vector<std::string>{"red"});
}

TEST_F(SystemFaults, ADraftsPlaceThatIsTakenIsTold) {
  std::filesystem::create_directories(draftName());
  EXPECT_THAT(tableError([&] { create(); }), EndsWith("red: cannot be created: File exists"));
}

TEST_F(SystemFaults, AFolderThatCannotBeMadeIsNamed) {
  EXPECT_THAT(creationError("mkdirat", EACCES),
              EndsWith(dir_.path() + "/tables: cannot be created: Permission denied"));
}

TEST_F(SystemFaults, AFolderThatCannotBeOpenedIsNamed) {
  EXPECT_THAT(openError("openat", EACCES), EndsWith(dir_.path() + "/tables: Permission denied"));
}

TEST_F(SystemFaults, WhatCannotBeOpenedAtAllIsNamedWithTheReason) {
  std::filesystem::create_directories(dir_.path() + "/tables/test/things");
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(files_.fileName().size(), sizeof address.sun_path);
  files_.fileName().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_THAT(tableError([&] { Quell::TableFile::open(files_.place(), Access::read); }),
              EndsWith("red: cannot be opened: No such device or address"));
  ::close(listener);
}

TEST_F(SystemFaults, ATableInMemoryThatTheSystemRefusesIsTold) {
  const SystemCalls calls("memfd_create", EMFILE);
  EXPECT_THAT(tableError([&] { Quell::TableFile::anonymous(files_.place(), creation()); }),
              EndsWith("red: cannot be created in memory: Too many open files"));
}

TEST_F(SystemFaults, AnInterruptedReservationIsTakenAgain) {
  unsigned interrupted = 0;
  const SystemCalls calls([&](const SystemCall& call) {
    return call.name == "posix_fallocate" && ++interrupted <= 2 ? EINTR : 0;
  });
  EXPECT_NO_THROW(create());
  EXPECT_GT(interrupted, 2U);
}

TEST_F(SystemFaults, AFileThatTellsNothingOfItselfIsRefused) {
  const auto file = create(Access::write);
  EXPECT_THAT(openError("fstat", EIO), EndsWith("red: Input/output error"));
  const SystemCalls calls("fstat", EIO);
  EXPECT_THAT(tableError([&] { file->slotsInFile(); }), EndsWith("red: Input/output error"));
  EXPECT_FALSE(file->reserve(0, 4096));
  EXPECT_FALSE(file->reserveLargePage(Quell::Layout::kIndexOffset));
}

TEST_F(SystemFaults, AFileThatCannotBeComparedWithTheMountedOneIsNotWritten) {
  const auto mounted = create();
  // The first one asked is the mounted one, the second its name's; `judge` has asked between.
  for (const int failing : {mounted->descriptor(), -1}) {
    unsigned asked = 0;
    const SystemCalls calls([&](const SystemCall& call) {
      if (call.name != "fstat") return 0;
      ++asked;
      return call.descriptor == failing || (failing < 0 && asked == 3) ? EIO : 0;
    });
    EXPECT_THAT(tableError([&] { Quell::TableFile::writable(mounted); }),
                HasSubstr("another file stands here than the one that was mounted"));
  }
  EXPECT_NO_THROW(Quell::TableFile::writable(mounted));
}

TEST_F(SystemFaults, WithoutAddressesAFileIsRefused) {
  create();
  EXPECT_THAT(openError("mmap", ENOMEM), EndsWith("red: cannot be mapped: Cannot allocate memory"));
}

TEST_F(SystemFaults, AFileThatCannotBeMappedGivesItsAddressesBack) {
  create();
  std::uint64_t reserved = 0;
  std::uint64_t given = 0;
  const SystemCalls calls([&](const SystemCall& call) {
    if (call.name == "mmap" && call.descriptor < 0) reserved = call.bytes;
    if (call.name == "munmap") given = call.bytes;
    return call.name == "mmap" && call.descriptor >= 0 ? EAGAIN : 0;
  });
  EXPECT_THAT(tableError([&] { Quell::TableFile::open(files_.place(), Access::read); }),
              EndsWith("red: cannot be mapped: Resource temporarily unavailable"));
  EXPECT_GT(reserved, 0U);
  EXPECT_EQ(given, reserved);
}

TEST_F(SystemFaults, AClosedFileGivesItsAddressesBack) {
  auto file = create();
  const std::uint64_t mapped = Quell::Layout::mappedBytes(sizeof(ThingKey), sizeof(Thing));
  std::uint64_t given = 0;
  const SystemCalls calls([&](const SystemCall& call) {
    if (call.name == "munmap") given += call.bytes;
    return 0;
  });
  file.reset();
  EXPECT_GE(given, mapped);
}

TEST_F(SystemFaults, ALockThatIsInterruptedIsTakenAgain) {
  const auto file = create(Access::write);
  unsigned interrupted = 0;
  const SystemCalls calls(
      [&](const SystemCall& call) { return call.name == "flock" && ++interrupted <= 2 ? EINTR : 0; });
  EXPECT_TRUE(file->lock());
  EXPECT_EQ(interrupted, 3U);
}

TEST_F(SystemFaults, ALockThatTheSystemRefusesIsToldAndMayBeHadLater) {
  const auto file = create(Access::write);
  {
    const SystemCalls calls("flock", ENOLCK);
    EXPECT_THAT(tableError([&] { file->lock(); }), EndsWith("red: cannot be locked: No locks available"));
  }
  EXPECT_TRUE(file->lock());
}

TEST_F(SystemFaults, APartOfAReservationIsGivenBack) {
  const auto file = create(Access::write);
  const auto before = std::filesystem::file_size(files_.fileName());
  const auto partly = [&](const SystemCall& call) {
    if (call.name != "posix_fallocate") return 0;
    EXPECT_EQ(::ftruncate(call.descriptor, static_cast<off_t>(before) + 4096), 0);
    return ENOSPC;
  };
  {
    const SystemCalls calls(partly);
    EXPECT_FALSE(file->reserve(before, 1 << 20));
  }
  EXPECT_EQ(std::filesystem::file_size(files_.fileName()), before);
}

TEST_F(SystemFaults, ALargePageForWhichThereIsNoRoomLeavesTheFileAsLong) {
  const auto file = create(Access::write);
  const auto before = std::filesystem::file_size(files_.fileName());
  const std::uint64_t behind = Quell::Layout::roundUp(before, Quell::Layout::kRegionAlignment);
  for (const unsigned failing : {1U, 2U}) {
    unsigned asked = 0;
    {
      const SystemCalls calls([&](const SystemCall& call) {
        return call.name == "posix_fallocate" && ++asked == failing ? ENOSPC : 0;
      });
      EXPECT_FALSE(file->reserveLargePage(behind)) << failing;
    }
    EXPECT_EQ(asked, failing);
    EXPECT_EQ(std::filesystem::file_size(files_.fileName()), before) << failing;
  }
  EXPECT_TRUE(file->reserveLargePage(behind));
  EXPECT_EQ(std::filesystem::file_size(files_.fileName()), behind + Quell::Layout::kRegionAlignment);
}

TEST_F(SystemFaults, ASystemThatCannotWatchFilesIsTold) {
  {
    const SystemCalls calls("inotify_init1", EMFILE);
    EXPECT_EQ(tableError([&] { Quell::SharedTables("tables", dir_.path()); }),
              "shared tables cannot be watched: Too many open files");
  }
  const Kiv::Module module("QuellTest", {&Things::kivType()});
  const auto tables = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  const SystemCalls calls("inotify_add_watch", ENOSPC);
  EXPECT_THAT(tableError([&] {
                tables->doMount("test/things", "QuellTest::Things",
                                KivQuell::MountInfo(KivQuell::KivQuellType::published));
              }),
              EndsWith("red: cannot be watched: No space left on device"));
  EXPECT_FALSE(tables->getEntity("test/things"));
}

TEST_F(SystemFaults, ATableWhoseLockCannotBeLookedUpIsListedWithoutAWriter) {
  files_.open()->red().insert(thing(1));
  const auto writer = files_.open();
  writer->red().insert(thing(2));
  ASSERT_EQ(Quell::listTables(dir_.path()).at(0).writer, static_cast<std::uint64_t>(::getpid()));
  unsigned asked = 0;  // by the table's opening first, and by the table for its size
  const SystemCalls calls(
      [&](const SystemCall& call) { return call.name == "fstat" && ++asked == 3 ? EIO : 0; });
  const auto all = Quell::listTables(dir_.path());
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].writer, 0U);
  EXPECT_EQ(all[0].entries, 2U);
  EXPECT_EQ(all[0].problem, "");
}

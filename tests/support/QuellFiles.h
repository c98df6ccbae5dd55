// Tables in a folder of the test, and their bytes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QuellThings.h"
#include "TempDir.h"
#include "quell/TableFile.h"

namespace QuellTest {

struct Files {
  explicit Files(const std::string& run) : runDir(run) {}
  std::string runDir;

  Quell::TablePlace place(const std::string& collection = "red") const {
    return {runDir, "test/things", collection};
  }
  std::string fileName(const std::string& collection = "red") const { return place(collection).fileName(); }

  // A container whose red collection is attached to its file, created when absent.
  Kiv::Ptr<Things> open(std::uint64_t capacity = 64) const {
    auto things = Kiv::makePtr<Things>("test/things");
    Quell::TableFile::Creation creation;
    creation.type = &thingType();
    creation.containerType = "QuellTest::Things";
    creation.capacity = capacity;
    auto file = Quell::TableFile::openOrCreate(place(), creation, Quell::TableFile::Access::read);
    file->requireType(thingType());
    things->red().tableIs(std::make_shared<Quell::Table>(std::move(file)));
    return things;
  }
};

inline unsigned char byteAt(const std::string& file, std::uint64_t offset) {
  std::ifstream in(file, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(offset));
  return static_cast<unsigned char>(in.get());
}
inline void setByte(const std::string& file, std::uint64_t offset, unsigned char byte) {
  std::fstream out(file, std::ios::binary | std::ios::in | std::ios::out);
  out.seekp(static_cast<std::streamoff>(offset));
  out.put(static_cast<char>(byte));
}
inline void setText(const std::string& file, std::uint64_t offset, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i)
    setByte(file, offset + i, static_cast<unsigned char>(text[i]));
}

// The text of the TableError that a call throws; empty when it throws none.
inline std::string tableError(const std::function<void()>& call) {
  try {
    call();
  } catch (const Quell::TableError& error) {
    return error.what();
  }
  return {};
}

}  // namespace QuellTest

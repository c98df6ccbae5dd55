// A shared table's writers and readers, killed at random moments. A writer tells of each store, through a
// pipe, before it begins the next: what was told of is there, whoever died, and nobody waits for the dead.
//
// SFT_KILL_TIMES says how many writers are killed (200), SFT_KILL_SEED which moments; a failure names both.
#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include "Forked.h"
#include "QuellFiles.h"

using namespace QuellTest;
using TestSupport::Forked;
using TestSupport::SharedWithForked;

namespace {

constexpr std::uint32_t kIds = 400;
constexpr unsigned kReaders = 2;
constexpr auto kPatience = std::chrono::seconds(120);  // only a test that fails waits so long

unsigned fromEnvironment(const char* name, unsigned unless) {
  const char* text = std::getenv(name);
  return text != nullptr ? static_cast<unsigned>(std::stoul(text)) : unless;
}
unsigned times() {
  static const unsigned value = fromEnvironment("SFT_KILL_TIMES", 200);
  return value;
}
unsigned seed() {
  static const unsigned value = fromEnvironment("SFT_KILL_SEED", 1);
  return value;
}

// The writer's operations follow from the round alone, so that the one that was under way is known.
struct Operation {
  std::uint32_t id = 0;
  std::uint32_t stamp = 0;  // 0: it is erased
};
class Operations {
 public:
  explicit Operations(unsigned round) : random_(seed() * 100003U + round), stamp_(round * 100000U) {}
  Operation next() {
    const auto drawn = static_cast<std::uint32_t>(random_());
    return {drawn % kIds, drawn % 5 == 0 ? 0 : ++stamp_};
  }

 private:
  std::mt19937 random_;
  std::uint32_t stamp_;
};

using Model = std::map<std::uint32_t, std::uint32_t>;  // id -> stamp
void applied(Model& model, const Operation& operation) {
  if (operation.stamp == 0) {
    model.erase(operation.id);
  } else {
    model[operation.id] = operation.stamp;
  }
}

class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_) != 0) throw std::runtime_error("no pipe for the test");
  }
  ~Pipe() {
    for (const int end : ends_) {
      if (end >= 0) ::close(end);
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  // Waits until the other side has read what it needs to go on.
  void tell() const {
    const char byte = 1;
    if (::write(ends_[1], &byte, 1) != 1) ::_exit(1);
  }
  void onlyRead() { ::close(std::exchange(ends_[1], -1)); }
  // How much was told; 0 when the teller is gone.
  std::size_t read() const {
    std::array<char, 4096> bytes;
    const ssize_t got = ::read(ends_[0], bytes.data(), bytes.size());
    return got > 0 ? static_cast<std::size_t>(got) : 0;
  }

 private:
  int ends_[2] = {-1, -1};
};

int writeForEver(const Files& files, unsigned round, const Pipe& pipe) {
  const auto things = files.open(4);
  Operations operations(round);
  for (;;) {
    const Operation each = operations.next();
    if (each.stamp == 0) {
      things->red().erase(keyOf(each.id));
    } else {
      things->red().insert(thing(each.id, each.stamp));
    }
    pipe.tell();
  }
}

// Counts looks at the whole table; leaves when one of them meets anything but whole records.
struct Looks {
  std::array<std::atomic<std::uint64_t>, kReaders> done{};
};
int readForEver(const Files& files, std::atomic<std::uint64_t>& looks) {
  const auto reader = files.open();
  const Things::Map& map = reader->red();
  for (std::uint32_t id = 0;; id = (id + 1) % kIds) {
    Thing found;
    if (map.find(keyOf(id), found) && (!whole(found) || found.key.id != id)) return 2;
    if (id != 0) continue;
    for (bool more = map.first(found); more; more = map.after(found.key, found)) {
      if (!whole(found)) return 3;
    }
    ++looks;
  }
}

// What is logged while it lives.
class Log {
 public:
  Log() : before_(spdlog::default_logger()) {
    spdlog::set_default_logger(
        std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_st>(text_)));
  }
  ~Log() { spdlog::set_default_logger(before_); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  bool says(std::string_view text) const { return text_.str().find(text) != std::string::npos; }

 private:
  std::ostringstream text_;
  std::shared_ptr<spdlog::logger> before_;
};

class KilledTables : public testing::Test {
 protected:
  void SetUp() override {
    std::printf("SFT_KILL_TIMES=%u SFT_KILL_SEED=%u\n", times(), seed());
    files_.open(4)->red().insert(thing(0, 1));
    model_[0] = 1;
    for (unsigned i = 0; i < kReaders; ++i) startReader(i);
  }

  void startReader(unsigned which) {
    readers_[which].emplace([this, which] { return readForEver(files_, looks_->done[which]); });
  }

  // Lets a writer go on for a while, kills it, and takes into account what it told of. Gives what was under
  // way.
  Operation killWriter(unsigned round) {
    Pipe pipe;
    Forked writer([&] { return writeForEver(files_, round, pipe); });
    pipe.onlyRead();
    const std::size_t until = 1 + random_() % 600;
    std::size_t told = 0;
    while (told < until) {
      const std::size_t more = pipe.read();
      EXPECT_NE(more, 0U) << "the writer left by itself";
      if (more == 0) break;
      told += more;
    }
    writer.kill();
    while (const std::size_t more = pipe.read()) told += more;
    Operations operations(round);
    for (std::size_t i = 0; i < told; ++i) applied(model_, operations.next());
    return operations.next();
  }

  // The readers go on although the writer died, wherever it did.
  void readersGoOn() {
    for (unsigned i = 0; i < kReaders; ++i) {
      const std::uint64_t from = looks_->done[i];
      const auto end = std::chrono::steady_clock::now() + kPatience;
      while (looks_->done[i] < from + 2) {
        ASSERT_EQ(::waitpid(readers_[i]->pid(), nullptr, WNOHANG), 0) << "a reader met what was not whole";
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "a reader waits";
        std::this_thread::yield();
      }
    }
  }

  // The table as a reader finds it, before any repair: what was told of, and perhaps what was under way.
  void check(const Operation& underWay) {
    const auto reader = files_.open();
    Model found;
    for (std::uint32_t id = 0; id < kIds; ++id) {
      Thing each;
      if (!reader->red().find(keyOf(id), each)) continue;
      ASSERT_TRUE(whole(each));
      found[id] = each.stamp;
    }
    if (found != model_) applied(model_, underWay);
    ASSERT_TRUE(found == model_);
    countWasWrong_ = reader->red().size() != model_.size();
  }

  // The next writer: it says what it repairs, and behind it the table is in order.
  void repair() {
    Log log;
    const auto writer = files_.open();
    writer->red().insert(thing(1, 7));
    model_[1] = 7;
    if (countWasWrong_) {
      ASSERT_TRUE(log.says("repaired: ")) << "a count was put right, and nobody was told";
    }
    repairs_ += log.says("repaired: ") ? 1 : 0;
    ASSERT_EQ(writer->red().size(), model_.size());
    Model met;
    Thing each;
    for (bool more = writer->red().first(each); more; more = writer->red().after(each.key, each))
      met[each.key.id] = each.stamp;
    ASSERT_TRUE(met == model_);
  }

  TestSupport::TempDir dir_;
  const Files files_{dir_.path()};
  std::mt19937 random_{seed()};
  Model model_;
  SharedWithForked<Looks> looks_;
  std::array<std::optional<Forked>, kReaders> readers_;
  bool countWasWrong_ = false;
  unsigned repairs_ = 0;
};

TEST_F(KilledTables, KeepWhatWasToldAndHoldUpNobody) {
  unsigned readersKilled = 0;
  for (unsigned round = 1; round <= times(); ++round) {
    SCOPED_TRACE("SFT_KILL_SEED=" + std::to_string(seed()) + " round " + std::to_string(round));
    if (random_() % 2 == 0) {  // in the middle of whatever it reads
      const unsigned which = static_cast<unsigned>(random_()) % kReaders;
      readers_[which]->kill();
      startReader(which);
      ++readersKilled;
    }
    const Operation underWay = killWriter(round);
    ASSERT_NO_FATAL_FAILURE(check(underWay));
    ASSERT_NO_FATAL_FAILURE(readersGoOn());
    // Else the next writer repairs, and may be killed while it does.
    if (random_() % 2 == 0) {
      ASSERT_NO_FATAL_FAILURE(repair());
    }
  }
  std::printf("%u writers and %u readers killed; %u repairs were told\n", times(), readersKilled, repairs_);
}

}  // namespace

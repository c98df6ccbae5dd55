// How long after a store in one process the reactors of another are told.
//
// A child process stores the time and rings; the parent waits on the watcher's descriptor and delivers.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "QuellFiles.h"
#include "quell/SharedTables.h"

using namespace QuellTest;

namespace {

std::uint64_t now() {
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

class Told : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit Told(const Kiv::Ptr<Things>& things) : map_(things->red()) {
    hasNotificationActiveIs(true);
    notifierIs(things);
  }
  void onAttributeKey(Kiv::AttributeId, Kiv::KeyRef key) override {
    Thing found;
    if (map_.find(key.as<ThingKey>(), found)) nanoseconds.push_back(now() - found.values[0]);
  }
  std::vector<std::uint64_t> nanoseconds;

 private:
  const Things::Map& map_;
};

// Stores and rings once for each byte that comes through the pipe.
void storeOnDemand(const Files& files, int demands) {
  const auto things = files.open();
  char demand = 0;
  while (::read(demands, &demand, 1) == 1) {
    Thing each = thing(1);
    each.values[0] = now();
    things->red().insert(each);
    things->red().table()->flush();
  }
}

void notice(benchmark::State& state) {
  const Kiv::Module module("QuellTest", {&Things::kivType()});
  const TestSupport::TempDir dir;
  const Files files(dir.path());
  const auto agent = Kiv::makePtr<Quell::SharedTables>("tables", dir.path());
  const auto things = Kiv::ptrCast<Things>(agent->doMount(
      "test/things", "QuellTest::Things", KivQuell::MountInfo(KivQuell::KivQuellType::published)));
  const auto told = Kiv::makePtr<Told>(things);
  int demands[2];
  if (::pipe(demands) != 0) return state.SkipWithError("no pipe");
  const pid_t writer = ::fork();
  if (writer == 0) {
    ::close(demands[1]);
    storeOnDemand(files, demands[0]);
    ::_exit(0);
  }
  ::close(demands[0]);
  const char demand = 1;
  for (auto _ : state) {
    const std::size_t before = told->nanoseconds.size();
    if (::write(demands[1], &demand, 1) != 1) state.SkipWithError("the writer is gone");
    while (told->nanoseconds.size() == before) {
      pollfd waiting{agent->descriptor(), POLLIN, 0};
      ::poll(&waiting, 1, -1);
      agent->deliver(64);
    }
  }
  ::close(demands[1]);
  ::waitpid(writer, nullptr, 0);
  told->notifierIs(nullptr);
  std::vector<std::uint64_t>& all = told->nanoseconds;
  std::sort(all.begin(), all.end());
  state.counters["median_us"] = static_cast<double>(all[all.size() / 2]) / 1000;
  state.counters["p99_us"] = static_cast<double>(all[all.size() * 99 / 100]) / 1000;
}

}  // namespace

BENCHMARK(notice)->Name("StoreToReactor/OtherProcess")->Iterations(5000)->UseRealTime();

// A machine with weak memory on which the tables' real code runs, one access at a time.
//
// One thread writes (and one after it, once it died), the others only read. A store gets a number and stays
// in the history of its word. A load may see any store of its word that is not older than one that its thread
// knows to be overwritten: the thread has seen it itself, or has read, with acquire, a store made with
// release that came after. That is all that C++ promises to readers that write nothing, so what runs here in
// every way runs on every processor.
//
// Threading: threads are contexts of one real thread; a run is repeated exactly by its path.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Path.h"

namespace Scheduled {

// How far a run may leave the plain way.
struct Bounds {
  unsigned preemptions = 2;  // threads interrupted
  unsigned oddLoads =
      2;  // loads that do not see the newest store; of a lazy memory: that do not see the oldest
  unsigned deaths = 0;  // of the writer, each before one of its stores
  bool lazy = false;    // the memory gives the oldest it may, and now and then a newer one
};

// Orders taken away, to see that the tests notice.
struct Weakening {
  bool relaxedStores = false;
  bool relaxedLoads = false;
  bool repeatedLooks = false;  // a relaxed load gives what its thread saw last: no second look
};

class Machine {
 public:
  Machine(Path& path, const Bounds& bounds, const Weakening& weakening);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  void writer(std::function<void()> body) { add(std::move(body), true); }
  void reader(std::function<void()> body) { add(std::move(body), false); }
  // Until a condition holds (of what newest() tells), no thread is interrupted and none dies: to explore what
  // comes late.
  void calmUntil(std::function<bool()> condition) { stirred_ = std::move(condition); }
  // Runs all of them to their ends. What they throw is a failure.
  void run();

  // --- For the bodies.
  void expect(bool holds, const std::string& what);
  // True from the store before which the writer died: from then on it only seems to go on. What it changes is
  // seen by itself alone, so that its objects can be let go of.
  bool died() const;
  // The writer's thread is another process from now on.
  void succeed();
  // The number of the last store, and that this thread has been told of all up to one.
  std::uint64_t now() const { return stores_; }
  void knows(std::uint64_t store);
  // How many loads there were so far.
  std::uint64_t loads() const { return loads_; }
  // What was stored last, for conditions; no load of the thread's.
  template <class Word>
  static std::uint64_t newest(const Word& word) {
    return reinterpret_cast<const std::uint64_t&>(word);
  }
  // Lets the others go on until something holds, and goes on itself at once then; or when nobody else can.
  void awaits(std::function<bool()> condition);

  // The first failure, and the path to it; empty when there is none.
  const std::string& failure() const { return failure_; }

  std::uint64_t load(const std::uint64_t& word, std::memory_order order);
  void store(std::uint64_t& word, std::uint64_t value, std::memory_order order);

 private:
  struct Stored {
    std::uint64_t value;
    std::uint64_t number;
    bool release;
  };
  using History = std::vector<Stored>;
  struct Thread;

  void add(std::function<void()> body, bool writes);
  void body(Thread& thread);
  void resume(Thread& thread);
  void leave();
  void mayBeInterrupted();
  std::vector<Thread*> ready() const;
  Thread& chosen();
  static void enter();

  bool calm() const { return stirred_ && !stirred_(); }

  Path& path_;
  Bounds left_;
  Weakening weakening_;
  std::vector<std::unique_ptr<Thread>> threads_;
  std::function<bool()> stirred_;
  Thread* current_ = nullptr;
  Thread* next_ = nullptr;
  std::map<const std::uint64_t*, History> histories_;
  std::uint64_t stores_ = 0;
  std::uint64_t loads_ = 0;
  std::string failure_;
};

// What an exploration came to.
struct Explored {
  std::uint64_t runs = 0;
  bool all = false;     // no path within the bounds is left
  std::string failure;  // of the run that it ended with
};

using Scenario = std::function<void(Machine&)>;
// Every path within the bounds, or the first so many.
Explored explore(const Bounds& bounds, const Scenario& scenario, std::uint64_t limit,
                 Weakening weakening = {});
// So many drawn paths; run n of seed s is run 0 of seed s + n.
Explored draw(const Bounds& bounds, const Scenario& scenario, std::uint64_t runs, std::uint64_t seed,
              Weakening weakening = {});

}  // namespace Scheduled

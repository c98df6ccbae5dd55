#include "Machine.h"

#include <ucontext.h>

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "Atomic.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

namespace Scheduled {

namespace {

Machine* running = nullptr;
constexpr std::uint64_t kMostLoads = 100000;  // of all readers of a run
constexpr std::size_t kStackBytes = std::size_t{1} << 20;

// Stacks live on from run to run.
std::vector<std::unique_ptr<std::byte[]>>& spareStacks() {
  static std::vector<std::unique_ptr<std::byte[]>> stacks;
  return stacks;
}
std::unique_ptr<std::byte[]> takeStack() {
  auto& spare = spareStacks();
  if (spare.empty()) return std::unique_ptr<std::byte[]>(new std::byte[kStackBytes]);
  auto stack = std::move(spare.back());
  spare.pop_back();
  return stack;
}

ucontext_t home;  // of who called run()

#ifdef __SANITIZE_ADDRESS__
const void* homeStack = nullptr;
std::size_t homeStackBytes = 0;
#endif

}  // namespace

struct Machine::Thread {
  std::function<void()> body;
  bool writes = false;
  bool done = false;
  bool dead = false;
  std::function<bool()> awaited;  // empty: it can go on
  std::unique_ptr<std::byte[]> stack;
  ucontext_t context{};
  void* fakeStack = nullptr;                            // the address sanitizer's
  std::uint64_t floor = 0;                              // all stores up to this one are known
  std::map<const std::uint64_t*, std::size_t> seen;     // in a word's history
  std::map<const std::uint64_t*, std::uint64_t> ghost;  // what a dead writer believes it stored
};

Machine::Machine(Path& path, const Bounds& bounds, const Weakening& weakening)
    : path_(path), left_(bounds), weakening_(weakening) {}

Machine::~Machine() {
  for (auto& thread : threads_) spareStacks().push_back(std::move(thread->stack));
}

void Machine::add(std::function<void()> body, bool writes) {
  auto thread = std::make_unique<Thread>();
  thread->body = std::move(body);
  thread->writes = writes;
  thread->stack = takeStack();
  ::getcontext(&thread->context);
  thread->context.uc_stack.ss_sp = thread->stack.get();
  thread->context.uc_stack.ss_size = kStackBytes;
  thread->context.uc_link = nullptr;
  ::makecontext(&thread->context, &Machine::enter, 0);
  threads_.push_back(std::move(thread));
}

void Machine::enter() {
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_finish_switch_fiber(nullptr, &homeStack, &homeStackBytes);
#endif
  running->body(*running->current_);
}

void Machine::body(Thread& thread) {
  try {
    thread.body();
  } catch (const std::exception& error) {
    expect(false, error.what());
  }
  thread.done = true;
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_start_switch_fiber(nullptr, homeStack, homeStackBytes);
#endif
  ::setcontext(&home);
}

void Machine::resume(Thread& thread) {
  current_ = &thread;
#ifdef __SANITIZE_ADDRESS__
  void* mine = nullptr;
  __sanitizer_start_switch_fiber(&mine, thread.stack.get(), kStackBytes);
#endif
  ::swapcontext(&home, &thread.context);
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_finish_switch_fiber(mine, nullptr, nullptr);
#endif
  current_ = nullptr;
}

void Machine::leave() {
  Thread& thread = *current_;
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_start_switch_fiber(&thread.fakeStack, homeStack, homeStackBytes);
#endif
  ::swapcontext(&thread.context, &home);
#ifdef __SANITIZE_ADDRESS__
  __sanitizer_finish_switch_fiber(thread.fakeStack, &homeStack, &homeStackBytes);
#endif
}

std::vector<Machine::Thread*> Machine::ready() const {
  std::vector<Thread*> ready;
  for (const auto& thread : threads_) {
    if (!thread->done && (!thread->awaited || thread->awaited())) ready.push_back(thread.get());
  }
  return ready;
}

Machine::Thread& Machine::chosen() {
  std::vector<Thread*> threads = ready();
  if (threads.empty()) {
    for (const auto& thread : threads_) thread->awaited = nullptr;
    threads = ready();
  }
  return *threads[threads.size() > 1 ? path_.choose(static_cast<unsigned>(threads.size())) : 0];
}

void Machine::run() {
  running = this;
  const auto left = [this] {
    return std::any_of(threads_.begin(), threads_.end(), [](const auto& each) { return !each->done; });
  };
  while (left()) {
    Thread& thread = next_ != nullptr ? *next_ : chosen();
    next_ = nullptr;
    resume(thread);
  }
  running = nullptr;
}

void Machine::mayBeInterrupted() {
  for (const auto& thread : threads_) {
    if (!thread->awaited || !thread->awaited()) continue;
    thread->awaited = nullptr;
    next_ = thread.get();
    return leave();
  }
  if (left_.preemptions == 0 || calm()) return;
  std::vector<Thread*> others = ready();
  std::erase(others, current_);
  if (others.empty()) return;
  const unsigned answer = path_.choose(static_cast<unsigned>(others.size()) + 1);
  if (answer == 0) return;
  --left_.preemptions;
  next_ = others[answer - 1];
  leave();
}

void Machine::expect(bool holds, const std::string& what) {
  if (!holds && failure_.empty()) failure_ = what + " (" + path_.text() + ")";
}

bool Machine::died() const {
  return current_->dead;
}

void Machine::succeed() {
  current_->dead = false;
  current_->ghost.clear();
}

void Machine::knows(std::uint64_t store) {
  current_->floor = std::max(current_->floor, store);
}

void Machine::awaits(std::function<bool()> condition) {
  current_->awaited = std::move(condition);
  leave();
  current_->awaited = nullptr;
}

std::uint64_t Machine::load(const std::uint64_t& word, std::memory_order order) {
  Thread& thread = *current_;
  if (thread.writes) {  // nobody else stores: it sees the newest
    const auto own = thread.ghost.find(&word);
    return own == thread.ghost.end() ? word : own->second;
  }
  if (++loads_ > kMostLoads) throw std::runtime_error("a reader does not come to its end");
  mayBeInterrupted();
  const auto found = histories_.find(&word);
  if (found == histories_.end()) return word;
  const History& history = found->second;
  std::size_t& seen = thread.seen[&word];
  if (weakening_.repeatedLooks && order == std::memory_order_relaxed) return history[seen].value;
  while (seen + 1 < history.size() && history[seen + 1].number <= thread.floor) ++seen;
  const auto choices = static_cast<unsigned>(history.size() - seen);
  unsigned odd = 0;
  if (choices > 1 && left_.oddLoads > 0) odd = path_.choose(choices);
  if (odd != 0) --left_.oddLoads;
  seen = left_.lazy ? seen + odd : history.size() - 1 - odd;
  const Stored& stored = history[seen];
  if (stored.release && order != std::memory_order_relaxed && !weakening_.relaxedLoads) {
    thread.floor = std::max(thread.floor, stored.number);
  }
  return stored.value;
}

void Machine::store(std::uint64_t& word, std::uint64_t value, std::memory_order order) {
  Thread& thread = *current_;
  if (!thread.dead) mayBeInterrupted();
  if (!thread.dead && left_.deaths > 0 && !calm() && path_.choose(2) == 1) {
    --left_.deaths;
    thread.dead = true;
  }
  if (thread.dead) {
    thread.ghost[&word] = value;
    return;
  }
  History& history = histories_[&word];
  if (history.empty()) history.push_back({word, 0, false});
  history.push_back({value, ++stores_, order != std::memory_order_relaxed && !weakening_.relaxedStores});
  word = value;
}

std::uint64_t load(const std::uint64_t& word, std::memory_order order) {
  return running == nullptr ? word : running->load(word, order);
}

void store(std::uint64_t& word, std::uint64_t value, std::memory_order order) {
  if (running == nullptr) {
    word = value;
  } else {
    running->store(word, value, order);
  }
}

Explored explore(const Bounds& bounds, const Scenario& scenario, std::uint64_t limit, Weakening weakening) {
  Explored explored;
  EveryPath path;
  while (explored.runs < limit) {
    Machine machine(path, bounds, weakening);
    scenario(machine);
    ++explored.runs;
    explored.failure = machine.failure();
    if (!explored.failure.empty()) return explored;
    if (!path.next()) {
      explored.all = true;
      return explored;
    }
  }
  return explored;
}

Explored draw(const Bounds& bounds, const Scenario& scenario, std::uint64_t runs, std::uint64_t seed,
              Weakening weakening) {
  Explored explored;
  while (explored.runs < runs && explored.failure.empty()) {
    DrawnPath path(seed + explored.runs);
    Machine machine(path, bounds, weakening);
    scenario(machine);
    ++explored.runs;
    explored.failure = machine.failure();
  }
  return explored;
}

}  // namespace Scheduled

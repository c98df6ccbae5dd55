// Writes the corpus of the state machine's target anew: make_state_machine_corpus FOLDER.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "NaiveHistory.h"

namespace {

using Naive::History;
using Naive::TableName;
using Kind = Naive::Operation::Kind;

// A history, one call after another.
class Story {
 public:
  explicit Story(bool six = false) : six_(six) {}

  Story& tasks() { return add(Kind::construct, 0, 0); }
  Story& synchronous() { return add(Kind::construct, 0, 1); }
  // With the waiting flows and the local counters of the one before.
  Story& tasksAgain() { return add(Kind::construct, 0, 6); }
  Story& synchronousAgain() { return add(Kind::construct, 0, 7); }
  Story& teardown() { return add(Kind::teardown, 0, 0); }
  Story& off() { return add(Kind::notificationsOff, 0, 0); }
  Story& want(unsigned key) { return add(Kind::configIs, key, 0); }
  Story& want(unsigned first, unsigned last) {
    for (unsigned key = first; key <= last; ++key) want(key);
    return *this;
  }
  Story& drop(unsigned key) { return add(Kind::configDel, key, 0); }
  Story& wantQuietly(unsigned key) { return add(Kind::configQuietly, key, 1); }
  Story& dropQuietly(unsigned key) { return add(Kind::configQuietly, key, 0); }
  Story& lookAgain() { return add(Kind::lookAgain, 0, 0); }
  Story& budget(unsigned flows) { return add(Kind::budgetIs, 0, flows); }
  Story& packet(unsigned key, unsigned size = 40) { return add(Kind::countPacket, key, size); }
  Story& work(unsigned entries, unsigned times = 1) {
    for (; times != 0; --times) add(Kind::work, 0, entries - 1);
    return *this;
  }
  Story& settle() { return add(Kind::settle, 0, 0); }
  Story& quarters(unsigned count) { return add(Kind::advance, 0, count - 1); }
  Story& damage(TableName table, unsigned key, unsigned state = 2) {
    return add(Kind::damage, key, static_cast<unsigned>(table) + 4 * (state - 1));
  }
  Story& left(TableName table, unsigned key, unsigned state = 2, unsigned count = 1) {
    return add(Kind::leftBehind, key, static_cast<unsigned>(table) - 1 + 4 * (state - 1) + 12 * count);
  }
  // The operations from here on are of the other family.
  Story& other() {
    six_ = !six_;
    return *this;
  }
  const History& history() const { return history_; }

 private:
  Story& add(Kind kind, unsigned key, unsigned value) {
    history_.push_back(
        {kind, static_cast<std::uint8_t>(key << 1 | (six_ ? 1U : 0U)), static_cast<std::uint8_t>(value)});
    return *this;
  }

  bool six_;
  History history_;
};

class Corpus {
 public:
  explicit Corpus(std::filesystem::path folder) : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
  }
  void put(const std::string& name, const Story& story) const {
    const auto bytes = Naive::encode(story.history());
    std::ofstream out(folder_ / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error((folder_ / name).string() + ": cannot be written");
  }

 private:
  std::filesystem::path folder_;
};

void admission(const Corpus& corpus) {
  corpus.put("empty", Story());
  corpus.put("start-over-nothing", Story().tasks().work(1, 12).quarters(4).settle());
  corpus.put("admitted", Story().budget(3).tasks().settle().want(0).want(4).want(8).settle());
  corpus.put("held-back", Story(true).budget(1).tasks().settle().want(0).want(4).want(8).settle());
  corpus.put("no-budget", Story().budget(0).synchronous().want(0, 3).drop(0).drop(1));
  corpus.put("promoted", Story().budget(1).synchronous().want(0).want(4).want(8).drop(0).drop(4).drop(8));
  corpus.put("promoted-all-at-once", Story(true).budget(0).synchronous().want(0, 6).budget(5).drop(6));
  corpus.put("promoted-without-config",
             Story().budget(0).synchronous().want(0, 4).damage(TableName::config, 2).budget(5).drop(4));
  corpus.put("state-to-and-fro",
             Story().budget(1).synchronous().want(0).budget(0).want(0).want(0).budget(2).want(0));
  corpus.put("references",
             Story(true).budget(5).synchronous().want(0, 3).drop(0).drop(1).packet(2).drop(2).drop(3));
  corpus.put("changed-and-kept", Story().budget(2).synchronous().want(0).quarters(3).want(0).drop(0).drop(0));
}

void scans(const Corpus& corpus) {
  corpus.put("wanted-before-the-start", Story().budget(3).want(0, 7).tasks().work(1, 20).settle());
  corpus.put("wanted-in-the-initial-scan",
             Story().budget(3).want(0, 4).tasks().work(2).want(5).drop(0).work(2).settle());
  corpus.put(
      "gone-in-the-scan",
      Story().budget(5).want(0, 7).tasks().work(4, 4).work(2).drop(0).drop(3).drop(7).work(2).settle());
  corpus.put("both-families",
             Story().budget(2).want(0, 3).other().want(0, 3).tasks().work(1, 14).other().drop(1).settle());
  corpus.put("budget-in-the-scan",
             Story().budget(1).want(0, 7).tasks().work(4, 4).budget(4).work(2).budget(0).settle());
  corpus.put("synchronous-over-wanted",
             Story().budget(3).want(0, 7).other().want(2, 5).synchronous().quarters(4).settle());
  corpus.put("off-in-the-scan",
             Story().want(0, 3).tasks().work(1, 5).off().want(4).work(1, 4).tasks().settle());
  corpus.put(
      "look-again",
      Story().budget(2).tasks().settle().want(0, 3).dropQuietly(0).wantQuietly(8).dropQuietly(3).lookAgain());
  corpus.put("look-again-in-the-scan", Story(true)
                                           .budget(2)
                                           .want(0, 5)
                                           .tasks()
                                           .work(4, 4)
                                           .work(2)
                                           .dropQuietly(1)
                                           .wantQuietly(9)
                                           .lookAgain()
                                           .dropQuietly(2)
                                           .synchronous()
                                           .dropQuietly(3)
                                           .lookAgain());
}

void polls(const Corpus& corpus) {
  corpus.put("counted",
             Story().budget(2).want(0).want(4).synchronous().packet(0).packet(4).quarters(4).settle());
  corpus.put("counted-without-a-record", Story().synchronous().packet(0).packet(4).quarters(5).settle());
  corpus.put("poll-in-pieces", Story()
                                   .budget(4)
                                   .tasks()
                                   .settle()
                                   .want(0)
                                   .want(4)
                                   .want(8)
                                   .packet(0)
                                   .packet(4)
                                   .packet(8)
                                   .packet(12)
                                   .quarters(4)
                                   .work(1, 2)
                                   .packet(12)
                                   .drop(4)
                                   .work(1, 6));
  corpus.put("timers-out-of-step", Story()
                                       .budget(4)
                                       .tasks()
                                       .settle()
                                       .want(0)
                                       .packet(0)
                                       .packet(4)
                                       .other()
                                       .packet(0)
                                       .packet(4)
                                       .quarters(4)
                                       .work(1, 3)
                                       .quarters(6)
                                       .work(1, 9)
                                       .quarters(8)
                                       .settle());
  corpus.put(
      "look-again-before-due-polls",
      Story().budget(4).want(4).tasks().packet(4, 51).settle().quarters(5).lookAgain().quarters(8).settle());
}

void restarts(const Corpus& corpus) {
  const Story busy =
      Story().budget(2).want(0, 4).other().want(0, 2).other().synchronous().packet(0).packet(4);
  corpus.put("again-with-everything", Story(busy).tasksAgain().work(1, 60).settle());
  corpus.put("again-at-once", Story(busy).drop(0).synchronousAgain().quarters(4).settle());
  corpus.put("again-after-changes", Story(busy).teardown().drop(0).drop(3).want(9).tasksAgain().settle());
  corpus.put("again-and-again",
             Story(busy).tasksAgain().work(1, 5).tasksAgain().work(1, 9).tasks().work(2, 12).settle());
  corpus.put("stale-outputs", Story()
                                  .left(TableName::status, 0)
                                  .left(TableName::status, 1)
                                  .left(TableName::status, 5, 3)
                                  .left(TableName::counter, 0)
                                  .left(TableName::counter, 8)
                                  .left(TableName::states, 0, 2, 3)
                                  .left(TableName::states, 0, 3, 1)
                                  .left(TableName::overflow, 5)
                                  .left(TableName::overflow, 6)
                                  .budget(4)
                                  .want(0)
                                  .want(9)
                                  .tasksAgain()
                                  .work(1, 50)
                                  .settle());
  corpus.put("counted-while-reconciling",
             Story(busy).tasksAgain().work(1, 9).packet(8).drop(0).work(1, 4).packet(0).work(1, 30));
}

void damages(const Corpus& corpus) {
  corpus.put("damaged-config",
             Story().budget(5).want(0, 9).damage(TableName::config, 3).tasks().settle().want(3).settle());
  corpus.put("damaged-status", Story()
                                   .budget(2)
                                   .synchronous()
                                   .want(0, 3)
                                   .damage(TableName::status, 0)
                                   .drop(0)
                                   .damage(TableName::status, 1)
                                   .want(1)
                                   .tasksAgain()
                                   .settle());
  corpus.put("damaged-counter", Story(true)
                                    .budget(4)
                                    .synchronous()
                                    .want(0, 3)
                                    .packet(0)
                                    .damage(TableName::counter, 0)
                                    .quarters(4)
                                    .settle()
                                    .drop(0)
                                    .drop(1));
  corpus.put("damaged-count", Story()
                                  .budget(2)
                                  .synchronous()
                                  .want(0, 3)
                                  .damage(TableName::states, 0, 2)
                                  .want(4)
                                  .damage(TableName::states, 0, 3)
                                  .drop(0)
                                  .synchronousAgain());
  corpus.put("damage-in-a-reconciliation", Story()
                                               .budget(5)
                                               .want(0, 7)
                                               .synchronous()
                                               .drop(2)
                                               .damage(TableName::status, 5)
                                               .damage(TableName::counter, 0)
                                               .tasksAgain()
                                               .work(1, 60)
                                               .settle());
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: make_state_machine_corpus FOLDER\n";
    return 2;
  }
  try {
    const Corpus corpus(std::filesystem::path(arguments[1]) / "state_machine");
    admission(corpus);
    scans(corpus);
    polls(corpus);
    restarts(corpus);
    damages(corpus);
  } catch (const std::exception& error) {
    std::cerr << "make_state_machine_corpus: " << error.what() << "\n";
    return 1;
  }
  return 0;
}

// The answers given to all that a run leaves open, one after the other: who goes on, which store a load sees,
// where a writer dies. Answer 0 is always the plain one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Scheduled {

class Path {
 public:
  virtual ~Path() = default;
  // REQUIRES: count > 1. An answer below count.
  virtual unsigned choose(unsigned count) = 0;
  virtual std::string text() const = 0;
};

// Every path, in order: the last answer that can be another one is, with each run.
class EveryPath final : public Path {
 public:
  unsigned choose(unsigned count) override {
    if (at_ == answers_.size()) answers_.push_back({0, count});
    return answers_[at_++].given;
  }
  // On to the next path. False when there is none left.
  bool next() {
    at_ = 0;
    while (!answers_.empty() && answers_.back().given + 1 == answers_.back().count) answers_.pop_back();
    if (answers_.empty()) return false;
    ++answers_.back().given;
    return true;
  }
  std::string text() const override {
    std::string text = "answers";
    for (std::size_t i = 0; i < answers_.size(); ++i) {
      if (answers_[i].given != 0) text += " " + std::to_string(i) + ":" + std::to_string(answers_[i].given);
    }
    return text;
  }

 private:
  struct Answer {
    unsigned given;
    unsigned count;
  };
  std::vector<Answer> answers_;
  std::size_t at_ = 0;
};

// Mostly plain answers, the others drawn.
class DrawnPath final : public Path {
 public:
  explicit DrawnPath(std::uint64_t seed) : seed_(seed), random_(seed) {}
  unsigned choose(unsigned count) override {
    if (random_() % kRarely != 0) return 0;
    return static_cast<unsigned>(random_() % count);
  }
  std::string text() const override { return "seed " + std::to_string(seed_); }

 private:
  static constexpr unsigned kRarely = 8;
  std::uint64_t seed_;
  std::mt19937_64 random_;
};

}  // namespace Scheduled

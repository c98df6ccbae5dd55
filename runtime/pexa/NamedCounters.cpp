#include "pexa/NamedCounters.h"

#include <cstddef>
#include <set>
#include <tuple>

namespace Pexa {
namespace {

// A reason by its texts, owned or only seen.
struct Seen {
  std::string_view category;
  std::string_view source;
  std::string_view reason;
};
Seen seen(const Seen& key) {
  return key;
}
Seen seen(const std::unique_ptr<NamedCounters::Count>& count) {
  return {count->category, count->source, count->reason};
}

struct Order {
  using is_transparent = void;
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    const Seen x = seen(a);
    const Seen y = seen(b);
    return std::tie(x.category, x.source, x.reason) < std::tie(y.category, y.source, y.reason);
  }
};

// Mixes where the texts stand and how long they are, which tells apart the texts of one reused buffer.
std::size_t placeOf(const Seen& key) {
  const auto bits = [](const void* address) { return reinterpret_cast<std::uintptr_t>(address); };
  std::uint64_t mixed = bits(key.reason.data()) + 31 * bits(key.category.data()) + 8191 * key.reason.size();
  mixed *= 0x9e3779b97f4a7c15U;
  return static_cast<std::size_t>(mixed >> 58);
}

}  // namespace

struct NamedCounters::Table {
  std::set<std::unique_ptr<Count>, Order> counts;

  Count* findOrAdd(const Seen& key) {
    auto found = counts.find(key);
    if (found == counts.end() && counts.size() >= kMostReasons) {
      const Seen other{key.category, key.source, kOtherReasons};
      found = counts.find(other);
      if (found == counts.end()) found = add(other);
    } else if (found == counts.end()) {
      found = add(key);
    }
    return found->get();
  }

 private:
  std::set<std::unique_ptr<Count>, Order>::iterator add(const Seen& key) {
    return counts
        .insert(std::make_unique<Count>(
            Count{std::string(key.category), std::string(key.source), std::string(key.reason), 0}))
        .first;
  }
};

NamedCounters::NamedCounters() : table_(std::make_unique<Table>()) {}
NamedCounters::~NamedCounters() = default;

void NamedCounters::count(std::string_view category, std::string_view source, std::string_view reason) {
  const Seen key{category, source, reason};
  Count*& cached = cache_[placeOf(key)];
  if (cached == nullptr || cached->reason != reason || cached->category != category ||
      cached->source != source) {
    cached = table_->findOrAdd(key);
  }
  ++cached->count;
}

std::vector<NamedCounters::Count> NamedCounters::all() const {
  std::vector<Count> result;
  for (const auto& count : table_->counts) result.push_back(*count);
  return result;
}

std::uint64_t NamedCounters::value(std::string_view category, std::string_view source,
                                   std::string_view reason) const {
  const auto found = table_->counts.find(Seen{category, source, reason});
  return found != table_->counts.end() ? (*found)->count : 0;
}

}  // namespace Pexa

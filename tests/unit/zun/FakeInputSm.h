// An input state machine over a set of numbers: its events are the numbers that it delivered.
#pragma once

#include <functional>
#include <set>
#include <vector>

#include "Zun.h"

namespace TestSupport {

class FakeInputSm : public Zun::InputSm {
 public:
  FakeInputSm(const Zun::SmControl& control, bool synchronous, std::set<int>& table)
      : InputSm("FakeInputScanTask", control, synchronous), table_(table) {}
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type = Kiv::TypeBuilder<FakeInputSm>("TestSupport::FakeInputSm").build();
    return type;
  }

  void doInputScan() override {
    ++scans;
    if (!active() || scanState() == Zun::InputScanState::complete) return;
    auto at = scanState() == Zun::InputScanState::resumed ? table_.upper_bound(last_) : table_.begin();
    for (unsigned done = 0; at != table_.end();) {
      last_ = *at;
      deliver(last_);
      ++done;
      at = table_.upper_bound(last_);
      if (at == table_.end() || !shouldYield()) continue;
      return yieldScan(done, static_cast<std::uint64_t>(std::distance(at, table_.end())));
    }
    pendingClear();
    scanStateIs(Zun::InputScanState::complete);
    scanTaskDel();
  }
  // A change of the table is told.
  void changed(int key) {
    notificationPending();
    if (active()) deliver(key);
  }

  // A change is told, and not yet delivered.
  void missed() { notificationPending(); }

  std::vector<int> delivered;
  unsigned scans = 0;
  std::function<void(int key)> during = [](int) {};

 private:
  void deliver(int key) {
    pendingClear();
    delivered.push_back(key);
    during(key);
  }

  std::set<int>& table_;
  int last_ = 0;
};

}  // namespace TestSupport

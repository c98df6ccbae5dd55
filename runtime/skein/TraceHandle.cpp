#include <atomic>

#include "Skein.h"

namespace Skein {

namespace {

// Stands in while the agent has no trace file: nothing is enabled, so nothing is written.
class NoTrace : public TraceHandle {
 public:
  void write(const CallSite&, std::string_view, std::string_view) override {}
  void categoryLevelIs(std::string_view, int) override {}

 protected:
  bool isEnabled(const CallSite&, bool) const override { return false; }
};

NoTrace& noTrace() {
  static NoTrace trace;
  return trace;
}

std::atomic<TraceHandle*> shared{nullptr};

}  // namespace

std::uint32_t CallSite::allocateId() const {
  static std::atomic<std::uint32_t> last{0};
  const std::uint32_t mine = last.fetch_add(1, std::memory_order_relaxed) + 1;
  std::uint32_t none = 0;
  return id_.compare_exchange_strong(none, mine, std::memory_order_relaxed) ? mine : none;
}

TraceHandle& agentTraceHandle() {
  TraceHandle* handle = shared.load(std::memory_order_acquire);
  // cppcheck-suppress returnTempReference; both are references to what lives on
  return handle != nullptr ? *handle : noTrace();
}

TraceHandle* agentTraceHandleIs(TraceHandle* handle) {
  return shared.exchange(handle, std::memory_order_acq_rel);
}

}  // namespace Skein

// Shows on a terminal how far the replays are, and nothing anywhere else.
#pragma once

#include "AgentPorts.h"
#include "Work.h"

namespace Pexa {

class ReplayProgress : public Work {
 public:
  static constexpr double kInterval = 0.2;  // seconds

  explicit ReplayProgress(const AgentPorts& ports);
  ~ReplayProgress() override;
  std::string_view name() const override { return "progress"; }
  double next() const override { return next_; }
  // Never due again when nobody watches, or no capture is being replayed.
  void run(double now, double slice) override;

 private:
  const AgentPorts& ports_;
  double next_ = kNever;
};

}  // namespace Pexa

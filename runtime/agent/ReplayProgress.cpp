#include "ReplayProgress.h"

#include <fmt/format.h>

#include "Kiv.h"
#include "terminal/Progress.h"

namespace Pexa {
namespace {

// "Ethernet1 25 %, 1200 packets", one after another.
std::string progressLine(const AgentPorts& ports) {
  std::string line = "replay:";
  std::string_view before = " ";
  for (const AgentPort& port : ports.all()) {
    if (port.device->replayState() != Capture::ReplayState::running) continue;
    line += fmt::format("{}{} {:.0f} %, {} packets", before, port.port->name(), 100 * port.device->replayed(),
                        port.device->counts().packetsIn);
    before = "; ";
  }
  return line;
}

}  // namespace

ReplayProgress::ReplayProgress(const AgentPorts& ports) : ports_(ports) {
  if (Terminal::watched()) next_ = Kiv::System::currentTimeUtc() + kInterval;
}

ReplayProgress::~ReplayProgress() {
  Terminal::clearProgress();
}

void ReplayProgress::run(double now, double /*slice*/) {
  if (!ports_.replaying()) {
    next_ = kNever;
    return Terminal::clearProgress();
  }
  Terminal::showProgress(progressLine(ports_));
  next_ = now + kInterval;
}

}  // namespace Pexa

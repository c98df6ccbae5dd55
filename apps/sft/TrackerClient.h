// Asks the flow tracker that runs in a run directory (tracker/TrackerRequests.h has the requests).
#pragma once

#include "ControlClient.h"

namespace Sft {

class TrackerClient : public ControlClient {
 public:
  // Throws NobodyAnswers when no tracker serves the run directory.
  explicit TrackerClient(const std::filesystem::path& runDir)
      : ControlClient(runDir / "flow-tracker.sock", "flow tracker", "a running flow-tracker (--run-dir?)") {}
};

}  // namespace Sft

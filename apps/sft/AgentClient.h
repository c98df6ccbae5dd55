// Asks the agent that runs in a run directory.
#pragma once

#include "ControlClient.h"

namespace Sft {

class AgentClient : public ControlClient {
 public:
  // Throws NobodyAnswers when no agent serves the run directory.
  explicit AgentClient(const std::filesystem::path& runDir)
      : ControlClient(runDir / "control.sock", "agent", "a running pexa-agent (--run-dir?)") {}
};

}  // namespace Sft

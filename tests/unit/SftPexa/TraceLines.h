// The state machine's trace, written down line by line.
#pragma once

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

#include "KivTrace.h"
#include "SftPexa/SmTrace.h"

namespace SampledFlowTracker {

struct TraceLine {
  unsigned level;
  std::string handler;
  std::string text;
  bool operator==(const TraceLine&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const TraceLine& line) {
  return out << "{" << line.level << ", \"" << line.handler << "\", \"" << line.text << "\"}";
}

// Takes the process's text trace while it lives, with the state machine's levels on up to `level`.
class TraceLines : public Kiv::TraceSink {
 public:
  explicit TraceLines(int level = 9) : former_(Kiv::traceSinkIs(this)) {
    Kiv::TraceHandle::levelIs(SmTrace::kName, level);
  }
  ~TraceLines() override {
    Kiv::TraceHandle::levelIs(SmTrace::kName, -1);
    Kiv::traceSinkIs(former_);
  }
  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  void write(const Kiv::TraceRecord& record) override {
    if (record.handle != SmTrace::kName) return;
    lines.push_back({record.level, std::string(record.function), std::string(record.text)});
  }
  // Lines since the last time.
  std::vector<TraceLine> take() { return std::exchange(lines, {}); }
  // The texts that begin so.
  std::vector<std::string> starting(std::string_view start) const {
    std::vector<std::string> texts;
    for (const TraceLine& line : lines) {
      if (line.text.starts_with(start)) texts.push_back(line.text);
    }
    return texts;
  }
  // The texts of one handler.
  std::vector<std::string> of(std::string_view handler) const {
    std::vector<std::string> texts;
    for (const TraceLine& line : lines) {
      if (line.handler == handler) texts.push_back(line.text);
    }
    return texts;
  }

  std::vector<TraceLine> lines;

 private:
  Kiv::TraceSink* former_;
};

}  // namespace SampledFlowTracker

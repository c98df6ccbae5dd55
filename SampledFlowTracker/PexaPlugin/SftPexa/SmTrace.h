// The traces of the state machine: one line a statement, at the statement's level, when that level is on.
//
// Levels: 3 what an operator may want to know, 6 filters and flattenings, 7 statements and writes, 8 keys of
// the scan, 9 the frame and each element. Switched by `sft trace level SftPexaFtHOCSM 7`; lines go to the
// agent's log, and to the trace ring once a ring handle was given.
#pragma once

#include <fmt/format.h>

#include <memory>
#include <string_view>

#include "DrovaPrint.h"
#include "Fenn.h"
#include "Kiv.h"
#include "Skein.h"

namespace SampledFlowTracker {

class SmTrace {
 public:
  static constexpr std::string_view kName = "SftPexaFtHOCSM";
  // Levels by what is traced.
  static constexpr unsigned kUnmatched = 3, kFilter = 6, kFlatten = 6, kStatement = 7, kKey = 8, kFrame = 9,
                            kElement = 9;

  SmTrace();
  bool enabled(unsigned level) const { return debug_->enabled(level) || handle_.enabled(level); }
  // Null: no ring.
  void skeinHandleIs(Skein::TraceHandle* handle) { ring_ = handle; }

  // Traces a text, its "{}" filled with the values, under the name of the handler that traces. Nothing is
  // formatted while the level is off.
  template <class... Values>
  void operator()(unsigned level, std::string_view handler, std::string_view text,
                  const Values&... values) const {
    if (!enabled(level)) [[likely]]
      return;
    write(level, handler, fmt::format(fmt::runtime(text), drovaText(values)...));
  }

 private:
  void write(unsigned level, std::string_view handler, std::string_view text) const;

  std::shared_ptr<Fenn::DebugHandler> debug_;
  Kiv::TraceHandle handle_;
  Skein::TraceHandle* ring_ = nullptr;
};

}  // namespace SampledFlowTracker

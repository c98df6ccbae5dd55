// What the audit does by itself: the entity "flowtracking/audit/sampled" of the state database.
//
//   [state."flowtracking/audit/sampled"]
//   afterRestart = "report"         # or "repair", or "off"
//
// Neighbours: SftPexaAudit.h mounts it and reads it when the state machine has become ready; a change after
// that matters with the next start. Threading: the agent's event thread.
#pragma once

#include <cstdint>

#include "Kiv.h"

namespace SampledFlowTracker {

// What follows once a started state machine is ready.
enum class AfterRestart : std::uint8_t { off, report, repair };

class AuditConfig : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId { afterRestartAttr = 1 };
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  AfterRestart afterRestart() const { return afterRestart_; }
  void afterRestartIs(AfterRestart value) { attributeIs(afterRestart_, value, afterRestartAttr); }

 private:
  AfterRestart afterRestart_ = AfterRestart::report;  // changes nothing
};

}  // namespace SampledFlowTracker

namespace Kiv {

// "off", "report", "repair".
template <>
struct ValueTraits<SampledFlowTracker::AfterRestart> {
  static constexpr std::string_view kTypeName = "string";
  static Value toValue(SampledFlowTracker::AfterRestart value);
  static SampledFlowTracker::AfterRestart fromValue(const Value& value);
};

}  // namespace Kiv

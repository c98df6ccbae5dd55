// One audit of both families, IPv4 first, in slices of a task.
//
// It holds what it looks at while it runs and lets go of it at the end. Neighbours: SftPexaAudit.h starts it
// and gives it its slices. Threading: the agent's event thread.
#pragma once

#include <memory>

#include "FamilyAudit.h"

namespace SampledFlowTracker {

class AuditRun {
 public:
  // With `repair` differences are repaired where they can be; with `keeps` findings are kept to be taken.
  AuditRun(Audited audited, bool repair, bool keeps);
  AuditRun(const AuditRun&) = delete;
  AuditRun& operator=(const AuditRun&) = delete;

  // One slice. What an entity of the tracker throws is passed on. REQUIRES: the last one has not ended the
  // run, and nothing was released.
  AuditProgress slice(const Olt::Task& task);
  // Lets go of everything but the findings; no slice follows.
  void release();

  bool repair() const { return repair_; }
  Findings& findings() { return findings_; }
  const Findings& findings() const { return findings_; }
  // Entries examined, and statuses among them, of the families that are done.
  std::uint64_t examined() const { return examined_; }
  std::uint64_t statuses() const { return statuses_; }

 private:
  template <class Domain>
  AuditProgress familySlice(std::unique_ptr<FamilyAudit<Domain>>& family, const Olt::Task& task);

  Audited audited_;
  const bool repair_;
  Findings findings_;
  std::unique_ptr<FamilyAudit<Pavo::Traits::IPv4>> family4_;
  std::unique_ptr<FamilyAudit<Pavo::Traits::IPv6>> family6_;
  std::uint64_t examined_ = 0;
  std::uint64_t statuses_ = 0;
};

}  // namespace SampledFlowTracker

#include "AuditRun.h"

namespace SampledFlowTracker {

AuditRun::AuditRun(Audited audited, bool repair, bool keeps)
    : audited_(std::move(audited)),
      repair_(repair),
      findings_(keeps),
      family4_(std::make_unique<FamilyAudit<Pavo::Traits::IPv4>>(audited_, repair_, findings_)) {}

AuditProgress AuditRun::slice(const Olt::Task& task) {
  if (family4_) {
    const AuditProgress progress = familySlice(family4_, task);
    if (progress != AuditProgress::ended) return progress;
    family6_ = std::make_unique<FamilyAudit<Pavo::Traits::IPv6>>(audited_, repair_, findings_);
    if (task.taskShouldYield()) return AuditProgress::yields;
  }
  return familySlice(family6_, task);
}

void AuditRun::release() {
  family4_.reset();
  family6_.reset();
  audited_ = {};
}

template <class Domain>
AuditProgress AuditRun::familySlice(std::unique_ptr<FamilyAudit<Domain>>& family, const Olt::Task& task) {
  const std::uint64_t before = family->examined();
  const AuditProgress progress = family->slice(task);
  examined_ += family->examined() - before;
  if (progress == AuditProgress::ended) {
    statuses_ += family->statuses();
    family.reset();
  }
  return progress;
}

}  // namespace SampledFlowTracker

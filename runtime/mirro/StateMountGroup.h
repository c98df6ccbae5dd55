// The mounts of one mounter, collected until the database resolves them together.
#pragma once

#include <vector>

#include "Mirro.h"

namespace Mirro {

// A passive list: the database that made it does the mounting (StateDatabase::completeMounts), so a group may
// outlive its database.
class StateMountGroup : public MountGroup {
 public:
  // Keeps the mounter alive for as long as the group is waiting to complete.
  explicit StateMountGroup(Mounter* mounter) : mounter_(mounter) {}
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // REQUIRES: the group is not closed.
  void doMount(const Mount& mount) override;
  // Nothing here comes from another machine, so there is nothing to wait for: the arguments have no effect.
  void doClose(bool blocking, const Kiv::String& tag, double seconds) override;

  const Kiv::Ptr<Mounter>& mounter() const { return mounter_; }
  const std::vector<Mount>& mounts() const { return mounts_; }
  bool closed() const { return closed_; }

 private:
  Kiv::Ptr<Mounter> mounter_;
  std::vector<Mount> mounts_;
  bool closed_ = false;
};

}  // namespace Mirro

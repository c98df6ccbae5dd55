// The central state database: entities under paths, mounted in groups, with access flags.
//
// A mount names a path, the type of the entity there, and flags: "r" to read it, "w" to write it; a "c"
// behind it creates the entity, with its defaults or the values that the configuration has for it, when
// nobody has.
#pragma once

#include <string_view>
#include <vector>

#include "Kiv.h"

namespace Mirro {

class Mount {
 public:
  Mount(Kiv::String path, Kiv::String typeName, Kiv::String flags)
      : path_(std::move(path)), typeName_(std::move(typeName)), flags_(std::move(flags)) {}
  const Kiv::String& path() const { return path_; }
  const Kiv::String& typeName() const { return typeName_; }
  const Kiv::String& flags() const { return flags_; }
  bool operator==(const Mount&) const = default;

 private:
  Kiv::String path_;
  Kiv::String typeName_;
  Kiv::String flags_;
};

// What became of a mount group.
struct MountStatus {
  struct Failure {
    Mount mount;
    Kiv::String reason;
  };
  std::vector<Failure> failures;  // empty: every mount was done
};

class EntityManager;

// Who mounts: the mount group tells it when all of its mounts are done.
class Mounter : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  Kiv::NotifieeList* notifieeList() const override;
  const Kiv::String& name() const override;
  // Called once when the group has completed. The base calls doMountsComplete.
  virtual void doMirroMountsComplete(const Kiv::Ptr<EntityManager>& entityManager);
  virtual void doMountsComplete(const Kiv::Ptr<EntityManager>& entityManager) = 0;
  // Told of the group's outcome before it is told of its completion. The base logs each failure.
  virtual void handleMountStatus(const MountStatus& status);
};

// Mounts that complete together. Abstract so that a test can record them.
class MountGroup : public Kiv::PtrInterface {
 public:
  // Adds a mount. Throws Kiv::TypeError on flags other than "r", "w", "rc" and "wc".
  virtual void doMount(const Mount& mount) = 0;
  // Ends the group; completion is reported to the mounter later, from the agent. The arguments are for mounts
  // that wait: whether to block, a tag for the log, and how long, in seconds. 0 does not wait.
  virtual void doClose(bool blocking, const Kiv::String& tag, double seconds) = 0;
};

class EntityManager : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  // The mounter's open group; a new one when it has none.
  virtual Kiv::Ptr<MountGroup> getMountGroup(Mounter* mounter) = 0;
  // The entity at a path, or empty.
  virtual Kiv::Ptr<Kiv::Entity> getEntity(std::string_view path) const = 0;
};

}  // namespace Mirro

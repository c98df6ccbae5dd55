// The agent's state database: entities under paths, built from configuration and mounts.
//
// Life of the database, in the agent's order:
//
//   configurationIs(...)   what the operator configured, path by path
//   entityIs(...)          the entities that the agent itself owns
//   (plugins mount)        getMountGroup, doMount, doClose: only recorded
//   completeMounts()       entities come to be, groups are told; again while it answers true
//   checkConfiguration()   nothing that was configured went unused
//   set(), get()           while the agent runs
//   clear()                before the libraries that hold the entities' types are unloaded
//
// Neighbours: Configuration.h has the configured values; runtime/agent reads them from its file and answers
// `sft state` from here.
// Threading: the agent's event thread.
#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "Mirro.h"
#include "mirro/Configuration.h"
#include "mirro/StateMountGroup.h"

namespace Mirro {

// What a mount does:
//
//   flags     entity is there            absent, but configured or "c"       absent
//   r, rc     its type must be right     built from its type name, with      stays absent (r)
//   w, wc     its type must be right     the configured values               a failure (w)
//
// A wrong type, an unknown type name, or a type that cannot be built from a path is a failure of that mount.
// A mount for reading does not keep its mounter from writing: the entities are shared, and whoever has one
// can change it; the flags say what is meant, and const references keep to it.
class StateDatabase : public EntityManager {
 public:
  explicit StateDatabase(Kiv::String name);
  ~StateDatabase() override;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  Kiv::Ptr<MountGroup> getMountGroup(Mounter* mounter) override;
  Kiv::Ptr<Kiv::Entity> getEntity(std::string_view path) const override;

  // Remembers values for the entity that will come to be at a path; a path may be given without any. All of
  // them are applied when it does, before anyone sees it. REQUIRES: the path has neither configuration nor an
  // entity yet.
  void configurationIs(const Kiv::String& path, std::vector<ConfiguredValue> values,
                       const Kiv::String& file = {}, unsigned line = 0);

  // Puts an entity at a path, with the values configured for it.
  // REQUIRES: there is none at the path. Throws ConfigurationError on a value that the entity does not take;
  // the entity is not put in then.
  void entityIs(const Kiv::String& path, const Kiv::Ptr<Kiv::Entity>& entity);
  // Builds an entity from its registered type name and puts it at a path, likewise.
  // Throws Kiv::TypeError when the type is unknown or cannot be built from a path alone.
  Kiv::Ptr<Kiv::Entity> entityIs(const Kiv::String& path, std::string_view typeName);

  // Does the mounts of all groups closed so far: first whatever creates an entity, then the rest, so that one
  // group finds what another one creates. Then tells each mounter, in the order of their groups,
  // its status and its completion. Groups that are closed meanwhile wait for the next call. False when there
  // was no group to complete. Throws ConfigurationError on a configured value that its entity does not take.
  // No mounter has been told then, and the groups wait on.
  bool completeMounts();

  // The mounts of completed groups that could not be done, with the reasons that their mounters were told.
  const std::vector<MountStatus::Failure>& failedMounts() const { return failedMounts_; }

  // Throws ConfigurationError when a configured path never came to be: nobody mounts it. The text lists the
  // paths that are known.
  void checkConfiguration() const;

  // Reads and changes one attribute by name; a change reaches the entity's reactors before this returns.
  // Throws Kiv::TypeError (unknown path or attribute, an attribute that cannot be written) or Kiv::ValueError
  // (a value of the wrong type), with path and attribute in the text; nothing is changed then.
  Kiv::Value get(std::string_view path, std::string_view attribute) const;
  void set(std::string_view path, std::string_view attribute, const Kiv::Value& value);

  // Every path with an entity, in alphabetical order.
  std::vector<Kiv::String> paths() const;
  // Every attribute of the entity at a path with its value, in the order of its type. Throws Kiv::TypeError.
  Kiv::Value::Object attributes(std::string_view path) const;

  // Drops all entities, groups and configuration.
  void clear();

 private:
  using Failures = std::vector<MountStatus::Failure>;

  Kiv::Entity& existing(std::string_view path) const;
  bool shouldCreate(const Mount& mount) const;
  void create(const Mount& mount, Failures& failures);
  void verify(const Mount& mount, Failures& failures) const;
  void configure(const Kiv::String& path, Kiv::Entity& entity);

  std::map<Kiv::String, Kiv::Ptr<Kiv::Entity>, std::less<>> entities_;
  std::map<Kiv::String, ConfiguredEntity, std::less<>> configuration_;
  std::vector<Kiv::Ptr<StateMountGroup>> groups_;  // open, or closed and waiting
  std::vector<MountStatus::Failure> failedMounts_;
};

}  // namespace Mirro

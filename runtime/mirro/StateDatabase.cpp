#include "mirro/StateDatabase.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace Mirro {

namespace {

bool isOfType(const Kiv::Entity& entity, std::string_view typeName) {
  for (const Kiv::Type* type = &entity.fwkType(); type != nullptr; type = type->base()) {
    if (type->name() == typeName) return true;
  }
  return false;
}

// Paths are few: whoever mistyped one is shown them all.
template <class Map>
Kiv::String keysOf(const Map& map) {
  std::vector<std::string_view> keys;
  for (const auto& [key, value] : map) keys.push_back(key);
  return keys.empty() ? "none" : fmt::format("{}", fmt::join(keys, ", "));
}

Kiv::String place(const Kiv::String& file, unsigned line) {
  if (file.empty()) return {};
  return line == 0 ? file + ": " : fmt::format("{}:{}: ", file, line);
}

// Builds an entity from its type name. Throws Kiv::TypeError.
Kiv::Ptr<Kiv::Entity> build(const Kiv::String& path, std::string_view typeName) {
  const Kiv::Type* type = Kiv::typeByName(typeName);
  if (type == nullptr) throw Kiv::TypeError(fmt::format("the type {} is not known", typeName));
  auto entity = Kiv::ptrCast<Kiv::Entity>(type->construct({path}));
  if (!entity) throw Kiv::TypeError(fmt::format("{} is no entity type", typeName));
  return entity;
}

}  // namespace

StateDatabase::StateDatabase(Kiv::String name) : EntityManager(std::move(name)) {}

StateDatabase::~StateDatabase() {
  clear();
}

const Kiv::Type& StateDatabase::kivType() {
  static const Kiv::Type type = Kiv::TypeBuilder<StateDatabase>("Mirro::StateDatabase").build();
  return type;
}

Kiv::Ptr<MountGroup> StateDatabase::getMountGroup(Mounter* mounter) {
  for (const auto& group : groups_) {
    if (group->mounter().get() == mounter && !group->closed()) return group;
  }
  groups_.push_back(Kiv::makePtr<StateMountGroup>(mounter));
  return groups_.back();
}

Kiv::Ptr<Kiv::Entity> StateDatabase::getEntity(std::string_view path) const {
  const auto at = entities_.find(path);
  return at == entities_.end() ? Kiv::Ptr<Kiv::Entity>() : at->second;
}

void StateDatabase::configurationIs(const Kiv::String& path, std::vector<ConfiguredValue> values,
                                    const Kiv::String& file, unsigned line) {
  assert(!entities_.contains(path) && "configured after its entity came to be");
  [[maybe_unused]] const bool isNew =
      configuration_.emplace(path, ConfiguredEntity{std::move(values), file, line}).second;
  assert(isNew && "configured twice");
}

void StateDatabase::entityIs(const Kiv::String& path, const Kiv::Ptr<Kiv::Entity>& entity) {
  assert(entity);
  assert(!entities_.contains(path) && "there is an entity at the path");
  configure(path, *entity);
  entities_.emplace(path, entity);
}

Kiv::Ptr<Kiv::Entity> StateDatabase::entityIs(const Kiv::String& path, std::string_view typeName) {
  auto entity = build(path, typeName);
  entityIs(path, entity);
  return entity;
}

void StateDatabase::configure(const Kiv::String& path, Kiv::Entity& entity) {
  const auto at = configuration_.find(path);
  if (at == configuration_.end()) return;
  for (const ConfiguredValue& configured : at->second.values) {
    try {
      Kiv::attributeIs(entity, configured.attribute, configured.value);
    } catch (const std::runtime_error& error) {
      throw ConfigurationError(
          fmt::format("{}state \"{}\": {}", place(configured.file, configured.line), path, error.what()));
    }
  }
  at->second.applied = true;
}

bool StateDatabase::shouldCreate(const Mount& mount) const {
  if (entities_.contains(mount.path())) return false;
  return mount.flags().ends_with('c') || configuration_.contains(mount.path());
}

void StateDatabase::create(const Mount& mount, Failures& failures) {
  try {
    entityIs(mount.path(), mount.typeName());
  } catch (const Kiv::TypeError& error) {
    failures.push_back({mount, error.what()});
  }
}

void StateDatabase::verify(const Mount& mount, Failures& failures) const {
  const auto entity = getEntity(mount.path());
  if (!entity) {
    if (mount.flags() != "r") failures.push_back({mount, "there is no entity at this path"});
  } else if (!isOfType(*entity, mount.typeName())) {
    failures.push_back({mount, fmt::format("the entity there is of type {}", entity->fwkType().name())});
  }
}

bool StateDatabase::completeMounts() {
  struct Outcome {
    Kiv::Ptr<StateMountGroup> group;
    MountStatus status;
  };
  std::vector<Outcome> outcomes;
  for (const auto& group : groups_) {
    if (group->closed()) outcomes.push_back({group, {}});
  }
  for (Outcome& outcome : outcomes) {
    for (const Mount& mount : outcome.group->mounts()) {
      if (shouldCreate(mount)) create(mount, outcome.status.failures);
    }
  }
  for (Outcome& outcome : outcomes) {
    Failures& failures = outcome.status.failures;
    for (const Mount& mount : outcome.group->mounts()) {
      const bool failed = std::any_of(failures.begin(), failures.end(),
                                      [&](const auto& failure) { return failure.mount == mount; });
      if (!failed) verify(mount, failures);
    }
  }
  std::erase_if(groups_, [](const auto& group) { return group->closed(); });

  const Kiv::Ptr<EntityManager> self(this);
  for (const Outcome& outcome : outcomes) {
    const Failures& failures = outcome.status.failures;
    failedMounts_.insert(failedMounts_.end(), failures.begin(), failures.end());
    outcome.group->mounter()->handleMountStatus(outcome.status);
    outcome.group->mounter()->doMirroMountsComplete(self);
  }
  return !outcomes.empty();
}

void StateDatabase::checkConfiguration() const {
  for (const auto& [path, configured] : configuration_) {
    if (configured.applied) continue;
    throw ConfigurationError(fmt::format("{}state \"{}\": no plugin mounts this path; known paths: {}",
                                         place(configured.file, configured.line), path, keysOf(entities_)));
  }
}

Kiv::Entity& StateDatabase::existing(std::string_view path) const {
  const auto at = entities_.find(path);
  if (at == entities_.end()) {
    throw Kiv::TypeError(fmt::format("state \"{}\": no such path; there are: {}", path, keysOf(entities_)));
  }
  return *at->second;
}

Kiv::Value StateDatabase::get(std::string_view path, std::string_view attribute) const {
  const Kiv::Entity& entity = existing(path);
  try {
    return Kiv::attribute(entity, attribute);
  } catch (const Kiv::TypeError& error) {
    throw Kiv::TypeError(fmt::format("state \"{}\": {}", path, error.what()));
  }
}

void StateDatabase::set(std::string_view path, std::string_view attribute, const Kiv::Value& value) {
  const Kiv::Ptr<Kiv::Entity> entity(&existing(path));  // a reactor may clear the database
  try {
    Kiv::attributeIs(*entity, attribute, value);
  } catch (const Kiv::TypeError& error) {
    throw Kiv::TypeError(fmt::format("state \"{}\": {}", path, error.what()));
  } catch (const Kiv::ValueError& error) {
    throw Kiv::ValueError(fmt::format("state \"{}\": {}", path, error.what()));
  }
}

std::vector<Kiv::String> StateDatabase::paths() const {
  std::vector<Kiv::String> paths;
  for (const auto& [path, entity] : entities_) paths.push_back(path);
  return paths;
}

Kiv::Value::Object StateDatabase::attributes(std::string_view path) const {
  const Kiv::Entity& entity = existing(path);
  Kiv::Value::Object object;
  for (const Kiv::Type::Attribute* attribute : entity.fwkType().attributes()) {
    object.emplace_back(attribute->name, attribute->get(entity));
  }
  return object;
}

void StateDatabase::clear() {
  groups_.clear();
  configuration_.clear();
  failedMounts_.clear();
  // Swapped out first: whoever goes with an entity finds the database empty, not half gone.
  decltype(entities_) released;
  released.swap(entities_);
}

namespace {
const Kiv::Module kModule("Mirro::StateDatabase", {&StateDatabase::kivType()});
}

}  // namespace Mirro

#include <spdlog/spdlog.h>

#include "Mirro.h"

namespace Mirro {

Kiv::NotifieeList* Mounter::notifieeList() const {
  return Kiv::Entity::notifieeList();
}

const Kiv::String& Mounter::name() const {
  return Kiv::Entity::name();
}

void Mounter::doMirroMountsComplete(const Kiv::Ptr<EntityManager>& entityManager) {
  doMountsComplete(entityManager);
}

void Mounter::handleMountStatus(const MountStatus& status) {
  for (const MountStatus::Failure& failure : status.failures) {
    spdlog::error("{}: cannot mount \"{}\" as {} with flags \"{}\": {}", name(), failure.mount.path(),
                  failure.mount.typeName(), failure.mount.flags(), failure.reason);
  }
}

}  // namespace Mirro

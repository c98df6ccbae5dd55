// A mounter that writes down what the state database tells it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Mirro.h"

namespace Mirro {

class RecordingMounter : public Mounter {
 public:
  using Mounter::Mounter;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<RecordingMounter>("RecordingMounter").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }

  void doMountsComplete(const Kiv::Ptr<EntityManager>& entityManager) override {
    events.emplace_back("complete");
    if (log != nullptr) log->push_back(name() + " complete");
    if (whenComplete) whenComplete(*entityManager);
  }
  void handleMountStatus(const MountStatus& status) override {
    events.emplace_back("status");
    if (log != nullptr) log->push_back(name() + " status");
    failures = status.failures;
  }
  // Mounts one path in a group of its own and closes it.
  void mount(EntityManager& database, const Kiv::String& path, const Kiv::String& type,
             const Kiv::String& flags) {
    const auto group = database.getMountGroup(this);
    group->doMount(Mount(path, type, flags));
    group->doClose(false, "", 0);
  }

  std::vector<std::string> events;
  std::vector<MountStatus::Failure> failures;
  std::vector<std::string>* log = nullptr;
  std::function<void(EntityManager&)> whenComplete;
};

}  // namespace Mirro

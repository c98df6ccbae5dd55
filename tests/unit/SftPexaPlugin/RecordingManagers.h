// An entity manager and a table manager that write down what is mounted, in the order of the calls over both.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "KivSharedMem.h"
#include "Mirro.h"

namespace SampledFlowTracker {

struct MountCall {
  enum class Kind { group, database, sharedTable, close };
  Kind kind;
  std::string path = {};
  std::string typeName = {};
  std::string flags = {};
  int tableKind = -1;
  std::vector<KivQuell::CollectionInfo> collections = {};
  bool operator==(const MountCall&) const = default;
};

class RecordingMountGroup : public Mirro::MountGroup {
 public:
  explicit RecordingMountGroup(std::vector<MountCall>& calls) : calls_(calls) {}
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<RecordingMountGroup>("RecordingMountGroup").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  void doMount(const Mirro::Mount& mount) override {
    calls_.push_back({MountCall::Kind::database, mount.path(), mount.typeName(), mount.flags()});
  }
  void doClose(bool blocking, const Kiv::String& tag, double seconds) override {
    if (!blocking && tag.empty() && seconds == 0) calls_.push_back({MountCall::Kind::close});
  }

 private:
  std::vector<MountCall>& calls_;
};

class RecordingDatabase : public Mirro::EntityManager {
 public:
  explicit RecordingDatabase(std::vector<MountCall>& calls) : EntityManager("state"), calls_(calls) {}
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<RecordingDatabase>("RecordingDatabase").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  Kiv::Ptr<Mirro::MountGroup> getMountGroup(Mirro::Mounter* mounter) override {
    calls_.push_back({MountCall::Kind::group, mounter->name()});
    return Kiv::makePtr<RecordingMountGroup>(calls_);
  }
  Kiv::Ptr<Kiv::Entity> getEntity(std::string_view path) const override {
    lookUps.emplace_back(path);
    const auto at = entities.find(path);
    return at == entities.end() ? Kiv::Ptr<Kiv::Entity>() : at->second;
  }
  std::map<std::string, Kiv::Ptr<Kiv::Entity>, std::less<>> entities;
  mutable std::vector<std::string> lookUps;

 private:
  std::vector<MountCall>& calls_;
};

// Holds the tables it is asked to mount, without files behind them.
class RecordingTables : public KivSharedMem::EntityManager {
 public:
  explicit RecordingTables(std::vector<MountCall>* calls = nullptr)
      : EntityManager("tables"), calls_(calls) {}
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<RecordingTables>("RecordingTables").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  Kiv::Ptr<Quell::Container> doMount(const Kiv::String& path, const Kiv::String& typeName,
                                     const KivQuell::MountInfo& info) override {
    if (calls_ != nullptr) {
      calls_->push_back({MountCall::Kind::sharedTable, path, typeName, "", static_cast<int>(info.kind()),
                         info.collectionInfo()});
    }
    const Kiv::Type* type = Kiv::typeByName(typeName);
    if (type == nullptr) throw Kiv::TypeError(typeName + " is not registered");
    tables[path] = Kiv::ptrCast<Quell::Container>(type->construct({path}));
    return tables[path];
  }
  Kiv::Ptr<Quell::Container> getEntity(std::string_view path) const override {
    lookUps.emplace_back(path);
    const auto at = tables.find(path);
    return at == tables.end() ? Kiv::Ptr<Quell::Container>() : at->second;
  }
  std::map<std::string, Kiv::Ptr<Quell::Container>, std::less<>> tables;
  mutable std::vector<std::string> lookUps;

 private:
  std::vector<MountCall>* calls_;
};

}  // namespace SampledFlowTracker

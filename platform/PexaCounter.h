// Packet counters and the collections that the agent's counter display shows.
#pragma once

#include <cstdint>
#include <vector>

#include "Cliprint.h"
#include "Kiv.h"

namespace Pexa::Counter {

// Counts packets and bytes.
class PktCounter : public Kiv::PtrInterface {
 public:
  std::uint64_t packets() const { return packets_; }
  std::uint64_t bytes() const { return bytes_; }
  // One packet of this many bytes.
  void countBytes(std::uint32_t bytes) {
    ++packets_;
    bytes_ += bytes;
  }
  // The name under which the agent's counter display shows it.
  virtual Kiv::String name() const = 0;

 private:
  std::uint64_t packets_ = 0;
  std::uint64_t bytes_ = 0;
};

// A named collection of counters that writes itself into a display.
class PktCounterCollectionBase : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  const Kiv::String& name() const override;
  Kiv::NotifieeList* notifieeList() const override;
  // Writes a member for each counter into the object that the printer has open.
  virtual void acrResponse(cliprint::PrinterV2* printer) const = 0;
  // Every record as an object of its attributes: what `sft local --json` shows.
  virtual Kiv::Value::List records() const = 0;

  // What the records are keyed by, for the display: "Flow".
  const Kiv::String& keyType() const { return keyType_; }
  void keyTypeIs(Kiv::String keyType) { keyType_ = std::move(keyType); }

 private:
  Kiv::String keyType_;
};

// The collections that the agent can show.
class PktCounterCollectionHolder : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Adds a collection, in place of one of the same name.
  void collectionIs(const Kiv::Ptr<PktCounterCollectionBase>& collection);
  void clear() { collections_.clear(); }
  const std::vector<Kiv::Ptr<PktCounterCollectionBase>>& collections() const { return collections_; }

 private:
  std::vector<Kiv::Ptr<PktCounterCollectionBase>> collections_;
};

}  // namespace Pexa::Counter

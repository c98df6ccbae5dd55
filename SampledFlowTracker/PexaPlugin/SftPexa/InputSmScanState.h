// How far the input scans and the copying of local counters are. Its reactors are told of each field that
// changes.
#pragma once

#include <array>
#include <cstdint>

#include "IpFamily.h"
#include "Kiv.h"

namespace SampledFlowTracker {

class InputSmScanState : public Kiv::Entity {
 public:
  enum Attr : Kiv::AttributeId {
    copyLocalIp6CountersIdleAttr = 1,
    copyLocalIp6CountersCodefGenerationAttr,
    copyLocalIp6CountersCodefDoneGenAttr,
    copyLocalCountersIdleAttr,
    copyLocalCountersCodefGenerationAttr,
    copyLocalCountersCodefDoneGenAttr,
    inputStreamScanAttr,
    input6StreamScanAttr,
    idleAttr
  };

  InputSmScanState();
  static const Kiv::Type& kivType();
  const Kiv::Type& fwkType() const override { return kivType(); }

  // Whether the scan of the wanted offloads has come to the table's end, and nobody has taken note of it yet.
  bool inputStreamScan() const { return scan<Pavo::Traits::IPv4>(); }
  bool input6StreamScan() const { return scan<Pavo::Traits::IPv6>(); }
  // Whether no pass over the local counters is under way.
  bool copyLocalCountersIdle() const { return copyIdle<Pavo::Traits::IPv4>(); }
  bool copyLocalIp6CountersIdle() const { return copyIdle<Pavo::Traits::IPv6>(); }
  // Passes that were completed, and the number of the pass that has to be.
  std::uint64_t copyLocalCountersCodefGeneration() const { return generation<Pavo::Traits::IPv4>(); }
  std::uint64_t copyLocalIp6CountersCodefGeneration() const { return generation<Pavo::Traits::IPv6>(); }
  std::uint64_t copyLocalCountersCodefDoneGen() const { return doneGen<Pavo::Traits::IPv4>(); }
  std::uint64_t copyLocalIp6CountersCodefDoneGen() const { return doneGen<Pavo::Traits::IPv6>(); }
  // Both copies are idle.
  bool idle() const { return idle_; }
  void handleIdle();

  // The same for code that is written once for both families. Setters tell only of a change.
  template <class Domain>
  bool scan() const {
    return of<Domain>().scan;
  }
  template <class Domain>
  void scanIs(bool value) {
    attributeIs(of<Domain>().scan, value, attribute<Domain>(inputStreamScanAttr, input6StreamScanAttr));
  }
  template <class Domain>
  bool copyIdle() const {
    return of<Domain>().idle;
  }
  template <class Domain>
  void copyIdleIs(bool value) {
    if (of<Domain>().idle == value) return;
    attributeIs(of<Domain>().idle, value,
                attribute<Domain>(copyLocalCountersIdleAttr, copyLocalIp6CountersIdleAttr));
    handleIdle();
  }
  template <class Domain>
  std::uint64_t generation() const {
    return of<Domain>().generation;
  }
  template <class Domain>
  void generationInc() {
    attributeIs(
        of<Domain>().generation, of<Domain>().generation + 1,
        attribute<Domain>(copyLocalCountersCodefGenerationAttr, copyLocalIp6CountersCodefGenerationAttr));
  }
  template <class Domain>
  std::uint64_t doneGen() const {
    return of<Domain>().doneGen;
  }
  template <class Domain>
  void doneGenIs(std::uint64_t value) {
    attributeIs(of<Domain>().doneGen, value,
                attribute<Domain>(copyLocalCountersCodefDoneGenAttr, copyLocalIp6CountersCodefDoneGenAttr));
  }

 private:
  struct Fields {
    bool idle = true;
    std::uint64_t generation = 0;
    std::uint64_t doneGen = 0;
    bool scan = false;
  };
  template <class Domain>
  static constexpr Kiv::AttributeId attribute(Attr ipv4, Attr ipv6) {
    return FlowTracking::IpFamily<Domain>::kIndex == 0 ? ipv4 : ipv6;
  }
  template <class Domain>
  Fields& of() {
    return fields_[FlowTracking::IpFamily<Domain>::kIndex];
  }
  template <class Domain>
  const Fields& of() const {
    return fields_[FlowTracking::IpFamily<Domain>::kIndex];
  }

  std::array<Fields, 2> fields_;
  bool idle_ = false;
};

}  // namespace SampledFlowTracker

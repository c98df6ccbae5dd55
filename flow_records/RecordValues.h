// Keys and records as values: what `sft table dump` shows and `sft table put` reads, member by member.
//
//   flow key         {"vrfId","vlan","srcAddr","dstAddr","ipProto","srcPort","dstPort"}; addresses as text
//   offload key      {"ipFlowKey","direction","intfId"}; direction 1 ingress, 2 egress
//   wanted offload   {"key","requestTime"}
//   status           {"key","state","creationTime","lastUpdateTime"}
//   counter          {"key","intfId","packets","bytes","creationTime","lastUpdateTime","hosEntries"}
//   per-state count  {"key":{"state"},"count"}
//
// These may be left out when read: vrfId (the default VRF), requestTime and a status's two times (0). A
// member that is missing, unknown, of the wrong type or out of range throws Kiv::ValueError, which names it
// by its path:
//   key.ipFlowKey.vlan: expected ...
#pragma once

#include "Quell.h"
#include "Records.h"

namespace FlowTracking {

// One key's or record's conversion, both ways.
template <class T>
struct RecordValue {
  static Kiv::Value toValue(const T& record);
  static T fromValue(const Kiv::Value& value);
};

// What a shared table needs to know of a record.
template <class Record>
const Quell::RecordType& recordType() {
  using Key = typename Record::Key;
  static const Quell::RecordType type{
      std::string(Record::kTypeName),
      sizeof(Record),
      sizeof(Key),
      [](const void* record) { return RecordValue<Record>::toValue(*static_cast<const Record*>(record)); },
      [](const Kiv::Value& value, void* record) {
        *static_cast<Record*>(record) = RecordValue<Record>::fromValue(value);
      },
      [](const void* key) { return RecordValue<Key>::toValue(*static_cast<const Key*>(key)); },
      [](const Kiv::Value& value, void* key) {
        *static_cast<Key*>(key) = RecordValue<Key>::fromValue(value);
      },
  };
  return type;
}

}  // namespace FlowTracking

namespace Kiv {
template <class Domain>
struct ValueTraits<FlowTracking::FlowKey<Domain>> : FlowTracking::RecordValue<FlowTracking::FlowKey<Domain>> {
  static constexpr std::string_view kTypeName = FlowTracking::IpFamily<Domain>::kFlowKeyType;
};
template <class Domain>
struct ValueTraits<FlowTracking::HoFlowKey<Domain>>
    : FlowTracking::RecordValue<FlowTracking::HoFlowKey<Domain>> {
  static constexpr std::string_view kTypeName = FlowTracking::IpFamily<Domain>::kHoFlowKeyType;
};
template <>
struct ValueTraits<FlowTracking::HosStateCounterKey>
    : FlowTracking::RecordValue<FlowTracking::HosStateCounterKey> {
  static constexpr std::string_view kTypeName = "FlowTracking::HosStateCounterKey";
};
template <class Domain>
struct ValueTraits<FlowTracking::HoFlowConfigRecord<Domain>>
    : FlowTracking::RecordValue<FlowTracking::HoFlowConfigRecord<Domain>> {
  static constexpr std::string_view kTypeName = FlowTracking::HoFlowConfigRecord<Domain>::kTypeName;
};
template <class Domain>
struct ValueTraits<FlowTracking::HoFlowStatusRecord<Domain>>
    : FlowTracking::RecordValue<FlowTracking::HoFlowStatusRecord<Domain>> {
  static constexpr std::string_view kTypeName = FlowTracking::HoFlowStatusRecord<Domain>::kTypeName;
};
template <class Domain>
struct ValueTraits<FlowTracking::HoFlowCounterRecord<Domain>>
    : FlowTracking::RecordValue<FlowTracking::HoFlowCounterRecord<Domain>> {
  static constexpr std::string_view kTypeName = FlowTracking::HoFlowCounterRecord<Domain>::kTypeName;
};
template <>
struct ValueTraits<FlowTracking::HosStateCounterEntry>
    : FlowTracking::RecordValue<FlowTracking::HosStateCounterEntry> {
  static constexpr std::string_view kTypeName = FlowTracking::HosStateCounterEntry::kTypeName;
};
}  // namespace Kiv

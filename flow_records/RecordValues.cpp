#include "RecordValues.h"

#include "ObjectReader.h"

namespace FlowTracking {

namespace {
using Object = Kiv::Value::Object;

template <class T>
Kiv::Value valueOf(const T& held) {
  return Kiv::ValueTraits<T>::toValue(held);
}
Kiv::Value valueOf(HoFlowState state) {
  return static_cast<unsigned>(state);
}
Kiv::Value valueOf(Bridging::AllowedTrafficDirection direction) {
  return static_cast<unsigned>(direction);
}

constexpr std::uint64_t kMostState = 0xff;

template <class Domain>
Kiv::Value toObject(const FlowKey<Domain>& key) {
  return Object{{"vrfId", key.vrfId},
                {"vlan", key.vlan},
                {"srcAddr", valueOf(key.srcAddr)},
                {"dstAddr", valueOf(key.dstAddr)},
                {"ipProto", key.ipProto},
                {"srcPort", key.srcPort},
                {"dstPort", key.dstPort}};
}

template <class Domain>
void fromObject(const Kiv::Value& value, FlowKey<Domain>& key) {
  ObjectReader(value)
      .optional("vrfId", key.vrfId)
      .bounded("vlan", key.vlan, 0, Bridging::VlanIdOrAnyOrNone::kMost)
      .required("srcAddr", key.srcAddr)
      .required("dstAddr", key.dstAddr)
      .required("ipProto", key.ipProto)
      .required("srcPort", key.srcPort)
      .required("dstPort", key.dstPort)
      .end();
}

template <class Domain>
Kiv::Value toObject(const HoFlowKey<Domain>& key) {
  return Object{{"ipFlowKey", valueOf(key.ipFlowKey)},
                {"direction", valueOf(key.direction)},
                {"intfId", valueOf(key.intfId)}};
}

template <class Domain>
void fromObject(const Kiv::Value& value, HoFlowKey<Domain>& key) {
  ObjectReader(value)
      .required("ipFlowKey", key.ipFlowKey)
      .oneWay("direction", key.direction)
      .required("intfId", key.intfId)
      .end();
}

Kiv::Value toObject(const HosStateCounterKey& key) {
  return Object{{"state", valueOf(key.state)}};
}

void fromObject(const Kiv::Value& value, HosStateCounterKey& key) {
  ObjectReader(value).bounded("state", key.state, 0, kMostState).end();
}

template <class Domain>
Kiv::Value toObject(const HoFlowConfigRecord<Domain>& record) {
  return Object{{"key", valueOf(record.key)}, {"requestTime", record.requestTime}};
}

template <class Domain>
void fromObject(const Kiv::Value& value, HoFlowConfigRecord<Domain>& record) {
  ObjectReader(value).required("key", record.key).optional("requestTime", record.requestTime).end();
}

template <class Domain>
Kiv::Value toObject(const HoFlowStatusRecord<Domain>& record) {
  return Object{{"key", valueOf(record.key)},
                {"state", valueOf(record.state)},
                {"creationTime", record.creationTime},
                {"lastUpdateTime", record.lastUpdateTime}};
}

template <class Domain>
void fromObject(const Kiv::Value& value, HoFlowStatusRecord<Domain>& record) {
  ObjectReader(value)
      .required("key", record.key)
      .bounded("state", record.state, 0, kMostState)
      .optional("creationTime", record.creationTime)
      .optional("lastUpdateTime", record.lastUpdateTime)
      .end();
}

template <class Domain>
Kiv::Value toObject(const HoFlowCounterRecord<Domain>& record) {
  return Object{{"key", valueOf(record.key)},          {"intfId", valueOf(record.intfId)},
                {"packets", record.packets},           {"bytes", record.bytes},
                {"creationTime", record.creationTime}, {"lastUpdateTime", record.lastUpdateTime},
                {"hosEntries", record.hosEntries}};
}

template <class Domain>
void fromObject(const Kiv::Value& value, HoFlowCounterRecord<Domain>& record) {
  ObjectReader(value)
      .required("key", record.key)
      .required("intfId", record.intfId)
      .required("packets", record.packets)
      .required("bytes", record.bytes)
      .required("creationTime", record.creationTime)
      .required("lastUpdateTime", record.lastUpdateTime)
      .required("hosEntries", record.hosEntries)
      .end();
}

Kiv::Value toObject(const HosStateCounterEntry& record) {
  return Object{{"key", valueOf(record.key)}, {"count", record.count}};
}

void fromObject(const Kiv::Value& value, HosStateCounterEntry& record) {
  ObjectReader(value).required("key", record.key).required("count", record.count).end();
}
}  // namespace

template <class T>
Kiv::Value RecordValue<T>::toValue(const T& record) {
  return toObject(record);
}
template <class T>
T RecordValue<T>::fromValue(const Kiv::Value& value) {
  T record;
  fromObject(value, record);
  return record;
}

template struct RecordValue<IpFlowKey>;
template struct RecordValue<Ip6FlowKey>;
template struct RecordValue<HoIpFlowKey>;
template struct RecordValue<HoIp6FlowKey>;
template struct RecordValue<HosStateCounterKey>;
template struct RecordValue<HoIpFlowConfig>;
template struct RecordValue<HoIp6FlowConfig>;
template struct RecordValue<HoIpFlowStatus>;
template struct RecordValue<HoIp6FlowStatus>;
template struct RecordValue<HoIpFlowCounter>;
template struct RecordValue<HoIp6FlowCounter>;
template struct RecordValue<HosStateCounterEntry>;

}  // namespace FlowTracking

#include "Records.h"

#include <fmt/format.h>

namespace FlowTracking {

namespace {
// Seconds to the microsecond, whatever the stream's precision is.
std::string timeText(double seconds) {
  return fmt::format("{:.6f}", seconds);
}

// "FlowTracking::HoIpFlowStatus" without its namespace.
std::string_view shortName(std::string_view typeName) {
  return typeName.substr(typeName.rfind(':') + 1);
}
}  // namespace

template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowConfigRecord<Domain>& record) {
  return out << shortName(record.kTypeName) << "( " << record.key << ", " << timeText(record.requestTime)
             << " )";
}

template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowStatusRecord<Domain>& record) {
  return out << shortName(record.kTypeName) << "( " << record.key << ", " << record.state << ", "
             << timeText(record.creationTime) << ", " << timeText(record.lastUpdateTime) << " )";
}

template <class Domain>
std::ostream& operator<<(std::ostream& out, const HoFlowCounterRecord<Domain>& record) {
  return out << shortName(record.kTypeName) << "( " << record.key << ", " << record.intfId << ", "
             << std::to_string(record.packets) << ", " << std::to_string(record.bytes) << ", "
             << timeText(record.creationTime) << ", " << timeText(record.lastUpdateTime) << ", "
             << std::to_string(record.hosEntries) << " )";
}

std::ostream& operator<<(std::ostream& out, const HosStateCounterEntry& record) {
  return out << shortName(record.kTypeName) << "( " << record.key << ", " << std::to_string(record.count)
             << " )";
}

template std::ostream& operator<<(std::ostream&, const HoIpFlowConfig&);
template std::ostream& operator<<(std::ostream&, const HoIp6FlowConfig&);
template std::ostream& operator<<(std::ostream&, const HoIpFlowStatus&);
template std::ostream& operator<<(std::ostream&, const HoIp6FlowStatus&);
template std::ostream& operator<<(std::ostream&, const HoIpFlowCounter&);
template std::ostream& operator<<(std::ostream&, const HoIp6FlowCounter&);

}  // namespace FlowTracking

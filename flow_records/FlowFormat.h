// {fmt} formatters of the keys and records: what operator<< writes.
#pragma once

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "Records.h"

template <class Domain>
struct fmt::formatter<FlowTracking::FlowKey<Domain>> : fmt::ostream_formatter {};
template <class Domain>
struct fmt::formatter<FlowTracking::HoFlowKey<Domain>> : fmt::ostream_formatter {};
template <>
struct fmt::formatter<FlowTracking::HosStateCounterKey> : fmt::ostream_formatter {};
template <>
struct fmt::formatter<FlowTracking::HoFlowState> : fmt::ostream_formatter {};
template <class Domain>
struct fmt::formatter<FlowTracking::HoFlowConfigRecord<Domain>> : fmt::ostream_formatter {};
template <class Domain>
struct fmt::formatter<FlowTracking::HoFlowStatusRecord<Domain>> : fmt::ostream_formatter {};
template <class Domain>
struct fmt::formatter<FlowTracking::HoFlowCounterRecord<Domain>> : fmt::ostream_formatter {};
template <>
struct fmt::formatter<FlowTracking::HosStateCounterEntry> : fmt::ostream_formatter {};

// Any text as what `sft` reads from people and scripts: JSON, of it a record or a key of each type, or a
// pattern of flows. It is refused with one line, or what it says is kept when it is written and read again.
#include <vector>

#include "FlowPattern.h"
#include "FuzzInput.h"
#include "RecordValues.h"
#include "json/JsonText.h"

namespace {

using FlowTracking::FlowPattern;
using Kiv::Value;

void checkRefusal(const std::exception& refused) {
  const std::string_view text = refused.what();
  FUZZ_REQUIRE(!text.empty());
  FUZZ_REQUIRE(text.find('\n') == std::string_view::npos);
}

// Aligned for any record.
using Space = std::vector<std::uint64_t>;

void checkConversion(const Value& value, std::size_t bytes, void (*from)(const Value&, void*),
                     Value (*to)(const void*)) {
  Space first(bytes / 8 + 1);
  try {
    from(value, first.data());
  } catch (const Kiv::ValueError& refused) {
    checkRefusal(refused);
    return;
  }
  const std::string text = Json::text(to(first.data()));
  Space second(bytes / 8 + 1);
  from(Json::parse(text), second.data());
  FUZZ_REQUIRE(first == second);
}

template <class Record>
void checkRecord(const Value& value) {
  const Quell::RecordType& type = FlowTracking::recordType<Record>();
  checkConversion(value, type.recordBytes, type.fromValue, type.toValue);
  checkConversion(value, type.keyBytes, type.keyFromValue, type.keyToValue);
}

template <class Domain>
void checkKeyOf(const FlowPattern& pattern) {
  const auto key = pattern.key<Domain>();
  if (!key) return;
  FUZZ_REQUIRE(pattern.mayHold<Domain>());
  FUZZ_REQUIRE(pattern.holds(*key));
}

void checkPattern(const Value& value) {
  try {
    const auto pattern = Kiv::ValueTraits<FlowPattern>::fromValue(value);
    const std::string text = Json::text(Kiv::ValueTraits<FlowPattern>::toValue(pattern));
    const auto again = Kiv::ValueTraits<FlowPattern>::fromValue(Json::parse(text));
    FUZZ_REQUIRE(Json::text(Kiv::ValueTraits<FlowPattern>::toValue(again)) == text);
    checkKeyOf<Pavo::Traits::IPv4>(pattern);
    checkKeyOf<Pavo::Traits::IPv6>(pattern);
  } catch (const Kiv::ValueError& refused) {
    checkRefusal(refused);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Value value;
  try {
    value = Json::parse({reinterpret_cast<const char*>(data), size});
  } catch (const Kiv::ValueError& refused) {
    checkRefusal(refused);
    return 0;
  }
  const std::string text = Json::text(value);
  FUZZ_REQUIRE(Json::text(Json::parse(text)) == text);
  checkRecord<FlowTracking::HoIpFlowConfig>(value);
  checkRecord<FlowTracking::HoIp6FlowConfig>(value);
  checkRecord<FlowTracking::HoIpFlowStatus>(value);
  checkRecord<FlowTracking::HoIp6FlowStatus>(value);
  checkRecord<FlowTracking::HoIpFlowCounter>(value);
  checkRecord<FlowTracking::HoIp6FlowCounter>(value);
  checkRecord<FlowTracking::HosStateCounterEntry>(value);
  checkPattern(value);
  return 0;
}

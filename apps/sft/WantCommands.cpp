#include "WantCommands.h"

#include <fmt/format.h>

#include "FlowWords.h"
#include "PublishedTables.h"
#include "TableCommands.h"

namespace Sft {
namespace {

using namespace FlowTracking;

template <class Domain>
std::string wantedText(const HoFlowKey<Domain>& key) {
  return fmt::format("{}, {} on {}", flowText(key.ipFlowKey), directionText(key.direction),
                     key.intfId.name());
}

template <class Domain>
void report(const Context& context, const HoFlowKey<Domain>& key, bool wanted, bool before,
            std::string_view done) {
  if (!context.json) print(fmt::format("{}: {}\n", done, wantedText(key)));
  Output output(context.json);
  if (context.json) {
    output.row(Kiv::Value::Object{{"key", Kiv::ValueTraits<HoFlowKey<Domain>>::toValue(key)},
                                  {"family", IpFamily<Domain>::kName},
                                  {"flow", flowText(key.ipFlowKey)},
                                  {"directionName", directionText(key.direction)},
                                  {"wanted", wanted},
                                  {"before", before}});
  }
  output.finish();
}

template <class Domain>
void want(const Context& context, const HoFlowKey<Domain>& key) {
  std::filesystem::create_directories(context.runDir);
  tableIs(context, tablePath<HoFlowConfig>());
  Damages damages;
  const Published<HoFlowConfig, Domain> table(context, damages);
  const bool before = table.find(key).has_value();
  table.map().insert({.key = key, .requestTime = Kiv::System::currentTimeUtc()});
  table.map().table()->flush();
  report(context, key, true, before, before ? "wanted already, asked for again" : "wanted");
}

template <class Domain>
void unwant(const Context& context, const HoFlowKey<Domain>& key) {
  requireRunDir(context);
  Damages damages;
  const Published<HoFlowConfig, Domain> table(context, damages);
  if (!table.exists() || !table.map().erase(key)) {
    throw CommandError(fmt::format(
        "{} is not wanted, expected an offload that sft flows shows as wanted; nothing was changed",
        wantedText(key)));
  }
  table.map().table()->flush();
  report(context, key, false, true, "not wanted any more");
}

}  // namespace

void wantFlow(const Context& context, const FlowArguments& arguments) {
  std::visit([&](const auto& key) { want(context, key); }, hoFlowKey(arguments));
}

void unwantFlow(const Context& context, const FlowArguments& arguments) {
  std::visit([&](const auto& key) { unwant(context, key); }, hoFlowKey(arguments));
}

}  // namespace Sft

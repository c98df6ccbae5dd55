#include "TrackerCommands.h"

#include <fmt/format.h>

#include "RecordValues.h"
#include "TrackerClient.h"
#include "TrackerWords.h"

namespace Sft {
namespace {

using Kiv::Value;

void showStatistics(const Context& context) {
  Output output(context.json);
  TrackerClient(context.runDir).ask(Value::Object{{"request", "statistics"}}, [&](const Value& row) {
    if (context.json) return output.row(row);
    for (const std::string& line : trackerWords(row, Kiv::System::currentTimeUtc())) print(line + '\n');
  });
  output.finish();
}

void showFlows(const Context& context) {
  Output output(context.json);
  TrackerClient(context.runDir).ask(Value::Object{{"request", "flows"}}, [&](const Value& row) {
    output.row(row);
  });
  output.finish();
}

void showCandidates(const Context& context, const FlowArguments& flow) {
  const auto pattern = flowPattern(flow);
  const Value::Object request{{"request", "candidates"},
                              {"match", Kiv::ValueTraits<FlowTracking::FlowPattern>::toValue(pattern)}};
  Output output(context.json);
  std::uint64_t shown = 0;
  std::uint64_t all = 0;
  TrackerClient(context.runDir).ask(request, [&](const Value& row) {
    const bool isLast = row.member("key") == nullptr;  // it tells how many there are; not all are listed
    isLast ? all = countAt(row, {"candidates"}) : ++shown;
    if (context.json || !isLast) output.row(row);
  });
  output.finish();
  if (context.json) return;
  print(fmt::format("{} candidates, {} shown\n", all, shown));
  Output(false).finish();
}

}  // namespace

void addPatternArguments(CLI::App& sub, FlowArguments& flow) {
  sub.add_option("SOURCE", flow.source,
                 "10.0.0.1:1234, 10.0.0.0/8, *:80, [2001:db8::/32]:53, ...; any unless given");
  sub.add_option("DESTINATION", flow.destination, "the same");
  sub.add_option("--proto", flow.proto, "tcp, udp or a number");
  sub.add_option("--vlan", flow.vlan, "of the packets");
  sub.add_option("--direction", flow.direction, "ingress or egress");
  sub.add_option("--interface", flow.interface, "that the packets come in by, or leave by");
  sub.add_option("--vrf", flow.vrf, "by its number");
}

void addTrackerCommand(CLI::App& app, CommandLine& line) {
  CLI::App* tracker =
      command(app, "tracker", "what the flow tracker has counted, in words")->require_subcommand(0, 1);
  tracker->callback([tracker, &line] {
    if (tracker->get_subcommands().empty()) line.run = [&line] { showStatistics(line.context); };
  });
  onRun(command(*tracker, "flows", "the flows that it has learned"), line,
        [&line] { showFlows(line.context); });
  CLI::App* candidates = command(*tracker, "candidates", "flows that were not sampled often enough yet");
  addPatternArguments(*candidates, line.flow);
  onRun(candidates, line, [&line] { showCandidates(line.context, line.flow); });
}

}  // namespace Sft

#include "MetricsCommand.h"

#include <fmt/format.h>

#include "AgentClient.h"
#include "RowMembers.h"

namespace Sft {
namespace {

using Kiv::Value;

std::string labelsText(const Value& row) {
  std::string text;
  for (const auto& [name, value] : memberAs<Value::Object>(row, "labels", "an object"))
    text += fmt::format("{}{}={}", text.empty() ? "" : " ", name, value.text());
  return text;
}

// The first bound that so large a part of all did not exceed; "more" when it is above the last one.
std::string boundText(const Value& row, double part) {
  for (const Value& bucket : memberAs<Value::List>(row, "buckets", "a list")) {
    if (memberTo<double>(bucket, "count") >= part * memberTo<double>(row, "count"))
      return fmt::format("{:g}", memberTo<double>(bucket, "le"));
  }
  return "more";
}

Value::Object shownRow(const Value& row) {
  Value::Object shown{{"metric", memberOf(row, "name")}, {"labels", labelsText(row)}};
  if (const Value* value = row.member("value")) {
    shown.emplace_back("value", *value);
    return shown;
  }
  const double count = memberTo<double>(row, "count");
  shown.emplace_back("value", memberOf(row, "count"));
  if (count == 0) return shown;
  shown.emplace_back("mean", fmt::format("{:.3g}", memberTo<double>(row, "sum") / count));
  shown.emplace_back("99%", boundText(row, 0.99));
  return shown;
}

void showMetrics(const Context& context, const std::string& prefix) {
  Output output(context.json);
  bool any = false;
  AgentClient(context.runDir).ask(Value::Object{{"request", "metrics"}}, [&](const Value& row) {
    if (!memberTo<Kiv::String>(row, "name").starts_with(prefix)) return;
    any = true;
    output.row(context.json ? row : Value(shownRow(row)));
  });
  if (!any)
    throw CommandError(fmt::format("no metric begins with \"{}\", expected one of sft metrics", prefix));
  output.finish();
}

}  // namespace

void addMetricsCommand(CLI::App& app, CommandLine& line) {
  CLI::App* metrics = command(app, "metrics", "the agent's numbers, as its Prometheus endpoint tells them");
  metrics->add_option("PREFIX", line.name, "of the names to show: pexa_table");
  onRun(metrics, line, [&line] { showMetrics(line.context, line.name); });
}

}  // namespace Sft

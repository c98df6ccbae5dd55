#include "DoctorCommand.h"

#include <fmt/format.h>

#include <algorithm>

#include "Doctor.h"
#include "PublishedTables.h"
#include "json/JsonText.h"

namespace Sft {
namespace {

using Kiv::Value;
using Object = Value::Object;

void listChecks(const Context& context) {
  Output output(context.json);
  for (const Check& each : doctorChecks()) {
    output.row(Object{{"check", each.name}, {"looks at", each.looksAt}});
  }
  output.finish();
}

void show(const Finding& finding) {
  print(fmt::format("{}: {}\n    {}\n", severityText(finding.severity), finding.kind, finding.what));
  const std::string record = Json::text(finding.record);
  print(fmt::format("    record: {}\n", record));
  std::string corrects = finding.corrects ? "corrects itself" : "stays";
  if (!finding.command.empty()) {
    corrects += fmt::format("; {}: {}", finding.corrects ? "see" : "corrected by", finding.command);
  }
  print(fmt::format("    {}\n", corrects));
}

Object rowOf(const Finding& finding) {
  return {{"severity", severityText(finding.severity)},
          {"kind", finding.kind},
          {"what", finding.what},
          {"record", finding.record},
          {"corrects", finding.corrects},
          {"command", finding.command.empty() ? Value() : Value(finding.command)}};
}

std::string summary(const Findings& findings) {
  const auto count = [&](Severity severity) {
    return std::count_if(findings.begin(), findings.end(),
                         [&](const Finding& each) { return each.severity == severity; });
  };
  const auto checks = doctorChecks().size();
  if (findings.empty()) return fmt::format("nothing found by {} checks\n", checks);
  return fmt::format("{} found by {} checks: {} errors, {} warnings, {} notes\n", findings.size(), checks,
                     count(Severity::error), count(Severity::warning), count(Severity::note));
}

int runDoctor(const Context& context) {
  requireRunDir(context);
  const Findings findings = doctor(doctorFacts(context));
  Output output(context.json);
  for (const Finding& each : findings) context.json ? output.row(rowOf(each)) : show(each);
  if (!context.json) print(summary(findings));
  output.finish();
  return findings.empty() ? 0 : 1;
}

}  // namespace

void addDoctorCommand(CLI::App& app, CommandLine& line) {
  CLI::App* sub = command(app, "doctor", "looks at tables, agent and flow tracker for what is wrong");
  sub->add_flag("--list", line.list, "what it looks at");
  onRun(sub, line, [&line] {
    if (line.list) return listChecks(line.context);
    line.status = runDoctor(line.context);
  });
}

}  // namespace Sft

// sft [--run-dir DIR] [--json] COMMAND: the operator's command line.
#include <fmt/format.h>

#include <cstdio>
#include <iostream>

#include "AgentCommands.h"
#include "AuditCommands.h"
#include "CommandLine.h"
#include "DoctorCommand.h"
#include "MetricsCommand.h"
#include "RecordTypes.h"
#include "TableCommands.h"
#include "TraceCommands.h"
#include "TrackerCommands.h"
#include "WantCommands.h"
#include "WhyCommand.h"
#include "agent/RunDir.h"
#include "top/TopCommand.h"

namespace {

using Sft::command;
using Sft::CommandLine;
using Sft::onRun;

constexpr int kFailed = 1;
constexpr int kMisused = 2;

void addTableCommands(CLI::App& app, CommandLine& line) {
  CLI::App* table = command(app, "table", "the shared tables of the run directory")->require_subcommand(1);
  onRun(command(*table, "list", "path, type, entries and writer of each"), line,
        [&line] { Sft::listTables(line.context); });
  const auto add = [&](const std::string& name, const std::string& what, std::function<void()> run) {
    CLI::App* sub = command(*table, name, what);
    sub->add_option("PATH", line.path, "of the table: flowtracking/sampled/hwOffload/status")->required();
    sub->add_option("COLLECTION", line.collection, "in it: hoIpFlowStatus")->required();
    onRun(sub, line, std::move(run));
  };
  add("dump", "every record", [&line] { Sft::dumpTable(line.context, line.path, line.collection); });
  add("put", "insert or overwrite records, a JSON object a line on standard input",
      [&line] { Sft::putRecords(line.context, line.path, line.collection, std::cin); });
  add("del", "delete records by their keys, a JSON object a line on standard input",
      [&line] { Sft::deleteRecords(line.context, line.path, line.collection, std::cin); });
}

void addViews(CLI::App& app, CommandLine& line) {
  onRun(command(app, "local", "the agent's display of its local counters; --json: every record"), line,
        [&line] { Sft::showLocal(line.context); });
  const auto add = [&](const std::string& name, const std::string& what) {
    onRun(command(app, name, what), line, [&line, name] { Sft::showRows(line.context, name); });
  };
  add("ports", "each port: kind, packets and bytes in and out, how its replay stands");
  add("samples", "per interface and direction: rate, pool, samples, drops");
  add("collectors", "sFlow collectors: datagrams sent to each, and lost");
  add("reasons", "named counters: category, source, reason, count");
  add("tasks", "the work between packets: how often each task ran, and how much is left");
}

void addFlowViews(CLI::App& app, CommandLine& line) {
  using View = void (*)(const Sft::Context&, const Sft::FlowFilter&);
  const auto add = [&](const std::string& name, const std::string& what, bool byState, View show) {
    CLI::App* view = command(app, name, what);
    CLI::Option* four = view->add_flag("--ipv4", line.onlyIpv4, "IPv4 only");
    view->add_flag("--ipv6", line.onlyIpv6, "IPv6 only")->excludes(four);
    if (byState)
      view->add_option("--state", line.filter.state, "those in it only: in-hardware, overflow, ...");
    onRun(view, line, [&line, show] {
      line.filter.ipv4 = !line.onlyIpv6;
      line.filter.ipv6 = !line.onlyIpv4;
      show(line.context, line.filter);
    });
  };
  add("flows", "each flow that is wanted in hardware: where it stands, and what was counted", true,
      Sft::showFlows);
  add("status", "what became of each wanted offload, and since when", true, Sft::showStatus);
  add("counters", "what was counted of each flow in hardware", false, Sft::showCounters);
  add("states", "how many flows are in each state", false, Sft::showStates);
}

void addFlowCommands(CLI::App& app, CommandLine& line) {
  CLI::App* flow =
      command(app, "flow", "wants a flow in hardware, or wants it no more")->require_subcommand(1);
  const auto add = [&](const std::string& name, const std::string& what, std::function<void()> run) {
    CLI::App* sub = command(*flow, name, what);
    sub->add_option("SOURCE", line.flow.source, "10.0.0.1:1234 or [2001:db8::1]:1234")->required();
    sub->add_option("DESTINATION", line.flow.destination, "the same")->required();
    sub->add_option("--proto", line.flow.proto, "tcp, udp or a number")->required();
    sub->add_option("--vlan", line.flow.vlan, "of the packets; an untagged one has its port's")->required();
    sub->add_option("--direction", line.flow.direction, "ingress or egress")->required();
    sub->add_option("--interface", line.flow.interface, "that the packets come in by, or leave by")
        ->required();
    sub->add_option("--vrf", line.flow.vrf, "the default VRF unless given");
    onRun(sub, line, std::move(run));
  };
  add("want", "publish a wanted offload", [&line] { Sft::wantFlow(line.context, line.flow); });
  add("unwant", "withdraw a wanted offload", [&line] { Sft::unwantFlow(line.context, line.flow); });
}

void addStateCommands(CLI::App& app, CommandLine& line) {
  CLI::App* state = command(app, "state", "the running agent's state database")->require_subcommand(1);
  CLI::App* get = command(*state, "get", "an entity's attributes, or one of them");
  get->add_option("PATH", line.path)->required();
  get->add_option("ATTRIBUTE", line.attribute);
  onRun(get, line, [&line] { Sft::stateGet(line.context, line.path, line.optional(line.attribute)); });
  CLI::App* set = command(*state, "set", "change an attribute; VALUE is JSON, or else a string");
  set->add_option("PATH", line.path)->required();
  set->add_option("ATTRIBUTE", line.attribute)->required();
  set->add_option("VALUE", line.value)->required();
  onRun(set, line, [&line] { Sft::stateSet(line.context, line.path, line.attribute, line.value); });
}

void addAttrCommands(CLI::App& app, CommandLine& line) {
  CLI::App* attr = command(app, "attr", "any entity of the running agent")->require_subcommand(1);
  CLI::App* get = command(*attr, "get", "its attributes, or one of them");
  get->add_option("ENTITY", line.entity, "a path, a plugin, port or collection, or an attribute of one: A.b")
      ->required();
  get->add_option("NAME", line.name);
  onRun(get, line, [&line] { Sft::attrGet(line.context, line.entity, line.optional(line.name)); });
  CLI::App* set = command(*attr, "set", "change an attribute; VALUE is JSON, or else a string");
  set->add_option("ENTITY", line.entity)->required();
  set->add_option("NAME", line.name)->required();
  set->add_option("VALUE", line.value)->required();
  onRun(set, line, [&line] { Sft::attrSet(line.context, line.entity, line.name, line.value); });
  CLI::App* call = command(*attr, "call", "invoke a handler");
  call->add_option("ENTITY", line.entity)->required();
  call->add_option("NAME", line.name)->required();
  call->add_option("ARGUMENT", line.arguments, "NAME=VALUE");
  onRun(call, line, [&line] { Sft::attrCall(line.context, line.entity, line.name, line.arguments); });
}

void addTraceCommands(CLI::App& app, CommandLine& line) {
  CLI::App* trace = command(app, "trace", "the trace ring")->require_subcommand(0, 1);
  trace->add_flag("--follow", line.follow, "go on with records as they come");
  trace->callback([trace, &line] {
    if (trace->get_subcommands().empty()) line.run = [&line] { Sft::showTrace(line.context, line.follow); };
  });
  CLI::App* level =
      command(*trace, "level", "what is traced; without arguments: what traces, and at which level");
  CLI::Option* name =
      level->add_option("NAME", line.name, "of a text trace, a category of the ring, a debug handler");
  level->add_option("LEVEL", line.level, "-1 (nothing) to 9")->needs(name);
  onRun(level, line, [level, &line] {
    if (level->count("NAME") == 0) return Sft::showTraceLevels(line.context);
    if (level->count("LEVEL") == 0) throw Sft::CommandError("trace level has no LEVEL, expected NAME LEVEL");
    Sft::setTraceLevel(line.context, line.name, line.level);
  });
}

void addAuditCommand(CLI::App& app, CommandLine& line) {
  CLI::App* audit = command(app, "audit", "compares counts, counters and overflow entries with the statuses");
  audit->add_flag("--repair", line.repair, "put counts right, and drop counters that no status needs");
  onRun(audit, line, [&line] { line.status = Sft::audit(line.context, line.repair); });
}

// A word that is no command comes to light as a command that is missing.
std::string whatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  const auto words = app.remaining(true);
  if (error.get_name() != "RequiredError" || words.empty()) return error.what();
  std::string path = app.get_name();
  for (auto chosen = app.get_subcommands(); !chosen.empty(); chosen = chosen.back()->get_subcommands()) {
    path += " " + chosen.back()->get_name();
  }
  return fmt::format("{} has no command \"{}\"", path, words.front());
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line;
  CLI::App app("Looks into the shared tables of a run directory and into its running agent.", "sft");
  app.add_option("--run-dir", line.context.runDir, "of the agent")
      ->envname("PEXA_RUN_DIR")
      ->capture_default_str();
  app.add_flag("--json", line.context.json, "one JSON object a line, and nothing else");
  app.require_subcommand(1);
  addTableCommands(app, line);
  addFlowViews(app, line);
  addFlowCommands(app, line);
  addViews(app, line);
  addStateCommands(app, line);
  addAttrCommands(app, line);
  addTraceCommands(app, line);
  addAuditCommand(app, line);
  Sft::addMetricsCommand(app, line);
  Sft::addTopCommand(app, line);
  Sft::addTrackerCommand(app, line);
  Sft::addWhyCommand(app, line);
  Sft::addDoctorCommand(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    fmt::print(stderr, "sft: {}, expected a command as in sft --help\n", whatIsWrong(app, error));
    return kMisused;
  }
  try {
    FlowTracking::recordTypesRegister();
    Pexa::groupMayWriteAsIn(line.context.runDir);
    line.run();
    return line.status;
  } catch (const Sft::MisuseError& error) {
    fmt::print(stderr, "sft: {}\n", error.what());
    return kMisused;
  } catch (const std::runtime_error& error) {
    fmt::print(stderr, "sft: {}\n", error.what());
    return kFailed;
  }
}

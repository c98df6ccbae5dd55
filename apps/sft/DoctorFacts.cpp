#include "DoctorFacts.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "AgentClient.h"
#include "AuditCommands.h"
#include "FlowJoin.h"
#include "RecordValues.h"

namespace Sft {
namespace {

namespace fs = std::filesystem;
using Kiv::Value;

constexpr double kPatience = 10;  // seconds that a wanted offload may be without a status
constexpr double kAhead = 5;      // seconds that clocks may differ
constexpr std::chrono::minutes kInTheMaking{1};

// Nothing when the agent knows no such request.
std::optional<Records> rowsOf(AgentClient& client, std::string_view request) {
  Records rows;
  try {
    client.ask(Value::Object{{"request", request}}, [&](const Value& row) { rows.push_back(row); });
  } catch (const Refused&) {
    return std::nullopt;
  }
  return rows;
}

WalkedTable walked(const Context& context, const Quell::TableStatus& status) {
  WalkedTable table{status, {}};
  if (!status.problem.empty()) return table;
  try {
    const Quell::OpenCollection open(context.runDir, status.path, status.collection);
    open.forEach([](const Value&) {}, [&](const std::string& damage) { table.damages.push_back(damage); });
  } catch (const std::runtime_error& error) {
    table.status.problem = error.what();
  }
  return table;
}

template <class Domain>
void lookAtFlows(const Context& context, DoctorFacts& facts) {
  Damages told([](const std::string&) {});  // the walk over each table tells of damage
  const auto ahead = [&](double time) { return time > facts.now + kAhead; };
  // A time that was not told, 0, may be this moment.
  const auto isOld = [&](double time) { return time != 0 && time + kPatience < facts.now; };
  try {
    joinFlows<Domain>(context, told, [&](const JoinedFlow<Domain>& flow) {
      const auto key = [&] { return Kiv::ValueTraits<FlowTracking::HoFlowKey<Domain>>::toValue(flow.key); };
      if (flow.wanted) ++facts.wanted[FlowTracking::IpFamily<Domain>::kIndex];
      if (flow.wanted && !flow.status && isOld(flow.wanted->requestTime)) facts.flows.unseen.add(key());
      if (!flow.wanted) facts.flows.notWanted.add(key());
      const bool isAhead = (flow.wanted && ahead(flow.wanted->requestTime)) ||
                           (flow.status && ahead(flow.status->lastUpdateTime)) ||
                           (flow.counter && ahead(flow.counter->lastUpdateTime));
      if (isAhead) facts.flows.future.add(key());
    });
  } catch (const Quell::TableError&) {
    return;  // likewise
  }
}

// An agent that answered before and does not now is one that cannot be asked.
void askAgent(const Context& context, DoctorFacts& facts) {
  try {
    AgentClient client(context.runDir);
    facts.ports = rowsOf(client, "ports").value_or(Records{});
    facts.samples = rowsOf(client, "samples").value_or(Records{});
    facts.collectors = rowsOf(client, "collectors");
    facts.metrics = rowsOf(client, "metrics").value_or(Records{});
  } catch (const std::runtime_error& error) {
    facts.system.agent.standing = Standing::silent;
    facts.system.agent.problem = error.what();
  }
}

void askAudit(const Context& context, DoctorFacts& facts) {
  try {
    auditFindings(context, [&](const Value& finding) { facts.audit.push_back(finding); });
  } catch (const CommandError& error) {
    facts.auditProblem = error.what();
  }
}

// Whether a file below tables/ is a table, or one that is just being made: a table is filled under a name
// that begins with a dot, in far less than a minute.
bool isOfTables(const fs::path& file) {
  if (!file.filename().native().starts_with('.')) return true;
  std::error_code error;
  const auto written = fs::last_write_time(file, error);
  return !error && fs::file_time_type::clock::now() - written < kInTheMaking;
}

std::vector<std::string> filesOf(const fs::path& runDir) {
  std::vector<std::string> files;
  std::error_code error;
  for (fs::recursive_directory_iterator each(runDir, error), end; !error && each != end;
       each.increment(error)) {
    const std::string name = each->path().lexically_relative(runDir).generic_string();
    if (name.starts_with("tables/") && isOfTables(each->path())) continue;
    std::error_code gone;
    const auto type = each->symlink_status(gone).type();
    if (type != fs::file_type::directory && type != fs::file_type::not_found) files.push_back(name);
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

DoctorFacts doctorFacts(const Context& context) {
  DoctorFacts facts;
  facts.now = Kiv::System::currentTimeUtc();
  facts.runDir = context.runDir;
  facts.system = systemFacts(context);
  if (facts.system.agent.standing == Standing::answers) {
    askAgent(context, facts);
    if (facts.system.agent.standing == Standing::answers) askAudit(context, facts);
    std::ifstream(context.runDir / "agent.lock") >> facts.agentProcess;
  }
  for (const auto& each : Quell::listTables(context.runDir)) facts.tables.push_back(walked(context, each));
  lookAtFlows<Pavo::Traits::IPv4>(context, facts);
  lookAtFlows<Pavo::Traits::IPv6>(context, facts);
  facts.files = filesOf(context.runDir);
  struct statvfs space {};
  if (::statvfs(context.runDir.c_str(), &space) == 0) {
    facts.spaceFree = std::uint64_t{space.f_bavail} * space.f_frsize;
    facts.spaceAll = std::uint64_t{space.f_blocks} * space.f_frsize;
  }
  return facts;
}

}  // namespace Sft

#include "AuditCommands.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

#include "AgentClient.h"
#include "RowMembers.h"

namespace Sft {
namespace {

using Kiv::Value;

constexpr std::string_view kEntity = "SftAudit";
constexpr unsigned kMostFindings = 100;          // of an answer
constexpr std::chrono::milliseconds kPause(50);  // while the audit has nothing new to tell

// What the audit has to tell since it was asked before, and its totals so far.
struct Told {
  Value::List findings;
  bool running = false;
  Value stopped;  // why, when it did not come to its end
  std::uint64_t statuses = 0;
  std::uint64_t differences = 0;
  std::uint64_t repaired = 0;
};

Told toldIn(const Value& result) {
  Told told{.findings = memberAs<Value::List>(result, "findings", "a list"),
            .running = memberTo<bool>(result, "running"),
            .stopped = memberOf(result, "stopped"),
            .statuses = memberTo<std::uint64_t>(result, "statuses"),
            .differences = memberTo<std::uint64_t>(result, "differences"),
            .repaired = memberTo<std::uint64_t>(result, "repaired")};
  for (const Value& finding : told.findings) objectIn(finding);
  return told;
}

class RunningAudit {
 public:
  RunningAudit(const Context& context, bool repair) : client_(context.runDir) {
    requireEntity();
    call("start", {{"repair", repair}},
         [this](const Value& result) { run_ = Kiv::ValueTraits<std::uint64_t>::fromValue(result); });
  }

  // Calls with each finding, an object, as it comes, and gives what was told last, which has the totals.
  // Throws CommandError when the audit did not come to its end.
  Told forEach(const std::function<void(const Value&)>& each) {
    for (;;) {
      Told told;
      call("findings", {{"run", run_}, {"most", kMostFindings}},
           [&](const Value& result) { told = toldIn(result); });
      for (const Value& finding : told.findings) each(finding);
      if (!told.findings.empty()) continue;
      if (!told.running) {
        if (!told.stopped.isNone())
          throw CommandError(fmt::format("the audit did not come to its end: {}", told.stopped.text()));
        return told;
      }
      std::this_thread::sleep_for(kPause);
    }
  }

 private:
  // Told apart from what the audit itself refuses: the agent knows no such entity.
  void requireEntity() {
    try {
      client_.ask(Value::Object{{"request", "attr get"}, {"entity", kEntity}, {"name", "running"}},
                  [](const Value&) {});
    } catch (const Refused&) {
      throw CommandError("the agent has no audit, expected libPexaSftAudit.so among its plugins");
    }
  }
  void call(std::string_view handler, Value::Object arguments,
            const std::function<void(const Value&)>& take) {
    bool answered = false;
    client_.ask(Value::Object{{"request", "attr call"},
                              {"entity", kEntity},
                              {"name", handler},
                              {"arguments", std::move(arguments)}},
                [&](const Value& row) {
                  take(memberOf(row, "result"));
                  answered = true;
                });
    if (!answered) throw CommandError(fmt::format("the agent's audit does not tell what {} gave", handler));
  }

  AgentClient client_;
  std::uint64_t run_ = 0;
};

class ShownAudit {
 public:
  explicit ShownAudit(const Context& context) : context_(context), output_(context.json) {}

  int show(RunningAudit& audit) {
    try {
      return finish(audit.forEach([this](const Value& finding) { row(finding); }));
    } catch (const CommandError&) {
      output_.finish();
      throw;
    }
  }

 private:
  void row(const Value& finding) {
    if (context_.json) return output_.row(finding);
    Value::Object shown = objectIn(finding);
    for (auto& [name, value] : shown) {
      if (const bool* flag = value.as<bool>()) value = *flag ? "yes" : "no";
    }
    output_.row(shown);
  }
  int finish(const Told& told) {
    if (context_.json) {
      output_.row(Value::Object{{"summary", Value::Object{{"statuses", told.statuses},
                                                          {"differences", told.differences},
                                                          {"repaired", told.repaired}}}});
    }
    output_.finish();
    if (!context_.json) {
      print(fmt::format("{} {}, {} repaired; {} {}\n", told.differences,
                        told.differences == 1 ? "difference" : "differences", told.repaired, told.statuses,
                        told.statuses == 1 ? "status" : "statuses"));
      Output(false).finish();
    }
    return told.differences == told.repaired ? 0 : 1;
  }

  const Context& context_;
  Output output_;
};

}  // namespace

int audit(const Context& context, bool repair) {
  RunningAudit running(context, repair);
  return ShownAudit(context).show(running);
}

void auditFindings(const Context& context, const std::function<void(const Value&)>& each) {
  RunningAudit(context, false).forEach(each);
}

}  // namespace Sft

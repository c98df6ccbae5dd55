#include "AuditCommands.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

#include "AgentClient.h"

namespace Sft {
namespace {

using Kiv::Value;

constexpr std::string_view kEntity = "SftAudit";
constexpr unsigned kMostFindings = 100;          // of an answer
constexpr std::chrono::milliseconds kPause(50);  // while the audit has nothing new to tell

std::uint64_t number(const Value& answer, std::string_view name) {
  return Kiv::ValueTraits<std::uint64_t>::fromValue(*answer.member(name));
}

class RunningAudit {
 public:
  RunningAudit(const Context& context, bool repair) : client_(context.runDir) {
    requireEntity();
    run_ = Kiv::ValueTraits<std::uint64_t>::fromValue(call("start", {{"repair", repair}}));
  }

  // Calls with each finding as it comes, and gives the last answer, which has the totals. Throws CommandError
  // when the audit did not come to its end.
  Value forEach(const std::function<void(const Value&)>& each) {
    for (;;) {
      const Value answer = call("findings", {{"run", run_}, {"most", kMostFindings}});
      const auto& findings = *answer.member("findings")->as<Value::List>();
      for (const Value& finding : findings) each(finding);
      if (!findings.empty()) continue;
      if (*answer.member("running") == Value(false)) {
        requireWhole(answer);
        return answer;
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
  Value call(std::string_view handler, Value::Object arguments) {
    Value result;
    client_.ask(Value::Object{{"request", "attr call"},
                              {"entity", kEntity},
                              {"name", handler},
                              {"arguments", std::move(arguments)}},
                [&](const Value& row) { result = *row.member("result"); });
    return result;
  }
  static void requireWhole(const Value& answer) {
    if (const auto* reason = answer.member("stopped")->as<Kiv::String>()) {
      throw CommandError(fmt::format("the audit did not come to its end: {}", *reason));
    }
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
    Value::Object shown = *finding.as<Value::Object>();
    for (auto& [name, value] : shown) {
      if (const bool* flag = value.as<bool>()) value = *flag ? "yes" : "no";
    }
    output_.row(shown);
  }
  int finish(const Value& answer) {
    const std::uint64_t differences = number(answer, "differences");
    const std::uint64_t repaired = number(answer, "repaired");
    const std::uint64_t statuses = number(answer, "statuses");
    if (context_.json) {
      output_.row(Value::Object{
          {"summary",
           Value::Object{{"statuses", statuses}, {"differences", differences}, {"repaired", repaired}}}});
    }
    output_.finish();
    if (!context_.json) {
      print(fmt::format("{} {}, {} repaired; {} {}\n", differences,
                        differences == 1 ? "difference" : "differences", repaired, statuses,
                        statuses == 1 ? "status" : "statuses"));
      Output(false).finish();
    }
    return differences == repaired ? 0 : 1;
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

#include "AgentCommands.h"

#include <fmt/format.h>

#include "AgentClient.h"
#include "RowMembers.h"
#include "json/JsonText.h"

namespace Sft {
namespace {

using Kiv::Value;

void show(const Context& context, const Value& request) {
  Output output(context.json);
  AgentClient(context.runDir).ask(request, [&](const Value& row) { output.row(row); });
  output.finish();
}

// An object a line with JSON; for people a line for each member.
void showMembers(const Context& context, const Value& request) {
  if (context.json) return show(context, request);
  Output output(false);
  AgentClient(context.runDir).ask(request, [&](const Value& row) {
    for (const auto& [name, value] : objectIn(row)) {
      output.row(Value::Object{{"attribute", name}, {"value", Json::text(value)}});
    }
  });
  output.finish();
}

void tell(const Context& context, const Value& request) {
  AgentClient(context.runDir).ask(request, [](const Value&) {});
}

}  // namespace

Value valueFromArgument(const std::string& text) {
  try {
    return Json::parse(text);
  } catch (const Kiv::ValueError&) {
    return text;
  }
}

void showRows(const Context& context, const std::string& request) {
  show(context, Value::Object{{"request", request}});
}

void showLocal(const Context& context) {
  if (context.json) return showRows(context, "local");
  AgentClient(context.runDir).ask(Value::Object{{"request", "local display"}}, [](const Value& row) {
    const std::string text = memberOf(row, "text").text();
    print(text.ends_with('\n') ? text : text + '\n');
  });
  Output(false).finish();
}

void stateGet(const Context& context, const std::string& path, const std::optional<std::string>& attribute) {
  Value::Object request{{"request", "state get"}, {"path", path}};
  if (attribute) request.emplace_back("attribute", *attribute);
  showMembers(context, request);
}

void stateSet(const Context& context, const std::string& path, const std::string& attribute,
              const std::string& value) {
  tell(context, Value::Object{{"request", "state set"},
                              {"path", path},
                              {"attribute", attribute},
                              {"value", valueFromArgument(value)}});
}

void attrGet(const Context& context, const std::string& entity, const std::optional<std::string>& name) {
  Value::Object request{{"request", "attr get"}, {"entity", entity}};
  if (name) request.emplace_back("name", *name);
  showMembers(context, request);
}

void attrSet(const Context& context, const std::string& entity, const std::string& name,
             const std::string& value) {
  tell(context,
       Value::Object{
           {"request", "attr set"}, {"entity", entity}, {"name", name}, {"value", valueFromArgument(value)}});
}

void attrCall(const Context& context, const std::string& entity, const std::string& name,
              const std::vector<std::string>& arguments) {
  Value::Object given;
  for (const std::string& argument : arguments) {
    const auto equals = argument.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw CommandError(fmt::format("argument \"{}\", expected NAME=VALUE", argument));
    }
    given.emplace_back(argument.substr(0, equals), valueFromArgument(argument.substr(equals + 1)));
  }
  showMembers(
      context,
      Value::Object{
          {"request", "attr call"}, {"entity", entity}, {"name", name}, {"arguments", std::move(given)}});
}

void showTraceLevels(const Context& context) {
  showRows(context, "trace levels");
}

void setTraceLevel(const Context& context, const std::string& name, int level) {
  tell(context, Value::Object{{"request", "trace level"}, {"name", name}, {"level", level}});
}

}  // namespace Sft

#include "SystemFacts.h"

#include "AgentClient.h"
#include "Families.h"
#include "PublishedTables.h"
#include "TrackerClient.h"
#include "TrackerWords.h"

namespace Sft {
namespace {

using Kiv::Value;
using Kiv::ValueTraits;

constexpr std::string_view kPlugin = "SampledFlowTracker";

// The attributes of a path of the state database, or of any entity; none when there is no such thing.
class Attributes {
 public:
  Attributes(AgentClient& client, std::string_view request, std::string_view what, std::string_view of,
             std::string_view name = {}) {
    Value::Object asked{{"request", request}, {Kiv::String(what), of}};
    if (!name.empty()) asked.emplace_back("name", name);
    try {
      client.ask(asked, [&](const Value& row) { row_ = row; });
    } catch (const Refused&) {
      row_ = {};  // the agent knows no such entity
    }
  }
  bool known() const { return !row_.isNone(); }
  const Value* member(std::string_view name) const { return row_.member(name); }
  bool flag(std::string_view name) const {
    const Value* value = row_.member(name);
    return value != nullptr && *value == Value(true);
  }
  std::uint64_t count(std::string_view name) const { return countAt(row_, {name}); }
  std::set<std::string> names(std::string_view name) const {
    std::set<std::string> names;
    const Value found = memberAt(row_, {name});
    for (const Value& each : elementsOf(found)) names.insert(each.text());
    return names;
  }

 private:
  Value row_;
};

AgentFacts::Plugin pluginOf(AgentClient& client) {
  const Attributes machine(client, "attr get", "entity", kPlugin, "hocSm");
  if (!machine.known()) return AgentFacts::Plugin::absent;
  const Value* entity = machine.member("hocSm");
  return entity == nullptr || entity->isNone() ? AgentFacts::Plugin::standby : AgentFacts::Plugin::active;
}

void askPlugin(AgentClient& client, AgentFacts& facts) {
  const Attributes config(client, "state get", "path", "hardware/flowtracking/config/sampled");
  facts.offloaded = {config.flag(kFamilies[0].offloaded), config.flag(kFamilies[1].offloaded)};
  facts.sampleRate = static_cast<std::uint32_t>(config.count("sampleRate"));
  const Attributes able(client, "state get", "path", "hardware/flowtracking/capabilities/sampled");
  facts.announced = {able.flag(kFamilies[0].offloaded), able.flag(kFamilies[1].offloaded)};
  const Attributes sampled(client, "state get", "path", "sflow/hwconfigdir/sampledflowtracker");
  facts.ingress = sampled.names("ingressInterfaces");
  facts.egress = sampled.names("egressInterfaces");
  facts.regularSflow = Attributes(client, "state get", "path", "sflow/hwconfigdir/sflow").flag("enabled");
  const std::string entity(kPlugin);
  facts.budget = static_cast<std::uint32_t>(
      Attributes(client, "attr get", "entity", entity + ".drovaHelper", "maxInHardwareFlows")
          .count("maxInHardwareFlows"));
  facts.ready = Attributes(client, "attr get", "entity", entity + ".hocSm", "ready").flag("ready");
  facts.storesFailed =
      Attributes(client, "attr get", "entity", entity + ".hocSm", "storesFailed").count("storesFailed");
}

// What asking gives; whoever cannot be asked says why.
template <class Facts, class Ask>
Facts asked(const Ask& ask) {
  Facts facts;
  try {
    ask(facts);
    facts.standing = Standing::answers;
  } catch (const NobodyAnswers& absent) {
    facts.standing = Standing::absent;
    facts.problem = absent.what();
  } catch (const std::runtime_error& error) {
    facts.standing = Standing::silent;
    facts.problem = error.what();
  }
  return facts;
}

AgentFacts agentFacts(const Context& context) {
  return asked<AgentFacts>([&](AgentFacts& facts) {
    AgentClient client(context.runDir);
    client.ask(Value::Object{{"request", "ports"}},
               [&](const Value& row) { facts.ports.insert(memberAt(row, {"name"}).text()); });
    facts.plugin = pluginOf(client);
    if (facts.plugin == AgentFacts::Plugin::active) askPlugin(client, facts);
  });
}

TrackerFacts trackerFacts(const Context& context) {
  return asked<TrackerFacts>([&](TrackerFacts& facts) {
    TrackerClient client(context.runDir);
    client.ask(Value::Object{{"request", "statistics"}}, [&](const Value& row) { facts.statistics = row; });
    facts.samplesToLearn = countAt(facts.statistics, {"limits", "samplesToLearn"});
    facts.maxFlows = countAt(facts.statistics, {"limits", "maxFlows"});
    const Value interfaces = memberAt(facts.statistics, {"interfaces"});
    for (const Value& each : elementsOf(interfaces)) {
      facts.interfaces.insert(memberAt(each, {"name"}).text());
    }
  });
}

template <class Domain>
void readCounts(const Context& context, SystemFacts& facts) {
  using namespace FlowTracking;
  Damages unread([](const std::string&) {});  // whoever reads the tables tells of it
  try {
    const Published<HosStateCounter, Domain> table(context, unread);
    const auto count = [&](HoFlowState state) {
      const auto entry = table.find(HosStateCounterKey(state));
      return entry ? std::uint64_t{entry->count} : 0;
    };
    facts.inHardware[IpFamily<Domain>::kIndex] = count(HoFlowState::inHardware);
    facts.waiting[IpFamily<Domain>::kIndex] = count(HoFlowState::overflow);
  } catch (const Quell::TableError&) {
    return;  // likewise
  }
}

}  // namespace

SystemFacts systemFacts(const Context& context) {
  SystemFacts facts{.agent = agentFacts(context), .tracker = trackerFacts(context)};
  readCounts<Pavo::Traits::IPv4>(context, facts);
  readCounts<Pavo::Traits::IPv6>(context, facts);
  return facts;
}

}  // namespace Sft

#include "WhyCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "FlowJoin.h"
#include "FlowWords.h"
#include "RecordValues.h"
#include "TrackerClient.h"
#include "TrackerCommands.h"
#include "TrackerWords.h"
#include "WhyFlow.h"

namespace Sft {
namespace {

using namespace FlowTracking;
using Kiv::Value;
using Object = Value::Object;

constexpr std::uint64_t kDefaultLimit = 10;

template <class Domain>
WhyFlow whyFlowOf(const HoFlowKey<Domain>& key) {
  WhyFlow flow;
  flow.family = {};
  flow.family[IpFamily<Domain>::kIndex] = true;
  flow.protocol = key.ipFlowKey.ipProto;
  flow.vrf = key.ipFlowKey.vrfId;
  flow.direction = key.direction;
  flow.interface = key.intfId.name();
  return flow;
}

template <class Domain>
WhyFlow whyFlowOf(const JoinedFlow<Domain>& joined) {
  WhyFlow flow = whyFlowOf(joined.key);
  if (joined.wanted) flow.wantedSince = joined.wanted->requestTime;
  if (joined.status) {
    flow.state = joined.status->state;
    flow.stateSince = joined.status->lastUpdateTime;
  }
  if (joined.counter) {
    flow.counted = true;
    flow.packets = joined.counter->packets;
    flow.bytes = joined.counter->bytes;
    flow.lastCounted = joined.counter->lastUpdateTime;
  }
  return flow;
}

// What is known of flows that a pattern means and nobody has met.
WhyFlow whyFlowOf(const FlowPattern& pattern) {
  WhyFlow flow;
  flow.family = {pattern.mayHold<Pavo::Traits::IPv4>(), pattern.mayHold<Pavo::Traits::IPv6>()};
  flow.protocol = pattern.protocol;
  flow.vrf = pattern.vrf;
  flow.direction = pattern.direction;
  if (pattern.interface) flow.interface = pattern.interface->name();
  return flow;
}

class Why {
 public:
  Why(const Context& context, FlowPattern pattern, std::uint64_t limit)
      : context_(context),
        pattern_(pattern),
        limit_(limit),
        system_(systemFacts(context)),
        output_(context.json) {}

  int show() {
    family<Pavo::Traits::IPv4>();
    family<Pavo::Traits::IPv6>();
    askCandidates();
    if (flows_ == 0) absent();
    finish();
    damages_.requireNone();
    return flows_ != 0 && verdicts_.size() == 1 && verdicts_.begin()->first == Verdict::kInHardware ? 0 : 1;
  }

 private:
  template <class Domain>
  void family() {
    if (!pattern_.mayHold<Domain>()) return;
    if (const auto key = pattern_.key<Domain>()) return one(*key);
    joinFlows<Domain>(context_, damages_, [&](const JoinedFlow<Domain>& joined) {
      if (pattern_.holds(joined.key)) met(joined.key, whyFlowOf(joined));
    });
  }
  // A flow whose key is known is looked up; the tables may be large.
  template <class Domain>
  void one(const HoFlowKey<Domain>& key) {
    JoinedFlow<Domain> joined;
    joined.key = key;
    joined.wanted = Published<HoFlowConfig, Domain>(context_, damages_).find(key);
    joined.status = Published<HoFlowStatus, Domain>(context_, damages_).find(key);
    joined.counter = Published<HoFlowCounter, Domain>(context_, damages_).find(key.ipFlowKey);
    if (joined.wanted || joined.status) met(key, whyFlowOf(joined));
  }

  void askCandidates() {
    if (system_.tracker.standing != Standing::answers) return;
    try {
      TrackerClient(context_.runDir)
          .ask(Object{{"request", "candidates"}, {"match", Kiv::ValueTraits<FlowPattern>::toValue(pattern_)}},
               [&](const Value& row) { candidate(row); });
    } catch (const CommandError& error) {
      system_.tracker.standing = Standing::silent;
      system_.tracker.problem = error.what();
    }
  }
  void candidate(const Value& row) {
    const Value* key = row.member("key");
    if (key == nullptr) {  // the last row: how many there are, shown or not
      const std::uint64_t all = countAt(row, {"candidates"});
      candidatesLeftOut_ = all - std::min(all, candidates_);
      return;
    }
    ++candidates_;
    const bool isIpv6 = memberAt(*key, {"ipFlowKey", "srcAddr"}).text().find(':') != std::string::npos;
    isIpv6 ? candidate<Pavo::Traits::IPv6>(*key, row) : candidate<Pavo::Traits::IPv4>(*key, row);
  }
  template <class Domain>
  void candidate(const Value& keyValue, const Value& row) {
    const auto key = Kiv::ValueTraits<HoFlowKey<Domain>>::fromValue(keyValue);
    WhyFlow flow = whyFlowOf(key);
    flow.samples = countAt(row, {"samples"});
    flow.lastSampled = Kiv::ValueTraits<double>::fromValue(memberAt(row, {"lastSampled"}));
    met(key, flow);
  }

  template <class Domain>
  void met(const HoFlowKey<Domain>& key, const WhyFlow& flow) {
    ++flows_;
    const auto reasons = whyFlow(flow, system_, now_);
    ++verdicts_[reasons.front().verdict];
    if (limit_ == 0 || flows_ <= limit_) explain(key, flow, reasons);
  }
  template <class Domain>
  void explain(const HoFlowKey<Domain>& key, const WhyFlow& flow) {
    explain(key, flow, whyFlow(flow, system_, now_));
  }
  template <class Domain>
  void explain(const HoFlowKey<Domain>& key, const WhyFlow& flow, const std::vector<Reason>& reasons) {
    const std::string text = flowText(key.ipFlowKey);
    if (!context_.json) {
      return paragraph(fmt::format("{}, {} on {}", text, directionText(key.direction), key.intfId.name()),
                       reasons);
    }
    row({{"key", Kiv::ValueTraits<HoFlowKey<Domain>>::toValue(key)},
         {"family", IpFamily<Domain>::kName},
         {"flow", text},
         {"directionName", directionText(key.direction)}},
        flow, reasons);
  }

  // Nobody has met such a flow.
  void absent() {
    const auto four = pattern_.key<Pavo::Traits::IPv4>();
    const auto six = pattern_.key<Pavo::Traits::IPv6>();
    if (four) return explain(*four, whyFlowOf(*four));
    if (six) return explain(*six, whyFlowOf(*six));
    const WhyFlow flow = whyFlowOf(pattern_);
    const auto reasons = whyFlow(flow, system_, now_);
    if (!context_.json)
      return paragraph("No flow like this is wanted, has a status or is a candidate", reasons);
    row({{"key", Value()}, {"match", Kiv::ValueTraits<FlowPattern>::toValue(pattern_)}}, flow, reasons);
  }

  void row(Object members, const WhyFlow& flow, const std::vector<Reason>& reasons) {
    Value::List also;
    for (std::size_t i = 1; i < reasons.size(); ++i) {
      also.push_back(Object{{"verdict", reasons[i].verdict}, {"why", reasons[i].why}});
    }
    Object more{{"verdict", reasons.front().verdict},
                {"why", reasons.front().why},
                {"also", std::move(also)},
                {"wanted", flow.wantedSince.has_value()},
                {"state", flow.state ? Value(static_cast<unsigned>(*flow.state)) : Value()},
                {"since", timeOrNone(flow.stateSince)},
                {"packets", flow.counted ? Value(flow.packets) : Value()},
                {"bytes", flow.counted ? Value(flow.bytes) : Value()},
                {"lastCounted", timeOrNone(flow.packets == 0 ? 0 : flow.lastCounted)},
                {"samples", flow.samples ? Value(*flow.samples) : Value()}};
    std::move(more.begin(), more.end(), std::back_inserter(members));
    output_.row(members);
  }

  static void paragraph(const std::string& heading, const std::vector<Reason>& reasons) {
    print(fmt::format("{}: {}\n", heading, reasons.front().verdict));
    for (const Reason& each : reasons) {
      print(fmt::format("    {}{}\n", &each == &reasons.front() ? "" : "And: ", each.why));
    }
  }

  void finish() {
    Value::List notAsked;
    const auto tell = [&](std::string_view who, Standing standing, const std::string& problem) {
      if (standing == Standing::answers) return;
      notAsked.push_back(fmt::format("{}: {}", who, problem));
    };
    tell("the agent", system_.agent.standing, system_.agent.problem);
    tell("the flow tracker", system_.tracker.standing, system_.tracker.problem);
    context_.json ? finishJson(std::move(notAsked)) : finishWords(notAsked);
    output_.finish();
  }
  void finishJson(Value::List notAsked) {
    Object verdicts;
    for (const auto& [verdict, count] : verdicts_) verdicts.emplace_back(verdict, count);
    output_.row(Object{{"summary", Object{{"flows", flows_},
                                          {"verdicts", std::move(verdicts)},
                                          {"candidatesNotTold", candidatesLeftOut_},
                                          {"notAsked", std::move(notAsked)}}}});
  }
  void finishWords(const Value::List& notAsked) {
    if (flows_ > 1) {
      std::string text = fmt::format("{} flows", flows_);
      const char* separator = ": ";
      for (const auto& [verdict, count] : verdicts_) {
        text += fmt::format("{}{} {}", separator, count, verdict);
        separator = ", ";
      }
      if (limit_ != 0 && flows_ > limit_) text += fmt::format("; shown are {} (--limit)", limit_);
      if (candidatesLeftOut_ != 0)
        text += fmt::format("; {} candidates more were not told", candidatesLeftOut_);
      print(text + '\n');
    }
    for (const Value& each : notAsked) print(fmt::format("Not asked: {}\n", each.text()));
  }

  const Context& context_;
  const FlowPattern pattern_;
  const std::uint64_t limit_;
  SystemFacts system_;
  Output output_;
  Damages damages_;
  const double now_ = Kiv::System::currentTimeUtc();
  std::uint64_t flows_ = 0;
  std::uint64_t candidates_ = 0;
  std::uint64_t candidatesLeftOut_ = 0;
  std::map<std::string_view, std::uint64_t> verdicts_;
};

}  // namespace

int why(const Context& context, const FlowArguments& arguments, std::uint64_t limit) {
  FlowPattern pattern = flowPattern(arguments);
  requireRunDir(context);
  return Why(context, pattern, limit).show();
}

void addWhyCommand(CLI::App& app, CommandLine& line) {
  CLI::App* sub = command(app, "why", "where flows stand, and why they are not in hardware");
  addPatternArguments(*sub, line.flow);
  line.limit = kDefaultLimit;
  sub->add_option("--limit", line.limit, "flows to show; 0: all")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber);
  onRun(sub, line, [&line] { line.status = why(line.context, line.flow, line.limit); });
}

}  // namespace Sft

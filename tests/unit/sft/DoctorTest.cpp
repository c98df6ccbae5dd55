#include "Doctor.h"

#include <gmock/gmock.h>

#include <set>

#include "PublishedTables.h"
#include "json/JsonText.h"

namespace {

using Sft::AgentFacts;
using Sft::DoctorFacts;
using Sft::Finding;
using Sft::Severity;
using Sft::Standing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint64_t kAgent = 4711;

Sft::WalkedTable table(const std::string& path, const char* collection, std::uint64_t entries = 1,
                       std::uint64_t writer = kAgent) {
  Sft::WalkedTable walked;
  walked.status = {path, collection, "Container", "Record", entries, writer, ""};
  return walked;
}

// A healthy system: an agent that offloads, and a tracker that hears it.
class DoctorTest : public testing::Test {
 protected:
  DoctorTest() {
    facts_.now = 1'000'000;
    facts_.runDir = "/run/pexa";
    facts_.agentProcess = kAgent;
    AgentFacts& agent = facts_.system.agent;
    agent.standing = Standing::answers;
    agent.plugin = AgentFacts::Plugin::active;
    agent.offloaded = agent.announced = {true, true};
    agent.sampleRate = 100;
    agent.budget = 10;
    agent.ready = true;
    agent.ports = agent.ingress = agent.egress = {"Ethernet1"};
    facts_.collectors = {row(R"({"collector":"127.0.0.1:6343","datagrams":5,"lost":0})")};
    facts_.ports = {row(R"({"name":"Ethernet1","up":true,"dropsIn":0,"dropsOut":0})")};
    facts_.samples = {row(R"({"intfId":"Ethernet1","direction":"ingress","samples":5,"drops":0})")};
    facts_.files = {"agent.lock", "control.sock", "flow-tracker.sock", "trace.ring"};
    facts_.spaceAll = 1000;
    facts_.spaceFree = 900;
    facts_.wanted = {3, 1};
    using namespace FlowTracking;
    for (const char* each : {"hoIpFlowConfig", "hoIp6FlowConfig"})
      facts_.tables.push_back(table(Sft::tablePath<HoFlowConfig>(), each, 3, 99));
    for (const char* each : {"hoIpFlowStatus", "hoIp6FlowStatus"})
      facts_.tables.push_back(table(Sft::tablePath<HoFlowStatus>(), each));
    for (const char* each : {"hoIpFlowCounter", "hoIp6FlowCounter"})
      facts_.tables.push_back(table(Sft::tablePath<HoFlowCounter>(), each));
    for (const char* each : {"hosStateIpCounter", "hosStateIp6Counter"})
      facts_.tables.push_back(table(Sft::tablePath<HosStateCounter>(), each));
    facts_.system.tracker.standing = Standing::answers;
    facts_.system.tracker.interfaces = {"Ethernet1"};
    heard(R"({"datagrams":5,"agents":[{"agent":"192.0.2.1","lastHeard":999990.0}]})");
  }
  static Kiv::Value row(const char* text) { return Json::parse(text); }
  void heard(const char* statistics) { facts_.system.tracker.statistics = row(statistics); }
  std::vector<std::string> kinds() const {
    std::vector<std::string> kinds;
    for (const Finding& each : Sft::doctor(facts_)) kinds.emplace_back(each.kind);
    return kinds;
  }
  Finding only() const {
    const auto findings = Sft::doctor(facts_);
    EXPECT_EQ(findings.size(), 1U);
    return findings.empty() ? Finding{} : findings.front();
  }

  DoctorFacts facts_;
};

TEST_F(DoctorTest, FindsNothingWhereAllIsWell) {
  EXPECT_THAT(kinds(), IsEmpty());
}

TEST_F(DoctorTest, EachCheckHasANameOfItsOwnAndSaysWhatItLooksAt) {
  std::set<std::string_view> names;
  for (const auto& each : Sft::doctorChecks()) {
    EXPECT_TRUE(names.insert(each.name).second) << each.name;
    EXPECT_FALSE(each.looksAt.empty()) << each.name;
  }
  EXPECT_GE(names.size(), 20U);
}

TEST_F(DoctorTest, NoAgentAndOneThatDoesNotAnswer) {
  facts_.system.agent = {};
  EXPECT_THAT(kinds(), ElementsAre("agent-not-running", "socket-deserted"));
  facts_.system.agent.standing = Standing::silent;
  EXPECT_EQ(only().kind, "agent-not-asked");
}

TEST_F(DoctorTest, ThePluginIsAbsentInStandbyOrNotReady) {
  facts_.system.agent.ready = false;
  EXPECT_EQ(only().kind, "reconciling");
  EXPECT_TRUE(only().corrects);
  facts_.system.agent.plugin = AgentFacts::Plugin::standby;
  EXPECT_EQ(only().kind, "agent-in-standby");
  facts_.system.agent.plugin = AgentFacts::Plugin::absent;
  EXPECT_EQ(only().kind, "no-plugin");
}

TEST_F(DoctorTest, AFamilyThatIsOffMattersWhenItIsWanted) {
  facts_.system.agent.offloaded = {true, false};
  EXPECT_EQ(only().kind, "family-disabled");
  EXPECT_EQ(only().command, "sft state set hardware/flowtracking/config/sampled hwOffloadIpv6 true");
  facts_.wanted = {3, 0};
  EXPECT_THAT(kinds(), IsEmpty());
  facts_.system.agent.offloaded = {false, false};
  EXPECT_THAT(kinds(), ElementsAre("family-disabled", "family-disabled"));
}

TEST_F(DoctorTest, TheBudget) {
  facts_.system.inHardware = {10, 0};
  facts_.system.waiting = {2, 0};
  EXPECT_EQ(only().kind, "budget-used-up");
  EXPECT_EQ(only().severity, Severity::note);
  facts_.system.inHardware = {9, 0};
  EXPECT_EQ(only().kind, "room-not-given");
  EXPECT_FALSE(only().corrects);
  EXPECT_THAT(only().command, HasSubstr("systemctl stop flow-tracker; sft flow want"));
  facts_.system.agent.budget = 0;
  EXPECT_EQ(only().kind, "budget-nothing");
  EXPECT_EQ(only().severity, Severity::error);
}

TEST_F(DoctorTest, EnabledInterfacesThatAreNoPorts) {
  facts_.system.agent.egress = {"Ethernet1", "Ethernet9"};
  EXPECT_EQ(only().kind, "interface-is-no-port");
  EXPECT_EQ(only().command,
            R"(sft state set sflow/hwconfigdir/sampledflowtracker egressInterfaces '["Ethernet1"]')");
  facts_.system.agent.ingress.clear();
  facts_.system.agent.egress.clear();
  EXPECT_EQ(only().kind, "no-interface-enabled");
  facts_.system.agent.ingress = {"Ethernet1"};
  facts_.system.agent.regularSflow = true;
  EXPECT_EQ(only().kind, "regular-sflow");
}

TEST_F(DoctorTest, Ports) {
  facts_.ports = {row(R"({"name":"Ethernet1","up":false,"dropsIn":2,"dropsOut":1})"),
                  row(R"({"name":"Ethernet2","up":true,"replay":"damaged","error":"cut short"})")};
  EXPECT_THAT(kinds(), ElementsAre("port-down", "port-drops", "capture-damaged"));
}

TEST_F(DoctorTest, SamplingAndWhereSamplesGo) {
  facts_.samples = {row(R"({"intfId":"Ethernet1","direction":"ingress","samples":5,"drops":2})")};
  EXPECT_EQ(only().kind, "samples-dropped");
  facts_.samples.clear();
  facts_.collectors = {row(R"({"collector":"127.0.0.1:6343","datagrams":5,"lost":1})")};
  EXPECT_EQ(only().kind, "collector-lost");
  facts_.collectors.reset();  // the agent does not tell
  EXPECT_THAT(kinds(), IsEmpty());
  facts_.collectors.emplace();
  EXPECT_EQ(only().kind, "no-collector");
  facts_.system.agent.sampleRate = 0;
  EXPECT_EQ(only().kind, "sampling-off");
}

TEST_F(DoctorTest, StoresThatFailedAndReadersThatFellBehind) {
  facts_.system.agent.storesFailed = 2;
  EXPECT_EQ(only().kind, "stores-failed");
  facts_.system.agent.storesFailed = 0;
  facts_.metrics = {
      row(R"({"name":"pexa_table_overruns_total","labels":{"table":"t","collection":"c"},"value":3})"),
      row(R"({"name":"pexa_table_overruns_total","labels":{"table":"t","collection":"d"},"value":0})"),
      row(R"({"name":"pexa_table_corrupt_reads_total","labels":{"table":"t","collection":"c"},"value":1.0})"),
      row(R"({"name":"pexa_other","value":5})")};
  EXPECT_THAT(kinds(), ElementsAre("watcher-behind", "corrupt-reads"));
}

TEST_F(DoctorTest, TablesThatAreMissingUnusableOrDamaged) {
  facts_.tables[2].status.problem = "is no table";
  facts_.tables[3].damages = {"slot 1 is damaged", "slot 2 is damaged"};
  facts_.tables.pop_back();
  EXPECT_THAT(kinds(), ElementsAre("table-missing", "table-unusable", "damage", "damage"));
}

TEST_F(DoctorTest, DamageOfWantedOffloadsIsTheTrackersToRepair) {
  facts_.tables[0].damages = {"slot 1 is damaged"};
  EXPECT_THAT(only().command, HasSubstr("flow-tracker"));
}

TEST_F(DoctorTest, WritersThatAreGoneOrNotTheAgent) {
  facts_.tables[2].status.writer = 5;
  EXPECT_EQ(only().kind, "writer-other");
  facts_.tables[2].status.writer = 0;
  EXPECT_EQ(only().kind, "writer-gone");
  facts_.tables[2].status.entries = 0;
  EXPECT_THAT(kinds(), IsEmpty());
}

TEST_F(DoctorTest, WhatTheAuditFindsComesWithWhatRepairsIt) {
  facts_.audit = {
      row(R"({"family":"IPv4","kind":"per-state count","key":"2","found":3,"expected":2})"),
      row(R"({"family":"IPv4","kind":"in hardware without a counter","key":"k","found":null,"expected":1})"),
      row(R"({"family":"IPv4","kind":"damage","key":"k","found":null,"expected":null})")};
  const auto findings = Sft::doctor(facts_);
  ASSERT_EQ(findings.size(), 2U);
  EXPECT_EQ(findings[0].command, "sft audit --repair");
  EXPECT_THAT(findings[1].command, HasSubstr("sft flow unwant"));
  facts_.audit.clear();
  facts_.auditProblem = "the agent has no audit";
  EXPECT_EQ(only().kind, "audit-not-done");
}

TEST_F(DoctorTest, FlowsWhoseRecordsContradictEachOther) {
  for (int i = 0; i < 5; ++i) facts_.flows.unseen.add("key");
  facts_.flows.notWanted.add("key");
  facts_.flows.future.add("key");
  EXPECT_THAT(kinds(), ElementsAre("wanted-not-seen", "status-not-wanted", "clock-skew"));
  const auto findings = Sft::doctor(facts_);
  EXPECT_THAT(findings[0].what, HasSubstr("5 offloads"));
  EXPECT_EQ(findings[0].record.member("examples")->as<Kiv::Value::List>()->size(), 3U);
}

TEST_F(DoctorTest, SpaceAndFiles) {
  facts_.spaceFree = 99;
  EXPECT_EQ(only().kind, "space-low");
  EXPECT_EQ(only().severity, Severity::warning);
  facts_.spaceFree = 10;
  EXPECT_EQ(only().severity, Severity::error);
  facts_.spaceAll = 0;  // not known
  facts_.files.push_back("tables/x/.made.tmp");
  EXPECT_EQ(only().kind, "file-left-over");
}

TEST_F(DoctorTest, CommandsAreQuotedForAShell) {
  facts_.runDir = "/run/my pexa";
  facts_.files.push_back("it's; reboot");
  EXPECT_EQ(only().command, R"(rm '/run/my pexa/it'\''s; reboot')");
  EXPECT_EQ(Sft::DoctorChecks::shellWord("/run/pexa"), "/run/pexa");
  EXPECT_EQ(Sft::DoctorChecks::shellWord(""), "''");
}

TEST_F(DoctorTest, ATrackerIsMissedWhereFlowsAreWanted) {
  facts_.system.tracker = {};
  facts_.files.clear();
  EXPECT_EQ(only().kind, "tracker-not-running");
  facts_.wanted = {0, 0};
  EXPECT_THAT(kinds(), IsEmpty());
  facts_.system.tracker.standing = Standing::silent;
  EXPECT_EQ(only().kind, "tracker-not-asked");
}

TEST_F(DoctorTest, ATrackerThatHearsNothing) {
  heard(R"({"datagrams":0,"agents":[]})");
  EXPECT_EQ(only().kind, "tracker-hears-nothing");
  EXPECT_FALSE(only().corrects);
  heard(R"({"datagrams":5,"agents":[{"agent":"192.0.2.1","lastHeard":999000.0}]})");
  EXPECT_THAT(only().what, HasSubstr("for 17 min"));
}

TEST_F(DoctorTest, WhatTheTrackerCountedOfItsTroubles) {
  heard(R"({"datagrams":5,"datagramsMissed":1,"datagramsDropped":2,"malformed":{"version":3,"headerCut":0},
            "unmappedInterfaces":[{"agent":"192.0.2.1","index":7,"samples":9}],
            "ipv4":{"refused":1,"candidatesEvicted":0},"ipv6":{"refused":0,"candidatesEvicted":4},
            "tableRefusals":1,"tableDamages":1,"recordsFailed":1,
            "collectors":[{"collector":"192.0.2.9:4739","messages":1,"lost":1,"refused":2}]})");
  EXPECT_THAT(kinds(),
              ElementsAre("datagrams-missed", "datagrams-dropped", "datagrams-malformed",
                          "interface-unmapped", "tracker-full", "candidates-evicted", "tracker-stores-failed",
                          "tracker-met-damage", "collector-refuses", "collector-lost", "records-failed"));
}

TEST_F(DoctorTest, ATrackersInterfaceThatIsNoPort) {
  facts_.system.tracker.interfaces.insert("Ethernet9");
  EXPECT_EQ(only().kind, "interface-is-no-port");
}

}  // namespace

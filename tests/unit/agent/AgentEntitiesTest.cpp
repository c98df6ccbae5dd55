// Finding entities by name, and what is asked of them through requests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HwFlowTracking.h"
#include "ManualClock.h"
#include "TempDir.h"
#include "agent/ControlRequests.h"
#include "agent/TraceLevels.h"
#include "json/JsonText.h"

namespace {

using Kiv::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kConfigPath = "hardware/flowtracking/config/sampled";

class Counters : public Pexa::Counter::PktCounterCollectionBase {
 public:
  using PktCounterCollectionBase::PktCounterCollectionBase;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type =
        Kiv::TypeBuilder<Counters>("Test::Counters").handler("add", &Counters::add, "a", "b").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  std::int64_t add(std::int64_t a, std::int64_t b) { return a + b; }
  void acrResponse(cliprint::PrinterV2* printer) const override {
    printer->memberName("flow");
    printer->value(std::uint64_t{7});
  }
  Value::List records() const override {
    return {Value::Object{{"packets", 7}}, Value::Object{{"packets", 8}}};
  }
};

class AgentEntitiesTest : public ::testing::Test {
 protected:
  AgentEntitiesTest() {
    ports_.openWriters();
    manager_->ports = ports_.table();
    manager_->counterHolder = Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("holder");
    manager_->counterHolder->collectionIs(Kiv::makePtr<Counters>("TestCounters"));
    state_->entityIs("pexa/pluginManager", manager_);
    state_->entityIs(kConfigPath, "HwFlowTracking::Config");
  }
  ~AgentEntitiesTest() override { state_->clear(); }

  // The rows of an answer, or the error's text.
  std::vector<std::string> ask(std::string_view request) {
    std::vector<std::string> rows;
    try {
      const auto next = requests_.answer(Json::parse(request));
      while (auto row = next()) rows.push_back(Json::text(*row));
    } catch (const std::runtime_error& error) {
      rows.emplace_back(error.what());
    }
    return rows;
  }
  std::string askOne(std::string_view request) {
    const auto rows = ask(request);
    return rows.size() == 1 ? rows[0] : "rows: " + std::to_string(rows.size());
  }

  static Pexa::AgentConfig config() {
    Pexa::AgentConfig result;
    Pexa::PortConfig port;
    port.name = "Ethernet1";
    port.kind = Capture::PortKind::write;
    port.source = "/dev/null";
    result.ports.push_back(port);
    return result;
  }

  TestSupport::TempDir dir_;
  Pexa::AgentPorts ports_{config()};
  Kiv::Ptr<Mirro::StateDatabase> state_ = Kiv::makePtr<Mirro::StateDatabase>("state");
  Kiv::Ptr<Pexa::PluginManager> manager_ = Kiv::makePtr<Pexa::PluginManager>("manager");
  Pexa::NamedCounters reasons_;
  Sflow::SflowExporter exporter_{Sflow::ExporterConfig{}};
  Kiv::Ptr<Olt::TaskScheduler> tasks_ = Kiv::makePtr<Olt::TaskScheduler>("tasks");
  Skein::TraceRing ring_{std::filesystem::path(dir_.path()) / "trace.ring"};
  Kiv::Ptr<Quell::SharedTables> tables_ = Kiv::makePtr<Quell::SharedTables>("tables", dir_.path());
  Pexa::LoopSlices slices_;
  Pexa::AgentMetrics metrics_{{*manager_, ports_, reasons_, exporter_, *tasks_, *tables_, slices_}};
  Pexa::ControlRequests requests_{
      {*state_, *manager_, ports_, reasons_, exporter_, *tasks_, ring_, metrics_}};
};

TEST_F(AgentEntitiesTest, StateIsReadAndChangedByPath) {
  EXPECT_EQ(askOne(R"({"request":"state get","path":"hardware/flowtracking/config/sampled"})"),
            R"({"hwOffloadIpv4":false,"hwOffloadIpv6":false,"sampleRate":0})");
  EXPECT_TRUE(
      ask(R"({"request":"state set","path":"hardware/flowtracking/config/sampled","attribute":"sampleRate","value":9})")
          .empty());
  EXPECT_EQ(
      askOne(
          R"({"request":"state get","path":"hardware/flowtracking/config/sampled","attribute":"sampleRate"})"),
      R"({"sampleRate":9})");
}

TEST_F(AgentEntitiesTest, AWrongPathAttributeOrValueIsToldAndChangesNothing) {
  EXPECT_THAT(askOne(R"({"request":"state get","path":"no/where"})"), HasSubstr("no/where"));
  EXPECT_THAT(
      askOne(R"({"request":"state get","path":"hardware/flowtracking/config/sampled","attribute":"x"})"),
      HasSubstr("x"));
  EXPECT_THAT(
      askOne(
          R"({"request":"state set","path":"hardware/flowtracking/config/sampled","attribute":"sampleRate","value":"9"})"),
      HasSubstr("expected"));
  EXPECT_THAT(
      askOne(
          R"({"request":"state set","path":"hardware/flowtracking/config/sampled","attribute":"sampleRate"})"),
      HasSubstr("the request has no \"value\""));
  EXPECT_EQ(Kiv::ptrCast<HwFlowTracking::Config>(state_->getEntity(kConfigPath))->sampleRate(), 0U);
}

TEST_F(AgentEntitiesTest, AnyEntityIsReachedByNameAndByTheAttributesThatLeadToIt) {
  EXPECT_THAT(askOne(R"({"request":"attr get","entity":"Ethernet1"})"), HasSubstr("Ethernet1"));
  EXPECT_THAT(askOne(R"({"request":"attr get","entity":"pexa/pluginManager","name":"ports"})"),
              HasSubstr(R"({"ports":{"type":"Pexa::Ports","name":"ports"}})"));
  EXPECT_THAT(ask(R"({"request":"attr get","entity":"pexa/pluginManager.ports"})").size(), 1U);
  EXPECT_THAT(askOne(R"({"request":"attr get","entity":"pexa/pluginManager.agent"})"),
              HasSubstr("holds no entity"));
  EXPECT_THAT(askOne(R"({"request":"attr get","entity":"nobody"})"),
              HasSubstr("no entity \"nobody\", expected"));
  EXPECT_TRUE(
      ask(R"({"request":"attr set","entity":"hardware/flowtracking/config/sampled","name":"sampleRate","value":3})")
          .empty());
  EXPECT_EQ(Kiv::ptrCast<HwFlowTracking::Config>(state_->getEntity(kConfigPath))->sampleRate(), 3U);
}

TEST_F(AgentEntitiesTest, AHandlerIsCalledByNameWithItsArguments) {
  EXPECT_EQ(
      askOne(R"({"request":"attr call","entity":"TestCounters","name":"add","arguments":{"b":2,"a":40}})"),
      R"({"result":42})");
  EXPECT_THAT(askOne(R"({"request":"attr call","entity":"TestCounters","name":"add","arguments":{"a":40}})"),
              HasSubstr("b"));
  EXPECT_THAT(askOne(R"({"request":"attr call","entity":"TestCounters","name":"add","arguments":7})"),
              HasSubstr("expected an object as \"arguments\""));
}

TEST_F(AgentEntitiesTest, AnEntityIsFoundByWhatJsonTellsOfIt) {
  const Pexa::EntityFinder finder(*state_, *manager_);
  EXPECT_EQ(finder.find("Pexa::Ports", "ports"), ports_.table());
  EXPECT_EQ(finder.find("Test::Counters", "TestCounters"), manager_->counterHolder->collections()[0]);
  EXPECT_FALSE(finder.find("Pexa::Ports", "other"));
  EXPECT_FALSE(finder.find("Pexa::Port", "ports"));
}

TEST_F(AgentEntitiesTest, LocalCountersAreShownAsRecordsAndAsADisplay) {
  EXPECT_THAT(ask(R"({"request":"local"})"), ::testing::ElementsAre(R"({"packets":7})", R"({"packets":8})"));
  EXPECT_THAT(askOne(R"({"request":"local display"})"), HasSubstr("flow\\\": 7"));
}

TEST_F(AgentEntitiesTest, ReasonsAreShownWithTheirCounts) {
  reasons_.count("Drop", "Sft", "No flow status");
  reasons_.count("Drop", "Sft", "No flow status");
  EXPECT_EQ(askOne(R"({"request":"reasons"})"),
            R"({"category":"Drop","source":"Sft","reason":"No flow status","count":2})");
}

TEST_F(AgentEntitiesTest, TasksAreShownWithWhatTheyDidAndWhenTheyAreDue) {
  TestSupport::ManualClock clock;
  const auto idle = tasks_->taskIs("idle", 3);
  const auto due = tasks_->taskIs("due", 4);
  const auto timer = tasks_->timerTaskIs("timer", 5);
  due->scheduleTask();
  due->taskWorkCountInc(12);
  due->taskWorkPendingIs(3);
  timer->taskDelayIs(1.5);
  EXPECT_THAT(
      ask(R"({"request":"tasks"})"),
      ElementsAre(
          R"({"name":"idle","priority":3,"runs":0,"work":0,"pending":0,"due":null,"longestRunUs":0})",
          R"({"name":"due","priority":4,"runs":0,"work":12,"pending":3,"due":0,"longestRunUs":0})",
          R"({"name":"timer","priority":5,"runs":0,"work":0,"pending":0,"due":1.5,"longestRunUs":0})"));
}

TEST_F(AgentEntitiesTest, APortIsShownWithItsKindAndCounts) {
  const std::string row = askOne(R"({"request":"ports"})");
  EXPECT_THAT(row, ::testing::StartsWith(R"({"name":"Ethernet1","kind":"write","packetsIn":0,"bytesIn":0,)"));
  EXPECT_THAT(row, ::testing::Not(HasSubstr("replay")));
}

TEST_F(AgentEntitiesTest, AnUnknownRequestIsToldSo) {
  EXPECT_EQ(askOne(R"({"request":"dance"})"), "unknown request \"dance\"");
  EXPECT_EQ(askOne(R"({})"), "the request has no \"request\"");
  EXPECT_THAT(askOne(R"({"request":7})"), HasSubstr("a string as \"request\""));
}

TEST_F(AgentEntitiesTest, LevelsOfTracesAreShownAndSetByName) {
  const Kiv::TraceHandle handle("Test::Handle", 0);
  EXPECT_TRUE(ask(R"({"request":"trace level","name":"Test::Handle","level":4})").empty());
  EXPECT_TRUE(handle.enabled(4));
  EXPECT_FALSE(handle.enabled(5));
  EXPECT_THAT(ask(R"({"request":"trace levels"})"),
              ::testing::Contains(R"({"name":"Test::Handle","channel":"text","level":4})"));
  EXPECT_TRUE(ask(R"({"request":"trace level","name":"Test::Handle","level":-1})").empty());
  EXPECT_FALSE(handle.enabled(0));
}

TEST_F(AgentEntitiesTest, ACategoryOfTheRingIsKnownOnceItTraced) {
  static constinit Skein::CallSite site("TestRing", "file", 1, "function", Skein::Volume::event);
  EXPECT_TRUE(ring_.enabled(site));
  EXPECT_THAT(ask(R"({"request":"trace levels"})"),
              ::testing::Contains(R"({"name":"TestRing","channel":"ring","level":0})"));
  EXPECT_TRUE(ask(R"({"request":"trace level","name":"TestRing","level":-1})").empty());
  EXPECT_FALSE(ring_.enabled(site));
  EXPECT_THAT(askOne(R"({"request":"trace level","name":"TestRing","level":2})"),
              HasSubstr("expected -1 to 1"));
}

TEST_F(AgentEntitiesTest, ALevelThatCannotBeIsToldSo) {
  const Kiv::TraceHandle handle("Test::Handle", 0);
  EXPECT_THAT(askOne(R"({"request":"trace level","name":"Test::Handle","level":10})"),
              HasSubstr("level 10 of \"Test::Handle\", expected -1 to 9"));
  EXPECT_THAT(askOne(R"({"request":"trace level","name":"Nobody","level":1})"),
              HasSubstr("nothing traces as \"Nobody\", expected one of: "));
}

}  // namespace

#include "agent/PatchPanel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ManualClock.h"
#include "PacketBuilder.h"
#include "TempDir.h"
#include "capture/CaptureReader.h"
#include "capture/CaptureWriter.h"

namespace {

using TestSupport::PacketBuilder;

// Notes what it sees of each packet.
class InputNote : public Pexa::InputPipelineStep {
 public:
  InputNote() : InputPipelineStep("note", 1) {}
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type("Test::InputNote", nullptr);
    return type;
  }
  Pexa::StepResult process(Pexa::PacketContext context) override {
    vlans.push_back(context.vlanId().raw());
    numbers.push_back(context.packetNumber());
    filters.emplace_back(context.matchingTraceFilter());
    ports.push_back(context.inputPort()->name());
    times.push_back(Kiv::System::currentTimeUtc());
    return context.vlanId().raw() == stoppedVlan ? Pexa::StepResult::stop : Pexa::StepResult::proceed;
  }
  std::vector<std::uint16_t> vlans;
  std::vector<std::uint64_t> numbers;
  std::vector<std::string> filters, ports;
  std::vector<double> times;
  std::uint16_t stoppedVlan = 0xffff;
};

class OutputNote : public Pexa::OutputPipelineStep {
 public:
  OutputNote() : OutputPipelineStep("note", 1) {}
  const Kiv::Type& fwkType() const override {
    static const Kiv::Type type("Test::OutputNote", nullptr);
    return type;
  }
  Pexa::StepResult process(Pexa::OutputPipelineContext context) override {
    ways.push_back(context.inputPort()->name() + ">" + context.outputPort()->name());
    return Pexa::StepResult::proceed;
  }
  std::vector<std::string> ways;
};

class PatchPanelTest : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return dir_.path() + "/" + name; }

  void write(const std::string& name, const std::vector<TestSupport::Packet>& packets) const {
    Capture::CaptureWriter writer(file(name));
    for (const auto& packet : packets) writer.write(packet.pkt(), 1.0);
    writer.flush();
  }
  Pexa::PortConfig port(const std::string& name, Capture::PortKind kind, const std::string& source) const {
    Pexa::PortConfig result;
    result.name = name;
    result.kind = kind;
    result.source = file(source);
    result.vlan = 5;
    return result;
  }
  // "in" replays the packets and is patched to "out".
  Pexa::AgentConfig config(const std::vector<TestSupport::Packet>& packets) const {
    write("in.pcap", packets);
    Pexa::AgentConfig result;
    result.ports = {port("in", Capture::PortKind::capture, "in.pcap"),
                    port("out", Capture::PortKind::write, "out.pcap")};
    result.forwards = {{"in", "out", {}}};
    return result;
  }
  std::vector<std::string> framesOf(const std::string& name) const {
    std::vector<std::string> frames;
    Capture::CaptureReader reader(file(name));
    for (Capture::ReceivedPacket packet; reader.next(packet) == Capture::CaptureReader::Result::packet;) {
      frames.emplace_back(reinterpret_cast<const char*>(packet.pkt.front()), packet.pkt.capturedLength());
    }
    return frames;
  }
  void runAll(Pexa::AgentPorts& ports) {
    ports.openWriters();
    Pexa::PatchPanel panel(ports, steps_, reasons_, filters_);
    while (panel.runRound() != 0) continue;
    ports.flush();
  }

  TestSupport::TempDir dir_;
  Kiv::Ptr<InputNote> input_ = Kiv::makePtr<InputNote>();
  Kiv::Ptr<OutputNote> output_ = Kiv::makePtr<OutputNote>();
  Kiv::Ptr<Pexa::AllGenericPipelineSteps> steps_ = [this] {
    auto steps = Kiv::makePtr<Pexa::AllGenericPipelineSteps>("steps");
    steps->addStep(input_);
    steps->addStep(output_);
    return steps;
  }();
  Pexa::NamedCounters reasons_;
  Capture::TraceFilters filters_;
};

std::vector<TestSupport::Packet> somePackets() {
  return {PacketBuilder().ipv4("10.0.0.1", "10.0.0.2").udp(1, 2).payload(10).build(),
          PacketBuilder().vlan(7, 0x8100, 3).ipv4("10.0.0.1", "10.0.0.2").tcp(3, 4).build(),
          PacketBuilder().vlan(0).ipv6("fd00::1", "fd00::2").udp(5, 6).build(),
          PacketBuilder().etherType(0x0806).payload(28).build()};
}

TEST_F(PatchPanelTest, FramesLeaveUntouchedWhereTheirPortIsPatchedTo) {
  Pexa::AgentPorts ports(config(somePackets()));
  runAll(ports);
  EXPECT_EQ(framesOf("out.pcap"), framesOf("in.pcap"));
  EXPECT_THAT(output_->ways, ::testing::ElementsAre("in>out", "in>out", "in>out", "in>out"));
  EXPECT_EQ(ports.all()[1].device->counts().packetsOut, 4U);
}

TEST_F(PatchPanelTest, AnUntaggedPacketHasItsPortsVlanAndAPriorityTagHasVlanZero) {
  Pexa::AgentPorts ports(config(somePackets()));
  runAll(ports);
  EXPECT_THAT(input_->vlans, ::testing::ElementsAre(5, 7, 0, 5));
}

TEST_F(PatchPanelTest, PacketsAreNumberedAcrossPortsFromOne) {
  Pexa::AgentConfig two = config(somePackets());
  two.ports.push_back(port("in2", Capture::PortKind::capture, "in.pcap"));
  Pexa::AgentPorts ports(two);
  runAll(ports);
  EXPECT_THAT(input_->numbers, ::testing::ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_EQ(input_->ports.back(), "in2");
}

TEST_F(PatchPanelTest, AStoppedPacketDoesNotLeave) {
  input_->stoppedVlan = 7;
  Pexa::AgentPorts ports(config(somePackets()));
  runAll(ports);
  EXPECT_EQ(framesOf("out.pcap").size(), 3U);
  EXPECT_EQ(output_->ways.size(), 3U);
}

TEST_F(PatchPanelTest, APortThatIsPatchedNowhereOnlyReceives) {
  Pexa::AgentConfig alone = config(somePackets());
  alone.forwards.clear();
  Pexa::AgentPorts ports(alone);
  runAll(ports);
  EXPECT_EQ(input_->vlans.size(), 4U);
  EXPECT_TRUE(output_->ways.empty());
  EXPECT_EQ(ports.all()[1].device->counts().packetsOut, 0U);
}

TEST_F(PatchPanelTest, APacketCarriesTheTraceFilterThatItMatches) {
  filters_.filterIs("udp", "udp");
  Pexa::AgentPorts ports(config(somePackets()));
  runAll(ports);
  EXPECT_THAT(input_->filters, ::testing::ElementsAre("udp", "", "", ""));
}

TEST_F(PatchPanelTest, TheClockIsReadOnceARoundHoweverManyPacketsAskForIt) {
  Pexa::AgentPorts ports(config(somePackets()));
  ports.openWriters();
  TestSupport::ManualClock clock;
  Pexa::PatchPanel panel(ports, steps_, reasons_, filters_);
  EXPECT_EQ(panel.runRound(), 4U);
  EXPECT_EQ(clock.reads(), 1U);
  EXPECT_EQ(input_->times.size(), 4U);
}

}  // namespace

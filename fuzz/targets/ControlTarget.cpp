// Any bytes from a client of the agent's control socket: each line is answered by rows and one end, or by an
// error, whatever it asks; the next line is answered, too.
#include <spdlog/spdlog.h>

#include <algorithm>
#include <asio.hpp>
#include <string>

#include "ControlClient.h"
#include "FuzzTarget.h"
#include "HwFlowTracking.h"
#include "PexaSftHoCounterCollection.h"
#include "TempDir.h"
#include "agent/ControlRequests.h"
#include "agent/LoopSlices.h"

namespace {

constexpr const char* kTracking = "hardware/flowtracking/config/sampled";

Pexa::AgentConfig onePort() {
  Pexa::AgentConfig config;
  Pexa::PortConfig port;
  port.name = "Ethernet1";
  port.kind = Capture::PortKind::write;
  port.source = "/dev/null";
  config.ports.push_back(port);
  return config;
}

// What is expensive to make, and nothing asks about but its numbers.
struct Lasting {
  TestSupport::TempDir dir;
  Skein::TraceRing ring{std::filesystem::path(dir.path()) / "trace.ring"};
  Kiv::Ptr<Quell::SharedTables> tables = Kiv::makePtr<Quell::SharedTables>("tables", dir.path());
};
Lasting& lasting() {
  static Lasting one;
  return one;
}

// An agent's parts, as its control socket knows them.
class Agent {
 public:
  Agent() {
    ports_.openWriters();
    manager_->ports = ports_.table();
    manager_->counterHolder = Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("holder");
    const auto counters =
        Pexa::Counter::PexaSftHoCounterCollection::PexaSftHoCounterCollectionIs("SftHardwareOffload");
    counters->counterCollectionIs({})->hoCount(Pavo::IntfId("Ethernet1"), 100);
    counters->counterIp6CollectionIs({})->hoCount(Pavo::IntfId("Ethernet1"), 100);
    manager_->counterHolder->collectionIs(counters);
    state_->entityIs("pexa/pluginManager", manager_);
    state_->entityIs(kTracking, Kiv::makePtr<HwFlowTracking::Config>(kTracking));
    for (const char* path : {"sflow/hwconfigdir/sflow", "sflow/hwconfigdir/sampledflowtracker"})
      state_->entityIs(path, Kiv::makePtr<Sflow::HwConfig>(path));
    reasons_.count("Drop", "Sft", "No flow status");
  }
  ~Agent() { state_->clear(); }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  std::string answerTo(std::string_view lines) {
    FuzzSupport::ControlClient client(path_);
    client.send(lines);
    return client.answers([this] {
      io_.poll();
      io_.restart();
    });
  }

 private:
  asio::io_context io_;
  Pexa::AgentPorts ports_{onePort()};
  Kiv::Ptr<Mirro::StateDatabase> state_ = Kiv::makePtr<Mirro::StateDatabase>("state");
  Kiv::Ptr<Pexa::PluginManager> manager_ = Kiv::makePtr<Pexa::PluginManager>("manager");
  Pexa::NamedCounters reasons_;
  Sflow::SflowExporter exporter_{Sflow::ExporterConfig{}};
  Kiv::Ptr<Olt::TaskScheduler> tasks_ = Kiv::makePtr<Olt::TaskScheduler>("tasks");
  Pexa::LoopSlices slices_;
  Pexa::AgentMetrics metrics_{{*manager_, ports_, reasons_, exporter_, *tasks_, *lasting().tables, slices_}};
  Pexa::ControlRequests requests_{
      {*state_, *manager_, ports_, reasons_, exporter_, *tasks_, lasting().ring, metrics_}};
  const std::filesystem::path path_ = std::filesystem::path(lasting().dir.path()) / "control.sock";
  Pexa::ControlSocket socket_{io_, path_,
                              [this](const Kiv::Value& request) { return requests_.answer(request); }};
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  spdlog::set_level(spdlog::level::off);
  if (size >= Pexa::ControlSocket::kMostRequestBytes)
    return 0;  // one line too long: the connection ends with it
  std::string lines(reinterpret_cast<const char*>(data), size);
  lines += '\n';
  Agent agent;
  FuzzSupport::requireAnswers(agent.answerTo(lines),
                              static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n')));
  return 0;
}

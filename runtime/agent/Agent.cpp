#include "Agent.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <asio.hpp>
#include <csignal>
#include <optional>

#include "AgentPorts.h"
#include "AgentWork.h"
#include "ControlRequests.h"
#include "ControlSocket.h"
#include "EventLoop.h"
#include "HwFlowTracking.h"
#include "HwFlowWatcher.h"
#include "PatchPanel.h"
#include "PluginLibrary.h"
#include "ReplayProgress.h"
#include "RunDir.h"
#include "Sflow.h"
#include "TaskWork.h"
#include "capture/CaptureError.h"
#include "capture/TraceFilters.h"
#include "mirro/StateDatabase.h"
#include "pexa/NamedCounters.h"
#include "quell/SharedTables.h"
#include "sflow/SflowExporter.h"
#include "skein/TraceRing.h"

namespace Pexa {
namespace {

constexpr std::string_view kStatusDirPath = "interface/status/eth/intf";

std::vector<std::unique_ptr<Sflow::DatagramChannel>> collectorChannels(const AgentConfig& config) {
  std::vector<std::unique_ptr<Sflow::DatagramChannel>> channels;
  if (!config.sflow) return channels;
  for (const SflowConfig::Collector& collector : config.sflow->collectors) {
    try {
      channels.push_back(Sflow::udpChannel(collector.text));
    } catch (const Kiv::ValueError& error) {
      throw ConfigError(collector.place, error.what());
    }
  }
  return channels;
}

Sflow::ExporterConfig exporterConfig(const AgentConfig& config) {
  Sflow::ExporterConfig result;
  if (config.sflow) result.agent = config.sflow->agent;
  if (!config.sflow) result.counterInterval = 0;
  return result;
}

// Entities that are there whatever the plugins mount: what this agent can do, and sFlow's configurations,
// which an operator may set at run time without having configured them.
template <class Entity>
void entityIs(Mirro::StateDatabase& state, const Kiv::String& path) {
  state.entityIs(path, Kiv::makePtr<Entity>(path));
}

// The rights of root were for the ports. One that is live keeps what it takes to open its interface again.
struct RightsGivenUp {
  explicit RightsGivenUp(const AgentConfig& config) {
    if (!config.security.user) return;
    Guard::become(*config.security.user,
                  config.hasLivePorts() ? Guard::Keep::rawPackets : Guard::Keep::nothing);
  }
};

}  // namespace

class Agent::Impl {
 public:
  explicit Impl(const AgentConfig& config)
      : config_(config),
        runDir_(config.runDir, config.security.user),
        ports_(config),
        rights_(config),
        trace_(config.runDir / Skein::TraceRing::kFileName),
        exporter_(exporterConfig(config), &ports_, collectorChannels(config)),
        panel_(ports_, steps_, reasons_, filters_),
        loop_(io_, ports_, panel_),
        exportWork_(exporter_),
        statusWork_(ports_, statusDir_),
        tableWork_(*sharedMem_),
        taskWork_(tasks_),
        metrics_({*manager_, ports_, reasons_, exporter_, *tasks_, *sharedMem_, loop_.slices()}),
        requests_({*state_, *manager_, ports_, reasons_, exporter_, *tasks_, trace_, metrics_}) {
    Skein::agentTraceHandleIs(&trace_);
    ports_.table()->sampleReceiverIs(&exporter_);
    loop_.workIs(&exportWork_);
    loop_.workIs(&statusWork_);
    loop_.workIs(&tableWork_);
    loop_.workIs(&taskWork_);
    loop_.workIs(&replayProgress_);
  }
  ~Impl() { takeDown(); }

  void start() {
    setUpTracing();
    listenForMetrics();
    setUpState();
    loadPlugins();
    mountAll();
    for (const auto& plugin : manager_->plugins()) {
      config_.mode == PexaMode::active ? plugin->activeInit(config_.mode) : plugin->standbyInit(config_.mode);
    }
    ports_.openWriters();
    ports_.statusInto(*statusDir_);
    control_.emplace(
        io_, runDir_.controlSocket(),
        [this](const Kiv::Value& request) {
          loop_.slices().begin();
          auto rows = requests_.answer(request);
          loop_.slices().ended(controlSlices_);
          return rows;
        },
        ControlSocket::Access{config_.security.groups, &ControlRequests::changes});
    if (endpoint_) {
      endpoint_->serve(io_, [this] { return metrics_.snapshot(); });
      spdlog::info("metrics at http://{}/metrics", endpoint_->listening().text());
    }
  }

  int run(bool untilEnd) {
    asio::signal_set signals(io_, SIGTERM, SIGINT);
    signals.async_wait([this](const asio::error_code& error, int signal) {
      if (error) return;
      spdlog::info("signal {}: ending", signal);
      loop_.stop();
      signalled_ = true;
    });
    spdlog::info("ready: {} ports, run directory {}", ports_.all().size(), config_.runDir.native());
    loop_.run(untilEnd);
    return !signalled_ && ports_.anyDamaged() ? 1 : 0;
  }

  void stop() { loop_.stop(); }

 private:
  void setUpTracing() {
    for (const TraceLevelConfig& level : config_.traceLevels)
      Kiv::TraceHandle::levelIs(level.handle, level.most);
    for (const TraceFilterConfig& filter : config_.traceFilters) {
      try {
        filters_.filterIs(filter.name, filter.expression);
      } catch (const Capture::CaptureError& error) {
        throw ConfigError(filter.place, error.what());
      }
    }
  }

  // First: a start that is refused has changed nothing.
  void listenForMetrics() {
    if (!config_.metrics) return;
    const auto& [listen, place] = *config_.metrics;
    try {
      endpoint_.emplace(listen);
    } catch (const std::runtime_error& error) {
      throw ConfigError(place, fmt::format("[metrics] cannot listen on {}: {}, expected an address of this "
                                           "machine and a free port",
                                           listen.text(), error.what()));
    }
  }

  void setUpState() {
    for (const StateConfig& state : config_.states) {
      std::vector<Mirro::ConfiguredValue> values;
      for (const auto& each : state.attributes) {
        values.push_back({each.name, each.value, each.place.file, each.place.line});
      }
      state_->configurationIs(state.path, std::move(values), state.place.file, state.place.line);
    }
    manager_->agent = Kiv::makePtr<PexaAgent>("agent", sharedMem_);
    manager_->ports = ports_.table();
    manager_->counterHolder = Kiv::makePtr<Counter::PktCounterCollectionHolder>("counterCollections");
    manager_->steps = steps_;
    state_->entityIs(Kiv::String(PluginManager::kPath), manager_);
    state_->entityIs(Kiv::String(kStatusDirPath), statusDir_);
    entityIs<HwFlowTracking::Capabilities>(*state_, "hardware/flowtracking/capabilities/sampled");
    entityIs<HwFlowWatcher::Capabilities>(*state_, "hardware/flowwatcher/capabilities");
    entityIs<Sflow::HwConfig>(*state_, "sflow/hwconfigdir/sflow");
    entityIs<Sflow::HwConfig>(*state_, "sflow/hwconfigdir/sampledflowtracker");
    ports_.statusInto(*statusDir_);
  }

  void loadPlugins() {
    for (const PluginConfig& plugin : config_.plugins) libraries_.emplace_back(plugin);
    const auto context = Kiv::makePtr<PluginContext>("pluginContext", state_, manager_->agent);
    DefaultPluginLoader().initPlugins(context.get());
    for (const auto& plugin : manager_->plugins()) plugin->doMounts(context);
  }

  void mountAll() {
    while (state_->completeMounts()) continue;
    state_->checkConfiguration();
    if (!state_->failedMounts().empty()) {
      const auto& [mount, reason] = state_->failedMounts().front();
      throw std::runtime_error(fmt::format(
          "state \"{}\": cannot be mounted as {} with flags \"{}\": {}, expected every mount of a "
          "plugin to be done",
          mount.path(), mount.typeName(), mount.flags(), reason));
    }
    for (const auto& plugin : manager_->plugins()) {
      if (plugin->mountsAreComplete()) continue;
      throw std::runtime_error(
          fmt::format("plugin {}: its mounts did not complete, expected it to close its mount "
                      "group",
                      plugin->name()));
    }
  }

  // Also after a start that failed half way. The order matters: what a plugin gave the agent goes before the
  // plugin's code does, and the exporter and the trace are there until the plugin's last object is gone.
  void takeDown() {
    endpoint_.reset();
    control_.reset();
    steps_->clear();
    if (manager_->counterHolder) manager_->counterHolder->clear();
    manager_->pluginDelAll();
    state_->clear();
    manager_->agent.reset();
    sharedMem_.reset();
    while (!libraries_.empty()) libraries_.pop_back();
    ports_.table()->sampleReceiverIs(nullptr);
    Skein::agentTraceHandleIs(nullptr);
  }

  const AgentConfig config_;
  asio::io_context io_;
  RunDir runDir_;
  AgentPorts ports_;
  const RightsGivenUp rights_;  // what stands below was made, and goes on, without them
  Skein::TraceRing trace_;
  const Kiv::Ptr<Mirro::StateDatabase> state_ = Kiv::makePtr<Mirro::StateDatabase>("stateDatabase");
  Kiv::Ptr<Quell::SharedTables> sharedMem_ = Kiv::makePtr<Quell::SharedTables>("sharedMem", config_.runDir);
  const Kiv::Ptr<PluginManager> manager_ = Kiv::makePtr<PluginManager>("pluginManager");
  const Kiv::Ptr<AllGenericPipelineSteps> steps_ = Kiv::makePtr<AllGenericPipelineSteps>("pipelineSteps");
  const Kiv::Ptr<Interface::EthIntfStatusDir> statusDir_ =
      Kiv::makePtr<Interface::EthIntfStatusDir>(Kiv::String(kStatusDirPath));
  const Kiv::Ptr<Olt::TaskScheduler> tasks_ = Olt::TaskSchedulerRoot::findOrCreateScheduler();
  Sflow::SflowExporter exporter_;
  Capture::TraceFilters filters_;
  NamedCounters reasons_;
  PatchPanel panel_;
  EventLoop loop_;
  ExportWork exportWork_;
  PortStatusWork statusWork_;
  TableWork tableWork_;
  TaskWork taskWork_;
  ReplayProgress replayProgress_{ports_};
  std::vector<PluginLibrary> libraries_;
  AgentMetrics metrics_;
  const LoopSlices::Kind controlSlices_ = loop_.slices().kindIs("control");
  ControlRequests requests_;
  std::optional<ControlSocket> control_;
  std::optional<Metrics::MetricEndpoint> endpoint_;
  bool signalled_ = false;
};

Agent::Agent(const AgentConfig& config) : impl_(std::make_unique<Impl>(config)) {
  impl_->start();
}

Agent::~Agent() = default;

int Agent::run(bool untilEnd) {
  return impl_->run(untilEnd);
}

void Agent::stop() {
  impl_->stop();
}

}  // namespace Pexa

#include "ConfigReactor.h"

namespace SampledFlowTracker {

using HwFlowTracking::Config;
using Watcher = SftPexaFtHoConfigReactor::KivSftHwTrackingConfig;

Watcher::~KivSftHwTrackingConfig() {
  Watcher::kivDoZombieReactors(true);
}

void Watcher::onAttribute(Kiv::AttributeId attribute) {
  if (zombie() || owner_ == nullptr) return;
  if (attribute == Config::hwOffloadIpv4Attr) owner_->handleHwOffloadIpv4();
  if (attribute == Config::hwOffloadIpv6Attr) owner_->handleHwOffloadIpv6();
}

void Watcher::kivDoZombieReactors(bool zombie) {
  NotifieeConst::kivDoZombieReactors(zombie);
}

Kiv::Ptr<const Config> Watcher::config() const {
  return Kiv::ptrCast<const Config>(notifier());
}

void Watcher::notifierIs(const Kiv::Ptr<const Config>& config) {
  if (config == notifier()) return;
  NotifieeConst::notifierIs(config);
  if (!zombie() && owner_ != nullptr) owner_->handleInitialized();
}

SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactor(const Kiv::Ptr<const Config>& config,
                                                   const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus) {
  sftHwTrackingConfigIs(config);
  if (config_) config_->hasNotificationActiveIs(true);
  hoStatus_ = hoStatus;
  handleInitialized();
}

SftPexaFtHoConfigReactor::~SftPexaFtHoConfigReactor() {
  SftPexaFtHoConfigReactor::kivDoZombieReactors(true);
  if (config_) config_->ownerIs(nullptr);
  config_.reset();
}

Kiv::Ptr<SftPexaFtHoConfigReactor> SftPexaFtHoConfigReactor::SftPexaFtHoConfigReactorIs(
    const Kiv::Ptr<const Config>& config, const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus) {
  return Kiv::makePtr<SftPexaFtHoConfigReactor>(config, hoStatus);
}

const Kiv::Type& SftPexaFtHoConfigReactor::kivType() {
  using Self = SftPexaFtHoConfigReactor;
  static const Kiv::Type type =
      Kiv::TypeBuilder<Self>("SampledFlowTracker::SftPexaFtHoConfigReactor")
          .attribute("sftHwTrackingConfig", &Self::sftHwTrackingConfig, &Self::sftHwTrackingConfigIs)
          .attribute("hoStatus", &Self::hoStatus, &Self::hoStatusIs)
          .handler("handleHwOffloadIpv4", &Self::handleHwOffloadIpv4)
          .handler("handleHwOffloadIpv6", &Self::handleHwOffloadIpv6)
          .handler("handleInitialized", &Self::handleInitialized)
          .constructor(&Self::SftPexaFtHoConfigReactorIs, "sftHwTrackingConfig", "hoStatus")
          .build();
  return type;
}

void SftPexaFtHoConfigReactor::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  PtrInterface::hasNotificationActiveIs(active);
  if (config_) config_->hasNotificationActiveIs(active);
}

void SftPexaFtHoConfigReactor::kivDoZombieReactors(bool zombie) {
  if (zombie == zombie_) return;
  if (config_) config_->kivDoZombieReactors(zombie);
  zombie_ = zombie;
}

Kiv::Ptr<const Config> SftPexaFtHoConfigReactor::sftHwTrackingConfig() const {
  return config_ ? config_->config() : nullptr;
}

void SftPexaFtHoConfigReactor::sftHwTrackingConfigIs(const Kiv::Ptr<const Config>& config) {
  if (!config_) {
    if (!config) return;
    config_ = Kiv::makePtr<KivSftHwTrackingConfig>(this);
    config_->hasNotificationActiveIs(hasNotificationActive());
  }
  config_->notifierIs(config);
}

void SftPexaFtHoConfigReactor::handleHwOffloadIpv4() {
  using FlowTracking::HoStatus;
  mirror(&Config::hwOffloadIpv4, &HoStatus::v4enabledIs, &HoStatus::egressV4EnabledIs);
}

void SftPexaFtHoConfigReactor::handleHwOffloadIpv6() {
  using FlowTracking::HoStatus;
  mirror(&Config::hwOffloadIpv6, &HoStatus::v6enabledIs, &HoStatus::egressV6EnabledIs);
}

void SftPexaFtHoConfigReactor::handleInitialized() {
  handleHwOffloadIpv4();
  handleHwOffloadIpv6();
}

void SftPexaFtHoConfigReactor::mirror(Enable wanted, EnableIs ingressIs, EnableIs egressIs) {
  const auto enabled = [&] {
    const auto config = sftHwTrackingConfig();
    return config && ((*config).*wanted)();
  };
  // Each write may reach a reactor that changes the configuration or takes the status away.
  if (hoStatus_) ((*hoStatus_).*ingressIs)(enabled());
  if (hoStatus_) ((*hoStatus_).*egressIs)(enabled());
}

}  // namespace SampledFlowTracker

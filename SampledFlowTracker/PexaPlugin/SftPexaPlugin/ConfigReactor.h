// Mirrors the offload enables of the hardware flow-tracking configuration into the plugin's offload status,
// so that the packet path and the state machine read one status object.
//
// Level-triggered: each handler reads what the configuration says now and writes it, the ingress field first;
// nothing is remembered, so a notification too many does no harm. The egress enables follow the same
// configuration fields as the ingress ones: the configuration has no egress setting of its own.
// Threading: the agent's event thread.
#pragma once

#include "HoStatus.h"
#include "HwFlowTracking.h"
#include "Kiv.h"

namespace SampledFlowTracker {

class SftPexaFtHoConfigReactor : public Kiv::PtrInterface {
 public:
  class KivSftHwTrackingConfig;

  // Brings the status up to date at once. Without a configuration every enable is off; without a status
  // nothing is written.
  SftPexaFtHoConfigReactor(const Kiv::Ptr<const HwFlowTracking::Config>& config,
                           const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus);
  ~SftPexaFtHoConfigReactor() override;
  // The factory. The reactor's own notifications are left to its owner to activate.
  static Kiv::Ptr<SftPexaFtHoConfigReactor> SftPexaFtHoConfigReactorIs(
      const Kiv::Ptr<const HwFlowTracking::Config>& config, const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus);
  static const Kiv::Type& kivType();

  // Also switches the watching of the configuration.
  void hasNotificationActiveIs(bool active) override;
  const Kiv::Type& fwkType() const override { return kivType(); }
  // Flags the reactor, after what it watches with, for deletion; flagged, it ignores the configuration.
  virtual void kivDoZombieReactors(bool zombie);

  // Empty when there is none.
  Kiv::Ptr<const HwFlowTracking::Config> sftHwTrackingConfig() const;
  // Watches another configuration; a different one is mirrored at once.
  void sftHwTrackingConfigIs(const Kiv::Ptr<const HwFlowTracking::Config>& config);
  const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus() const { return hoStatus_; }
  // Writes to another status from the next change on.
  void hoStatusIs(const Kiv::Ptr<FlowTracking::HoStatus>& hoStatus) { hoStatus_ = hoStatus; }

  void handleHwOffloadIpv4();
  void handleHwOffloadIpv6();
  void handleInitialized();

 private:
  using Enable = bool (HwFlowTracking::Config::*)() const;
  using EnableIs = void (FlowTracking::HoStatus::*)(bool);
  void mirror(Enable wanted, EnableIs ingressIs, EnableIs egressIs);

  Kiv::Ptr<KivSftHwTrackingConfig> config_;
  Kiv::Ptr<FlowTracking::HoStatus> hoStatus_;
  bool zombie_ = false;
};

// Watches the configuration on behalf of a reactor.
class SftPexaFtHoConfigReactor::KivSftHwTrackingConfig : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit KivSftHwTrackingConfig(SftPexaFtHoConfigReactor* owner) : owner_(owner) {}
  ~KivSftHwTrackingConfig() override;

  void onAttribute(Kiv::AttributeId attribute) override;
  void kivDoZombieReactors(bool zombie) override;

  Kiv::Ptr<const HwFlowTracking::Config> config() const;
  // Watches another configuration and has the owner mirror it; the same one again does nothing.
  void notifierIs(const Kiv::Ptr<const HwFlowTracking::Config>& config);
  // Null once the owner is gone; the notifiee may outlive it while a notification is being delivered.
  void ownerIs(SftPexaFtHoConfigReactor* owner) { owner_ = owner; }

 private:
  SftPexaFtHoConfigReactor* owner_;
};

}  // namespace SampledFlowTracker

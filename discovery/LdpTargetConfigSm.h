#pragma once
// Decides which targets of targeted discovery exist, from the static targets
// of the configuration and the targets that pseudowires ask for, and their
// Hello timing.
#include "entities/LdpSm.h"
#include "discovery/LdpReactors.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpTargetConfigSm : public LdpSm {
 public:
   static Vek::Ptr<LdpTargetConfigSm> LdpTargetConfigSmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<Config const> const& config,
      Vek::Ptr<LdpTargetConfigColl> const& ldpTargetConfigColl,
      Vek::Ptr<LdpTargetStatusColl const> const& ldpTargetStatusColl,
      Vek::Ptr<PwTargetConfigColl const> const& pwTargetConfigColl,
      Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
      Vek::Ptr<LdpIndex const> const& ldpIndex) {
      return Vek::makeSm<LdpTargetConfigSm>(instId, protoConfig, config, ldpTargetConfigColl,
                                            ldpTargetStatusColl, pwTargetConfigColl,
                                            ldpAdjStatusColl, ldpIndex);
   }
   LdpTargetConfigSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                     Vek::Ptr<Config const> const& config,
                     Vek::Ptr<LdpTargetConfigColl> const& ldpTargetConfigColl,
                     Vek::Ptr<LdpTargetStatusColl const> const& ldpTargetStatusColl,
                     Vek::Ptr<PwTargetConfigColl const> const& pwTargetConfigColl,
                     Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                     Vek::Ptr<LdpIndex const> const& ldpIndex);

   Vek::Ptr<ProtoConfig const> const& protoConfig() const { return protoConfig_; }

   void handleInitialized();
   void updateLdpTargetCommonConfig();
   void handleStaticTarget(Nolu::IpGenAddr const& address);
   void handlePwTarget(Nolu::IpGenAddr const& address);
   void handleTargetConfig();
   void handleTargetConfig(Nolu::IpAddr const& address);
   void updateTargetConfig(Nolu::IpAddr const& address);
   void updateTargetConfigHoldTime(Nolu::IpAddr const& address);
   void updateTargetConfigInterval(Nolu::IpAddr const& address);
   void handleLdpAdjStatus(LdpAdjId const& adjId);
   void handleTargetMembership(Nolu::IpAddr const& address) { handleTargetConfig(address); }
   // Collection reactors: they keep the per-member reactors.
   void handleAdjTargetConfigEntry(Nolu::IpAddr const& address);
   void handleAdjStatusEntry(LdpAdjId const& adjId);

 private:
   U16 targetedHelloHoldTime() const;
   U16 targetedHelloInterval() const;

   class ProtoConfigReactor
      : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpTargetConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIpTransportAddr() override {
         fwd([](auto* sm) { sm->updateLdpTargetCommonConfig(); });
      }
      void onLdpIdentifier() override { fwd([](auto* sm) { sm->updateLdpTargetCommonConfig(); }); }
      void onStaticTarget(Nolu::IpGenAddr const& k) override {
         fwd([&k](auto* sm) { sm->handleStaticTarget(k); });
      }
   };
   class PwTargetReactor
      : public Vek::CustomReactor<PwTargetConfigColl::NotifieeConst, LdpTargetConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onPwTarget(Nolu::IpGenAddr const& k) override {
         fwd([&k](auto* sm) { sm->handlePwTarget(k); });
      }
   };
   class ConfigReactor : public Vek::CustomReactor<Config::NotifieeConst, LdpTargetConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onTargetedHelloHoldTime() override { fwd([](auto* sm) { sm->handleTargetConfig(); }); }
      void onTargetedHelloInterval() override { fwd([](auto* sm) { sm->handleTargetConfig(); }); }
   };
   class TargetConfigCollReactor
      : public Vek::CustomReactor<LdpTargetConfigColl::NotifieeConst, LdpTargetConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjTargetConfig(Nolu::IpAddr const& k) override {
         fwd([&k](auto* sm) { sm->handleAdjTargetConfigEntry(k); });
      }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpTargetConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleAdjStatusEntry(k); });
      }
   };
   class TargetConfigReactor
      : public KeyedReactor<LdpTargetConfig::NotifieeConst, LdpTargetConfigSm, Nolu::IpAddr> {
    public:
      using KeyedReactor::KeyedReactor;
      void onTargetMembership(LdpTargetMembership const&) override { fire(); }
   };
   class AdjStatusReactor
      : public KeyedReactor<LdpAdjStatus::NotifieeConst, LdpTargetConfigSm, LdpAdjId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onOperHoldTime() override { fire(); }
   };

   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<Config const> config_;
   Vek::Ptr<LdpTargetConfigColl> ldpTargetConfigColl_;
   Vek::Ptr<LdpTargetStatusColl const> ldpTargetStatusColl_;
   Vek::Ptr<PwTargetConfigColl const> pwTargetConfigColl_;
   Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl_;
   Vek::Ptr<LdpIndex const> ldpIndex_;

   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<PwTargetReactor> pwTargetConfigCollReactor_;
   Vek::Input<ConfigReactor> configReactor_;
   Vek::Input<TargetConfigCollReactor> ldpTargetConfigCollReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::ReactorColl<Nolu::IpAddr, TargetConfigReactor> adjTargetConfig_;
   Vek::ReactorColl<LdpAdjId, AdjStatusReactor> adjStatus_;
};

}  // namespace Ldp

#pragma once
// Fills in the Hello timing and address of every link that LDP runs on, and
// the values that all links share. Interface and adjacency events come in
// bursts, so they are coalesced per interface through a work queue.
#include "entities/LdpSm.h"
#include "discovery/LdpReactors.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpLinkConfigSm : public LdpSm {
 public:
   static Vek::Ptr<LdpLinkConfigSm> LdpLinkConfigSmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<Config const> const& config, Vek::Ptr<Bridging::Config const> const& bridgingConfig,
      Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
      Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
      Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
      Vek::Ptr<LdpLinkStatusColl const> const& ldpLinkStatusColl,
      Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpLinkConfigSm>(instId, protoConfig, config, bridgingConfig,
                                          allIntfStatusDir, vrfIpIntfStatus, ldpLinkConfigColl,
                                          ldpLinkStatusColl, ldpAdjStatusColl, scheduler);
   }
   LdpLinkConfigSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                   Vek::Ptr<Config const> const& config,
                   Vek::Ptr<Bridging::Config const> const& bridgingConfig,
                   Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                   Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
                   Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
                   Vek::Ptr<LdpLinkStatusColl const> const& ldpLinkStatusColl,
                   Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                   Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   Vek::Ptr<ProtoConfig const> const& protoConfig() const { return protoConfig_; }
   U32 timerExpireCount() const { return timerExpireCount_; }
   std::size_t linkConfigWorkQueueSize() const { return linkConfigWorkQueue_.size(); }
   Hesk::TimerTask* ldpLinkConfigTimerTask() const { return ldpLinkConfigTimerTask_.ptr(); }

   void handleInitialized();
   void handleDelete() override;
   void updateLdpLinkCommonConfig();
   void handleLdpLinkConfig(Nolu::IntfId const& intfId);
   void handleLinkConfigTimerTask();
   void updateLdpLinkConfig(Nolu::IntfId const& intfId);
   void updateLdpLinkConfig();
   void updateLdpLinkConfigHoldTime(Nolu::IntfId const& intfId);
   void updateLdpLinkConfigInterval(Nolu::IntfId const& intfId);
   void handleIntfStatus(Nolu::IntfId const& intfId);
   void handleLdpAdjStatus(LdpAdjId const& adjId);
   // Collection reactors: they keep the per-member reactors.
   void handleIntfStatusEntry(Nolu::IntfId const& intfId);
   void handleIpIntfStatusEntry(Nolu::IntfId const& intfId);
   void handleAdjStatusEntry(LdpAdjId const& adjId);

 private:
   U16 helloHoldTime() const;
   U16 helloInterval() const;

   class ProtoConfigReactor
      : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIpTransportAddr() override { fwd([](auto* sm) { sm->updateLdpLinkCommonConfig(); }); }
      void onLdpIdentifier() override { fwd([](auto* sm) { sm->updateLdpLinkCommonConfig(); }); }
   };
   class ConfigReactor : public Vek::CustomReactor<Config::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onHelloHoldTime() override { fwd([](auto* sm) { sm->updateLdpLinkConfig(); }); }
      void onHelloInterval() override { fwd([](auto* sm) { sm->updateLdpLinkConfig(); }); }
   };
   class LinkConfigCollReactor
      : public Vek::CustomReactor<LdpLinkConfigColl::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjLinkConfig(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpLinkConfig(k); });
      }
   };
   class AllIntfStatusReactor
      : public Vek::CustomReactor<Interface::AllIntfStatusDir::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIntfStatus(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleIntfStatusEntry(k); });
      }
   };
   class VrfIpIntfStatusReactor
      : public Vek::CustomReactor<Ip::VrfIpIntfStatus::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIpIntfStatus(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleIpIntfStatusEntry(k); });
      }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpLinkConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleAdjStatusEntry(k); });
      }
   };
   class IntfStatusReactor
      : public KeyedReactor<Interface::IntfStatus::NotifieeConst, LdpLinkConfigSm, Nolu::IntfId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onOperStatus() override { fire(); }
   };
   class IpIntfStatusReactor
      : public KeyedReactor<Ip::IpIntfStatus::NotifieeConst, LdpLinkConfigSm, Nolu::IntfId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onActiveAddrWithMask() override { fire(); }
   };
   class AdjStatusReactor
      : public KeyedReactor<LdpAdjStatus::NotifieeConst, LdpLinkConfigSm, LdpAdjId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onPeerHoldTime() override { fire(); }
   };

   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<Config const> config_;
   Vek::Ptr<Bridging::Config const> bridgingConfig_;
   Vek::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
   Vek::Ptr<Ip::VrfIpIntfStatus const> vrfIpIntfStatus_;
   Vek::Ptr<LdpLinkConfigColl> ldpLinkConfigColl_;
   Vek::Ptr<LdpLinkStatusColl const> ldpLinkStatusColl_;
   Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;

   Vek::HashMap<Nolu::IntfId, Vek::Seconds> linkConfigWorkQueue_;
   Vek::Ptr<Hesk::TimerTask> ldpLinkConfigTimerTask_;
   U32 timerExpireCount_ = 0;

   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<ConfigReactor> configReactor_;
   Vek::Input<LinkConfigCollReactor> ldpLinkConfigCollReactor_;
   Vek::Input<AllIntfStatusReactor> allIntfStatusDirReactor_;
   Vek::Input<VrfIpIntfStatusReactor> vrfIpIntfStatusReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::ReactorColl<Nolu::IntfId, IntfStatusReactor> intfStatus_;
   Vek::ReactorColl<Nolu::IntfId, IpIntfStatusReactor> ipIntfStatus_;
   Vek::ReactorColl<LdpAdjId, AdjStatusReactor> adjStatus_;
};

}  // namespace Ldp

#pragma once
// The effective protocol configuration of each VRF: LdpProtoConfigSm turns the
// operator's configuration and the system's state into one record,
// Ldp::ProtoConfig, that every protocol machine reads. LdpProtoConfigSmManager
// makes one machine per VRF in which LDP is configured and enabled.
#include "entities/LdpSm.h"
#include "label/LdpFecFilterSm.h"
#include "entities/LdpConfig.h"
#include "entities/Platform.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpProtoConfigSm : public LdpSm {
 public:
   // Takes the constructor's arguments.
   template <class... A>
   static Vek::Ptr<LdpProtoConfigSm> LdpProtoConfigSmIs(A&&... args) {
      return Vek::makeSm<LdpProtoConfigSm>(std::forward<A>(args)...);
   }
   LdpProtoConfigSm(U32 instId, L3::VrfName const& vrfName, Vek::Ptr<Config const> const& config,
                    Vek::Ptr<LdpAgentStatus const> const& ldpAgentStatus,
                    Vek::Ptr<ProtoConfig> const& protoConfig,
                    Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                    Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
                    Vek::Ptr<Routing::Config const> const& routingConfig,
                    Vek::Ptr<Acl::AclListConfig const> const& routingAclConfig,
                    Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   L3::VrfName const& vrfName() const { return vrfName_; }
   // The VRF's own state, assigned by the manager (the default VRF has none):
   // LDP runs only in an active VRF.
   void vrfStatusLocalIs(Vek::Ptr<Ip::VrfStatusLocal const> const& v);
   ProtoConfig* protoConfig() const { return protoConfig_.ptr(); }
   Vek::Ptr<Ip::VrfIpIntfStatus const> vrfIpIntfStatus() const { return vrfIpIntfStatus_.notifier(); }
   // Assigned by the manager; an assignment is a change of the interfaces.
   void vrfIpIntfStatusIs(Vek::Ptr<Ip::VrfIpIntfStatus const> const& s);
   Vek::Seconds delay() const { return delay_; }
   bool immediateProcess() const { return immediateProcess_; }
   Hesk::TimerTask* inputTimerTask() const { return inputTimerTask_.ptr(); }

   void handleInitialized();
   void handleDelete() override;
   void handleTimerTaskExpire();
   void handleConfig();
   void handleConfigStaticTarget();
   void handleConfigStaticTarget(Nolu::IpGenAddr const& ip);
   void handleAclConfig(Vek::String const& name);
   void handleIpIntfStatus();
   void handleIpIntfStatus(Nolu::IntfId const& intf);
   // Reactor handlers of the inputs.
   void handleMplsRouting() { handleConfig(); }
   void handleRouting() { handleConfig(); }
   void handleState();
   void handlePrefixList(Vek::String const& name) { handleAclConfig(name); }
   void handleIntfStatus(Nolu::IntfId const& intf);
   void handleVrfIpIntf(Nolu::IntfId const& intf);

   void clearProtoConfig();

 private:
   // Every attribute of the operator's configuration that the record rests on
   // leads to one evaluation; static targets are copied one by one.
   class ConfigReactor : public Vek::CustomReactor<Config::NotifieeConst, LdpProtoConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onEnabled() override { config(); }
      void onIpTransportAddrIntfId() override { config(); }
      void onLdpLabelDistCtrl() override { config(); }
      void onLdpLabelAdvDspl() override { config(); }
      void onLdpLabelRetention() override { config(); }
      void onLdpLoopDetection() override { config(); }
      void onLdpProtoParamSetting() override { config(); }
      void onRouterId() override { config(); }
      void onRouterIdIntfId() override { config(); }
      void onForceRouterId() override { config(); }
      void onMd5Password() override { config(); }
      void onMd5PasswordEncoded() override { config(); }
      void onFecFilterPrefixListName() override { config(); }
      void onLinkReadyTimeout() override { config(); }
      void onLinkReadyDelay() override { config(); }
      void onKeepAliveTime() override { config(); }
      void onMaxPduLength() override { config(); }
      void onLdpHopCountMax() override { config(); }
      void onLdpMultiLabelSupport() override { config(); }
      void onStaticTarget(Nolu::IpGenAddr const& ip) override {
         fwd([&ip](LdpProtoConfigSm* sm) { sm->handleConfigStaticTarget(ip); });
      }

    private:
      void config() {
         fwd([](LdpProtoConfigSm* sm) { sm->handleConfig(); });
      }
   };
   // Interfaces joining or leaving the VRF.
   class VrfIpIntfStatusReactor
      : public Vek::CustomReactor<Ip::VrfIpIntfStatus::NotifieeConst, LdpProtoConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIpIntfStatus(Nolu::IntfId const& intf) override {
         fwd([&intf](LdpProtoConfigSm* sm) { sm->handleVrfIpIntf(intf); });
      }
   };
   void doMaybeCalculateRouterId();
   void calculateRouterId();
   void calculateTransportAddr();
   bool intfUsable(Nolu::IntfId const& intf, Nolu::IpAddr* addr, bool* statusFound) const;

   L3::VrfName vrfName_;
   Vek::Ptr<Config const> config_;
   Vek::Ptr<LdpAgentStatus const> ldpAgentStatus_;
   Vek::Ptr<ProtoConfig> protoConfig_;
   Vek::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
   Vek::Ptr<Mpls::Config const> mplsRoutingConfig_;
   Vek::Ptr<Routing::Config const> routingConfig_;
   Vek::Ptr<Acl::AclListConfig const> routingAclConfig_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;

   Vek::Seconds delay_ = 1.0;
   bool immediateProcess_ = false;
   // The first evaluation after the agent's first start waits for the
   // interfaces to settle.
   bool startupDelay_ = false;
   Vek::Seconds forceRouterIdTime_ = 0.0;
   Vek::Ptr<LdpFecFilter> fecFilter_;
   Vek::SmChild<LdpFecFilterSm> fecFilterSm_{this};
   Vek::Ptr<Hesk::TimerTask> inputTimerTask_;

   Vek::Input<ConfigReactor> configReactor_;
   Vek::Input<Mpls::Config::Reactor<LdpProtoConfigSm>> mplsRoutingConfigReactor_;
   Vek::Input<Routing::Config::Reactor<LdpProtoConfigSm>> routingConfigReactor_;
   Vek::Input<Acl::AclListConfig::Reactor<LdpProtoConfigSm>> routingAclConfigReactor_;
   Vek::Input<Interface::AllIntfStatusDir::Reactor<LdpProtoConfigSm>> allIntfStatusDirReactor_;
   Vek::Input<VrfIpIntfStatusReactor> vrfIpIntfStatus_;
   Vek::Input<Ip::VrfStatusLocal::Reactor<LdpProtoConfigSm>> vrfStatusLocal_;
   Vek::ReactorColl<Nolu::IntfId, Ip::IpIntfStatus::MemberReactor<LdpProtoConfigSm, Nolu::IntfId>>
      ipIntfStatus_;
   Vek::ReactorColl<Nolu::IntfId,
                    Interface::IntfStatus::MemberReactor<LdpProtoConfigSm, Nolu::IntfId>>
      intfStatus_;
};

class LdpProtoConfigSmManager : public LdpSm {
 public:
   // Takes the constructor's arguments.
   template <class... A>
   static Vek::Ptr<LdpProtoConfigSmManager> LdpProtoConfigSmManagerIs(A&&... args) {
      return Vek::makeSm<LdpProtoConfigSmManager>(std::forward<A>(args)...);
   }
   LdpProtoConfigSmManager(U32 instId, Vek::Ptr<LdpConfigColl const> const& ldpConfigColl,
                           Vek::Ptr<LdpProtoConfigColl> const& ldpProtoConfigColl,
                           Vek::Ptr<LdpEnabledVrfColl const> const& ldpEnabledVrfColl,
                           Vek::Ptr<LdpAgentStatus const> const& ldpAgentStatus,
                           Vek::Ptr<Ip::Status const> const& ipStatus,
                           Vek::Ptr<Ip::AllVrfStatusLocal const> const& allVrfStatusLocal,
                           Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
                           Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
                           Vek::Ptr<Routing::Config const> const& routingConfig,
                           Vek::Ptr<Acl::AclListConfig const> const& routingAclConfig,
                           Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   Vek::Ptr<LdpProtoConfigSm> ldpProtoConfigSm(L3::VrfName const& vrf) const {
      return ldpProtoConfigSm_.find(vrf);
   }
   std::size_t ldpProtoConfigSmCount() const { return ldpProtoConfigSm_.size(); }

   void handleInitialized();
   void handleLdpCliInput();
   void handleLdpCliInput(L3::VrfName const& vrf);
   void handleVrfIpIntfStatus(L3::VrfName const& vrf);
   // Gives the machine of a VRF that VRF's state, when it has one.
   void handleVrf(L3::VrfName const& vrf);
   // Reactor handlers of the inputs.
   void handleConfig(L3::VrfName const& vrf) { handleLdpCliInput(vrf); }
   void handleEnabledVrf(L3::VrfName const& vrf) { handleLdpCliInput(vrf); }

 private:
   Vek::Ptr<LdpConfigColl const> ldpConfigColl_;
   Vek::Ptr<LdpProtoConfigColl> ldpProtoConfigColl_;
   Vek::Ptr<LdpEnabledVrfColl const> ldpEnabledVrfColl_;
   Vek::Ptr<LdpAgentStatus const> ldpAgentStatus_;
   Vek::Ptr<Ip::Status const> ipStatus_;
   Vek::Ptr<Ip::AllVrfStatusLocal const> allVrfStatusLocal_;
   Vek::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir_;
   Vek::Ptr<Mpls::Config const> mplsRoutingConfig_;
   Vek::Ptr<Routing::Config const> routingConfig_;
   Vek::Ptr<Acl::AclListConfig const> routingAclConfig_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;

   Vek::SmColl<L3::VrfName, LdpProtoConfigSm> ldpProtoConfigSm_{this};
   Vek::Input<LdpConfigColl::Reactor<LdpProtoConfigSmManager>> ldpConfigCollReactor_;
   Vek::Input<LdpEnabledVrfColl::Reactor<LdpProtoConfigSmManager>> ldpEnabledVrfCollReactor_;
   Vek::Input<Ip::Status::Reactor<LdpProtoConfigSmManager>> ipStatusReactor_;
   Vek::Input<Ip::AllVrfStatusLocal::Reactor<LdpProtoConfigSmManager>> allVrfStatusLocalReactor_;
};

}  // namespace Ldp

#pragma once
// Decides whether the targeted Hello server listens, and on which address:
// it listens on the transport address while at least one target exists.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpTargetServerConfigSm : public LdpSm {
 public:
   static Vek::Ptr<LdpTargetServerConfigSm> LdpTargetServerConfigSmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpTargetConfigColl const> const& ldpTargetConfigColl,
      Vek::Ptr<LdpTargetServerConfig> const& ldpTargetServerConfig) {
      return Vek::makeSm<LdpTargetServerConfigSm>(instId, protoConfig, ldpTargetConfigColl,
                                                  ldpTargetServerConfig);
   }
   LdpTargetServerConfigSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                           Vek::Ptr<LdpTargetConfigColl const> const& ldpTargetConfigColl,
                           Vek::Ptr<LdpTargetServerConfig> const& ldpTargetServerConfig);

   Vek::Ptr<ProtoConfig const> const& protoConfig() const { return protoConfig_; }
   void handleInitialized();
   void updateLdpTargetServerConfig();

 private:
   class ProtoConfigReactor
      : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpTargetServerConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIpTransportAddr() override {
         fwd([](auto* sm) { sm->updateLdpTargetServerConfig(); });
      }
   };
   class TargetConfigCollReactor
      : public Vek::CustomReactor<LdpTargetConfigColl::NotifieeConst, LdpTargetServerConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjTargetConfig(Nolu::IpAddr const&) override {
         fwd([](auto* sm) { sm->updateLdpTargetServerConfig(); });
      }
   };

   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpTargetConfigColl const> ldpTargetConfigColl_;
   Vek::Ptr<LdpTargetServerConfig> ldpTargetServerConfig_;
   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<TargetConfigCollReactor> ldpTargetConfigCollReactor_;
};

}  // namespace Ldp

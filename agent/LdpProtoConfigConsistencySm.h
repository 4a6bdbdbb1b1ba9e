#pragma once
// Keeps the fields that every FEC repeats from the protocol configuration
// (control and retention modes, loop detection, router id) in step with it.
#include "entities/LdpSm.h"
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpProtoConfigConsistencySm : public LdpSm {
 public:
   static Vek::Ptr<LdpProtoConfigConsistencySm> LdpProtoConfigConsistencySmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl) {
      return Vek::makeSm<LdpProtoConfigConsistencySm>(instId, protoConfig, ldpFecConfigColl);
   }
   LdpProtoConfigConsistencySm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                               Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl);

   void handleInitialized();
   void handleProtoConfig();
   void handleLdpLabelDistCtrl();
   void handleLdpLabelRetention();
   void handleLdpLoopDetection();
   void handleRouterId();
   void handleFecConfig(Mpls::FwdEqvClass const& fec);

 private:
   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl_;
   Vek::Input<ProtoConfig::Reactor<LdpProtoConfigConsistencySm>> protoConfigReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpProtoConfigConsistencySm>> ldpFecConfigCollReactor_;
};

}  // namespace Ldp

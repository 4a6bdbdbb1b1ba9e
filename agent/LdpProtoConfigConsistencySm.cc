#include "agent/LdpProtoConfigConsistencySm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpProtoConfigConsistency");
}

LdpProtoConfigConsistencySm::LdpProtoConfigConsistencySm(
   U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)),
     ldpFecConfigColl_(Vek::validPtr(ldpFecConfigColl)) {
   protoConfigReactor_.init(this, protoConfig_);
   ldpFecConfigCollReactor_.init(this, ldpFecConfigColl_);
   handleInitialized();
}

void LdpProtoConfigConsistencySm::handleInitialized() {
   initialized_ = true;
   handleProtoConfig();
}

void LdpProtoConfigConsistencySm::handleProtoConfig() {
   handleLdpLabelDistCtrl();
   handleLdpLabelRetention();
   handleLdpLoopDetection();
   handleRouterId();
}

void LdpProtoConfigConsistencySm::handleLdpLabelDistCtrl() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpProtoConfigConsistencySm::handleLdpLabelDistCtrl");
   for (auto it = ldpFecConfigColl_->fecConfigIter(); it; ++it)
      ldpFecConfigColl_->fecConfigRef(it)->ldpLabelDistCtrlIs(protoConfig_->ldpLabelDistCtrl());
}

void LdpProtoConfigConsistencySm::handleLdpLabelRetention() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpProtoConfigConsistencySm::handleLdpLabelRetention");
   for (auto it = ldpFecConfigColl_->fecConfigIter(); it; ++it)
      ldpFecConfigColl_->fecConfigRef(it)->ldpLabelRetentionIs(protoConfig_->ldpLabelRetention());
}

void LdpProtoConfigConsistencySm::handleLdpLoopDetection() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpProtoConfigConsistencySm::handleLdpLoopDetection");
   for (auto it = ldpFecConfigColl_->fecConfigIter(); it; ++it)
      ldpFecConfigColl_->fecConfigRef(it)->ldpLoopDetectionIs(protoConfig_->ldpLoopDetection());
}

void LdpProtoConfigConsistencySm::handleRouterId() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpProtoConfigConsistencySm::handleRouterId");
   for (auto it = ldpFecConfigColl_->fecConfigIter(); it; ++it)
      ldpFecConfigColl_->fecConfigRef(it)->routerIdIs(protoConfig_->routerId());
}

// A new FEC takes the present values at once.
void LdpProtoConfigConsistencySm::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto fc = ldpFecConfigColl_->fecConfig(fec);
   if (!fc) return;
   fc->ldpLoopDetectionIs(protoConfig_->ldpLoopDetection());
   fc->routerIdIs(protoConfig_->routerId());
   fc->ldpLabelDistCtrlIs(protoConfig_->ldpLabelDistCtrl());
   fc->ldpLabelRetentionIs(protoConfig_->ldpLabelRetention());
}

}  // namespace Ldp

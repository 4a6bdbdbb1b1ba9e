#include "discovery/LdpTargetServerConfigSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTargetServerConfig");
}

LdpTargetServerConfigSm::LdpTargetServerConfigSm(
   U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpTargetConfigColl const> const& ldpTargetConfigColl,
   Vek::Ptr<LdpTargetServerConfig> const& ldpTargetServerConfig)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)),
     ldpTargetConfigColl_(Vek::validPtr(ldpTargetConfigColl)),
     ldpTargetServerConfig_(Vek::validPtr(ldpTargetServerConfig)) {
   protoConfigReactor_.init(this, protoConfig_);
   ldpTargetConfigCollReactor_.init(this, ldpTargetConfigColl_);
   handleInitialized();
}

void LdpTargetServerConfigSm::handleInitialized() {
   initialized_ = true;
   updateLdpTargetServerConfig();
}

void LdpTargetServerConfigSm::updateLdpTargetServerConfig() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpTargetServerConfigSm::updateLdpTargetServerConfig");
   VEK_ASSERT(protoConfig()->ipTransportAddr().af() == Nolu::ipv4_);
   ldpTargetServerConfig_->listenIpAddrIs(protoConfig_->ipTransportAddr().v4Addr());
   ldpTargetServerConfig_->enabledIs(ldpTargetConfigColl_->adjTargetConfigSize() != 0);
}

}  // namespace Ldp

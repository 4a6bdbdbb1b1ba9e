#include "discovery/LdpTargetConfigSm.h"

#include <algorithm>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTargetConfig");
}

LdpTargetConfigSm::LdpTargetConfigSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                                     Vek::Ptr<Config const> const& config,
                                     Vek::Ptr<LdpTargetConfigColl> const& ldpTargetConfigColl,
                                     Vek::Ptr<LdpTargetStatusColl const> const& ldpTargetStatusColl,
                                     Vek::Ptr<PwTargetConfigColl const> const& pwTargetConfigColl,
                                     Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                                     Vek::Ptr<LdpIndex const> const& ldpIndex)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)), config_(config),
     ldpTargetConfigColl_(Vek::validPtr(ldpTargetConfigColl)),
     ldpTargetStatusColl_(Vek::validPtr(ldpTargetStatusColl)),
     pwTargetConfigColl_(pwTargetConfigColl), ldpAdjStatusColl_(Vek::validPtr(ldpAdjStatusColl)),
     ldpIndex_(Vek::validPtr(ldpIndex)) {
   protoConfigReactor_.init(this, protoConfig_);
   pwTargetConfigCollReactor_.init(this, pwTargetConfigColl_);
   configReactor_.init(this, config_);
   ldpTargetConfigCollReactor_.init(this, ldpTargetConfigColl_);
   ldpAdjStatusCollReactor_.init(this, ldpAdjStatusColl_);
   handleInitialized();
}

void LdpTargetConfigSm::handleInitialized() {
   LDP_HANDLER(th, "LdpTargetConfigSm::handleInitialized");
   initialized_ = true;
   for (auto it = ldpTargetConfigColl_->adjTargetConfigIter(); it; ++it)
      handleAdjTargetConfigEntry(it.key());
   for (auto it = ldpAdjStatusColl_->adjStatusIter(); it; ++it) handleAdjStatusEntry(it.key());
   updateLdpTargetCommonConfig();
   for (auto it = protoConfig_->staticTargetIter(); it; ++it) handleStaticTarget(it.key());
   if (pwTargetConfigColl_) {
      for (auto it = pwTargetConfigColl_->pwTargetIter(); it; ++it) handlePwTarget(it.key());
   }
   handleTargetConfig();
}

U16 LdpTargetConfigSm::targetedHelloHoldTime() const {
   return config_ ? config_->targetedHelloHoldTime()
                  : LdpProtoParam::defaultTargetedHelloHoldTime();
}

U16 LdpTargetConfigSm::targetedHelloInterval() const {
   return config_ ? config_->targetedHelloInterval()
                  : U16(LdpProtoParam::defaultTargetedHelloHoldTime() / 3);
}

void LdpTargetConfigSm::updateLdpTargetCommonConfig() {
   if (!initialized_) return;
   auto common = Vek::validPtr(ldpTargetConfigColl_->ldpTargetCommonConfig());
   common->ipTransportAddrIs(protoConfig_->ipTransportAddr());
   VEK_ASSERT(protoConfig()->ipTransportAddr().af() == Nolu::ipv4_);
   common->ldpIdIs(protoConfig_->ldpIdentifier());
   common->configSeqNumIs(common->configSeqNum() + 1);
}

// Targets are IPv4: the IPv4 value of the address is the key.
void LdpTargetConfigSm::handleStaticTarget(Nolu::IpGenAddr const& address) {
   if (!initialized_ || !address.isV4()) return;
   Nolu::IpAddr key = address.v4Addr();
   auto tc = ldpTargetConfigColl_->adjTargetConfigIs(key);
   if (protoConfig_->staticTargetHas(address) && protoConfig_->staticTarget(address)) {
      tc->targetMembershipIs(staticTarget_, true);
   } else {
      tc->targetMembershipDel(staticTarget_);
   }
   handleTargetConfig(key);
}

void LdpTargetConfigSm::handlePwTarget(Nolu::IpGenAddr const& address) {
   if (!initialized_ || !address.isV4()) return;
   Nolu::IpAddr key = address.v4Addr();
   auto tc = ldpTargetConfigColl_->adjTargetConfigIs(key);
   if (pwTargetConfigColl_ && pwTargetConfigColl_->pwTargetHas(address) &&
       pwTargetConfigColl_->pwTarget(address)) {
      tc->targetMembershipIs(pwTarget_, true);
   } else {
      tc->targetMembershipDel(pwTarget_);
   }
   handleTargetConfig(key);
}

void LdpTargetConfigSm::handleTargetConfig() {
   if (!initialized_) return;
   for (auto it = ldpTargetConfigColl_->adjTargetConfigIter(); it; ++it)
      handleTargetConfig(it.key());
}

// A target lives while it has a reason to; the two steps of its going come
// before the entry goes, so that watchers see it fall.
void LdpTargetConfigSm::handleTargetConfig(Nolu::IpAddr const& address) {
   if (!initialized_) return;
   auto tc = ldpTargetConfigColl_->adjTargetConfig(address);
   if (!tc) return;
   if (tc->targetMembershipSize() != 0) {
      tc->configStateIs(configEnabled_);
      updateTargetConfig(address);
      return;
   }
   LDP_TRACE(th, 5, "Deleting target " << address);
   tc->configStateIs(configDisabling_);
   tc->configStateIs(configDisabled_);
   ldpTargetConfigColl_->adjTargetConfigDel(address);
}

void LdpTargetConfigSm::updateTargetConfig(Nolu::IpAddr const& address) {
   updateTargetConfigHoldTime(address);
   updateTargetConfigInterval(address);
}

void LdpTargetConfigSm::updateTargetConfigHoldTime(Nolu::IpAddr const& address) {
   auto targetConfig = ldpTargetConfigColl_->adjTargetConfig(address);
   VEK_ASSERT(targetConfig);
   targetConfig->holdTimeIs(targetedHelloHoldTime());
}

// The interval follows the operating hold time of the target's one
// adjacency, a third of it, with the configured interval as ceiling.
void LdpTargetConfigSm::updateTargetConfigInterval(Nolu::IpAddr const& targetIpAddr) {
   auto tc = ldpTargetConfigColl_->adjTargetConfig(targetIpAddr);
   auto ts = ldpTargetStatusColl_->adjTargetStatus(targetIpAddr);
   if (!tc || !ts) return;
   Vek::Ptr<LdpAdjStatus const> as;
   LdpAdjId adjId;
   if (ldpIndex_->targetIpToLdpAdjIdHas(targetIpAddr)) {
      adjId = ldpIndex_->targetIpToLdpAdjId(targetIpAddr);
      as = ldpAdjStatusColl_->adjStatus(adjId);
   }
   if (!as) {
      tc->intervalIs(targetedHelloInterval());
      return;
   }
   VEK_ASSERT(adjId.targetIpAddr() == targetIpAddr);
   U16 h = as->operHoldTime();
   U16 i = h <= 2 ? U16(1) : U16(h / 3);
   tc->intervalIs(std::min(i, targetedHelloInterval()));
}

void LdpTargetConfigSm::handleLdpAdjStatus(LdpAdjId const& adjId) {
   if (!initialized_ || !adjId.isTarget()) return;
   handleTargetConfig(adjId.targetIpAddr());
}

void LdpTargetConfigSm::handleAdjTargetConfigEntry(Nolu::IpAddr const& address) {
   if (!initialized_) return;
   auto tc = ldpTargetConfigColl_->adjTargetConfig(address);
   if (tc) {
      adjTargetConfig_.is(address, this, Vek::Ptr<LdpTargetConfig const>(tc), address,
                          &LdpTargetConfigSm::handleTargetMembership);
   } else {
      adjTargetConfig_.del(address);
   }
}

void LdpTargetConfigSm::handleAdjStatusEntry(LdpAdjId const& adjId) {
   if (!initialized_) return;
   auto s = ldpAdjStatusColl_->adjStatus(adjId);
   if (s && adjId.isTarget()) {
      adjStatus_.is(adjId, this, s, adjId, &LdpTargetConfigSm::handleLdpAdjStatus);
   } else {
      adjStatus_.del(adjId);
   }
   handleLdpAdjStatus(adjId);
}

}  // namespace Ldp

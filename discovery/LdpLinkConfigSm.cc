#include "discovery/LdpLinkConfigSm.h"

#include <algorithm>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLinkConfig");
}

LdpLinkConfigSm::LdpLinkConfigSm(
   U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<Config const> const& config, Vek::Ptr<Bridging::Config const> const& bridgingConfig,
   Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
   Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
   Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
   Vek::Ptr<LdpLinkStatusColl const> const& ldpLinkStatusColl,
   Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)), config_(config),
     bridgingConfig_(bridgingConfig), allIntfStatusDir_(allIntfStatusDir),
     vrfIpIntfStatus_(vrfIpIntfStatus), ldpLinkConfigColl_(Vek::validPtr(ldpLinkConfigColl)),
     ldpLinkStatusColl_(Vek::validPtr(ldpLinkStatusColl)),
     ldpAdjStatusColl_(Vek::validPtr(ldpAdjStatusColl)), scheduler_(Vek::validPtr(scheduler)) {
   protoConfigReactor_.init(this, protoConfig_);
   configReactor_.init(this, config_);
   ldpLinkConfigCollReactor_.init(this, ldpLinkConfigColl_);
   allIntfStatusDirReactor_.init(this, allIntfStatusDir_);
   vrfIpIntfStatusReactor_.init(this, vrfIpIntfStatus_);
   ldpAdjStatusCollReactor_.init(this, ldpAdjStatusColl_);
   handleInitialized();
}

void LdpLinkConfigSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLinkConfigSm::handleInitialized");
   initialized_ = true;
   ldpLinkConfigTimerTask_ = Hesk::timerTaskIs(this, &LdpLinkConfigSm::handleLinkConfigTimerTask,
                                               scheduler_, 2, "LinkConfig");
   if (allIntfStatusDir_) {
      for (auto it = allIntfStatusDir_->intfStatusIter(); it; ++it) {
         intfStatus_.is(it.key(), this, Vek::Ptr<Interface::IntfStatus const>(it.value()),
                        it.key(), &LdpLinkConfigSm::handleIntfStatus);
      }
   }
   if (vrfIpIntfStatus_) {
      for (auto it = vrfIpIntfStatus_->ipIntfStatusIter(); it; ++it) {
         ipIntfStatus_.is(it.key(), this, Vek::Ptr<Ip::IpIntfStatus const>(it.value()), it.key(),
                          &LdpLinkConfigSm::handleLdpLinkConfig);
      }
   }
   for (auto it = ldpAdjStatusColl_->adjStatusIter(); it; ++it) {
      adjStatus_.is(it.key(), this, Vek::Ptr<LdpAdjStatus const>(it.value()), it.key(),
                    &LdpLinkConfigSm::handleLdpAdjStatus);
   }
   updateLdpLinkCommonConfig();
   updateLdpLinkConfig();
}

void LdpLinkConfigSm::handleDelete() {
   VEK_ASSERT(initialized() == true);
   ldpLinkConfigTimerTask_->scheduleTaskDelay(Vek::infinity);
   initialized_ = false;
}

U16 LdpLinkConfigSm::helloHoldTime() const {
   return config_ ? config_->helloHoldTime() : LdpProtoParam::defaultLinkHelloHoldTime();
}

U16 LdpLinkConfigSm::helloInterval() const {
   return config_ ? config_->helloInterval() : U16(LdpProtoParam::defaultLinkHelloHoldTime() / 3);
}

// Every run moves the sequence number, so that the next Hellos tell the
// neighbours that something of this LSR changed.
void LdpLinkConfigSm::updateLdpLinkCommonConfig() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkConfigSm::updateLdpLinkCommonConfig");
   auto common = Vek::validPtr(ldpLinkConfigColl_->ldpLinkCommonConfig());
   common->ipTransportAddrIs(protoConfig_->ipTransportAddr());
   VEK_ASSERT(protoConfig()->ipTransportAddr().af() == Nolu::ipv4_);
   common->ldpIdIs(protoConfig_->ldpIdentifier());
   common->configSeqNumIs(common->configSeqNum() + 1);
}

void LdpLinkConfigSm::handleLdpLinkConfig(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   Vek::Seconds delay = protoConfig_->configCodefDelay();
   Vek::Seconds due = Vek::System::currentTime() + delay;
   if (auto* p = linkConfigWorkQueue_.find(intfId)) *p = due;
   else linkConfigWorkQueue_.emplace(intfId, due);
   ldpLinkConfigTimerTask_->scheduleTaskLowestDelay(delay);
}

void LdpLinkConfigSm::handleLinkConfigTimerTask() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkConfigSm::handleLinkConfigTimerTask");
   ++timerExpireCount_;
   U64 done = 0;
   for (auto it = linkConfigWorkQueue_.begin(); it; ++it) {
      Nolu::IntfId intfId = it.key();
      updateLdpLinkConfig(intfId);
      linkConfigWorkQueue_.erase(intfId);
      ++done;
   }
   ldpLinkConfigTimerTask_->taskWorkCountInc(done);
   ldpLinkConfigTimerTask_->taskWorkPendingIs(linkConfigWorkQueue_.size());
}

void LdpLinkConfigSm::updateLdpLinkConfig(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto lc = ldpLinkConfigColl_->adjLinkConfig(intfId);
   if (!lc) return;
   LDP_TRACE(th, 7, "updateLdpLinkConfig " << intfId);
   Nolu::IpAddr addr;
   if (vrfIpIntfStatus_) {
      if (auto ip = vrfIpIntfStatus_->ipIntfStatus(intfId)) addr = ip->activeAddrWithMask().addr();
   }
   lc->ipAddrIs(addr);
   updateLdpLinkConfigHoldTime(intfId);
   updateLdpLinkConfigInterval(intfId);
   handleIntfStatus(intfId);
}

void LdpLinkConfigSm::updateLdpLinkConfig() {
   if (!initialized_) return;
   for (auto it = ldpLinkConfigColl_->adjLinkConfigIter(); it; ++it) updateLdpLinkConfig(it.key());
}

void LdpLinkConfigSm::updateLdpLinkConfigHoldTime(Nolu::IntfId const& intfId) {
   if (auto lc = ldpLinkConfigColl_->adjLinkConfig(intfId)) lc->holdTimeIs(helloHoldTime());
}

// The Hello interval follows the shortest hold time that a neighbour on the
// link advertises, a third of it, with the configured interval as ceiling.
void LdpLinkConfigSm::updateLdpLinkConfigInterval(Nolu::IntfId const& intfId) {
   auto ls = ldpLinkStatusColl_->adjLinkStatus(intfId);
   auto lc = ldpLinkConfigColl_->adjLinkConfig(intfId);
   if (!ls || !lc) return;
   U16 h = ls->holdTime();
   for (auto it = ls->adjIdSetIter(); it; ++it) {
      if (auto as = ldpAdjStatusColl_->adjStatus(it.key())) h = std::min(h, as->peerHoldTime());
   }
   U16 i = h <= 2 ? U16(1) : U16(h / 3);
   lc->intervalIs(std::min(i, helloInterval()));
}

void LdpLinkConfigSm::handleIntfStatus(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto lc = ldpLinkConfigColl_->adjLinkConfig(intfId);
   if (!lc) return;
   Interface::IntfOperStatus oper = Interface::intfOperNotPresent_;
   if (allIntfStatusDir_) {
      if (auto s = allIntfStatusDir_->intfStatus(intfId)) oper = s->operStatus();
   }
   lc->operStatusIs(oper);
}

void LdpLinkConfigSm::handleLdpAdjStatus(LdpAdjId const& adjId) {
   if (!initialized_ || !adjId.isLink()) return;
   handleLdpLinkConfig(adjId.intfId());
}

void LdpLinkConfigSm::handleIntfStatusEntry(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto s = allIntfStatusDir_->intfStatus(intfId);
   if (s) intfStatus_.is(intfId, this, s, intfId, &LdpLinkConfigSm::handleIntfStatus);
   else intfStatus_.del(intfId);
   handleIntfStatus(intfId);
}

void LdpLinkConfigSm::handleIpIntfStatusEntry(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto s = vrfIpIntfStatus_->ipIntfStatus(intfId);
   if (s) ipIntfStatus_.is(intfId, this, s, intfId, &LdpLinkConfigSm::handleLdpLinkConfig);
   else ipIntfStatus_.del(intfId);
   handleLdpLinkConfig(intfId);
}

// A neighbour that comes or goes changes the shortest hold time of its link.
void LdpLinkConfigSm::handleAdjStatusEntry(LdpAdjId const& adjId) {
   if (!initialized_) return;
   auto s = ldpAdjStatusColl_->adjStatus(adjId);
   if (s) adjStatus_.is(adjId, this, s, adjId, &LdpLinkConfigSm::handleLdpAdjStatus);
   else adjStatus_.del(adjId);
   handleLdpAdjStatus(adjId);
}

}  // namespace Ldp

#include "discovery/LdpAdjSm.h"

#include <algorithm>

#include "wire/LdpParser.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpAdj");

Vek::Seconds defaultHoldTime(LdpAdjId const& adjId) {
   return adjId.isLink() ? LdpProtoParam::defaultLinkHelloHoldTime()
                         : LdpProtoParam::defaultTargetedHelloHoldTime();
}
}  // namespace

LdpAdjSm::LdpAdjSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpAdjConfig);
   Vek::validPtr(in_.ldpAdjStatus);
   Vek::validPtr(in_.adjMsgPipe);
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.scheduler);
   adjMsgPipeReactor_.init(this, in_.adjMsgPipe);
   ldpAdjConfigReactor_.init(this, in_.ldpAdjConfig);
   ldpLinkConfigReactor_.init(this, in_.ldpLinkConfig);
   ldpTargetConfigReactor_.init(this, in_.ldpTargetConfig);
   handleInitialized();
}

void LdpAdjSm::handleInitialized() {
   LDP_HANDLER(th, "LdpAdjSm::handleInitialized " << in_.adjId);
   adjTimerTask_ = Hesk::timerTaskIs(this, &LdpAdjSm::handleAdjTimerTask, in_.scheduler, 2,
                                     "AdjSm-" + in_.adjId.stringValue());
   initialized_ = true;
   if (in_.adjId.isLink()) {
      if (in_.ldpLinkStatus) in_.ldpLinkStatus->adjIdSetIs(in_.adjId, true);
   } else {
      in_.ldpIndex->targetIpToLdpAdjIdIs(in_.adjId.targetIpAddr(), in_.adjId);
   }
   auto& st = *in_.ldpAdjStatus;
   U16 oper = st.operHoldTime();
   if (oper == LdpProtoParam::infiniteHelloHoldTime()) {
      adjTimerTask_->scheduleTaskDelay(Vek::infinity);
      st.adjExpireTimeIs(Vek::infinity);
      return;
   }
   Vek::Seconds delay = oper ? Vek::Seconds(oper) : defaultHoldTime(in_.adjId);
   st.adjExpireTimeIs(Vek::System::currentTime() + delay);
   adjTimerTask_->scheduleTaskDelay(delay);
}

void LdpAdjSm::handleDelete() {
   LDP_TRACE(th, 8, "LdpAdjSm::handleDelete " << in_.adjId);
   initialized_ = false;
   if (in_.adjId.isLink()) {
      if (in_.ldpLinkStatus) in_.ldpLinkStatus->adjIdSetDel(in_.adjId);
   } else {
      in_.ldpIndex->targetIpToLdpAdjIdDel(in_.adjId.targetIpAddr());
   }
}

void LdpAdjSm::reject(Vek::String const& r, bool count) {
   reason_ = r;
   LDP_TRACE(th, 3, "   Rejected. " << reason_);
   if (count) in_.ldpAdjStatus->errPktCountInc(1);
}

// The PDU and the message type were checked by the channel that received
// them; the Hello's TLVs are checked here.
void LdpAdjSm::handleRxMsg() {
   if (!initialized_) return;
   lastRxMsg_ = in_.adjMsgPipe->rxMsg();
   LdpMsg* msg = lastRxMsg_.ptr();
   VEK_ASSERT(msg != __null);
   LDP_HANDLER(th, "LdpAdjSm::handleRxMsg " << in_.adjId);
   auto ldpPduParser = ldpPduParserFactory(msg->pkt(), 0);
   VEK_ASSERT(ldpPduParser->validLdpPdu() &&
              "Internal Error. Should be validated by LinkUdpPamSm/TargetServerSm");
   auto const* msgHdr = reinterpret_cast<LdpMsgHdr const*>(msg->pkt()->readPtr(msg->offset()));
   VEK_ASSERT(msgHdr->type() == LdpHello_ &&
              "Internal Error. Should be validated by LinkUdpPamSm/TargetServerSm");
   auto& st = *in_.ldpAdjStatus;
   st.msgIdIs(msgHdr->msgId());
   st.rxPktCountInc(1);
   auto hello = ldpHelloMsgParserFactory(msg->pkt(), msg->offset());
   if (!hello->validMsg()) {
      reject(hello->reason(), false);
      return;
   }
   auto const* msgCommonHelloTlv = hello->commonHelloTlv();
   VEK_ASSERT(msgCommonHelloTlv && "Internal Error. commonHelloTlv is NULL");
   U16 peerHold = msgCommonHelloTlv->holdTime();
   if (peerHold == 0) peerHold = U16(defaultHoldTime(in_.adjId));
   st.peerHoldTimeIs(peerHold);
   updateOperHoldTime();
   if (in_.adjId.isLink()) {
      if (hello->targeted() || hello->requestTargeted()) {
         reject("Unexpected targeted hello TLV", true);
         return;
      }
   } else if (!hello->targeted()) {
      reject("Unexpected link hello TLV", true);
      return;
   }
   st.peerSrcIpAddrIs(msg->srcIpAddr());
   if (hello->ipv6TransportAddrTlv() && !hello->ipv4TransportAddrTlv()) {
      reject("Not a IPv4 adjacency", true);
      return;
   }
   // A missing transport address is no error: the source address stands in.
   if (auto const* t = hello->ipv4TransportAddrTlv()) st.peerIpAddrIs(Nolu::IpGenAddr(t->ipAddr()));
   else st.peerIpAddrIs(st.peerSrcIpAddr());
   if (hello->hasConfigSeqNum()) st.peerConfigSeqNumIs(hello->configSeqNum());
   U16 oper = st.operHoldTime();
   if (oper < LdpProtoParam::infiniteHelloHoldTime()) {
      st.adjExpireTimeIs(Vek::System::currentTime() + oper);
      adjTimerTask_->scheduleTaskDelay(Vek::Seconds(oper));
   } else {
      st.adjExpireTimeIs(Vek::infinity);
      adjTimerTask_->scheduleTaskDelay(Vek::infinity);
   }
}

// Only the value is written; the running timer takes it at the next Hello.
void LdpAdjSm::updateOperHoldTime() {
   if (!initialized_) return;
   in_.ldpAdjStatus->operHoldTimeIs(
      std::min(in_.ldpAdjConfig->holdTime(), in_.ldpAdjStatus->peerHoldTime()));
}

void LdpAdjSm::handleAdjTimerTask() {
   if (!initialized_) return;
   LDP_TRACE(th, 3, "Hold timer expired " << in_.adjId);
   in_.ldpAdjStatus->adjStatusCodeIs(statusHoldTimerExpired_);
}

void LdpAdjSm::handleLinkConfigState() {
   if (!initialized_ || !in_.ldpLinkConfig) return;
   in_.ldpAdjStatus->adjStatusCodeIs(in_.ldpLinkConfig->configState() == configEnabled_
                                        ? statusSuccess_
                                        : statusShutdown_);
}

void LdpAdjSm::handleTargetConfigState() {
   if (!initialized_ || !in_.ldpTargetConfig) return;
   in_.ldpAdjStatus->adjStatusCodeIs(in_.ldpTargetConfig->configState() == configEnabled_
                                        ? statusSuccess_
                                        : statusShutdown_);
}

// ---- the manager

LdpAdjSmManager::LdpAdjSmManager(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpLinkConfigColl);
   Vek::validPtr(in_.ldpLinkStatusColl);
   Vek::validPtr(in_.ldpTargetConfigColl);
   Vek::validPtr(in_.ldpTargetStatusColl);
   Vek::validPtr(in_.ldpAdjConfigColl);
   Vek::validPtr(in_.ldpAdjStatusColl);
   Vek::validPtr(in_.ldpAdjSmColl);
   Vek::validPtr(in_.ldpAdjMsgPipe);
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.scheduler);
   ldpAdjConfigCollReactor_.init(this, in_.ldpAdjConfigColl);
   ldpAdjStatusCollReactor_.init(this, in_.ldpAdjStatusColl);
   ldpLinkStatusCollReactor_.init(this, in_.ldpLinkStatusColl);
   ldpTargetStatusCollReactor_.init(this, in_.ldpTargetStatusColl);
   ldpSessionStatusCollReactor_.init(this, in_.ldpSessionStatusColl);
   protoConfigReactor_.init(this, in_.protoConfig);
   configReactor_.init(this, in_.config);
   handleInitialized();
}

void LdpAdjSmManager::handleInitialized() {
   LDP_HANDLER(th, "LdpAdjSmManager::handleInitialized");
   peerDelTimerTask_ = Hesk::timerTaskIs(this, &LdpAdjSmManager::handlePeerDelTimerTask,
                                         in_.scheduler, 2, "AdjSmPeerDel");
   adjStatusCodeTimerTask_ = Hesk::timerTaskIs(
      this, &LdpAdjSmManager::handleAdjStatusCodeTimerTask, in_.scheduler, 2, "AdjSmStatusCode");
   initialized_ = true;
   for (auto it = in_.ldpLinkStatusColl->adjLinkStatusIter(); it; ++it) {
      linkStatus_.is(it.key(), this, Vek::Ptr<LdpLinkStatus const>(it.value()), it.key(),
                     &LdpAdjSmManager::handleLinkStatus);
   }
   for (auto it = in_.ldpTargetStatusColl->adjTargetStatusIter(); it; ++it) {
      targetStatus_.is(it.key(), this, Vek::Ptr<LdpTargetStatus const>(it.value()), it.key(),
                       &LdpAdjSmManager::handleTargetStatus);
   }
   if (in_.ldpSessionStatusColl) {
      for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it)
         handleSessionStatusEntry(it.key());
   }
   handleLdpAdjConfig();
   if (in_.config) {
      for (auto it = in_.config->ldpNeighborClearRequestIter(); it; ++it)
         ldpNeighborClearTimeColl_.emplace(it.key(), it.value());
   }
}

// All adjacencies are decided again; a status without configuration is stale.
void LdpAdjSmManager::handleLdpAdjConfig() {
   if (!initialized_) return;
   for (auto it = in_.ldpAdjConfigColl->adjConfigIter(); it; ++it) handleLdpAdjConfig(it.key());
   for (auto it = in_.ldpAdjStatusColl->adjStatusIter(); it; ++it) {
      LdpAdjId adjId = it.key();
      if (!in_.ldpAdjConfigColl->adjConfigHas(adjId)) in_.ldpAdjStatusColl->adjStatusDel(adjId);
   }
}

// The one place where an adjacency is made or dropped.
void LdpAdjSmManager::handleLdpAdjConfig(LdpAdjId const& adjId) {
   if (!initialized_) return;
   if (!in_.ldpAdjConfigColl->adjConfigHas(adjId)) return;
   auto as = in_.ldpAdjStatusColl->adjStatus(adjId);
   if (as && as->adjStatusCode() != statusSuccess_) {
      handleLdpAdjDelete(adjId);
      return;
   }
   bool create = false;
   if (in_.protoConfig->runningState() == running_) {
      if (adjId.isLink()) {
         auto ls = in_.ldpLinkStatusColl->adjLinkStatus(adjId.intfId());
         create = ls && ls->running() && in_.ldpLinkConfigColl->adjLinkConfigHas(adjId.intfId());
      } else if (adjId.isTarget()) {
         auto ts = in_.ldpTargetStatusColl->adjTargetStatus(adjId.targetIpAddr());
         create = ts && ts->running() &&
                  in_.ldpTargetConfigColl->adjTargetConfigHas(adjId.targetIpAddr());
      }
   }
   if (create) handleLdpAdjCreate(adjId);
   else handleLdpAdjDelete(adjId);
}

void LdpAdjSmManager::handleLdpAdjCreate(LdpAdjId const& adjId) {
   if (in_.ldpAdjSmColl->adjSm(adjId)) return;
   LDP_HANDLER(th, "LdpAdjSmManager::handleLdpAdjCreate " << adjId);
   auto as = in_.ldpAdjStatusColl->adjStatusIs(adjId);
   if (!in_.ldpAdjMsgPipe->msgPipe(adjId))
      in_.ldpAdjMsgPipe->msgPipeIs(adjId, ldpMsgPipeFactory(""));
   auto ac = in_.ldpAdjConfigColl->adjConfig(adjId);
   LdpAdjSm::Inputs ai;
   ai.adjId = adjId;
   if (adjId.isLink()) {
      auto linkConfig = in_.ldpLinkConfigColl->adjLinkConfig(adjId.intfId());
      auto linkStatus = in_.ldpLinkStatusColl->adjLinkStatus(adjId.intfId());
      VEK_ASSERT(linkConfig && "Internal Error, linkConfig is NULL on creating link adjacency.");
      VEK_ASSERT(linkStatus && "Internal Error, linkStatus is NULL on creating link adjacency.");
      ac->holdTimeIs(linkStatus->holdTime());
      ai.ldpLinkConfig = linkConfig;
      ai.ldpLinkStatus = linkStatus;
   } else {
      auto targetConfig = in_.ldpTargetConfigColl->adjTargetConfig(adjId.targetIpAddr());
      auto targetStatus = in_.ldpTargetStatusColl->adjTargetStatus(adjId.targetIpAddr());
      VEK_ASSERT(targetConfig &&
                 "Internal Error, targetConfig is NULL on creating target adjacency.");
      VEK_ASSERT(targetStatus &&
                 "Internal Error, targetStatus is NULL on creating target adjacency.");
      ai.ldpTargetConfig = targetConfig;
   }
   ai.ldpAdjConfig = ac;
   ai.ldpAdjStatus = as;
   ai.adjMsgPipe = in_.ldpAdjMsgPipe->msgPipe(adjId);
   ai.ldpIndex = in_.ldpIndex;
   ai.scheduler = in_.scheduler;
   in_.ldpAdjSmColl->adjSmIs(adjId, LdpAdjSm::LdpAdjSmIs(instId(), ai));
}

void LdpAdjSmManager::handleLdpAdjDelete(LdpAdjId const& adjId) {
   if (!in_.ldpAdjSmColl->adjSm(adjId) && !in_.ldpAdjConfigColl->adjConfigHas(adjId) &&
       !in_.ldpAdjStatusColl->adjStatusHas(adjId) && !in_.ldpAdjMsgPipe->msgPipe(adjId))
      return;
   LDP_HANDLER(th, "LdpAdjSmManager::handleLdpAdjDelete " << adjId);
   in_.ldpAdjSmColl->adjSmDel(adjId);
   in_.ldpAdjConfigColl->adjConfigDel(adjId);
   in_.ldpAdjStatusColl->adjStatusDel(adjId);
   in_.ldpAdjMsgPipe->msgPipeDel(adjId);
}

void LdpAdjSmManager::updateLdpAdjConfigHoldTime(LdpAdjId const& adjId) {
   auto ldpAdjConfig = in_.ldpAdjConfigColl->adjConfig(adjId);
   VEK_ASSERT(ldpAdjConfig && "Internal Error, ldpAdjConfig is NULL");
   if (adjId.isLink()) {
      auto linkStatus = in_.ldpLinkStatusColl->adjLinkStatus(adjId.intfId());
      VEK_ASSERT(linkStatus && "Internal Error, linkStatus is NULL.");
      ldpAdjConfig->holdTimeIs(linkStatus->holdTime());
   } else {
      auto targetStatus = in_.ldpTargetStatusColl->adjTargetStatus(adjId.targetIpAddr());
      VEK_ASSERT(targetStatus && "Internal Error, targetStatus is NULL.");
      ldpAdjConfig->holdTimeIs(targetStatus->holdTime());
   }
}

// A link that stops loses all its adjacencies at once.
void LdpAdjSmManager::handleLinkStatus(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto ls = in_.ldpLinkStatusColl->adjLinkStatus(intfId);
   for (auto it = in_.ldpAdjConfigColl->adjConfigIter(); it; ++it) {
      LdpAdjId adjId = it.key();
      if (!adjId.isLink() || adjId.intfId() != intfId) continue;
      if (!ls || !ls->running()) handleLdpAdjDelete(adjId);
      else updateLdpAdjConfigHoldTime(adjId);
   }
}

void LdpAdjSmManager::handleTargetStatus(Nolu::IpAddr const& address) {
   if (!initialized_) return;
   if (!in_.ldpIndex->targetIpToLdpAdjIdHas(address)) return;
   LdpAdjId adjId = in_.ldpIndex->targetIpToLdpAdjId(address);
   if (in_.ldpAdjConfigColl->adjConfigHas(adjId) &&
       in_.ldpTargetStatusColl->adjTargetStatusHas(address))
      updateLdpAdjConfigHoldTime(adjId);
}

// A peer that shut its session down loses its adjacencies and must be
// discovered anew.
void LdpAdjSmManager::handleSessionState(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto* r = sessionStatus_.find(sessionId);
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (!r || !ss) return;
   SessionState now = ss->sessionState();
   if (r->prevState == stateOperational_ && now == stateClosed_ && ss->code() == statusShutdown_)
      deletePeer(sessionId.ldpIdentifier());
   r->prevState = now;
}

// Clear requests are served by time stamp; LdpIdentifier(0, 1) means all.
void LdpAdjSmManager::handleLdpClearNeighbor(LdpIdentifier const& ldpId) {
   if (!initialized_ || !in_.config) return;
   Vek::Seconds r = in_.config->ldpNeighborClearRequestHas(ldpId)
                       ? in_.config->ldpNeighborClearRequest(ldpId)
                       : 0.0;
   Vek::Seconds d = 0.0;
   if (auto const* p = ldpNeighborClearTimeColl_.find(ldpId)) d = *p;
   if (r == d) return;
   LDP_TRACE(th, 3, "Clear neighbor " << ldpId);
   if (ldpId == LdpIdentifier(0u, 1)) {
      if (in_.ldpPeerConfigColl) {
         for (auto it = in_.ldpPeerConfigColl->peerConfigIter(); it; ++it) deletePeer(it.key());
      }
      for (auto it = in_.ldpAdjConfigColl->adjConfigIter(); it; ++it)
         deletePeer(it.key().ldpIdentifier());
   } else {
      deletePeer(ldpId);
   }
   if (auto* p = ldpNeighborClearTimeColl_.find(ldpId)) *p = r;
   else ldpNeighborClearTimeColl_.emplace(ldpId, r);
}

void LdpAdjSmManager::deletePeer(LdpIdentifier const& ldpId) {
   if (!peerDelColl_.contains(ldpId)) peerDelColl_.emplace(ldpId, true);
   peerDelTimerTask_->scheduleTaskDelay(0.0);
}

void LdpAdjSmManager::handlePeerDelTimerTask() {
   if (!initialized_) return;
   U64 done = 0;
   for (auto it = peerDelColl_.begin(); it; ++it) {
      LdpIdentifier ldpId = it.key();
      LDP_TRACE(th, 3, "Deleting adjacencies of peer " << ldpId);
      for (auto a = in_.ldpAdjConfigColl->adjConfigIter(); a; ++a) {
         LdpAdjId adjId = a.key();
         if (adjId.ldpIdentifier() == ldpId) handleLdpAdjDelete(adjId);
      }
      peerDelColl_.erase(ldpId);
      ++done;
      if (peerDelTimerTask_->taskShouldYield()) break;
   }
   peerDelTimerTask_->taskWorkCountInc(done);
   peerDelTimerTask_->taskWorkPendingIs(peerDelColl_.size());
   if (!peerDelColl_.empty()) peerDelTimerTask_->scheduleTaskDelay(0.0);
}

// A status code is decided on after the change has reached every machine
// that reads it, so that the peer learns why its adjacency ended.
void LdpAdjSmManager::handleAdjStatusCode(LdpAdjId const& adjId) {
   if (!initialized_) return;
   if (!adjStatusCodeColl_.contains(adjId)) adjStatusCodeColl_.emplace(adjId, true);
   adjStatusCodeTimerTask_->scheduleTaskDelay(0.0);
}

void LdpAdjSmManager::handleAdjStatusCodeTimerTask() {
   if (!initialized_) return;
   U64 done = 0;
   for (auto it = adjStatusCodeColl_.begin(); it; ++it) {
      LdpAdjId adjId = it.key();
      adjStatusCodeColl_.erase(adjId);
      handleLdpAdjConfig(adjId);
      ++done;
      if (adjStatusCodeTimerTask_->taskShouldYield()) break;
   }
   adjStatusCodeTimerTask_->taskWorkCountInc(done);
   adjStatusCodeTimerTask_->taskWorkPendingIs(adjStatusCodeColl_.size());
   if (!adjStatusCodeColl_.empty()) adjStatusCodeTimerTask_->scheduleTaskDelay(0.0);
}

void LdpAdjSmManager::handleAdjStatusEntry(LdpAdjId const& adjId) {
   if (!initialized_) return;
   auto s = in_.ldpAdjStatusColl->adjStatus(adjId);
   if (s) {
      adjStatus_.is(adjId, this, Vek::Ptr<LdpAdjStatus const>(s), adjId,
                    &LdpAdjSmManager::handleAdjStatusCode);
   } else {
      adjStatus_.del(adjId);
   }
}

void LdpAdjSmManager::handleLinkStatusEntry(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto s = in_.ldpLinkStatusColl->adjLinkStatus(intfId);
   if (s) {
      linkStatus_.is(intfId, this, Vek::Ptr<LdpLinkStatus const>(s), intfId,
                     &LdpAdjSmManager::handleLinkStatus);
   } else {
      linkStatus_.del(intfId);
   }
   handleLinkStatus(intfId);
}

void LdpAdjSmManager::handleTargetStatusEntry(Nolu::IpAddr const& address) {
   if (!initialized_) return;
   auto s = in_.ldpTargetStatusColl->adjTargetStatus(address);
   if (s) {
      targetStatus_.is(address, this, s, address, &LdpAdjSmManager::handleTargetStatus);
   } else {
      targetStatus_.del(address);
      // The target's adjacency goes with it.
      for (auto it = in_.ldpAdjConfigColl->adjConfigIter(); it; ++it) {
         LdpAdjId adjId = it.key();
         if (adjId.isTarget() && adjId.targetIpAddr() == address) handleLdpAdjDelete(adjId);
      }
   }
}

void LdpAdjSmManager::handleSessionStatusEntry(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto s = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (s) sessionStatus_.is(sessionId, this, s, sessionId, &LdpAdjSmManager::handleSessionState);
   else sessionStatus_.del(sessionId);
}

}  // namespace Ldp

#include "label/LdpFecSessionCtrlSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionCtrlSm");
}

LdpFecSessionCtrlSm::LdpFecSessionCtrlSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.singletonCtrlSmConfig);
   Vek::validPtr(in_.singletonMappingSmConfig);
   Vek::validPtr(in_.statistics);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   sessionReactor_.init(this, in_.ldpSessionStatusColl);
   singletonReactor_.init(this, in_.singletonCtrlSmConfig);
   handleInitialized();
}

void LdpFecSessionCtrlSm::handleInitialized() {
   timerNotiNoRouteTask_ =
      Hesk::timerTaskIs(this, &LdpFecSessionCtrlSm::handleTimerNotiNoRouteTask, in_.scheduler, 2,
                        std::string("FecSessionCtrl-") + "FecSessionCtrlSm");
   initialized_ = true;
   std::vector<LdpFecSessionId> ids;
   for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
      ids.push_back(it.key());
   for (auto const& id : ids) handleFecSesionStatus(id);
}

// Every LSR behind a via of the FEC is a next hop: several sessions of a FEC
// can hold the flag at once.
void LdpFecSessionCtrlSm::handleFecSessionDsLsr(LdpFecSessionId const& id) {
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   if (!s) return;
   bool nexthop = cfg && cfg->downstreamLsrHas(id.sessionId().ldpIdentifier());
   s->isNexthopLsrIs(nexthop);
}

void LdpFecSessionCtrlSm::handleDownstreamLsr(Mpls::FwdEqvClass const& fec,
                                              LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   LdpFecSessionId id(fec, LdpSessionId(ldpId));
   if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) handleFecSessionDsLsr(id);
}

void LdpFecSessionCtrlSm::handleFecSesionStatus(LdpFecSessionId const& id) {
   if (!initialized_) return;
   if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) handleFecSessionDsLsr(id);
   else notiNoRouteWorkQueue_.erase(id);
}

bool LdpFecSessionCtrlSm::computeNotiNoRouteMessage(LdpFecSessionId const& id) const {
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (!cfg || !s) return false;
   return cfg->viaSize() == 0 && localBit(*s, LocalBit::labelRequested);
}

void LdpFecSessionCtrlSm::queueNoRoute(LdpFecSessionId const& id) {
   Vek::Seconds due = Vek::System::currentTime() + delayRespNoRoute_;
   if (double* d = notiNoRouteWorkQueue_.find(id)) *d = due;
   else notiNoRouteWorkQueue_.emplace(id, due);
   timerNotiNoRouteTask_->scheduleTaskLowestDelay(delayRespNoRoute_);
}

void LdpFecSessionCtrlSm::handleSingletonCtrlSmNotify(LdpFecSessionId const& id) {
   if (!initialized_) return;
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   // The short delay lets a route that is on its way arrive first.
   if (computeNotiNoRouteMessage(id)) queueNoRoute(id);
}

void LdpFecSessionCtrlSm::handleTimerNotiNoRouteTask() {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   Vek::Seconds next = Vek::infinity;
   std::vector<LdpFecSessionId> due;
   for (auto it = notiNoRouteWorkQueue_.begin(); it; ++it) {
      if (it.value() <= now) due.push_back(it.key());
      else next = std::min<double>(next, it.value());
   }
   for (auto const& id : due) {
      notiNoRouteWorkQueue_.erase(id);
      processNotiNoRoute(id);
   }
   timerNotiNoRouteTask_->taskWorkCountInc(due.size());
   timerNotiNoRouteTask_->taskWorkPendingIs(notiNoRouteWorkQueue_.size());
   if (next != Vek::infinity) timerNotiNoRouteTask_->scheduleTaskLowestDelay(next - now);
}

void LdpFecSessionCtrlSm::processNotiNoRoute(LdpFecSessionId const& id) {
   if (!computeNotiNoRouteMessage(id)) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!ss || ss->sessionState() != stateOperational_) return;
   U32 reqId = 0;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      reqId = s->peerLabelRequestMsgId();
      s->peerLabelRequestMsgIdAckedIs(reqId);
      ldpMsgTxInc(s, LdpNotification_);
   }
   auto pkt = genLdpNotificationMsg(in_.statistics.ptr(), statusNoRoute_, LdpLabelRequest_, reqId);
   fecSessionSend(in_, id.sessionId(), pkt);
   reason_ = "No Route Notification Msg sent";
   LDP_TRACE(th, 5, "   " << reason_ << " " << id);
   wakeMappingSm(in_, id);
}

void LdpFecSessionCtrlSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id);
   if (!ss) return;
   if (ss->sessionState() == stateOperational_) {
      for (auto const& fsid : fecSessionsOfSession(in_, id)) {
         handleFecSessionDsLsr(fsid);
         if (!computeNotiNoRouteMessage(fsid)) continue;
         LDP_TRACE(th, 7, "   Setting timerNotiNoRoute " << fsid);
         queueNoRoute(fsid);
      }
   } else if (ss->sessionState() == stateClosed_) {
      for (auto const& fsid : fecSessionsOfSession(in_, id)) {
         notiNoRouteWorkQueue_.erase(fsid);
         auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(fsid);
         if (!s) continue;
         s->isNexthopLsrIs(false);
         s->peerNoLabelResourceCountIs(0);
         s->labelXsessionMappingSmNotiTimeAckedIs(0.0);
         s->labelXsessionRequestSmNotiTimeAckedIs(0.0);
         s->msgIdReqMsgDelAll();
         s->flagNoRouteNotificationIs(false);
         s->ldpMsgRxDelAll();
         s->ldpMsgTxDelAll();
      }
   }
}

void LdpFecSessionCtrlSm::handleReqMsgMsgId(LdpFecSessionId const& id, U32 msgId) {
   if (!initialized_) return;
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (!s) return;
   auto stats = in_.statistics->sessionStatisticsColl()->sessionStatistics(id.sessionId());
   if (!stats) return;
   if (s->msgIdReqMsgHas(msgId)) {
      LdpMsgIdFecMappingInfo info;
      info.fec = id.fec();
      info.msgType = LdpLabelRequest_;
      stats->ldpMsgIdFecMappingInfoIs(msgId, info);
   } else {
      stats->ldpMsgIdFecMappingInfoDel(msgId);
   }
}

}  // namespace Ldp

#include "label/LdpFecSessionRequestSm.h"

#include <cstdio>

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionRequestSm");
}

bool computeRequestMsgSendReadyHelper(RequestReadyInputs const& in, std::string* reason) {
   auto out = [reason](bool ready, char const* r) {
      *reason = r;
      return ready;
   };
   if (in.isUnsolicit && !in.isReleaseMsgSent &&
       !(in.isLoopDetection && in.isCrossSessionNotification))
      return out(false, "unsolicited mode");
   bool n = in.isNexthopLsr, l = in.isLabeReceived, q = in.isRequestOutstanding;
   bool i = in.isIngress, x = in.isCrossSessionNotification, p = in.isLoopDetection;
   if (!n) return out(false, "on demand, but upstream");
   if (x && p) return out(true, "loop detection, downstream, propagate upstream request");
   if (!l && !q && i) return out(true, "ingress, not requesting, no mapping, downstream");
   if (!l && !q && !p)
      return out(true, "not ingress, no loop detect, not requested, no mapping, downstream");
   if (!l && !q) return out(false, "not ingress, not requesting, no mapping, downstream, loop detect");
   if (!l && !p) return out(false, "requesting, loop detection not enabled, not propagating");
   if (!l) return out(false, "requesting, no upstream req");
   if (!x) return out(false, "downstream mapping received, no upstream req");
   return out(false, "mapping rcvd, no loop detection, not propagating upstream req");
}

bool computeAbortReqMsgSendReadyHelper(bool isRequestOutstanding, bool isNexthopLsr,
                                       std::string* reason) {
   if (!isRequestOutstanding) {
      *reason = "no request outstanding";
      return false;
   }
   if (!isNexthopLsr) {
      *reason = "requesting, upstream";
      return true;
   }
   *reason = "requesting, downstream";
   return false;
}

LdpFecSessionRequestSm::LdpFecSessionRequestSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpFecStatusColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.singletonRequestSmConfig);
   Vek::validPtr(in_.singletonCtrlSmConfig);
   Vek::validPtr(in_.statistics);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   fecStatusReactor_.init(this, in_.ldpFecStatusColl);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   sessionReactor_.init(this, in_.ldpSessionStatusColl);
   singletonReactor_.init(this, in_.singletonRequestSmConfig);
   handleInitialized();
}

void LdpFecSessionRequestSm::handleInitialized() {
   peerLabelStateTimerTask_ =
      Hesk::timerTaskIs(this, &LdpFecSessionRequestSm::handlePeerLabelStateTimerTask,
                        in_.scheduler, 2, "RequestSmPeerLabel");
   peerNoRouteTimerTask_ = Hesk::timerTaskIs(
      this, &LdpFecSessionRequestSm::handlePeerNoRouteTimerTask, in_.scheduler, 2,
      "RequestSmPeerNoRoute");
   initialized_ = true;
   for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it) queue(it.key());
}

void LdpFecSessionRequestSm::queue(LdpFecSessionId const& id) {
   if (!initialized_) return;
   peerLabelWorkQueue_.emplace(id, true);
   peerLabelStateTimerTask_->scheduleTaskLowestDelay(delayPeerLabelStateTimer_);
}

void LdpFecSessionRequestSm::handleFecConfig(Mpls::FwdEqvClass const& fec,
                                             LdpFecSessionConfigChange change) {
   if (!initialized_) return;
   for (auto const& id : fecSessionsOfFec(in_, fec)) {
      // A new next hop on an unsolicited session needs no request.
      if (change == fecConfigChangeDownstreamLsr_) {
         auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
         if (ss && sessionUnsolicited(ss.ptr()) &&
             in_.ldpFecConfigColl->fecConfigFind(fec) &&
             in_.ldpFecConfigColl->fecConfigFind(fec)->ldpLabelRetention() == liberalRetention_)
            continue;
      }
      queue(id);
   }
}

void LdpFecSessionRequestSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id);
   std::vector<LdpFecSessionId> ids = fecSessionsOfSession(in_, id);
   if (!ss || ss->sessionState() >= stateClosed_) {
      noResourcesSessions_.erase(id);
      for (auto const& fsid : ids) {
         peerLabelWorkQueue_.erase(fsid);
         peerNoRouteWorkQueue_.erase(fsid);
         if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(fsid)) {
            s->peerLabelStateDelAll();
            s->peerLabelSessionStateIs(peerLabelSessionNone_);
         }
      }
      return;
   }
   // Label Resources Available lifts the peer's block.
   if (U32 const* at = noResourcesSessions_.find(id); at && *at != ss->peerLabelRescAvailableCount())
      noResourcesSessions_.erase(id);
   for (auto const& fsid : ids) {
      if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(fsid))
         s->peerNoLabelResourceCountIs(ss->peerLabelRescAvailableCount());
      queue(fsid);
   }
}

void LdpFecSessionRequestSm::handleFecSessionStatus(LdpFecSessionId const& id) {
   if (!initialized_) return;
   if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id)) {
      // A FEC session made after the peer's Label Resources Available starts
      // even with it; a block of the peer still holds through the session.
      auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
      if (ss) s->peerNoLabelResourceCountIs(ss->peerLabelRescAvailableCount());
      s = {};
      queue(id);
   } else {
      peerLabelWorkQueue_.erase(id);
      peerNoRouteWorkQueue_.erase(id);
   }
}

void LdpFecSessionRequestSm::handleSingletonRxSmNotify(LdpFecSessionId const& id) {
   if (!initialized_ || !in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   computePeerLabelState(id);
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (ss && cfg && s && sessionUnsolicited(ss.ptr()) &&
       cfg->ldpLabelRetention() == liberalRetention_ &&
       !peerBit(*s, PeerBit::withdrawn | PeerBit::toRelease) &&
       in_.singletonRequestSmConfig->msgType() == LdpLabelMapping_)
      return;  // a mapping changes nothing here in that mode
   queue(id);
}

void LdpFecSessionRequestSm::handlePeerLabelStateTimerTask() {
   if (!initialized_) return;
   Hesk::drainWorkQueue(peerLabelStateTimerTask_.ptr(), peerLabelWorkQueue_,
                        [this](LdpFecSessionId const& id) { processPeerLabelState(id); });
}

void LdpFecSessionRequestSm::handlePeerNoRouteTimerTask() {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   Vek::Seconds next = Vek::infinity;
   std::vector<LdpFecSessionId> due;
   for (auto it = peerNoRouteWorkQueue_.begin(); it; ++it) {
      if (it.value() <= now) due.push_back(it.key());
      else next = std::min<double>(next, it.value());
   }
   for (auto const& id : due) {
      peerNoRouteWorkQueue_.erase(id);
      if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id))
         s->flagNoRouteNotificationIs(false);
      else continue;
      computePeerLabelState(id);
      queue(id);
   }
   peerNoRouteTimerTask_->taskWorkCountInc(due.size());
   peerNoRouteTimerTask_->taskWorkPendingIs(peerNoRouteWorkQueue_.size());
   if (next != Vek::infinity) peerNoRouteTimerTask_->scheduleTaskDelay(next - now);
}

void LdpFecSessionRequestSm::computePeerLabelState(LdpFecSessionId const& id) {
   VEK_ASSERT(initialized_ && "initialized()");
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!s || !ss) return;
   U32 v = 0;
   // A request is outstanding only if we sent one.
   if (s->localLabelRequestMsgId() != 0 &&
       s->localLabelRequestMsgId() != s->localLabelRequestMsgIdAcked())
      v |= PeerBit::requestOutstanding;
   if (s->localLabelReleaseMsgId() != 0) v |= PeerBit::releaseSent;
   for (auto it = s->peerLabelStateIter(); it; ++it) {
      if (it.value() == mappingRcvd_) v |= PeerBit::labelReceived;
      if (it.value() == withdrawRcvd_) v |= PeerBit::withdrawn | PeerBit::toRelease;
      if (it.value() == peerLabelUnused_) v |= PeerBit::toRelease;
   }
   if (s->peerNoLabelResourceCount() != ss->peerLabelRescAvailableCount()) {
      v |= PeerBit::noResources;
      // No Label Resources holds for the whole peer, not this FEC alone.
      if (!noResourcesSessions_.contains(id.sessionId()))
         noResourcesSessions_.emplace(id.sessionId(), ss->peerLabelRescAvailableCount());
   }
   if (v & (PeerBit::requestOutstanding | PeerBit::labelReceived | PeerBit::toRelease))
      v |= PeerBit::active;
   U32 old = U32(s->peerLabelSessionState());
   if (old == v) return;
   if (th.levelEnabled(8)) {
      char buf[96];
      std::snprintf(buf, sizeof buf, "   peerLabelState changed from 0x%08x --> 0x%08x", old, v);
      LDP_TRACE(th, 8, buf << " " << id);
   }
   s->peerLabelSessionStateIs(LdpPeerLabelSessionState(v));
}

void LdpFecSessionRequestSm::processPeerLabelState(LdpFecSessionId const& id) {
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!ss) return;
   computePeerLabelState(id);
   if (!in_.ldpFecConfigColl->fecConfigHas(id.fec()) || !in_.ldpFecStatusColl->fecStatusHas(id.fec()))
      return;
   if (ss->sessionState() == stateOperational_) {
      if (computeRequestMsgSendReady(id)) sendRequestMessage(id);
      if (computeAbortReqMsgSendReady(id)) sendAbortReqMessage(id);
      if (computeReleaseMsgSendReady(id)) sendReleaseMessage(id);
      auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
      if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id); s && fs)
         s->labelXsessionRequestSmNotiTimeAckedIs(fs->labelXsessionRequestSmNotiTime());
      computePeerLabelState(id);
   }
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (s && s->flagNoRouteNotification() && !peerNoRouteWorkQueue_.contains(id)) {
      peerNoRouteWorkQueue_.emplace(id, Vek::System::currentTime() + peerNoRouteTimerDelay_);
      peerNoRouteTimerTask_->scheduleTaskLowestDelay(peerNoRouteTimerDelay_);
   }
}

LdpXsessionNotification const* LdpFecSessionRequestSm::requestNotification(
   LdpFecSessionId const& id) const {
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   if (!fs) return nullptr;
   LdpXsessionNotification const* n = fs->ldpXsessionNotification().ptr();
   if (!n || n->sourceSessionId() == id.sessionId()) return nullptr;
   if (n->ldpXsessionNotificationType() != xsessionRequest_ &&
       n->ldpXsessionNotificationType() != xsessionRequestAttr_)
      return nullptr;
   return n;
}

bool LdpFecSessionRequestSm::computeRequestMsgSendReady(LdpFecSessionId const& id) {
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!s || !cfg || !fs || !ss) return false;
   reason_ = "Using default";
   bool x = fs->labelXsessionRequestSmNotiTime() != s->labelXsessionRequestSmNotiTimeAcked() &&
            requestNotification(id) != nullptr;
   if (x) reason_ = "Using default with crossSessionNotification";
   bool ready = false;
   if (ss->sessionOpState() != sessionOpAddrExchanged_) {
      reason_ = "Session is not ready to exchange labels";
   } else if (s->flagNoRouteNotification()) {
      reason_ = "No Route notification received";
   } else if (peerBit(*s, PeerBit::noResources) || sessionBlocked(ss.ptr())) {
      reason_ = "No Label Resource Notification received";
   } else {
      RequestReadyInputs in;
      in.isUnsolicit = sessionUnsolicited(ss.ptr());
      in.isRequestOutstanding = peerBit(*s, PeerBit::requestOutstanding);
      in.isReleaseMsgSent = peerBit(*s, PeerBit::releaseSent);
      in.isLabeReceived = peerBit(*s, PeerBit::labelReceived);
      in.isNexthopLsr = s->isNexthopLsr();
      in.isCrossSessionNotification = x;
      in.isLoopDetection = cfg->ldpLoopDetection();
      in.isIngress = cfg->ldpFecLspRole() == lspRoleIngress_;
      ready = computeRequestMsgSendReadyHelper(in, &reason_);
   }
   LDP_TRACE(th, 8, "   RequestMsg ready: " << reason_ << " " << id);
   return ready;
}

bool LdpFecSessionRequestSm::sessionBlocked(LdpSessionStatus const* ss) const {
   U32 const* at = noResourcesSessions_.find(ss->sessionId());
   return at && *at == ss->peerLabelRescAvailableCount();
}

bool LdpFecSessionRequestSm::computeAbortReqMsgSendReady(LdpFecSessionId const& id) {
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (!s) return false;
   reason_ = "Using default";
   bool ready = computeAbortReqMsgSendReadyHelper(peerBit(*s, PeerBit::requestOutstanding),
                                                  s->isNexthopLsr(), &reason_);
   LDP_TRACE(th, 8, "   AbortMsg ready: " << reason_ << " " << id);
   return ready;
}

bool LdpFecSessionRequestSm::computeReleaseMsgSendReady(LdpFecSessionId const& id) {
   reason_ = "Using default";
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   if (!cfg || !s) return false;
   bool ready = false;
   if (cfg->ldpLabelRetention() == conservativeRetention_ &&
       peerBit(s.get(), PeerBit::labelReceived) && !s->isNexthopLsr()) {
      std::vector<Nolu::MplsLabel> unused;
      for (auto it = s->peerLabelStateIter(); it; ++it)
         if (it.value() == mappingRcvd_) unused.push_back(it.key());
      for (auto const& l : unused) s->peerLabelStateIs(l, peerLabelUnused_);
      ready = true;
   }
   for (auto it = s->peerLabelStateIter(); it; ++it) {
      if (it.value() == withdrawRcvd_) {
         reason_ = "Label Withdraw Message Received";
         ready = true;
         break;
      }
      if (it.value() == peerLabelUnused_) {
         reason_ = "Conservative retention. Label not used";
         ready = true;
         break;
      }
   }
   LDP_TRACE(th, 8, "   ReleaseMsg ready: " << reason_ << " " << id);
   return ready;
}

void LdpFecSessionRequestSm::sendRequestMessage(LdpFecSessionId const& id) {
   if (reentrantFlag_) return;
   reentrantFlag_ = true;
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   U32 msgId = in_.statistics->messageIdInc(1);
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpLabelRequest_, msgId);
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr( false, LdpLabelRequest_, statistics()->messageIdInc( 1 ) )");
   ok = gen->addFecTlvPrefix(id.fec());
   VEK_ASSERT(ok && "msgGen->addFecTlvPrefix( fec )");
   LdpXsessionNotification const* n = requestNotification(id);
   bool attrNoti = n && n->ldpXsessionNotificationType() == xsessionRequestAttr_;
   if (fs && fs->hopCountInclude()) {
      ok = gen->addLdpHopCountTlv(attrNoti ? n->hopCount() : fs->hopCountRequestMsg());
      VEK_ASSERT(ok && "msgGen->addLdpHopCountTlv( hopCount )");
   }
   if (fs && fs->pathVectorInclude()) {
      if (attrNoti) {
         VEK_ASSERT(n->pathVectorTlvPkt() && "ldpXsessionNotification->pathVectorTlvPkt()");
         gen->appendLdpTlv(n->pathVectorTlvPkt(), 0);
      } else {
         VEK_ASSERT(fs->pathVectorTlvPkt() && "fecStatus->pathVectorTlvPkt()");
         gen->appendLdpTlv(fs->pathVectorTlvPkt(), 0);
      }
   }
   gen->computeHdrLenChecksum();
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      s->localLabelRequestMsgIdIs(msgId);
      // The request in flight is the one kept by id, for the peer's answer
      // to find: an older one has been answered, or given up with its abort.
      s->msgIdReqMsgDelAll();
      s->msgIdReqMsgIs(msgId, true);
      ldpMsgTxInc(s, LdpLabelRequest_);
   }
   in_.singletonCtrlSmConfig->fecSessionIdIs(id);
   in_.singletonCtrlSmConfig->msgIdReqMsgIs(msgId);
   fecSessionSend(in_, id.sessionId(), pkt);
   reason_ = "Label Request Msg Sent.";
   LDP_TRACE(th, 5, "   " << reason_ << " " << id);
   reentrantFlag_ = false;
}

void LdpFecSessionRequestSm::sendAbortReqMessage(LdpFecSessionId const& id) {
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpLabelAbortReq_, in_.statistics->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr( false, LdpLabelAbortReq_, statistics()->messageIdInc( 1 ) )");
   ok = gen->addFecTlvPrefix(id.fec());
   VEK_ASSERT(ok && "msgGen->addFecTlvPrefix( fec )");
   ok = gen->addLabelReqMsgIdTlv(s->localLabelRequestMsgId());
   VEK_ASSERT(ok && "msgGen->addLabelReqMsgIdTlv( localLabelRequestMsgId )");
   gen->computeHdrLenChecksum();
   ldpMsgTxInc(s, LdpLabelAbortReq_);
   s->localLabelRequestMsgIdIs(0);
   s->localLabelRequestMsgIdAckedIs(0);
   s->msgIdReqMsgDelAll();
   s = {};
   fecSessionSend(in_, id.sessionId(), pkt);
   reason_ = "Label Abort Req Msg Sent.";
   LDP_TRACE(th, 5, "   " << reason_ << " " << id);
}

void LdpFecSessionRequestSm::sendSingleReleaseMessage(LdpFecSessionId const& id,
                                                      Nolu::MplsLabel label) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpLabelRelease_, in_.statistics->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr( false, LdpLabelRelease_, statistics()->messageIdInc( 1 ) )");
   ok = gen->addFecTlvPrefix(id.fec());
   VEK_ASSERT(ok && "msgGen->addFecTlvPrefix( fec )");
   if (label != Nolu::MplsLabel::any()) {
      ok = gen->addGenLabelTlv(false, label);
      VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, mplsLabel )");
   }
   gen->computeHdrLenChecksum();
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      ldpMsgTxInc(s, LdpLabelRelease_);
      s->peerLabelStateDel(label);
   }
   fecSessionSend(in_, id.sessionId(), pkt);
   LDP_TRACE(th, 5, "   Label Release Msg Sent " << id << " label " << label);
}

void LdpFecSessionRequestSm::sendReleaseMessage(LdpFecSessionId const& id) {
   std::vector<std::pair<Nolu::MplsLabel, LdpPeerLabelState>> todo;
   bool any = false;
   {
      auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
      for (auto it = s->peerLabelStateIter(); it; ++it) {
         if (it.key() == Nolu::MplsLabel::any()) {
            any = it.value() == withdrawRcvd_;
            continue;
         }
         if (it.value() == withdrawRcvd_ || it.value() == peerLabelUnused_)
            todo.emplace_back(it.key(), it.value());
      }
   }
   // A Withdraw that named no label, with nothing known: a Release without one.
   if (any) sendSingleReleaseMessage(id, Nolu::MplsLabel::any());
   for (auto const& [label, st] : todo) {
      sendSingleReleaseMessage(id, label);
      if (st == peerLabelUnused_)
         in_.ldpFecSessionStatusColl->fecSessionStatus(id)->localLabelReleaseMsgIdIs(
            in_.statistics->messageId());
   }
   reason_ = "Label Release Msg Sent.";
}

}  // namespace Ldp

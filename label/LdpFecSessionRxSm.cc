#include "label/LdpFecSessionRxSm.h"

#include "entities/Functions.h"
#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionRxSm");
}

LdpFecSessionRxSm::LdpFecSessionRxSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpFecStatusColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.rxMsgPipe);
   Vek::validPtr(in_.ldpFecSessionRxNotifier);
   Vek::validPtr(in_.statistics);
   Vek::validPtr(in_.scheduler);
   Vek::validPtr(in_.wildcardWork);
   rxPipeReactor_.init(this, in_.rxMsgPipe);
   sessionReactor_.init(this, in_.ldpSessionStatusColl);
   handleInitialized();
}

void LdpFecSessionRxSm::handleInitialized() {
   wildcardTimerTask_ = Hesk::timerTaskIs(this, &LdpFecSessionRxSm::handleWildcardTimerTask,
                                          in_.scheduler, 2, "RxSmWildcard");
   initialized_ = true;
   handleMsgPipeReadable();
}

namespace {
bool wildcardMsg(LdpMsg const& msg) {
   LdpMsgParser const* p = msg.parser().ptr();
   LdpFecTlvParser const* fec = p ? p->ldpFecTlvParser() : nullptr;
   return fec && msg.fecElementIndex() < fec->fecElementNum() &&
          fec->fecElementType(msg.fecElementIndex()) == wildcardElement_;
}
}  // namespace

void LdpFecSessionRxSm::handleMsgPipeReadable() {
   if (!initialized_) return;
   while (auto msg = in_.rxMsgPipe->rxMsg()) {
      if (wildcardMsg(*msg)) {
         handleRxWildcardMsg(msg);
         continue;
      }
      // The relay named the FEC session in the notifier just before it sent
      // the message.
      LdpFecSessionId id = in_.ldpFecSessionRxNotifier->ldpFecSessionId();
      handleRxLabelMsg(id, msg);
   }
}

void LdpFecSessionRxSm::handleRxWildcardMsg(Vek::Ptr<LdpMsg> const& msg) {
   if (!initialized_) return;
   LdpSessionId sid(msg->ldpIdentifier());
   LdpMsgParser const& p = *msg->parser();
   LdpMsgType type = p.msgType();
   if (!p.validMsg() || (type != LdpLabelWithdraw_ && type != LdpLabelRelease_)) {
      LDP_TRACE(th, 3, "   Wildcard FEC in " << ldpMsgTypeStr(type) << " ignored for " << sid);
      return;
   }
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sid);
   if (!ss || ss->sessionState() != stateOperational_) return;
   // With a label, the wildcard speaks of that label wherever it is bound.
   Nolu::MplsLabel label = p.genLabelTlv() ? p.genLabelTlv()->label() : Nolu::MplsLabel::any();
   in_.wildcardWork->jobIs(sid, type, label);
   wildcardTimerTask_->scheduleTaskDelay(0.0);
   reason_ = type == LdpLabelWithdraw_ ? "Wildcard Label Withdraw queued"
                                       : "Wildcard Label Release queued";
   LDP_TRACE(th, 5, "   " << reason_ << " for " << sid << " label " << label);
}

void LdpFecSessionRxSm::handleWildcardTimerTask() {
   if (!initialized_) return;
   if (in_.wildcardWork->walk(in_, wildcardTimerTask_.ptr()))
      wildcardTimerTask_->scheduleTaskDelay(0.0);
}

void LdpFecSessionRxSm::handleRxLabelMsg(LdpFecSessionId const& id, Vek::Ptr<LdpMsg> const& msg) {
   if (!initialized_) return;
   VEK_ASSERT(msg && msg->pkt() && "pkt && \"Internal Error\"");
   Vek::Ptr<LdpMsgParser const> parser = msg->parser();
   if (!parser) parser = ldpMsgParserFactory(msg->pkt(), msg->offset());
   if (!parser->validMsg()) {
      LDP_TRACE(th, 5, "   LDP MSG Invalid, reason: " << parser->reason());
      return;
   }
   LDP_TRACE(th, 7, "   Received Message, total MSG Size: " << parser->msgSize() << " for " << id);
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) {
      LDP_TRACE(th, 5, "   No FEC session for " << id);
      return;
   }
   // The peer's wildcards that came before this message act on the FEC
   // session first.
   in_.wildcardWork->settle(in_, id);
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   LdpMsgType type = parser->msgType();
   if ((type == LdpLabelMapping_ || type == LdpLabelRequest_ || type == LdpLabelAbortReq_) &&
       parser->ldpFecTlvParser() && parser->ldpFecTlvParser()->hasWildcard()) {
      // The wildcard speaks of every FEC only in a Withdraw or a Release; a
      // label bound to all FECs at once is not taken.
      LDP_TRACE(th, 3, "   Wildcard FEC in " << ldpMsgTypeStr(type) << " ignored for " << id);
      return;
   }
   switch (parser->msgType()) {
   case LdpNotification_: handleRxNotificationMsg(id, *parser); break;
   case LdpLabelMapping_:
      handleRxMappingMsg(id, *parser);
      wakeRequestSm(in_, id, LdpLabelMapping_);
      break;
   case LdpLabelRequest_:
      handleRxRequestMsg(id, *parser);
      wakeMappingSm(in_, id);
      wakeCtrlSm(in_, id);
      break;
   case LdpLabelWithdraw_:
      handleRxWithdrawMsg(id, *parser);
      wakeRequestSm(in_, id, LdpLabelWithdraw_);
      break;
   case LdpLabelRelease_:
      handleRxReleaseMsg(id, *parser);
      wakeMappingSm(in_, id);
      break;
   case LdpLabelAbortReq_:
      handleRxAbortReqMsg(id, *parser);
      wakeMappingSm(in_, id);
      break;
   default:
      // The session hands on label messages and Notifications alone; anything
      // else is dropped rather than trusted.
      LDP_TRACE(th, 1, "   Unexpected message type " << U16(parser->msgType()) << " for " << id);
      break;
   }
}

void LdpFecSessionRxSm::sendNotification(LdpFecSessionId const& id, LdpStatusCode code,
                                         LdpMsgParser const& p) {
   auto pkt = genLdpNotificationMsg(in_.statistics.ptr(), code, p.msgType(), p.msgId());
   fecSessionSend(in_, id.sessionId(), pkt);
}

bool LdpFecSessionRxSm::loopTest(LdpFecSessionId const& id, LdpMsgParser const& p) {
   ProtoConfig const* pc = in_.protoConfig.ptr();
   bool loop = false;
   if (auto const* hc = p.hopCountTlv()) loop = hc->hopCount() > pc->ldpHopCountMax();
   if (auto const* pv = p.pathVectorTlv()) {
      loop = loop || pv->lsrIdPosition(pc->routerId()) != 0 ||
             pv->lsrIdNum() > pc->ldpHopCountMax();
   }
   if (loop) {
      sendNotification(id, statusLoopDetected_, p);
      reason_ = "Loop Detected, Notification Msg sent";
      LDP_TRACE(th, 5, "   " << reason_ << " for " << id);
      return true;
   }
   if (!p.hopCountTlv() && !p.pathVectorTlv() &&
       pc->ldpProtoParamSetting().hasFlag(LdpProtoParamSetting::loopDetectionStrict) &&
       pc->ldpLoopDetection()) {
      sendNotification(id, statusMissingMsgParams_, p);
      reason_ = p.msgType() == LdpLabelMapping_
                   ? "Label Mapping Message received without hopCount"
                   : "Label Request Message received without hopCount";
      LDP_TRACE(th, 5, "   " << reason_ << " for " << id);
      return true;
   }
   return false;
}

void LdpFecSessionRxSm::xsessionNotify(LdpFecSessionId const& id, LdpMsgParser const& p,
                                       bool mapping) {
   auto fs = in_.ldpFecStatusColl->fecStatus(id.fec());
   if (!fs) return;
   Vek::Ptr<LdpXsessionNotification> n = fs->ldpXsessionNotification();
   if (!n) {
      n = new LdpXsessionNotification;
      fs->ldpXsessionNotificationIs(n);
   }
   n->sourceSessionIdIs(id.sessionId());
   bool attrs = p.hopCountTlv() || p.pathVectorTlv();
   if (attrs) {
      U8 hop = 0;
      if (auto const* hc = p.hopCountTlv()) {
         hop = hopCountInc(hc->hopCount());
         if (mapping) fs->hopCountMappingLearntIs(hc->hopCount());
         else fs->hopCountRequestLearntIs(hc->hopCount());
      } else {
         hop = mapping ? fs->hopCountMappingMsg() : fs->hopCountRequestMsg();
      }
      n->hopCountIs(hop);
      auto pkt = Nolu::globalPktManager()->newPkt();
      auto gen = ldpPathVectorTlvGenFactory(pkt);
      if (auto const* pv = p.pathVectorTlv())
         for (U32 i = 0; i < pv->lsrIdNum(); ++i) gen->appendLsrId(pv->lsrId(i));
      gen->appendLsrId(in_.protoConfig->routerId());
      n->pathVectorTlvPktIs(pkt);
      n->ldpXsessionNotificationTypeIs(mapping ? xsessionMappingAttr_ : xsessionRequestAttr_);
   } else {
      n->hopCountIs(0);
      n->pathVectorTlvPktIs(nullptr);
      n->ldpXsessionNotificationTypeIs(mapping ? xsessionMapping_ : xsessionRequest_);
   }
   // A time the other sessions have not acknowledged wakes them; it moves on
   // even within one instant of virtual time. The source acknowledges it at
   // once, so that it is not told of itself.
   Vek::Seconds now = Vek::System::currentTime();
   if (mapping) {
      Vek::Seconds t = std::max(now, fs->labelXsessionMappingSmNotiTime() + 1e-6);
      in_.ldpFecSessionStatusColl->fecSessionStatus(id)->labelXsessionMappingSmNotiTimeAckedIs(t);
      fs->labelXsessionMappingSmNotiTimeIs(t);
   } else {
      Vek::Seconds t = std::max(now, fs->labelXsessionRequestSmNotiTime() + 1e-6);
      in_.ldpFecSessionStatusColl->fecSessionStatus(id)->labelXsessionRequestSmNotiTimeAckedIs(t);
      fs->labelXsessionRequestSmNotiTimeIs(t);
   }
}

void LdpFecSessionRxSm::handleRxMappingMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   if (!ss || !cfg) return;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      ldpMsgRxInc(s, LdpLabelMapping_);
   }
   if (loopTest(id, p)) return;
   auto const* lt = p.genLabelTlv();
   if (!lt) return;  // the parser wants one; nothing to apply without it
   Nolu::MplsLabel label = lt->label();
   bool preAdvertised = false;
   bool nexthop = false;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      LdpPeerLabelState old = s->peerLabelState(label);
      preAdvertised = old == mappingRcvd_;
      LDP_TRACE(th, 7, "   Adding label: " << label << " for " << id);
      // A new label from the peer displaces the one in force.
      if (!in_.protoConfig->ldpMultiLabelSupport() && s->peerLabelStateSize() > 0 &&
          old != mappingRcvd_) {
         std::vector<Nolu::MplsLabel> displaced;
         for (auto it = s->peerLabelStateIter(); it; ++it)
            if (it.value() == mappingRcvd_) displaced.push_back(it.key());
         for (auto const& l : displaced) s->peerLabelStateIs(l, withdrawRcvd_);
      }
      s->peerLabelStateIs(label, mappingRcvd_);
      // The peer's mapping for the FEC answers our request for it, whether
      // it names the request or not (the Label Request Message ID is
      // optional, and a peer may name another); the id we sent stays on
      // record. An id we never sent names nothing to acknowledge, nor to
      // abort.
      U32 ours = s->localLabelRequestMsgId();
      auto const* rq = p.labelReqMsgIdTlv();
      if (rq && rq->msgId() != ours)
         LDP_TRACE(th, 5, "   Mapping names request " << rq->msgId() << ", ours is " << ours
                                                      << ", for " << id);
      if (ours != 0 && s->localLabelRequestMsgIdAcked() != ours) {
         s->localLabelRequestMsgIdAckedIs(ours);
         s->msgIdReqMsgDelAll();
         LDP_TRACE(th, 7, "   Acked Msg Id: " << ours);
      }
      nexthop = s->isNexthopLsr();
   }
   bool due = false;
   if (nexthop && !preAdvertised && cfg->ldpLabelDistCtrl() == independentDistCtrl_) {
      LDP_TRACE(th, 8, "Xsession notification: isNexthopLsr and not labelPreAdvertised and "
                       "independentCtrl");
      due = true;
   }
   if (nexthop && cfg->ldpLabelDistCtrl() == orderedDistCtrl_ && sessionUnsolicited(ss.ptr())) {
      LDP_TRACE(th, 8, "Xsession notification: isNexthopLsr and orderedCtrl and unSolicited");
      due = true;
   }
   if (p.hopCountTlv() || p.pathVectorTlv()) {
      LDP_TRACE(th, 8, "Xsession notification: msgHopCountTlv or msgPathVector");
      due = true;
   }
   if (due) xsessionNotify(id, p, true);
   reason_ = "Label Mapping applied";
}

void LdpFecSessionRxSm::handleRxRequestMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!ss || !in_.ldpFecConfigColl->fecConfigHas(id.fec())) return;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      ldpMsgRxInc(s, LdpLabelRequest_);
   }
   if (loopTest(id, p)) return;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      U32 msgId = p.msgId();
      // A repeated id still reads as unanswered.
      if (msgId == s->peerLabelRequestMsgIdAcked()) s->peerLabelRequestMsgIdAckedIs(0);
      s->peerLabelRequestMsgIdIs(msgId);
      s->localLabelActivelyReleasedIs(false);
   }
   bool attrs = p.hopCountTlv() || p.pathVectorTlv();
   if (!sessionUnsolicited(ss.ptr()) || attrs) xsessionNotify(id, p, false);
   reason_ = "Label Request applied";
}

void LdpFecSessionRxSm::handleRxWithdrawMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   Nolu::MplsLabel label = p.genLabelTlv() ? p.genLabelTlv()->label() : Nolu::MplsLabel::any();
   if (label != Nolu::MplsLabel::any())
      LDP_TRACE(th, 7, "   Withdraw label: " << label << " for " << id);
   else
      LDP_TRACE(th, 7, "   Withdraw all labels. " << id);
   peerLabelWithdrawn(s, label, false);
   ldpMsgRxInc(s, LdpLabelWithdraw_);
   reason_ = "Label Withdraw applied";
}

void LdpFecSessionRxSm::handleRxReleaseMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   Nolu::MplsLabel label = p.genLabelTlv() ? p.genLabelTlv()->label() : Nolu::MplsLabel::any();
   LDP_TRACE(th, 7, "   Release label: " << label << " for " << id);
   localLabelReleased(in_, id, s, label);
   ldpMsgRxInc(s, LdpLabelRelease_);
   reason_ = "Label Release applied";
}

void LdpFecSessionRxSm::handleRxAbortReqMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   ldpMsgRxInc(s, LdpLabelAbortReq_);
   U32 reqId = p.labelReqMsgIdTlv() ? p.labelReqMsgIdTlv()->msgId() : 0;
   if (reqId != s->peerLabelRequestMsgId()) {
      reason_ = "AbortReqMsg received, reqMsgId not found";
   } else if (s->peerLabelRequestMsgIdAcked() == s->peerLabelRequestMsgId()) {
      reason_ = "AbortReqMsg received, Request had already been acked";
   } else {
      auto pkt = genLdpNotificationMsg(in_.statistics.ptr(), statusLabelRequestAborted_,
                                       LdpLabelAbortReq_, p.msgId());
      fecSessionSend(in_, id.sessionId(), pkt);
      ldpMsgTxInc(s, LdpLabelAbortReq_);
      s->peerLabelRequestMsgIdAckedIs(s->peerLabelRequestMsgId());
      reason_ = "Request Msg aborted, Notification Msg sent";
   }
   LDP_TRACE(th, 7, "   " << reason_ << " for " << id);
}

void LdpFecSessionRxSm::handleRxNotificationMsg(LdpFecSessionId const& id, LdpMsgParser const& p) {
   auto const* st = p.statusTlv();
   if (!st) return;  // the session hands on only Notifications with a status
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   ldpMsgRxInc(s, LdpNotification_);
   if (st->msgType() != LdpLabelRequest_) return;
   // Only the request on record is answered: one that was answered already,
   // or aborted, is over.
   if (!s->msgIdReqMsgHas(st->msgId())) {
      LDP_TRACE(th, 5, "   Notification about request " << st->msgId() << ", not on record, for "
                                                        << id);
      return;
   }
   switch (LdpStatusCode(st->statusData())) {
   case statusNoLabelResources_:
      s->peerNoLabelResourceCountIs(s->peerNoLabelResourceCount() + 1);
      s->msgIdReqMsgDelAll();
      s->localLabelRequestMsgIdAckedIs(s->localLabelRequestMsgId());
      reason_ = "No Label Resources";
      break;
   case statusNoRoute_:
   case statusLoopDetected_:
      s->msgIdReqMsgDelAll();
      s->localLabelRequestMsgIdAckedIs(s->localLabelRequestMsgId());
      s->flagNoRouteNotificationIs(true);
      reason_ = "No Route or Loop Detected";
      break;
   default: return;
   }
   LDP_TRACE(th, 7, "   Notification: " << reason_ << " for " << id);
   s = {};
   wakeRequestSm(in_, id, LdpNotification_);
}

void LdpFecSessionRxSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "Session: " << id);
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id);
   if (ss && ss->sessionState() != stateClosed_) return;
   in_.wildcardWork->sessionDel(id);
   for (auto const& fsid : fecSessionsOfSession(in_, id)) {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(fsid);
      if (!s) continue;
      s->peerLabelRequestMsgIdIs(0);
      s->peerLabelRequestMsgIdAckedIs(0);
      s->localLabelRequestMsgIdIs(0);
      s->localLabelRequestMsgIdAckedIs(0);
      s->localLabelReleaseMsgIdIs(0);
      s->peerLabelSessionStateIs(peerLabelSessionNone_);
      s->localLabelSessionStateIs(localLabelSessionNone_);
      s->localLabelActivelyReleasedIs(false);
      s->attributeVersionAckedIs(0);
      s->withdrawLabelDelAll();
   }
   reason_.clear();
}

}  // namespace Ldp

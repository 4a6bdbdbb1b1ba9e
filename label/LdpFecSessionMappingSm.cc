#include "label/LdpFecSessionMappingSm.h"

#include <cstdio>

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionMappingSm");
constexpr Vek::Seconds workQueueDelay = 0.1;
}  // namespace

bool computeMappingMsgSendReadyHelper(MappingReadyInputs const& in, std::string* reason) {
   auto out = [reason](bool ready, char const* r) {
      *reason = r;
      return ready;
   };
   if (in.isOtherLabelsSent) return out(false, "a mapping msg for another label has been sent");
   if (in.isPeerReleaseOutstanding) return out(false, "waiting for peer release after withdraw");
   bool requested = in.isLabelRequested ||
                    (in.isCrossSessionNotification && !in.isNexthopLsr && !in.isLabelSent);
   bool dsOk = in.isDsMappingAvail || in.isEgress;
   bool n = in.isNexthopLsr, loop = in.loopDetection, released = in.isPeerReleased;
   if (!in.isOrdered) {
      if (!in.isUnsolicit && !requested)
         return out(false, "independent, onDemand, label not requested");
      if (requested) {
         if (!n) return out(true, "independent, requested, upstream");
         if (loop) return out(false, "independent, requested, downstream, loopDetection");
         return out(true, "independent, requested, downstream");
      }
      if (!in.isLabelSent) {
         if (!n) {
            if (released)
               return out(false,
                          "independent, unsolicited, not requested, notSent, upstream, released");
            return out(true, "independent, unsolicited, not requested, notSent, upstream");
         }
         if (loop)
            return out(false,
                       "independent, unsolicited, not requested, notSent, downstream, loopDetection");
         if (released)
            return out(false, "independent, unsolicited, not requested, notSent, downstream, released");
         return out(true, "independent, unsolicited, not requested, notSent, downstream");
      }
      if (!n) {
         if (in.isAttrChanged)
            return out(true,
                       "independent, unsolicited, not requested, label sent,upstream, attrChanged");
         return out(false,
                    "independent, unsolicited, not requested, label sent,upstream, notAttrChanged");
      }
      return out(false, "independent, unsolicited, not requested, label sent, downstream");
   }
   if (!in.isUnsolicit && !requested) return out(false, "ordered, ondemand, no requested");
   if (!in.isUnsolicit && !dsOk) return out(false, "ordered, ondemand, requested, no dsMapping");
   if (in.isUnsolicit && !dsOk) return out(false, "ordered, unsolicited, no dsMapping");
   if (requested) {
      if (!n) return out(true, "ordered, dsMapping, requested, upstream");
      if (loop) return out(false, "ordered, dsMapping, requested, downstream, loopDetection");
      return out(true, "ordered, dsMapping, requested, downstream");
   }
   if (in.isLabelSent) return out(false, "ordered, unsolicited, dsMapping, sent");
   if (!n) {
      if (released) return out(false, "ordered, unsolicited, dsMapping, notSent, upstream, released");
      return out(true, "ordered, unsolicited, dsMapping, notSent, upstream");
   }
   if (loop) return out(false, "ordered, unsolicited, dsMapping, notSent, downstream, loopDetection");
   if (released) return out(false, "ordered, unsolicited, dsMapping, notSent, downstream, released");
   return out(true, "ordered, unsolicited, dsMapping, notSent, downstream");
}

bool computeWithdrawMsgSendReadyHelper(MappingReadyInputs const& in, std::string* reason) {
   auto out = [reason](bool ready, char const* r) {
      *reason = r;
      return ready;
   };
   bool dsOk = in.isDsMappingAvail || in.isEgress;
   bool n = in.isNexthopLsr, loop = in.loopDetection;
   if (!in.isLabelSent) return out(false, "not sent");
   if (!in.isOrdered) {
      if (!n) return out(false, "independent, sent, upstream");
      if (loop) return out(true, "independent, sent, downstream, loopDetection");
      return out(false, "independent, sent, downstream");
   }
   if (!dsOk) return out(true, "ordered, sent, no ds mapping");
   if (!n) return out(false, "ordered, sent, ds mapping, upstream");
   if (loop) return out(true, "ordered, sent, ds mapping, downstream, loopDetection");
   return out(false, "ordered, sent, ds mapping, downstream");
}

LdpFecSessionMappingSm::LdpFecSessionMappingSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpFecStatusColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.singletonMappingSmConfig);
   Vek::validPtr(in_.statistics);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   fecStatusReactor_.init(this, in_.ldpFecStatusColl);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   sessionReactor_.init(this, in_.ldpSessionStatusColl);
   singletonReactor_.init(this, in_.singletonMappingSmConfig);
   handleInitialized();
}

void LdpFecSessionMappingSm::handleInitialized() {
   localLabelStateTimerTask_ =
      Hesk::timerTaskIs(this, &LdpFecSessionMappingSm::handleLocalLabelStateTimerTask,
                        in_.scheduler, 2, "MappingSmLocalLabel");
   deferredWithdrawTimerTask_ =
      Hesk::timerTaskIs(this, &LdpFecSessionMappingSm::handleDeferredWithdrawTimerTask,
                        in_.scheduler, 2, "MappingSmWithdraw");
   initialized_ = true;
   for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it) queue(it.key());
}

void LdpFecSessionMappingSm::queue(LdpFecSessionId const& id) {
   if (!initialized_) return;
   fecSessionWorkQueue_.emplace(id, true);
   localLabelStateTimerTask_->scheduleTaskLowestDelay(workQueueDelay);
}

void LdpFecSessionMappingSm::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   for (auto const& id : fecSessionsOfFec(in_, fec)) queue(id);
}

void LdpFecSessionMappingSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id);
   std::vector<LdpFecSessionId> ids = fecSessionsOfSession(in_, id);
   if (!ss || ss->sessionState() >= stateClosed_) {
      // What was advertised on a session that closed means nothing any more.
      for (auto const& fsid : ids) {
         fecSessionWorkQueue_.erase(fsid);
         fecSessionWithdrawQueue_.erase(fsid);
         if (auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(fsid)) {
            s->localLabelStateDelAll();
            s->withdrawLabelDelAll();
         }
         if (auto cfg = in_.ldpFecConfigColl->fecConfig(fsid.fec())) cfg->advertisedToDel(id);
         computeLocalLabelSessionState(fsid);
      }
      return;
   }
   for (auto const& fsid : ids) queue(fsid);
}

void LdpFecSessionMappingSm::handleFecSesionStatus(LdpFecSessionId const& id) {
   if (!initialized_) return;
   if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) {
      queue(id);
   } else {
      fecSessionWorkQueue_.erase(id);
      fecSessionWithdrawQueue_.erase(id);
   }
}

void LdpFecSessionMappingSm::handleSingletonRxSmNotify(LdpFecSessionId const& id) {
   if (!initialized_) return;
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   computeLocalLabelSessionState(id);
   queue(id);
}

void LdpFecSessionMappingSm::handleMplsLabel(Mpls::FwdEqvClass const& fec,
                                             Nolu::MplsLabel const& label) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   bool present = cfg && cfg->mplsLabelHas(label);
   for (auto const& id : fecSessionsOfFec(in_, fec)) {
      if (present) {
         in_.ldpFecSessionStatusColl->fecSessionStatus(id)->withdrawLabelDel(label);
         queue(id);
      } else if (computeWithdrawMsgSendReady(id, label)) {
         // A label that comes straight back cancels its withdraw.
         in_.ldpFecSessionStatusColl->fecSessionStatus(id)->withdrawLabelIs(label, 1.0);
         Vek::Seconds due = Vek::System::currentTime() + withdrawDelayTime_;
         if (double* d = fecSessionWithdrawQueue_.find(id)) *d = due;
         else fecSessionWithdrawQueue_.emplace(id, due);
         deferredWithdrawTimerTask_->scheduleTaskLowestDelay(withdrawDelayTime_);
      }
   }
}

void LdpFecSessionMappingSm::handleLocalLabelStateTimerTask() {
   if (!initialized_) return;
   Hesk::drainWorkQueue(localLabelStateTimerTask_.ptr(), fecSessionWorkQueue_,
                        [this](LdpFecSessionId const& id) { processFecSessionMapping(id); });
}

// Withdraws that are due; a walk that yields resumes at its bookmark.
void LdpFecSessionMappingSm::handleDeferredWithdrawTimerTask() {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   if (!withdrawQueueBookmark_.set) nextScheduleTime_ = now + withdrawDelayTime_;
   U64 count = 0;
   bool stopped = false;
   auto it = fecSessionWithdrawQueue_.iterFrom(withdrawQueueBookmark_);
   withdrawQueueBookmark_.clear();
   while (it) {
      LdpFecSessionId id = it.key();
      double due = it.value();
      ++it;
      if (due > now) {
         nextScheduleTime_ = std::min<double>(nextScheduleTime_, due);
         continue;
      }
      Vek::Bookmark<LdpFecSessionId> next;
      if (it) next = it.bookmark();
      fecSessionWithdrawQueue_.erase(id);
      processFecSessionWithdraw(id);
      ++count;
      if (!next.set) break;
      it = fecSessionWithdrawQueue_.iterFrom(next);
      if (deferredWithdrawTimerTask_->taskShouldYield()) {
         withdrawQueueBookmark_ = next;
         stopped = true;
         break;
      }
   }
   deferredWithdrawTimerTask_->taskWorkCountInc(count);
   deferredWithdrawTimerTask_->taskWorkPendingIs(fecSessionWithdrawQueue_.size());
   if (stopped) {
      LDP_TRACE(th, 7, "Setting bookmark to " << withdrawQueueBookmark_.key);
      deferredWithdrawTimerTask_->scheduleTaskDelay(0.0);
   } else if (!fecSessionWithdrawQueue_.empty()) {
      Vek::Seconds delay = std::max(0.0, nextScheduleTime_ - now);
      LDP_TRACE(th, 7, "Delaying " << delay);
      deferredWithdrawTimerTask_->scheduleTaskDelay(delay);
   }
}

void LdpFecSessionMappingSm::computeLocalLabelSessionState(LdpFecSessionId const& id) {
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   if (!s) return;
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   U32 v = 0;
   if (s->peerLabelRequestMsgId() != s->peerLabelRequestMsgIdAcked()) v |= LocalBit::labelRequested;
   for (auto it = s->localLabelStateIter(); it; ++it) {
      if (it.value() == withdrawSent_) v |= LocalBit::releaseOutstanding;
      if (it.value() == mappingSent_) {
         VEK_ASSERT(!(v & LocalBit::localMappingSent) &&
                    "!localLabelSessionState.localMappingSent() && \"Two label mappings for same "
                    "FEC have been sent\"");
         v |= LocalBit::localMappingSent;
      }
   }
   if (s->localLabelActivelyReleased()) v |= LocalBit::peerReleased;
   if (fs && s->attributeVersionAcked() != fs->attributeVersion()) v |= LocalBit::attrChanged;
   if (s->localLabelStateSize() > 0 || (v & LocalBit::labelRequested)) v |= LocalBit::active;
   U32 old = U32(s->localLabelSessionState());
   if (old == v) return;
   if (th.levelEnabled(8)) {
      char buf[96];
      std::snprintf(buf, sizeof buf, "   localLabelSessionState changed from 0x%08x --> 0x%08x",
                    old, v);
      LDP_TRACE(th, 8, buf << " " << id);
   }
   s->localLabelSessionStateIs(LdpLocalLabelSessionState(v));
}

void LdpFecSessionMappingSm::processFecSessionMapping(LdpFecSessionId const& id) {
   // A wildcard Release of the peer that came before acts first, so that it
   // never takes back a label sent after it.
   if (in_.wildcardWork) in_.wildcardWork->settle(in_, id);
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   computeLocalLabelSessionState(id);
   if (!cfg || !fs) return;
   U32 sentBefore = in_.ldpFecSessionStatusColl->fecSessionStatus(id)->ldpMsgTx(LdpLabelMapping_);
   std::vector<Nolu::MplsLabel> labels;
   for (auto it = cfg->mplsLabelIter(); it; ++it) labels.push_back(it.key());
   for (auto const& l : labels) processMplsLabel(id, l);
   // A label withdrawn with a route whose withdraw was cancelled by the
   // session's end is looked at here too.
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   if (!s) return;
   if (auto const* f = in_.ldpFecStatusColl->fecStatusFind(id.fec()))
      s->labelXsessionMappingSmNotiTimeAckedIs(f->labelXsessionMappingSmNotiTime());
   if (s->ldpMsgTx(LdpLabelMapping_) != sentBefore)
      s->peerLabelRequestMsgIdAckedIs(s->peerLabelRequestMsgId());
   s = {};
   computeLocalLabelSessionState(id);
}

void LdpFecSessionMappingSm::processMplsLabel(LdpFecSessionId const& id, Nolu::MplsLabel label) {
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!ss || ss->sessionState() != stateOperational_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   if (!cfg || !in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   VEK_ASSERT(cfg->mplsLabelHas(label) && "fecConfig->mplsLabelSet()->mplsLabel( mplsLabel )");
   if (computeWithdrawMsgSendReady(id, label)) {
      reason_ = "Label is to be withdrawn";
      in_.ldpFecSessionStatusColl->fecSessionStatus(id)->withdrawLabelIs(label, 1.0);
      deferredWithdrawTimerTask_->scheduleTaskLowestDelay(withdrawDelayTime_);
      Vek::Seconds due = Vek::System::currentTime() + withdrawDelayTime_;
      if (double* d = fecSessionWithdrawQueue_.find(id)) *d = due;
      else fecSessionWithdrawQueue_.emplace(id, due);
      computeLocalLabelSessionState(id);
   }
   if (computeMappingMsgSendReady(id, label)) {
      reason_ = "Label is to be advertised";
      sendMappingMessage(id, label);
      computeLocalLabelSessionState(id);
   }
}

void LdpFecSessionMappingSm::processFecSessionWithdraw(LdpFecSessionId const& id) {
   if (in_.wildcardWork) in_.wildcardWork->settle(in_, id);
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) return;
   if (!in_.ldpFecConfigColl->fecConfigHas(id.fec())) return;
   computeLocalLabelSessionState(id);
   std::vector<Nolu::MplsLabel> labels;
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      for (auto it = s->withdrawLabelIter(); it; ++it) labels.push_back(it.key());
   }
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   for (auto const& l : labels) {
      in_.ldpFecSessionStatusColl->fecSessionStatus(id)->withdrawLabelDel(l);
      if (ss && ss->sessionState() == stateOperational_ && computeWithdrawMsgSendReady(id, l))
         sendWithdrawMessage(id, l);
   }
   computeLocalLabelSessionState(id);
}

LdpXsessionNotification const* LdpFecSessionMappingSm::mappingNotification(
   LdpFecSessionId const& id) const {
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   if (!fs || !s) return nullptr;
   LdpXsessionNotification const* n = fs->ldpXsessionNotification().ptr();
   if (!n || n->sourceSessionId() == id.sessionId()) return nullptr;
   if (n->ldpXsessionNotificationType() != xsessionMapping_ &&
       n->ldpXsessionNotificationType() != xsessionMappingAttr_)
      return nullptr;
   return n;
}

bool LdpFecSessionMappingSm::gather(LdpFecSessionId const& id, Nolu::MplsLabel label,
                                    MappingReadyInputs* in) {
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!s || !cfg || !fs || !ss) return false;
   in->isOrdered = cfg->ldpLabelDistCtrl() == orderedDistCtrl_;
   in->isUnsolicit = sessionUnsolicited(ss.ptr());
   in->isLabelRequested = localBit(*s, LocalBit::labelRequested);
   in->isLabelSent = s->localLabelState(label) == mappingSent_;
   in->isOtherLabelsSent = !in->isLabelSent && localBit(*s, LocalBit::localMappingSent);
   in->isDsMappingAvail = cfg->downstreamLsrMappingAvail();
   in->isNexthopLsr = s->isNexthopLsr();
   in->isPeerReleased = localBit(*s, LocalBit::peerReleased);
   in->isCrossSessionNotification =
      fs->labelXsessionMappingSmNotiTime() != s->labelXsessionMappingSmNotiTimeAcked() &&
      mappingNotification(id) != nullptr;
   in->isEgress = cfg->ldpFecLspRole() == lspRoleEgress_;
   in->loopDetection = cfg->ldpLoopDetection();
   in->isPeerReleaseOutstanding = localBit(*s, LocalBit::releaseOutstanding);
   in->isAttrChanged = localBit(*s, LocalBit::attrChanged);
   return true;
}

bool LdpFecSessionMappingSm::computeMappingMsgSendReady(LdpFecSessionId const& id,
                                                        Nolu::MplsLabel label) {
   MappingReadyInputs in;
   if (!gather(id, label, &in)) return false;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   bool ready;
   if (ss->sessionOpState() != sessionOpAddrExchanged_) {
      reason_ = "Session is not ready to exchange labels";
      ready = false;
   } else {
      ready = computeMappingMsgSendReadyHelper(in, &reason_);
   }
   LDP_TRACE(th, 8, "   MappingMsg readiness: " << reason_ << " " << id << " " << label);
   return ready;
}

bool LdpFecSessionMappingSm::computeWithdrawMsgSendReady(LdpFecSessionId const& id,
                                                         Nolu::MplsLabel label) {
   MappingReadyInputs in;
   if (!gather(id, label, &in)) {
      // Without the FEC's status a sent label still goes back.
      auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
      auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(id.fec());
      bool sent = s && s->localLabelState(label) == mappingSent_;
      if (sent && label.isValid() && cfg && !cfg->mplsLabelHas(label)) {
         reason_ = "MplsLabel removed from set";
         return true;
      }
      return false;
   }
   if (label.isValid() && in.isLabelSent &&
       !in_.ldpFecConfigColl->fecConfigFind(id.fec())->mplsLabelHas(label)) {
      reason_ = "MplsLabel removed from set";
      return true;
   }
   bool ready = computeWithdrawMsgSendReadyHelper(in, &reason_);
   LDP_TRACE(th, 8, "   WithdrawMsg readiness: " << reason_ << " " << id << " " << label);
   return ready;
}

void LdpFecSessionMappingSm::sendMappingMessage(LdpFecSessionId const& id, Nolu::MplsLabel label) {
   if (reentrantFlag_) return;
   reentrantFlag_ = true;
   auto const* fs = in_.ldpFecStatusColl->fecStatusFind(id.fec());
   auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
   VEK_ASSERT(fs && s && "fecStatus");
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpLabelMapping_, in_.statistics->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr( false, LdpLabelMapping_, statistics()->messageIdInc( 1 ) )");
   ok = gen->addFecTlvPrefix(id.fec());
   VEK_ASSERT(ok && "msgGen->addFecTlvPrefix( fec )");
   ok = gen->addGenLabelTlv(false, label);
   VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, mplsLabel )");
   LdpXsessionNotification const* n = mappingNotification(id);
   bool attrNoti = n && n->ldpXsessionNotificationType() == xsessionMappingAttr_;
   if (localBit(s.get(), LocalBit::labelRequested) && s->peerLabelRequestMsgId() != 0) {
      ok = gen->addLabelReqMsgIdTlv(s->peerLabelRequestMsgId());
      VEK_ASSERT(ok && "msgGen->addLabelReqMsgIdTlv( peerLabelRequestMsgId )");
   }
   if (fs->hopCountInclude()) {
      LDP_TRACE(th, 8, "Adding hop count");
      ok = gen->addLdpHopCountTlv(attrNoti ? n->hopCount() : fs->hopCountMappingMsg());
      VEK_ASSERT(ok && "msgGen->addLdpHopCountTlv( hopCount )");
   }
   if (fs->pathVectorInclude()) {
      if (attrNoti) {
         VEK_ASSERT(n->pathVectorTlvPkt() && "ldpXsessionNotification->pathVectorTlvPkt()");
         gen->appendLdpTlv(n->pathVectorTlvPkt(), 0);
      } else {
         VEK_ASSERT(fs->pathVectorTlvPkt() && "fecStatus->pathVectorTlvPkt()");
         gen->appendLdpTlv(fs->pathVectorTlvPkt(), 0);
      }
   }
   gen->computeHdrLenChecksum();
   Vek::Ptr<Nolu::Pkt> out = pkt;
   U32 version = fs->attributeVersion();
   s = {};
   bool sent = fecSessionSend(in_, id.sessionId(), out);
   if (sent) {
      auto st = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      ldpMsgTxInc(st, LdpLabelMapping_);
      st->localLabelStateIs(label, mappingSent_);
      st->attributeVersionAckedIs(version);
      st = {};
      if (auto cfg = in_.ldpFecConfigColl->fecConfig(id.fec()))
         cfg->advertisedToIs(id.sessionId(), true);
      reason_ = "Label Mapping Msg Sent";
      LDP_TRACE(th, 5, "   " << reason_ << " " << id << " label " << label);
   }
   reentrantFlag_ = false;
}

void LdpFecSessionMappingSm::sendWithdrawMessage(LdpFecSessionId const& id, Nolu::MplsLabel label) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpLabelWithdraw_, in_.statistics->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr( false, LdpLabelWithdraw_, statistics()->messageIdInc( 1 ) )");
   ok = gen->addFecTlvPrefix(id.fec());
   VEK_ASSERT(ok && "msgGen->addFecTlvPrefix( fec )");
   if (label != Nolu::MplsLabel::any()) {
      ok = gen->addGenLabelTlv(false, label);
      VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, mplsLabel )");
   }
   gen->computeHdrLenChecksum();
   {
      auto s = in_.ldpFecSessionStatusColl->fecSessionStatus(id);
      if (label != Nolu::MplsLabel::any()) {
         s->localLabelStateIs(label, withdrawSent_);
         reason_ = "Label Withdraw Msg Sent";
      } else if (localBit(s.get(), LocalBit::localMappingSent)) {
         std::vector<Nolu::MplsLabel> all;
         for (auto it = s->localLabelStateIter(); it; ++it) all.push_back(it.key());
         for (auto const& l : all) s->localLabelStateIs(l, withdrawSent_);
         reason_ = "Label Withdraw All Msg Sent (mappings sent)";
      } else if (!localBit(s.get(), LocalBit::releaseOutstanding)) {
         VEK_ASSERT(!s->localLabelStateSize() &&
                    "!fecSessionStatus->localLabelStates() && \"localLabelState should be empty.\"");
         s->localLabelStateIs(label, withdrawSent_);
         reason_ = "Label Withdraw All Msg Sent (no mappings or withdraw sent)";
      } else {
         reason_ = "Label Withdraw All Msg Sent (no mappings or withdraw sent)";
      }
      ldpMsgTxInc(s, LdpLabelWithdraw_);
   }
   fecSessionSend(in_, id.sessionId(), pkt);
   if (auto cfg = in_.ldpFecConfigColl->fecConfig(id.fec())) cfg->advertisedToDel(id.sessionId());
   LDP_TRACE(th, 5, "   " << reason_ << " " << id << " label " << label);
}

}  // namespace Ldp

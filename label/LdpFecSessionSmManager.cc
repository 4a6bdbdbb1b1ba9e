#include "label/LdpFecSessionSmManager.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionSmManager");
}

LdpFecSessionSmManager::LdpFecSessionSmManager(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionRxNotifier);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   sessionStatusReactor_.init(this, in_.ldpSessionStatusColl);
   notifierReactor_.init(this, in_.ldpFecSessionRxNotifier);
   handleInitialized();
}

void LdpFecSessionSmManager::handleInitialized() {
   fecSessionWorkQueueTimerTask_ =
      Hesk::timerTaskIs(this, &LdpFecSessionSmManager::handleFecSessionWorkQueueTimerTask,
                        in_.scheduler, 2, "FecSessonSmManagerTimerTask");
   // No label state survives a restart.
   in_.ldpFecSessionStatusColl->fecSessionStatusDelAll();
   initialized_ = true;
   handleFecConfig();
}

void LdpFecSessionSmManager::handleFecConfig() {
   if (!initialized_) return;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFecConfig(f);
}

void LdpFecSessionSmManager::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   std::vector<LdpSessionId> sessions;
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it)
      sessions.push_back(it.key());
   for (auto const& s : sessions) processFecSessionSm(fec, s, LdpFecSessionEventNone);
}

void LdpFecSessionSmManager::handleFecSessionMember(Mpls::FwdEqvClass const& fec,
                                                    LdpSessionId const& id) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (cfg && cfg->fecFilteredState() == Mpls::fecUnfiltered_) return;
   processFecSessionSm(fec, id, LdpFecSessionEventNone);
}

void LdpFecSessionSmManager::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   if (!in_.ldpSessionStatusColl->sessionStatus(id)) {
      // The session went: its FEC sessions go now.
      std::vector<LdpFecSessionId> gone;
      for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
         if (it.key().sessionId() == id) gone.push_back(it.key());
      for (auto const& f : gone) {
         reason_ = "LdpFecConfig or SessionStatus is deleted";
         delFecSessionSm(f.fec(), id);
         fecSessionWorkQueue_.erase(f);
      }
      return;
   }
   std::vector<Mpls::FwdEqvClass> fecs;
   fecs.reserve(in_.ldpFecConfigColl->fecConfigSize());
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) processFecSessionSm(f, id, LdpFecSessionEventNone);
}

void LdpFecSessionSmManager::handleChangeCnt() {
   if (!initialized_) return;
   handleFecSessionRxNotifier(in_.ldpFecSessionRxNotifier->ldpFecSessionId());
}

void LdpFecSessionSmManager::handleFecSessionRxNotifier(LdpFecSessionId const& id) {
   processFecSessionSm(id.fec(), id.sessionId(), LdpFecSessionEventMsgPipeCreated);
}

void LdpFecSessionSmManager::processFecSessionSm(Mpls::FwdEqvClass const& fec,
                                                 LdpSessionId const& id,
                                                 LdpFecSessionEvent event) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   bool session = static_cast<bool>(in_.ldpSessionStatusColl->sessionStatus(id));
   bool add = false, immediate = false;
   if (!cfg || !session) {
      reason_ = "LdpFecConfig or SessionStatus is deleted";
      immediate = true;
   } else if (event == LdpFecSessionEventMsgPipeCreated) {
      reason_ = "pipeCreated";
      add = immediate = true;
   } else if (cfg->fecFilteredState() == Mpls::fecUnfiltered_) {
      reason_ = "unfiltered + noPipeCreated";
      add = true;
   } else if (cfg->sessionMemberHas(id)) {
      reason_ = "filtered + membership + noPipeCreated";
      add = true;
   } else {
      reason_ = "filtered + noPipeCreated";
   }
   if (event == LdpFecSessionEventWorkQueue) immediate = true;
   LDP_TRACE(th, 9, "add:" << add << ", immediate: " << immediate << ", " << reason_);
   LdpFecSessionId fsid(fec, id);
   auto queue = [&] {
      fecSessionWorkQueue_.emplace(fsid, true);
      fecSessionWorkQueueTimerTask_->scheduleTaskDelay(0.0);
      fecSessionWorkQueueTimerTask_->taskWorkPendingIs(fecSessionWorkQueue_.size());
   };
   if (immediate) {
      if (add) addFecSessionSm(fec, id);
      else delFecSessionSm(fec, id);
      fecSessionWorkQueue_.erase(fsid);
   } else {
      queue();
   }
   // A FEC session made for a message alone is looked at again once the
   // message has been served.
   if (event == LdpFecSessionEventMsgPipeCreated) queue();
}

void LdpFecSessionSmManager::addFecSessionSm(Mpls::FwdEqvClass const& fec,
                                             LdpSessionId const& id) {
   LdpFecSessionId fsid(fec, id);
   if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(fsid)) {
      LDP_TRACE(th, 9, "Early return");
      return;
   }
   in_.ldpFecSessionStatusColl->fecSessionStatusIs(fsid);
}

void LdpFecSessionSmManager::delFecSessionSm(Mpls::FwdEqvClass const& fec,
                                             LdpSessionId const& id) {
   LdpFecSessionId fsid(fec, id);
   if (!in_.ldpFecSessionStatusColl->fecSessionStatusHas(fsid)) {
      LDP_TRACE(th, 9, "Early return");
      return;
   }
   in_.ldpFecSessionStatusColl->fecSessionStatusDel(fsid);
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (cfg) cfg->advertisedToDel(id);
}

void LdpFecSessionSmManager::handleFecSessionWorkQueueTimerTask() {
   if (!initialized_) return;
   U64 count = 0;
   while (!fecSessionWorkQueue_.empty()) {
      LdpFecSessionId id = fecSessionWorkQueue_.begin().key();
      fecSessionWorkQueue_.erase(id);
      processFecSessionSm(id.fec(), id.sessionId(), LdpFecSessionEventWorkQueue);
      ++count;
      if (fecSessionWorkQueueTimerTask_->taskShouldYield()) break;
   }
   fecSessionWorkQueueTimerTask_->taskWorkCountInc(count);
   fecSessionWorkQueueTimerTask_->taskWorkPendingIs(fecSessionWorkQueue_.size());
   if (!fecSessionWorkQueue_.empty()) fecSessionWorkQueueTimerTask_->scheduleTaskDelay(0.0);
}

}  // namespace Ldp

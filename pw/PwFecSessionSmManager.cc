#include "pw/PwFecSessionSmManager.h"

#include <vector>

namespace Ldp {

namespace {
Vek::TraceHandle th("PwFecSessionManager");
}

PwFecSessionSmManager::PwFecSessionSmManager(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.localPwFecSessionConfigColl);
   Vek::validPtr(in_.remotePwFecSessionConfigColl);
   Vek::validPtr(in_.localPwFecSessionStatusColl);
   Vek::validPtr(in_.remotePwFecSessionStatusColl);
   Vek::validPtr(in_.pwFecSessionMsgPipeColl);
   Vek::validPtr(in_.pwFecSessionSmColl);
   Vek::validPtr(in_.scheduler);
   localConfigCollReactor_.init(this, in_.localPwFecSessionConfigColl, false);
   remoteConfigCollReactor_.init(this, in_.remotePwFecSessionConfigColl, true);
   localStatusCollReactor_.init(this, in_.localPwFecSessionStatusColl);
   remoteStatusCollReactor_.init(this, in_.remotePwFecSessionStatusColl);
   sessionCollReactor_.init(this, in_.ldpSessionStatusColl);
   handleInitialized();
}

void PwFecSessionSmManager::handleInitialized() {
   LDP_HANDLER(th, "PwFecSessionSmManager::handleInitialized");
   local_.fecSessionTimerTask = Hesk::timerTaskIs(
      this, &PwFecSessionSmManager::handleLocalFecSessionTimerTask, in_.scheduler, 2,
      "PwFecSessionManager-lclFecSess");
   remote_.fecSessionTimerTask = Hesk::timerTaskIs(
      this, &PwFecSessionSmManager::handleRemoteFecSessionTimerTask, in_.scheduler, 2,
      "PwFecSessionManager-remFecSess");
   local_.stateTimerTask =
      Hesk::timerTaskIs(this, &PwFecSessionSmManager::handleLocalStateReviewTask, in_.scheduler,
                        2, "PwFecSessionManager-lclState");
   remote_.stateTimerTask =
      Hesk::timerTaskIs(this, &PwFecSessionSmManager::handleRemoteStateReviewTask, in_.scheduler,
                        2, "PwFecSessionManager-remState");
   initialized_ = true;
   for (auto it = in_.localPwFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
      handleFecSessionStatusEntry(false, it.key());
   for (auto it = in_.remotePwFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
      handleFecSessionStatusEntry(true, it.key());
   for (bool remote : {false, true}) {
      std::vector<PwFecSessionId> ids;
      for (auto it = configColl(remote)->fecSessionConfigIter(); it; ++it) ids.push_back(it.key());
      for (auto const& id : ids) {
         handleFecSessionConfigEntry(remote, id);
         processFecSessionConfig(remote, id, true);
      }
   }
}

void PwFecSessionSmManager::handleFecSessionConfigEntry(bool remote, PwFecSessionId const& id) {
   if (!initialized_) return;
   Side& s = side(remote);
   auto c = configColl(remote)->fecSessionConfig(id);
   if (c)
      s.member.is(id, this, Vek::Ptr<PwFecSessionConfig const>(c), id,
                  remote ? &PwFecSessionSmManager::handleRemoteFecSessionConfig
                         : &PwFecSessionSmManager::handleLocalFecSessionConfig);
   else
      s.member.del(id);
   processFecSessionConfig(remote, id, false);
}

void PwFecSessionSmManager::handleFecSessionStatusEntry(bool remote, PwFecSessionId const& id) {
   if (!initialized_) return;
   if (remote) {
      auto st = in_.remotePwFecSessionStatusColl->fecSessionStatus(id);
      if (st)
         remoteState_.is(id, this, Vek::Ptr<RemotePwFecSessionStatus const>(st), id,
                         &PwFecSessionSmManager::scheduleRemoteStateReview);
      else
         remoteState_.del(id);
   } else {
      auto st = in_.localPwFecSessionStatusColl->fecSessionStatus(id);
      if (st)
         localState_.is(id, this, Vek::Ptr<LocalPwFecSessionStatus const>(st), id,
                        &PwFecSessionSmManager::scheduleLocalStateReview);
      else
         localState_.del(id);
   }
}

// Making machines is queued; unmaking them is not. The status and the
// message pipe come at once, so that the message that made the
// configuration waits in the pipe for its reader.
void PwFecSessionSmManager::processFecSessionConfig(bool remote, PwFecSessionId const& id,
                                                    bool fromQueue) {
   if (!initialized_) return;
   Side& s = side(remote);
   auto c = configColl(remote)->fecSessionConfig(id);
   bool session = bool(in_.ldpSessionStatusColl->sessionStatus(id.sessionId()));
   if (c && session && c->memberSize() != 0) {
      s.retire.erase(id);
      if (fromQueue) {
         addFecSessionSm(remote, id);
         return;
      }
      ensureStatusAndPipe(remote, id);
      s.workQueue.emplace(id, true);
      s.fecSessionTimerTask->scheduleTaskDelay(0.0);
      s.fecSessionTimerTask->taskWorkPendingIs(s.workQueue.size());
      return;
   }
   s.workQueue.erase(id);
   deleteFecSessionSm(remote, id);
   if (!c) return;
   if (!session) {
      LDP_TRACE(th, 5, " del config for ID " << id << ": no session");
      s.member.del(id);
      configColl(remote)->fecSessionConfigDel(id);
      return;
   }
   // A configuration is made before its first member is set: it goes on the
   // next pass unless it has one by then.
   s.retire.emplace(id, true);
   s.stateTimerTask->scheduleTaskDelay(0.0);
}

void PwFecSessionSmManager::handleFecSessionTimerTask(bool remote) {
   if (!initialized_) return;
   Side& s = side(remote);
   U64 count = 0;
   while (!s.workQueue.empty()) {
      PwFecSessionId id = s.workQueue.begin().key();
      s.workQueue.erase(id);
      processFecSessionConfig(remote, id, true);
      ++count;
      if (s.fecSessionTimerTask->taskShouldYield()) break;
   }
   s.fecSessionTimerTask->taskWorkCountInc(count);
   s.fecSessionTimerTask->taskWorkPendingIs(s.workQueue.size());
   if (!s.workQueue.empty()) s.fecSessionTimerTask->scheduleTaskDelay(0.0);
}

void PwFecSessionSmManager::ensureStatusAndPipe(bool remote, PwFecSessionId const& id) {
   auto& pipes = *in_.pwFecSessionMsgPipeColl;
   if (remote) {
      if (!in_.remotePwFecSessionStatusColl->fecSessionStatus(id)) {
         auto st = in_.remotePwFecSessionStatusColl->fecSessionStatusIs(id);
         st->mplsLabelSetIs();
         st->mplsReleaseLabelSetIs();
      }
      if (!pipes.remoteMsgPipe(id)) pipes.remoteMsgPipeIs(id, ldpMsgPipeFactory(id.stringValue()));
   } else {
      if (!in_.localPwFecSessionStatusColl->fecSessionStatus(id))
         in_.localPwFecSessionStatusColl->fecSessionStatusIs(id);
      if (!pipes.localMsgPipe(id)) pipes.localMsgPipeIs(id, ldpMsgPipeFactory(id.stringValue()));
   }
}

void PwFecSessionSmManager::addFecSessionSm(bool remote, PwFecSessionId const& id) {
   auto ss = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   if (!ss) {
      LDP_TRACE(th, 1, " assert failed: ldpSessionStatus missing LDP session status");
      return;
   }
   auto c = configColl(remote)->fecSessionConfig(id);
   if (!c) {
      LDP_TRACE(th, 1, " assert failed: pwFecSessConfig missing PW FEC session config");
      return;
   }
   auto& sms = *in_.pwFecSessionSmColl;
   bool made = remote ? bool(sms.pwFecSessionRemoteTxSm.find(id))
                      : bool(sms.pwFecSessionLocalTxSm.find(id));
   if (made) return;
   LDP_TRACE(th, 5, (remote ? " add remote SMs for ID " : " add local SMs for ID ") << id);
   ensureStatusAndPipe(remote, id);
   PwFecSessionSmInputs in;
   in.id = id;
   in.config = c;
   in.sessionStatus = ss;
   in.ldpSessionMsgPipeColl = in_.ldpSessionMsgPipeColl;
   in.status = in_.status;
   in.protoConfig = in_.protoConfig;
   in.scheduler = in_.scheduler;
   if (remote) {
      in.rxMsgPipe = in_.pwFecSessionMsgPipeColl->remoteMsgPipe(id);
      auto st = in_.remotePwFecSessionStatusColl->fecSessionStatus(id);
      sms.pwFecSessionRemoteTxSm.is(
         id, PwFecSessionRemoteTxSm::PwFecSessionRemoteTxSmIs(instId(), in, st));
      sms.pwFecSessionRemoteRxSm.is(
         id, PwFecSessionRemoteRxSm::PwFecSessionRemoteRxSmIs(instId(), in, st));
   } else {
      in.rxMsgPipe = in_.pwFecSessionMsgPipeColl->localMsgPipe(id);
      auto st = in_.localPwFecSessionStatusColl->fecSessionStatus(id);
      sms.pwFecSessionLocalTxSm.is(id,
                                   PwFecSessionLocalTxSm::PwFecSessionLocalTxSmIs(instId(), in, st));
      sms.pwFecSessionLocalRxSm.is(id,
                                   PwFecSessionLocalRxSm::PwFecSessionLocalRxSmIs(instId(), in, st));
   }
   // The machines' first judgement may leave the state as it was made.
   scheduleStateReview(remote, id);
}

// The status, the pipe, the receive machine, the transmit machine, in this
// order.
void PwFecSessionSmManager::deleteFecSessionSm(bool remote, PwFecSessionId const& id) {
   auto& sms = *in_.pwFecSessionSmColl;
   if (remote) {
      in_.remotePwFecSessionStatusColl->fecSessionStatusDel(id);
      in_.pwFecSessionMsgPipeColl->remoteMsgPipeDel(id);
      sms.pwFecSessionRemoteRxSm.del(id);
      sms.pwFecSessionRemoteTxSm.del(id);
   } else {
      in_.localPwFecSessionStatusColl->fecSessionStatusDel(id);
      in_.pwFecSessionMsgPipeColl->localMsgPipeDel(id);
      sms.pwFecSessionLocalRxSm.del(id);
      sms.pwFecSessionLocalTxSm.del(id);
   }
}

void PwFecSessionSmManager::scheduleStateReview(bool remote, PwFecSessionId const& id) {
   if (!initialized_) return;
   Side& s = side(remote);
   s.stateReview.emplace(id, true);
   s.stateTimerTask->scheduleTaskDelay(0.0);
}

bool PwFecSessionSmManager::statusHas(bool remote, PwFecSessionId const& id) const {
   return remote ? bool(in_.remotePwFecSessionStatusColl->fecSessionStatus(id))
                 : bool(in_.localPwFecSessionStatusColl->fecSessionStatus(id));
}

PwFecSessionStatusState PwFecSessionSmManager::statusState(bool remote,
                                                           PwFecSessionId const& id) const {
   if (remote) return in_.remotePwFecSessionStatusColl->fecSessionStatus(id)->fecSessionState();
   return in_.localPwFecSessionStatusColl->fecSessionStatus(id)->fecSessionState();
}

void PwFecSessionSmManager::handleFecSessionState(bool remote, PwFecSessionId const& id) {
   auto c = configColl(remote)->fecSessionConfig(id);
   if (!c || !statusHas(remote, id)) return;
   if (statusState(remote, id) == pwFecSessionActive_)
      c->memberIs(pwMemberMachines_, true);
   else
      c->memberDel(pwMemberMachines_);
}

void PwFecSessionSmManager::handleStateReviewTask(bool remote) {
   if (!initialized_) return;
   Side& s = side(remote);
   while (!s.stateReview.empty()) {
      PwFecSessionId id = s.stateReview.begin().key();
      s.stateReview.erase(id);
      handleFecSessionState(remote, id);
   }
   VEK_ASSERT(s.stateReview.empty() && (remote ? "!remoteStateReviews()" : "!localStateReviews()"));
   while (!s.retire.empty()) {
      PwFecSessionId id = s.retire.begin().key();
      s.retire.erase(id);
      auto c = configColl(remote)->fecSessionConfig(id);
      if (!c || c->memberSize() != 0) continue;
      LDP_TRACE(th, 5, (remote ? " retire remote config " : " retire local config ") << id);
      deleteFecSessionSm(remote, id);
      s.member.del(id);
      configColl(remote)->fecSessionConfigDel(id);
   }
}

// A session status came or went: the FEC sessions on it follow.
void PwFecSessionSmManager::handleSessionStatus(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   LDP_TRACE(th, 5, " session status changed: " << sessionId);
   for (bool remote : {false, true}) {
      std::vector<PwFecSessionId> ids;
      for (auto it = configColl(remote)->fecSessionConfigIter(); it; ++it)
         if (it.key().sessionId() == sessionId) ids.push_back(it.key());
      for (auto const& id : ids) processFecSessionConfig(remote, id, false);
   }
}

}  // namespace Ldp

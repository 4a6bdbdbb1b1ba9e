#include "aux/LdpLinkReadySm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLinkReady");
}

LdpLinkReadySm::LdpLinkReadySm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpProtoConfig);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.ldpLinkReadyStatus);
   Vek::validPtr(in_.scheduler);
   handleInitialized();
}

void LdpLinkReadySm::handleInitialized() {
   LDP_HANDLER(th, "LdpLinkReadySm::handleInitialized " << in_.intfId);
   std::string intf = in_.intfId.stringValue();
   linkReadyTimeoutTimerTask_ =
      Hesk::timerTaskIs(this, &LdpLinkReadySm::handleLinkReadyTimeoutTimerTask, in_.scheduler, 2,
                        "LinkReadySm-" + intf + "-Timeout");
   linkReadyDelayTimerTask_ =
      Hesk::timerTaskIs(this, &LdpLinkReadySm::handleLinkReadyDelayTimerTask, in_.scheduler, 2,
                        "LinkReadySm-" + intf + "-Delay");
   unsetLinkReadyDelayTimerTask_ =
      Hesk::timerTaskIs(this, &LdpLinkReadySm::handleUnsetLinkReadyDelayTimerTask, in_.scheduler,
                        2, "LinkReadySm-" + intf + "-UnsetDelay");
   linkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
   unsetLinkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
   initialized_ = true;
   reason_ = ready() ? "ready" : "no operational session";
   setLinkReadyTimeoutTimer();
   handleSessOrAdjChanged();
}

void LdpLinkReadySm::handleDelete() {
   LDP_TRACE(th, 8, "LdpLinkReadySm::handleDelete " << in_.intfId);
   initialized_ = false;
   linkReadyTimeoutTimerTask_->scheduleTaskDelay(Vek::infinity);
   linkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
   unsetLinkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
}

void LdpLinkReadySm::sessOrAdjChangedInc(U64 n) {
   sessOrAdjChanged_ += n;
   handleSessOrAdjChanged();
}

void LdpLinkReadySm::readyIs(bool ready, char const* reason) {
   reason_ = reason;
   in_.ldpLinkReadyStatus->readyIs(ready);
}

// Some adjacency of the link has an operational session.
bool LdpLinkReadySm::checkLinkReady() const {
   auto adjs = in_.ldpIndex->ldpAdjPerLinkColl(in_.intfId);
   if (!adjs) return false;
   for (auto it = adjs->adjIdIter(); it; ++it) {
      auto ss = in_.ldpSessionStatusColl->sessionStatus(LdpSessionId(it.key().ldpIdentifier()));
      if (ss && ss->sessionState() == stateOperational_) return true;
   }
   return false;
}

void LdpLinkReadySm::setLinkReadyTimeoutTimer() {
   Vek::Seconds timeout = in_.ldpProtoConfig->linkReadyTimeout();
   linkReadyTimeoutTimerTask_->scheduleTaskDelay(timeout);
}

void LdpLinkReadySm::handleSessOrAdjChanged() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkReadySm::handleSessOrAdjChanged " << in_.intfId);
   bool ready = checkLinkReady();
   bool status = in_.ldpLinkReadyStatus->ready();
   if (ready && !status) {
      linkReadyDelayTimerTask_->scheduleTaskDelay(in_.ldpProtoConfig->linkReadyDelay());
      unsetLinkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
      linkReadyTimeoutTimerTask_->scheduleTaskDelay(Vek::infinity);
      reason_ = "session operational, waiting for the link-ready delay";
   } else if (!ready && status) {
      unsetLinkReadyDelayTimerTask_->scheduleTaskDelay(unsetLinkReadyDelay_);
      linkReadyDelayTimerTask_->scheduleTaskDelay(Vek::infinity);
      linkReadyTimeoutTimerTask_->scheduleTaskDelay(Vek::infinity);
      reason_ = "no operational session, ready until the unset delay ends";
   }
}

void LdpLinkReadySm::handleLinkReadyDelayTimerTask() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkReadySm::handleLinkReadyDelayTimerTask " << in_.intfId);
   if (!checkLinkReady()) {
      reason_ = "no operational session";
      return;
   }
   readyIs(true, "session operational");
   LDP_TRACE(th, 5, in_.intfId << " linkReady set");
}

void LdpLinkReadySm::handleUnsetLinkReadyDelayTimerTask() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkReadySm::handleUnsetLinkReadyDelayTimerTask " << in_.intfId);
   if (checkLinkReady()) {
      reason_ = "session operational";
      return;
   }
   readyIs(false, "no operational session");
   LDP_TRACE(th, 5, in_.intfId << " linkReady unset");
   setLinkReadyTimeoutTimer();
}

// The give-up: a link that can't get its session in time stops holding the
// routing protocols back.
void LdpLinkReadySm::handleLinkReadyTimeoutTimerTask() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpLinkReadySm::handleLinkReadyTimeoutTimerTask " << in_.intfId);
   if (!in_.ldpLinkReadyStatus->ready()) readyIs(true, "link-ready timeout expired");
}

LdpLinkReadySmManager::LdpLinkReadySmManager(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpLinkConfigColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpAdjStatusColl);
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.ldpLinkReadyStatusColl);
   Vek::validPtr(in_.ldpLinkReadySmColl);
   Vek::validPtr(in_.scheduler);
   ldpLinkConfigCollReactor_.init(this, in_.ldpLinkConfigColl);
   ldpAdjStatusCollReactor_.init(this, in_.ldpAdjStatusColl);
   ldpSessionStatusCollReactor_.init(this, in_.ldpSessionStatusColl);
   handleInitialized();
}

void LdpLinkReadySmManager::handleInitialized() {
   LDP_HANDLER(th, "LdpLinkReadySmManager::handleInitialized");
   initialized_ = true;
   for (auto it = in_.ldpLinkConfigColl->adjLinkConfigIter(); it; ++it) handleLinkConfig(it.key());
   // Statuses of links that a former root left behind.
   std::vector<Nolu::IntfId> stale;
   for (auto it = in_.ldpLinkReadyStatusColl->readyStatusIter(); it; ++it)
      if (!in_.ldpLinkConfigColl->adjLinkConfigHas(it.key())) stale.push_back(it.key());
   for (auto const& intf : stale) handleLinkConfig(intf);
   for (auto it = in_.ldpAdjStatusColl->adjStatusIter(); it; ++it) handleLdpAdjStatus(it.key());
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it)
      handleSessionStatusEntry(it.key());
}

void LdpLinkReadySmManager::handleLinkConfig(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   if (in_.ldpLinkConfigColl->adjLinkConfigHas(intf)) {
      if (in_.ldpLinkReadySmColl->linkReadySm(intf)) return;
      LDP_TRACE(th, 5, "Creating linkReady Status " << intf);
      LdpLinkReadySm::Inputs li;
      li.intfId = intf;
      li.ldpProtoConfig = in_.protoConfig;
      li.ldpSessionStatusColl = in_.ldpSessionStatusColl;
      li.ldpIndex = in_.ldpIndex;
      li.ldpLinkReadyStatus = in_.ldpLinkReadyStatusColl->readyStatusIs(intf);
      li.scheduler = in_.scheduler;
      in_.ldpLinkReadySmColl->linkReadySmIs(intf, LdpLinkReadySm::LdpLinkReadySmIs(instId(), li));
      return;
   }
   if (!in_.ldpLinkReadySmColl->linkReadySm(intf) && !in_.ldpLinkReadyStatusColl->readyStatusHas(intf))
      return;
   LDP_TRACE(th, 5, "Deleting linkReady Status " << intf);
   in_.ldpLinkReadySmColl->linkReadySmDel(intf);
   in_.ldpLinkReadyStatusColl->readyStatusDel(intf);
}

void LdpLinkReadySmManager::changed(Nolu::IntfId const& intf) {
   if (auto sm = in_.ldpLinkReadySmColl->linkReadySm(intf)) sm->sessOrAdjChangedInc(1);
}

void LdpLinkReadySmManager::handleLdpAdjStatus(LdpAdjId const& adjId) {
   if (!initialized_ || !adjId.isLink()) return;
   Nolu::IntfId intf = adjId.intfId();
   if (in_.ldpAdjStatusColl->adjStatusHas(adjId)) {
      auto set = in_.ldpIndex->ldpAdjPerLinkCollIs(intf);
      if (set->adjIdHas(adjId)) return;
      set->adjIdIs(adjId, true);
   } else {
      auto set = in_.ldpIndex->ldpAdjPerLinkColl(intf);
      if (!set || !set->adjIdHas(adjId)) return;
      set->adjIdDel(adjId);
      if (set->adjIdSize() == 0) in_.ldpIndex->ldpAdjPerLinkCollDel(intf);
   }
   changed(intf);
}

// Session states are rare events; the adjacencies of the session's peer are
// found by a walk.
void LdpLinkReadySmManager::handleLdpSessionState(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   for (auto it = in_.ldpAdjStatusColl->adjStatusIter(); it; ++it) {
      LdpAdjId const& adj = it.key();
      if (adj.isLink() && adj.ldpIdentifier() == sessionId.ldpIdentifier()) changed(adj.intfId());
   }
}

void LdpLinkReadySmManager::handleSessionStatusEntry(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto s = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (s)
      sessionStatus_.is(sessionId, this, s, sessionId,
                        &LdpLinkReadySmManager::handleLdpSessionState);
   else
      sessionStatus_.del(sessionId);
   handleLdpSessionState(sessionId);
}

}  // namespace Ldp

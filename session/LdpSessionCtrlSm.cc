#include "session/LdpSessionCtrlSm.h"

#include <cmath>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionCtrl");

bool armed(Hesk::TimerTask const* t) { return t->currentExpirationTime() != Vek::infinity; }

enum RetryClass { retryFatal, retryOrdinary, retryConfig, retryNone };

RetryClass retryClassForCode(LdpStatusCode code) {
   U32 c = code;
   switch (code) {
   case localTcpConnLost: return retryFatal;
   case localRxDropSilent:
   case localReasonNonExistent:
   case localSessionInitTimeout:
   case localSessionRoleChange: return retryOrdinary;
   case localAddrChange:
   case localLdpIdChange: return retryConfig;
   default: break;
   }
   if ((c >= 1 && c <= 10) || (c >= 16 && c <= 19) || c == 24 || c == 25) return retryFatal;
   if (c == 0 || (c >= 11 && c <= 15) || (c >= 20 && c <= 23) || c == 36 || c == 37 || c == 40)
      return retryOrdinary;
   return retryNone;
}
}  // namespace

LdpSessionCtrlSm::LdpSessionCtrlSm(
   U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
   Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
   Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSessionSmCommon(instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus,
                        status, sessionStatistics),
     scheduler_(Vek::validPtr(scheduler)) {
   protoConfigReactor_.init(this, protoConfig);
   sessionCommonConfigReactor_.init(this, sessionCommonConfig);
   sessionConfigReactor_.init(this, sessionConfig);
   sessionStatusReactor_.init(this, Vek::Ptr<LdpSessionStatus const>(sessionStatus));
   handleInitialized();
}

void LdpSessionCtrlSm::handleInitialized() {
   LDP_HANDLER(th, "LdpSessionCtrlSm::handleInitialized " << ldpSessionId());
   ldpSessionStatus()->localLdpIdentifierIs(ldpSessionConfig()->localLdpIdentifier());
   ipTransportAddr_ = ldpSessionCommonConfig()->ipTransportAddr();
   peerIpAddr_ = ldpSessionConfig()->peerIpAddr();
   std::string key = ldpSessionId().ldpIdentifier().stringValue();
   sessionRetryTimerTask_ = Hesk::timerTaskIs(this, &LdpSessionCtrlSm::handleSessionRetryTimerTask,
                                              scheduler_, 2, "SessionCtrl-" + key + "-retry");
   sessionUnknownTimerTask_ =
      Hesk::timerTaskIs(this, &LdpSessionCtrlSm::handleSessionUnknownTimerTask, scheduler_, 2,
                        "SessionCtrl-" + key + "-unKwn");
   sessionInitTimerTask_ = Hesk::timerTaskIs(this, &LdpSessionCtrlSm::handleSessionInitTimerTask,
                                             scheduler_, 2, "SessionCtrl-" + key + "-init");
   initialized_ = true;
   handleSessionState();
}

void LdpSessionCtrlSm::ldpPduRxPamIs(Vek::Ptr<Nolu::Pam const> const& p) {
   if (ldpPduRxPam_ == p) return;
   ldpPduRxPam_ = p;
   handleTcpConnection();
}

void LdpSessionCtrlSm::handleSessionState() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpSessionCtrlSm::handleSessionState " << ldpSessionId() << " "
                                                            << sessionStateStr(sessionState()));
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   Vek::Seconds initTime = ldpSessionConfig()->keepAliveTime();
   switch (sessionState()) {
   case stateUnknown_:
      sessionUnknownTimerTask_->scheduleTaskDelay(0.5);
      sessionInitTimerTask_->scheduleTaskDelay(initTime);
      sessionRetryTimerTask_->scheduleTaskDelay(Vek::infinity);
      break;
   case stateNonExistent_:
      sessionUnknownTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionInitTimerTask_->scheduleTaskDelay(initTime);
      sessionRetryTimerTask_->scheduleTaskDelay(Vek::infinity);
      handleLdpSessionRole();
      handleTcpConnection();
      break;
   case stateInitialized_:
      sessionUnknownTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionInitTimerTask_->scheduleTaskDelay(initTime);
      sessionRetryTimerTask_->scheduleTaskDelay(Vek::infinity);
      break;
   case stateOpenSent_:
   case stateOpenRec_:
      sessionUnknownTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionRetryTimerTask_->scheduleTaskDelay(Vek::infinity);
      break;
   case stateOperational_:
      sessionUnknownTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionInitTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionRetryTimerTask_->scheduleTaskDelay(Vek::infinity);
      ldpSessionStatus()->fatalRetryCountIs(0);
      break;
   case stateClosed_: {
      sessionUnknownTimerTask_->scheduleTaskDelay(Vek::infinity);
      sessionInitTimerTask_->scheduleTaskDelay(Vek::infinity);
      bool active = ldpSessionConfig()->ldpSessionRole() == roleActive_;
      LdpStatusCode code = ldpSessionStatus()->code();
      Vek::Seconds delay = Vek::infinity;
      bool fatal = false;
      switch (retryClassForCode(code)) {
      case retryFatal:
         delay = active ? fatalRetryBackoffTime_ : 1.0;
         fatal = true;
         break;
      case retryOrdinary: delay = active ? 10.0 : 1.0; break;
      case retryConfig: delay = active ? 2.0 : 1.0; break;
      case retryNone: break;
      }
      sessionRetryTimerTask_->scheduleTaskDelay(delay);
      LDP_TRACE(th, 5, "   Retry in " << delay << " s, code " << code);
      if (fatal) ldpSessionStatus()->fatalRetryCountInc(1);
      handleLdpSessionRole();
      break;
   }
   }
   handleSessionOpState();
}

void LdpSessionCtrlSm::handleFatalRetryCount() {
   // Recomputes the back-off for the next fatal teardown: doubling from 15 s
   // up to the ceiling.
   U64 n = U64(std::log(maxRetryBackoffTime_ / 15.0) / 0.6931471805599453);
   U64 count = ldpSessionStatus()->fatalRetryCount();
   if (count > n) fatalRetryBackoffTime_ = maxRetryBackoffTime_;
   else fatalRetryBackoffTime_ = std::ldexp(1.0, int(count)) * 15.0;
}

void LdpSessionCtrlSm::handleMd5PasswordChange() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpSessionCtrlSm::handleMd5PasswordChange " << ldpSessionId());
   ldpSessionStatus()->fatalRetryCountIs(0);
   if (armed(sessionRetryTimerTask_.ptr())) sessionRetryTimerTask_->scheduleTaskDelay(0.0);
   if (armed(sessionInitTimerTask_.ptr())) sessionInitTimerTask_->scheduleTaskDelay(0.0);
}

void LdpSessionCtrlSm::handleLdpSessionRole() {
   if (!initialized_) return;
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   bool active = ldpSessionConfig()->ldpSessionRole() == roleActive_;
   switch (sessionState()) {
   case stateNonExistent_:
      if (active && !st->tcpClientConnEnabled()) {
         LDP_TRACE(th, 5, " Enabling tcpClientConn for " << ldpSessionId());
         st->tcpClientConnReqTimeIs(Vek::System::currentTime());
         st->tcpClientConnEnabledIs(true);
      } else if (!active) {
         st->tcpClientConnEnabledIs(false);
      }
      break;
   case stateUnknown_:
      if (!active) st->tcpClientConnEnabledIs(false);
      break;
   case stateClosed_:
      LDP_TRACE(th, 5, " Disabling tcpClientConn for " << ldpSessionId());
      st->tcpClientConnEnabledIs(false);
      break;
   default: break;
   }
}

void LdpSessionCtrlSm::handleTcpConnection() {
   if (!initialized_) return;
   SessionState st = sessionState();
   if (st == stateNonExistent_ && ldpPduRxPam_) {
      changeSessionState(stateInitialized_, statusSuccess_);
   } else if (st >= stateInitialized_ && st <= stateOperational_ && !ldpPduRxPam_) {
      changeSessionState(stateClosed_, localTcpConnLost);
   }
}

void LdpSessionCtrlSm::handleLocalLdpIdentifier() {
   if (!initialized_) return;
   LdpIdentifier configured = ldpSessionConfig()->localLdpIdentifier();
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   if (configured == st->localLdpIdentifier()) return;
   SessionState s = sessionState();
   if (s != stateUnknown_ && s != stateClosed_) return;
   Vek::Ptr<LdpSessionStatus> keep(ldpSessionStatus());
   if (!st->localLdpIdentifier().isEmpty()) changeSessionState(stateClosed_, localLdpIdChange);
   st->localLdpIdentifierIs(configured);
}

void LdpSessionCtrlSm::handleIpTransportAddr() {
   if (!initialized_) return;
   if (!updateIpTransportAddr()) return;
   SessionState s = sessionState();
   if (s == stateClosed_ || s == stateUnknown_) changeSessionState(stateClosed_, localAddrChange);
}

void LdpSessionCtrlSm::handleConfigSeqNum() {
   if (!initialized_) return;
   ldpSessionStatus()->fatalRetryCountIs(0);
}

void LdpSessionCtrlSm::handleSessionOpState() {
   if (!initialized_) return;
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   if (sessionState() != stateOperational_) st->sessionOpStateIs(sessionOpDown_);
   else if (st->addressMsgTsmt() && st->addressMsgRcvd()) st->sessionOpStateIs(sessionOpAddrExchanged_);
   else st->sessionOpStateIs(sessionOpUp_);
}

void LdpSessionCtrlSm::handleSessionRetryTimerTask() {
   if (!initialized_) return;
   VEK_ASSERT(sessionState() >= stateClosed_ && "Internal Error. RetryTimer shouldn't be armed.");
   changeSessionState(stateNonExistent_, statusSuccess_);
}

void LdpSessionCtrlSm::handleSessionUnknownTimerTask() {
   if (!initialized_) return;
   VEK_ASSERT(sessionState() == stateUnknown_ &&
              "Internal Error. SessionUnknownTimer shouldn't be armed.");
   changeSessionState(stateNonExistent_, statusSuccess_);
}

void LdpSessionCtrlSm::handleSessionInitTimerTask() {
   if (!initialized_) return;
   VEK_ASSERT(sessionState() < stateOperational_ &&
              "Internal Error. SessionInitTimer shouldn't be armed.");
   changeSessionState(stateClosed_, localSessionInitTimeout);
}

}  // namespace Ldp

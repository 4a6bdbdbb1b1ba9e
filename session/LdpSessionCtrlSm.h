#pragma once
// The life of a session outside the exchange on the wire: the way out of the
// unknown state, the TCP client request of the active side, the reaction to
// the TCP channel coming and going, the guard timer of the initialisation, the
// retry after a teardown with its back-off, and the coarse operational state.
#include "session/LdpSessionSmCommon.h"

namespace Ldp {

class LdpSessionCtrlSm : public LdpSessionSmCommon {
 public:
   static Vek::Ptr<LdpSessionCtrlSm> LdpSessionCtrlSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
      Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
      Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
      Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionCtrlSm>(instId, id, protoConfig, sessionConfig,
                                           sessionCommonConfig, sessionStatus, status,
                                           sessionStatistics, scheduler);
   }
   LdpSessionCtrlSm(U32 instId, LdpSessionId const& id,
                    Vek::Ptr<ProtoConfig const> const& protoConfig,
                    Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
                    Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
                    Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
                    Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
                    Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   // The peer's TCP channel; its presence is what "TCP connection up" means.
   Vek::Ptr<Nolu::Pam const> const& ldpPduRxPam() const { return ldpPduRxPam_; }
   void ldpPduRxPamIs(Vek::Ptr<Nolu::Pam const> const& p);
   double fatalRetryBackoffTime() const { return fatalRetryBackoffTime_; }
   double maxRetryBackoffTime() const { return maxRetryBackoffTime_; }
   void maxRetryBackoffTimeIs(double t) { maxRetryBackoffTime_ = t; }
   Hesk::TimerTask* sessionRetryTimerTask() const { return sessionRetryTimerTask_.ptr(); }
   Hesk::TimerTask* sessionInitTimerTask() const { return sessionInitTimerTask_.ptr(); }
   Hesk::TimerTask* sessionUnknownTimerTask() const { return sessionUnknownTimerTask_.ptr(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handleFatalRetryCount();
   void handleMd5PasswordChange();
   void handleLdpSessionRole();
   void handleTcpConnection();
   void handleLocalLdpIdentifier();
   void handleIpTransportAddr();
   void handleConfigSeqNum();
   void handleLdpPeerStatus() {}
   void handleSessionOpState();
   void handleSessionRetryTimerTask();
   void handleSessionUnknownTimerTask();
   void handleSessionInitTimerTask();

   // Reactor handlers of the attributes, mapped onto the handlers above.
   void handleMd5Password() { handleMd5PasswordChange(); }
   void handlePeerIpAddr() { handleIpTransportAddr(); }
   void handlePeerConfigSeqNum() { handleConfigSeqNum(); }
   // A new code within stateClosed_ re-arms the retry with its own delay.
   void handleCode() {
      if (sessionState() == stateClosed_) handleSessionState();
   }
   void handleAddressMsgTsmt() { handleSessionOpState(); }
   void handleAddressMsgRcvd() { handleSessionOpState(); }

 private:
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam const> ldpPduRxPam_;
   double fatalRetryBackoffTime_ = 15.0;
   double maxRetryBackoffTime_ = 120.0;
   Vek::Ptr<Hesk::TimerTask> sessionRetryTimerTask_;
   Vek::Ptr<Hesk::TimerTask> sessionUnknownTimerTask_;
   Vek::Ptr<Hesk::TimerTask> sessionInitTimerTask_;
   Vek::Input<ProtoConfig::Reactor<LdpSessionCtrlSm>> protoConfigReactor_;
   Vek::Input<LdpSessionCommonConfig::Reactor<LdpSessionCtrlSm>> sessionCommonConfigReactor_;
   Vek::Input<LdpSessionConfig::Reactor<LdpSessionCtrlSm>> sessionConfigReactor_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionCtrlSm>> sessionStatusReactor_;
};

}  // namespace Ldp

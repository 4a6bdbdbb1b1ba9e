#pragma once
// The side of every FEC session that faces the peer's labels: it keeps
// peerLabelSessionState and decides whether a Label Request, a Label Abort
// Request or Label Releases are due. A request refused with No Route is
// tried again after a while; one refused for want of resources waits for the
// peer's Label Resources Available.
#include "label/LdpFecSessionWorker.h"

namespace Ldp {

struct RequestReadyInputs {
   bool isUnsolicit = false;
   bool isRequestOutstanding = false;
   bool isReleaseMsgSent = false;
   bool isLabeReceived = false;
   bool isNexthopLsr = false;
   bool isCrossSessionNotification = false;
   bool isLoopDetection = false;
   bool isIngress = false;
};
bool computeRequestMsgSendReadyHelper(RequestReadyInputs const& in, std::string* reason);
bool computeAbortReqMsgSendReadyHelper(bool isRequestOutstanding, bool isNexthopLsr,
                                       std::string* reason);

class LdpFecSessionRequestSm : public LdpSm {
 public:
   using Inputs = LdpFecSessionWorkerInputs;
   static Vek::Ptr<LdpFecSessionRequestSm> LdpFecSessionRequestSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecSessionRequestSm>(instId, in);
   }
   LdpFecSessionRequestSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   void handleFecConfig(Mpls::FwdEqvClass const& fec, LdpFecSessionConfigChange change);
   void handleFecConfig(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec, fecConfigChangeNone_); }
   void handleFecConfigDownstreamLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const&) {
      handleFecConfig(fec, fecConfigChangeDownstreamLsr_);
   }
   void handleFecConfigLdpLoopDetection(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec, fecConfigChangeLoopDetection_);
   }
   void handleFecConfigLdpLabelRetention(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec, fecConfigChangeRetention_);
   }
   void handleFecConfigLdpFecLspRole(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec, fecConfigChangeLspRole_);
   }
   void handleFecStatusLabelXsessionRequestSmNotiTime(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec, fecConfigChangeNone_);
   }
   void handleSessionStatus(LdpSessionId const& id);
   void handleFecSessionStatus(LdpFecSessionId const& id);
   void handleFecSessionStatusIsNexthopLsr(LdpFecSessionId const& id) { queue(id); }
   void handleCount() {
      handleSingletonRxSmNotify(in_.singletonRequestSmConfig->fecSessionId());
   }
   void handleSingletonRxSmNotify(LdpFecSessionId const& id);
   void handlePeerLabelStateTimerTask();
   void handlePeerNoRouteTimerTask();

   void processPeerLabelState(LdpFecSessionId const& id);
   void computePeerLabelState(LdpFecSessionId const& id);
   bool computeRequestMsgSendReady(LdpFecSessionId const& id);
   bool computeAbortReqMsgSendReady(LdpFecSessionId const& id);
   bool computeReleaseMsgSendReady(LdpFecSessionId const& id);
   void sendRequestMessage(LdpFecSessionId const& id);
   void sendAbortReqMessage(LdpFecSessionId const& id);
   void sendReleaseMessage(LdpFecSessionId const& id);
   void sendSingleReleaseMessage(LdpFecSessionId const& id, Nolu::MplsLabel label);

   std::string const& reason() const { return reason_; }
   Vek::Seconds peerNoRouteTimerDelay() const { return peerNoRouteTimerDelay_; }
   void peerNoRouteTimerDelayIs(Vek::Seconds d) { peerNoRouteTimerDelay_ = d; }

 private:
   void queue(LdpFecSessionId const& id);
   LdpXsessionNotification const* requestNotification(LdpFecSessionId const& id) const;

   Inputs in_;
   std::string reason_;
   Vek::HashMap<LdpFecSessionId, bool> peerLabelWorkQueue_;
   Vek::Ptr<Hesk::TimerTask> peerLabelStateTimerTask_;
   Vek::Seconds delayPeerLabelStateTimer_ = 0.1;
   Vek::HashMap<LdpFecSessionId, double> peerNoRouteWorkQueue_;
   Vek::Ptr<Hesk::TimerTask> peerNoRouteTimerTask_;
   Vek::Seconds peerNoRouteTimerDelay_ = 10.0;
   bool reentrantFlag_ = false;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecSessionRequestSm>> fecConfigReactor_;
   Vek::Input<LdpFecStatusColl::Reactor<LdpFecSessionRequestSm>> fecStatusReactor_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpFecSessionRequestSm>> fecSessionReactor_;
   Vek::Input<SessionStatusCollWatch<LdpFecSessionRequestSm>> sessionReactor_;
   Vek::Input<LdpFecSessionRequestSmConfig::Reactor<LdpFecSessionRequestSm>> singletonReactor_;
};

}  // namespace Ldp

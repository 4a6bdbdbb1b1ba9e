#pragma once
// Three jobs for every FEC session: whether the session's peer is a next hop
// of the FEC (isNexthopLsr), the No Route answer to a peer's Label Request for
// a FEC without a route, and the records of sent requests by message id, so
// that the peer's Notification about one finds its FEC.
#include "label/LdpFecSessionWorker.h"

namespace Ldp {

class LdpFecSessionCtrlSm : public LdpSm {
 public:
   using Inputs = LdpFecSessionWorkerInputs;
   static Vek::Ptr<LdpFecSessionCtrlSm> LdpFecSessionCtrlSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecSessionCtrlSm>(instId, in);
   }
   LdpFecSessionCtrlSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   void handleFecConfigDownstreamLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const& ldpId) {
      handleDownstreamLsr(fec, ldpId);
   }
   void handleDownstreamLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const& ldpId);
   void handleFecSessionStatus(LdpFecSessionId const& id) { handleFecSesionStatus(id); }
   void handleFecSesionStatus(LdpFecSessionId const& id);
   void handleSessionStatus(LdpSessionId const& id);
   void handleCount() {
      handleSingletonCtrlSmNotify(in_.singletonCtrlSmConfig->fecSessionId());
   }
   void handleMsgIdReqMsg() {
      handleReqMsgMsgId(in_.singletonCtrlSmConfig->fecSessionId(),
                        in_.singletonCtrlSmConfig->msgIdReqMsg());
   }
   void handleSingletonCtrlSmNotify(LdpFecSessionId const& id);
   void handleReqMsgMsgId(LdpFecSessionId const& id, U32 msgId);
   void handleTimerNotiNoRouteTask();

   void handleFecSessionDsLsr(LdpFecSessionId const& id);
   bool computeNotiNoRouteMessage(LdpFecSessionId const& id) const;
   void processNotiNoRoute(LdpFecSessionId const& id);

   std::string const& reason() const { return reason_; }
   Vek::Seconds delayRespNoRoute() const { return delayRespNoRoute_; }

 private:
   void queueNoRoute(LdpFecSessionId const& id);

   Inputs in_;
   std::string reason_;
   Vek::HashMap<LdpFecSessionId, double> notiNoRouteWorkQueue_;
   Vek::Seconds delayRespNoRoute_ = 0.2;
   Vek::Ptr<Hesk::TimerTask> timerNotiNoRouteTask_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecSessionCtrlSm>> fecConfigReactor_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpFecSessionCtrlSm>> fecSessionReactor_;
   Vek::Input<SessionStatusCollWatch<LdpFecSessionCtrlSm>> sessionReactor_;
   Vek::Input<LdpFecSessionCtrlSmConfig::Reactor<LdpFecSessionCtrlSm>> singletonReactor_;
};

}  // namespace Ldp

#pragma once
// The receive side of every FEC session: each label message that a peer sent
// about a FEC is checked, applied to the FEC session's status, and the worker
// that acts next is woken. A peer's wildcard Withdraw or Release reaches every
// FEC session of its session through a walk in slices. The only messages sent
// from here are Notifications.
#include "label/LdpFecSessionWorker.h"

namespace Ldp {

class LdpFecSessionRxSm : public LdpSm {
 public:
   using Inputs = LdpFecSessionWorkerInputs;
   static Vek::Ptr<LdpFecSessionRxSm> LdpFecSessionRxSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecSessionRxSm>(instId, in);
   }
   LdpFecSessionRxSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   void handleReadableCount() { handleMsgPipeReadable(); }
   void handleMsgPipeReadable();
   void handleRxLabelMsg(LdpFecSessionId const& id, Vek::Ptr<LdpMsg> const& msg);
   // A Withdraw or Release of the Wildcard FEC, handed on by the session.
   void handleRxWildcardMsg(Vek::Ptr<LdpMsg> const& msg);
   void handleSessionStatus(LdpSessionId const& id);
   void handleWildcardTimerTask();

   std::string const& reason() const { return reason_; }

 private:
   using Ref = LdpFecSessionStatusColl::FecSessionStatusRef;
   void handleRxMappingMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   void handleRxRequestMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   void handleRxWithdrawMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   void handleRxReleaseMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   void handleRxAbortReqMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   void handleRxNotificationMsg(LdpFecSessionId const& id, LdpMsgParser const& p);
   // True when the message must go no further: a loop, or a hop count that
   // strict loop detection wants and the message lacks.
   bool loopTest(LdpFecSessionId const& id, LdpMsgParser const& p);
   // Tells the FEC's other sessions what this one learnt.
   void xsessionNotify(LdpFecSessionId const& id, LdpMsgParser const& p, bool mapping);
   void sendNotification(LdpFecSessionId const& id, LdpStatusCode code, LdpMsgParser const& p);

   Inputs in_;
   std::string reason_;
   Vek::Ptr<Hesk::TimerTask> wildcardTimerTask_;
   Vek::Input<LdpMsgPipe::Reactor<LdpFecSessionRxSm>> rxPipeReactor_;
   Vek::Input<SessionStatusCollWatch<LdpFecSessionRxSm>> sessionReactor_;
};

}  // namespace Ldp

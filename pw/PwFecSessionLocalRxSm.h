#pragma once
// What the peer says about the label that this side advertises for one
// pseudowire on one session: Label Request, Label Release and Label Abort
// Request. It writes the local status, which wakes PwFecSessionLocalTxSm.
#include "pw/PwFecSessionLocalTxSm.h"

namespace Ldp {

class PwFecSessionLocalRxSm : public LdpSm {
 public:
   static Vek::Ptr<PwFecSessionLocalRxSm> PwFecSessionLocalRxSmIs(
      U32 instId, PwFecSessionSmInputs const& in, Vek::Ptr<LocalPwFecSessionStatus> const& ls) {
      return Vek::makeSm<PwFecSessionLocalRxSm>(instId, in, ls);
   }
   PwFecSessionLocalRxSm(U32 instId, PwFecSessionSmInputs const& in,
                         Vek::Ptr<LocalPwFecSessionStatus> const& ls);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleReadableCount() { handleMsgPipeReadable(); }
   void handleMsgPipeReadable();
   void handleSessionState();
   void handleRxLabelMsg(Vek::Ptr<LdpMsg> const& msg);

 private:
   void handleRxRequestMsg(LdpMsgParser const& parser);
   void handleRxReleaseMsg(LdpMsgParser const& parser);
   void handleRxAbortReqMsg(LdpMsgParser const& parser);

   class SessionReactor
      : public Vek::CustomReactor<LdpSessionStatus::NotifieeConst, PwFecSessionLocalRxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionState() override { fwd([](auto* sm) { sm->handleSessionState(); }); }
   };

   PwFecSessionSmInputs in_;
   Vek::Ptr<LocalPwFecSessionStatus> ls_;
   Vek::Input<LdpMsgPipe::Reactor<PwFecSessionLocalRxSm>> rxMsgPipeReactor_;
   Vek::Input<SessionReactor> sessionReactor_;
};

// The parse of a message from a pipe: the receive side's, or a new one.
Vek::Ptr<LdpMsgParser const> pwMsgParser(LdpMsg const& msg);

}  // namespace Ldp

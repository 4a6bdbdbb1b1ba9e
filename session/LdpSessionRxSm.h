#pragma once
// The receive side at the peer's TCP channel: takes PDUs as they arrive, cuts
// an operational PDU of several messages into one PDU per message, lets a
// peer's Shutdown overtake whatever is queued, and feeds the queue into the
// session's receive pipe in slices.
#include <deque>

#include "session/LdpSessionSmCommon.h"

namespace Ldp {

class LdpSessionRxSm : public LdpSm {
 public:
   using PktPtr = Vek::Ptr<Nolu::Pkt>;
   static Vek::Ptr<LdpSessionRxSm> LdpSessionRxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpSessionStatus const> const& status,
      Vek::Ptr<Nolu::Pam> const& ldpPduRxPamOut, Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionRxSm>(instId, id, status, ldpPduRxPamOut, scheduler);
   }
   LdpSessionRxSm(U32 instId, LdpSessionId const& id,
                  Vek::Ptr<LdpSessionStatus const> const& status,
                  Vek::Ptr<Nolu::Pam> const& ldpPduRxPamOut,
                  Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   LdpSessionId const& ldpSessionId() const { return ldpSessionId_; }
   // The peer's TCP channel, set and cleared as the connection comes and goes.
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPamIn() const { return ldpPduRxPamIn_; }
   void ldpPduRxPamInIs(Vek::Ptr<Nolu::Pam> const& p);
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPamOut() const { return ldpPduRxPamOut_; }
   std::size_t rxPktQueueSize() const { return rxPktQueue_.size(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handlePamReadable();
   void handleRxPktQueueTask();

 private:
   using RxReactor = PamReadableReactor<LdpSessionRxSm, &LdpSessionRxSm::handlePamReadable>;
   void ldpPduReactRxPamInIs(Vek::Ptr<Nolu::Pam const> const& p);
   void processPkt(PktPtr const& pkt);
   bool maybeSendImmediate(PktPtr const& pkt, U32 offset);
   void sendPkt(PktPtr const& pkt);

   LdpSessionId ldpSessionId_;
   Vek::Ptr<LdpSessionStatus const> ldpSessionStatus_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPamOut_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPamIn_;
   std::deque<PktPtr> rxPktQueue_;
   Vek::Ptr<Hesk::TimerTask> rxPktQueueTask_;
   Vek::Input<RxReactor> ldpPduReactRxPamIn_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionRxSm>> sessionStatusReactor_;
};

}  // namespace Ldp

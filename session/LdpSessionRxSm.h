#pragma once
// The receive side at the peer's TCP channel: takes PDUs as they arrive,
// frames each once, lets a peer's Shutdown overtake whatever is queued, and
// hands the queued PDUs on one message at a time into the session's receive
// pipe, in slices. The queue is bounded: while it is full the PDUs stay in the
// channel, whose own bound then leaves them in the socket, so that TCP flow
// control slows a peer that sends faster than the session digests.
#include <deque>

#include "session/LdpSessionSmCommon.h"

namespace Ldp {

class LdpSessionRxSm : public LdpSm {
 public:
   using PktPtr = Vek::Ptr<Nolu::Pkt>;
   static Vek::Ptr<LdpSessionRxSm> LdpSessionRxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpSessionStatus const> const& status,
      Vek::Ptr<LdpSessionStatistics> const& statistics,
      Vek::Ptr<LdpPduPamPipe> const& ldpPduRxPamOut,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionRxSm>(instId, id, status, statistics, ldpPduRxPamOut, scheduler);
   }
   LdpSessionRxSm(U32 instId, LdpSessionId const& id,
                  Vek::Ptr<LdpSessionStatus const> const& status,
                  Vek::Ptr<LdpSessionStatistics> const& statistics,
                  Vek::Ptr<LdpPduPamPipe> const& ldpPduRxPamOut,
                  Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   LdpSessionId const& ldpSessionId() const { return ldpSessionId_; }
   // The peer's TCP channel, set and cleared as the connection comes and goes.
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPamIn() const { return ldpPduRxPamIn_; }
   void ldpPduRxPamInIs(Vek::Ptr<Nolu::Pam> const& p);
   Vek::Ptr<LdpPduPamPipe> const& ldpPduRxPamOut() const { return ldpPduRxPamOut_; }
   // PDUs received and not yet handed on in full.
   std::size_t rxPktQueueSize() const { return rxPktQueue_.size(); }
   // The most PDUs that have waited at once.
   std::size_t rxPktQueueHighWater() const { return rxPktQueueHighWater_; }
   std::size_t rxPktQueueMax() const { return rxPktQueueMax_; }
   void rxPktQueueMaxIs(std::size_t n) { rxPktQueueMax_ = n ? n : 1; }
   static constexpr std::size_t rxPktQueueMaxDefault = 32;

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handlePamReadable();
   void handleRxPktQueueTask();

 private:
   using RxReactor = PamReadableReactor<LdpSessionRxSm, &LdpSessionRxSm::handlePamReadable>;
   // A received PDU, its one parse, and how far it has been handed on.
   struct RxPdu {
      PktPtr pkt;
      Vek::Ptr<LdpPduParser const> pdu;
      U32 units;
      U32 next;
   };
   void ldpPduReactRxPamInIs(Vek::Ptr<Nolu::Pam const> const& p);
   void rxPktQueueDelAll();
   void pullFromChannel();
   bool isShutdown(RxPdu const& e) const;
   void sendMsgUnit(PktPtr const& pkt, Vek::Ptr<LdpPduParser const> const& pdu, U32 index);
   void channelMaxPduLengthIs(U32 n);

   LdpSessionId ldpSessionId_;
   Vek::Ptr<LdpSessionStatus const> ldpSessionStatus_;
   Vek::Ptr<LdpSessionStatistics> sessionStatistics_;
   Vek::Ptr<LdpPduPamPipe> ldpPduRxPamOut_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPamIn_;
   std::deque<RxPdu> rxPktQueue_;
   std::size_t rxPktQueueMax_ = rxPktQueueMaxDefault;
   std::size_t rxPktQueueHighWater_ = 0;
   Vek::Ptr<Hesk::TimerTask> rxPktQueueTask_;
   Vek::Input<RxReactor> ldpPduReactRxPamIn_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionRxSm>> sessionStatusReactor_;
};

}  // namespace Ldp

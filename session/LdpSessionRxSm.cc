#include "session/LdpSessionRxSm.h"

#include <algorithm>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionRx");
}

LdpSessionRxSm::LdpSessionRxSm(U32 instId, LdpSessionId const& id,
                               Vek::Ptr<LdpSessionStatus const> const& status,
                               Vek::Ptr<LdpSessionStatistics> const& statistics,
                               Vek::Ptr<LdpPduPamPipe> const& ldpPduRxPamOut,
                               Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), ldpSessionId_(id), ldpSessionStatus_(Vek::validPtr(status)),
     sessionStatistics_(Vek::validPtr(statistics)), ldpPduRxPamOut_(ldpPduRxPamOut),
     scheduler_(Vek::validPtr(scheduler)) {
   sessionStatusReactor_.init(this, ldpSessionStatus_);
   handleInitialized();
}

void LdpSessionRxSm::handleInitialized() {
   rxPktQueueTask_ = Hesk::timerTaskIs(this, &LdpSessionRxSm::handleRxPktQueueTask, scheduler_, 2,
                                       "SessionMsg-" + ldpSessionId_.ldpIdentifier().stringValue() +
                                          "-rxPktQ");
   initialized_ = true;
}

void LdpSessionRxSm::ldpPduRxPamInIs(Vek::Ptr<Nolu::Pam> const& p) {
   if (ldpPduRxPamIn_ == p) return;
   ldpPduRxPamIn_ = p;
   if (!p) ldpPduReactRxPamInIs(nullptr);
}

void LdpSessionRxSm::ldpPduReactRxPamInIs(Vek::Ptr<Nolu::Pam const> const& p) {
   if (ldpPduReactRxPamIn_.notifier() == p) return;
   ldpPduReactRxPamIn_.assign(this, p, &LdpSessionRxSm::handlePamReadable);
}

void LdpSessionRxSm::channelMaxPduLengthIs(U32 n) {
   if (auto* tcp = dynamic_cast<Nolu::TcpPduPam*>(ldpPduRxPamIn_.ptr())) tcp->maxPduLengthIs(n);
}

void LdpSessionRxSm::rxPktQueueDelAll() {
   if (rxPktQueue_.empty()) return;
   if (rxPktQueue_.front().next)
      LDP_TRACE(th, 5, "   LDP PDU dropped because of sessionState "
                          << sessionStateStr(ldpSessionStatus_->sessionState()));
   LDP_TRACE(th, 5, "   " << rxPktQueue_.size() << " received PDUs dropped for " << ldpSessionId_);
   rxPktQueue_.clear();
   rxPktQueueTask_->taskWorkPendingIs(0);
}

void LdpSessionRxSm::handleSessionState() {
   VEK_ASSERT(initialized());
   switch (ldpSessionStatus_->sessionState()) {
   case stateUnknown_:
   case stateNonExistent_:
   case stateClosed_:
      ldpPduReactRxPamInIs(nullptr);
      rxPktQueueDelAll();
      break;
   default:
      VEK_ASSERT(ldpPduRxPamIn() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduRxPamOut() && "Internal Error. PAM should be valid.");
      // Once both sides know each other's proposal, the peer keeps to the
      // negotiated maximum, and a longer PDU is answered as such.
      if (ldpSessionStatus_->sessionState() == stateOperational_ &&
          ldpSessionStatus_->operMaxPduLength())
         channelMaxPduLengthIs(ldpSessionStatus_->operMaxPduLength());
      ldpPduReactRxPamInIs(ldpPduRxPamIn_);
      break;
   }
}

bool LdpSessionRxSm::isShutdown(RxPdu const& e) const {
   if (e.units != std::max<U32>(e.pdu->msgNum(), 1) || e.pdu->msgNum() == 0) return false;
   if (e.pdu->msgHdr(0)->type() != LdpNotification_) return false;
   auto n = ldpNotificationMsgParserFactory(e.pkt, e.pdu->msgOffset(0));
   return n->validMsg() && n->statusEBit() && n->statusData() == statusShutdown_;
}

void LdpSessionRxSm::handlePamReadable() {
   if (!initialized_ || !ldpPduReactRxPamIn_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   pullFromChannel();
}

void LdpSessionRxSm::pullFromChannel() {
   // Only as much as the queue takes: the rest waits in the channel.
   while (ldpPduReactRxPamIn_ && rxPktQueue_.size() < rxPktQueueMax_) {
      PktPtr pkt = ldpPduRxPamIn_->rxPkt();
      if (!pkt) break;
      sessionStatistics_->ldpPduRxCountInc(1);
      // The one framing of the PDU; a PDU that fails it, or names another
      // peer, is handed on as a whole, to be answered.
      Vek::Ptr<LdpPduParser const> pdu = ldpPduParserFactory(pkt, 0);
      bool whole = pdu->validLdpPdu() && pdu->ldpIdentifier() == ldpSessionId_.ldpIdentifier();
      RxPdu e{pkt, pdu, whole ? std::max<U32>(pdu->msgNum(), 1) : 1, 0};
      if (!rxPktQueue_.empty() && whole && isShutdown(e)) {
         // A Shutdown does not wait behind label messages: the session ends
         // with it, and what is queued goes with the session.
         LDP_TRACE(th, 5, "LdpPdu rcvd for " << ldpSessionId_);
         LDP_TRACE(th, 5, "   Immediate process of shutdown notification");
         for (U32 i = 0; i < e.units && ldpPduReactRxPamIn_; ++i) sendMsgUnit(e.pkt, e.pdu, i);
         continue;
      }
      rxPktQueue_.push_back(std::move(e));
      rxPktQueueHighWater_ = std::max(rxPktQueueHighWater_, rxPktQueue_.size());
   }
   if (!rxPktQueue_.empty()) {
      rxPktQueueTask_->taskWorkPendingIs(rxPktQueue_.size());
      rxPktQueueTask_->scheduleTask();
   }
}

void LdpSessionRxSm::sendMsgUnit(PktPtr const& pkt, Vek::Ptr<LdpPduParser const> const& pdu,
                                 U32 index) {
   if (!ldpPduRxPamOut_) return;
   ldpPduRxPamOut_->txMsgUnitIs(pkt, pdu, index);
   // Whichever machine reads the session in its present state took it; in a
   // state without a reader it is dropped here.
   if (ldpPduRxPamOut_->rxPktHolderShadow()) {
      LDP_TRACE(th, 5, "   No reader for message " << index << " in "
                                                   << sessionStateStr(
                                                         ldpSessionStatus_->sessionState()));
      ldpPduRxPamOut_->rxPkt();
   }
}

void LdpSessionRxSm::handleRxPktQueueTask() {
   if (!initialized_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   U64 count = 0;
   while (!rxPktQueue_.empty() && ldpPduReactRxPamIn_) {
      // Each message is one unit of the slice; the PDU leaves the queue with
      // its last message, before that message runs, since the session may
      // end (and empty the queue) inside it.
      RxPdu& head = rxPktQueue_.front();
      U32 index = head.next++;
      PktPtr pkt = head.pkt;
      Vek::Ptr<LdpPduParser const> pdu = head.pdu;
      if (head.next >= head.units) rxPktQueue_.pop_front();
      sendMsgUnit(pkt, pdu, index);
      ++count;
      if (rxPktQueueTask_->taskShouldYield()) break;
      if (rxPktQueue_.empty()) pullFromChannel();
   }
   pullFromChannel();
   if (!rxPktQueue_.empty()) {
      LDP_TRACE(th, 7, "rxPktQueue yieldTask");
      rxPktQueueTask_->scheduleTask();
   }
   rxPktQueueTask_->taskWorkCountInc(count);
   rxPktQueueTask_->taskWorkPendingIs(rxPktQueue_.size());
   LDP_TRACE(th, 8, "Deque rxPktQueue count " << count << " pending " << rxPktQueue_.size());
}

}  // namespace Ldp

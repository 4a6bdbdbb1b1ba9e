#include "session/LdpSessionRxSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionRx");
}

LdpSessionRxSm::LdpSessionRxSm(U32 instId, LdpSessionId const& id,
                               Vek::Ptr<LdpSessionStatus const> const& status,
                               Vek::Ptr<Nolu::Pam> const& ldpPduRxPamOut,
                               Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), ldpSessionId_(id), ldpSessionStatus_(Vek::validPtr(status)),
     ldpPduRxPamOut_(ldpPduRxPamOut), scheduler_(Vek::validPtr(scheduler)) {
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

void LdpSessionRxSm::handleSessionState() {
   VEK_ASSERT(initialized());
   switch (ldpSessionStatus_->sessionState()) {
   case stateUnknown_:
   case stateNonExistent_:
   case stateClosed_:
      ldpPduReactRxPamInIs(nullptr);
      rxPktQueue_.clear();
      break;
   default:
      VEK_ASSERT(ldpPduRxPamIn() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduRxPamOut() && "Internal Error. PAM should be valid.");
      ldpPduReactRxPamInIs(ldpPduRxPamIn_);
      break;
   }
}

void LdpSessionRxSm::handlePamReadable() {
   VEK_ASSERT(initialized());
   if (!ldpPduReactRxPamIn_) return;
   VEK_ASSERT(ldpPduRxPamIn());
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   PktPtr pkt = ldpPduRxPamIn_->rxPkt();
   if (!pkt) return;
   if (ldpSessionStatus_->sessionState() == stateOperational_) {
      auto parser = ldpPduParserFactory(pkt, 0);
      if (parser->validLdpPdu() && parser->ldpIdentifier() == ldpSessionId_.ldpIdentifier() &&
          parser->msgNum() >= 2) {
         LDP_TRACE(th, 7, "Splitting multi-message PDU");
         for (U32 i = 0; i < parser->msgNum(); ++i) {
            PktPtr one = Nolu::globalPktManager()->newPkt(pkt->dataBytes());
            auto gen = ldpMsgGenFactory(one);
            gen->addLdpPduHdr(parser->version(), parser->ldpIdentifier());
            gen->appendLdpMsg(pkt, parser->msgOffset(i));
            gen->computeHdrLenChecksum();
            processPkt(one);
         }
         return;
      }
   }
   processPkt(pkt);
}

void LdpSessionRxSm::processPkt(PktPtr const& pkt) {
   if (maybeSendImmediate(pkt, 0)) return;
   rxPktQueue_.push_back(pkt);
   rxPktQueueTask_->taskWorkPendingIs(rxPktQueue_.size());
   rxPktQueueTask_->scheduleTask();
}

bool LdpSessionRxSm::maybeSendImmediate(PktPtr const& pkt, U32 offset) {
   auto parser = ldpPduParserFactory(pkt, offset);
   if (!parser->validLdpPdu() || parser->ldpIdentifier() != ldpSessionId_.ldpIdentifier() ||
       parser->msgNum() == 0)
      return false;
   if (parser->msgHdr(0)->type() != LdpNotification_) return false;
   auto n = ldpNotificationMsgParserFactory(pkt, parser->msgOffset(0));
   if (!n->validMsg()) return false;
   if (!(n->statusEBit() && n->statusData() == statusShutdown_)) return false;
   LDP_TRACE(th, 5, "LdpPdu rcvd for " << ldpSessionId_);
   LDP_TRACE(th, 5, "   Immediate process of shutdown notification");
   sendPkt(pkt);
   return true;
}

void LdpSessionRxSm::handleRxPktQueueTask() {
   if (!initialized_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   U64 count = 0;
   while (!rxPktQueue_.empty()) {
      PktPtr pkt = std::move(rxPktQueue_.front());
      rxPktQueue_.pop_front();
      sendPkt(pkt);
      ++count;
      if (rxPktQueueTask_->taskShouldYield()) break;
   }
   if (!rxPktQueue_.empty()) {
      LDP_TRACE(th, 7, "rxPktQueue yieldTask");
      rxPktQueueTask_->scheduleTask();
   }
   rxPktQueueTask_->taskWorkCountInc(count);
   rxPktQueueTask_->taskWorkPendingIs(rxPktQueue_.size());
   LDP_TRACE(th, 8, "Deque rxPktQueue count " << count << " pending " << rxPktQueue_.size());
}

void LdpSessionRxSm::sendPkt(PktPtr const& pkt) {
   if (ldpPduRxPamOut_) ldpPduRxPamOut_->txPktIs(pkt);
}

}  // namespace Ldp

#include "pw/PwFecSessionLocalRxSm.h"

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwFecSessionLocal");
}

Vek::Ptr<LdpMsgParser const> pwMsgParser(LdpMsg const& msg) {
   if (msg.parser()) return msg.parser();
   return ldpMsgParserGet(msg.pkt(), msg.offset());
}

PwFecSessionLocalRxSm::PwFecSessionLocalRxSm(U32 instId, PwFecSessionSmInputs const& in,
                                             Vek::Ptr<LocalPwFecSessionStatus> const& ls)
   : LdpSm(instId), in_(in), ls_(Vek::validPtr(ls)) {
   Vek::validPtr(in_.rxMsgPipe);
   Vek::validPtr(in_.sessionStatus);
   rxMsgPipeReactor_.init(this, in_.rxMsgPipe);
   sessionReactor_.init(this, in_.sessionStatus);
   handleInitialized();
}

void PwFecSessionLocalRxSm::handleInitialized() {
   LDP_HANDLER(th, "PwFecSessionLocalRxSm::handleInitialized " << in_.id);
   initialized_ = true;
   // What came before the machine waited in the pipe.
   handleMsgPipeReadable();
}

void PwFecSessionLocalRxSm::handleMsgPipeReadable() {
   if (!initialized_) return;
   while (initialized_) {
      Vek::Ptr<LdpMsg> msg = in_.rxMsgPipe->rxMsg();
      if (!msg) break;
      handleRxLabelMsg(msg);
   }
}

void PwFecSessionLocalRxSm::handleRxLabelMsg(Vek::Ptr<LdpMsg> const& msg) {
   VEK_ASSERT(msg->pkt() && "Internal Error");
   VEK_ASSERT((msg->pkt()->frontBytes() > msg->offset()) && "Internal Error");
   auto parser = pwMsgParser(*msg);
   VEK_ASSERT(parser->validMsg() && "Internal Error");
   LDP_HANDLER(th, "PwFecSessionLocalRxSm::handleRxLabelMsg " << in_.id << " "
                      << ldpMsgTypeStr(parser->msgType()));
   switch (parser->msgType()) {
   case LdpLabelRequest_: handleRxRequestMsg(*parser); break;
   case LdpLabelRelease_: handleRxReleaseMsg(*parser); break;
   case LdpLabelAbortReq_: handleRxAbortReqMsg(*parser); break;
   default:
      // A Notification that names one of our Releases lands here; it asks
      // nothing of this side.
      LDP_TRACE(th, 5, "   Ignored " << ldpMsgTypeStr(parser->msgType()) << " for " << in_.id);
      break;
   }
}

// The change of the request id wakes the transmit machine, which answers
// with a mapping.
void PwFecSessionLocalRxSm::handleRxRequestMsg(LdpMsgParser const& parser) {
   pwMsgCountInc(ls_.ptr(), false, LdpLabelRequest_);
   ls_->labelRequestMsgIdAckedIs(0);
   ls_->labelRequestMsgIdIs(parser.msgId());
}

void PwFecSessionLocalRxSm::handleRxReleaseMsg(LdpMsgParser const& parser) {
   ls_->labelReleaseMsgIdIs(parser.msgId());
   if (parser.statusTlv() && parser.statusTlv()->statusData() == statusIllegalCBit_)
      LDP_TRACE(th, 3, "   Received \"Illegal C-Bit\" status code");
   pwMsgCountInc(ls_.ptr(), false, LdpLabelRelease_);
   ls_->labelReleaseLabelIs(parser.genLabelTlv() ? parser.genLabelTlv()->label()
                                                 : Nolu::MplsLabel::any());
}

void PwFecSessionLocalRxSm::handleRxAbortReqMsg(LdpMsgParser const& parser) {
   pwMsgCountInc(ls_.ptr(), false, LdpLabelAbortReq_);
   if (ls_->labelRequestMsgId() == ls_->labelRequestMsgIdAcked()) return;
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addNotificationMsg(false, in_.status->statistics()->messageIdInc(1),
                                     statusLabelRequestAborted_, LdpLabelAbortReq_, parser.msgId());
   VEK_ASSERT(ok && "msgGen->addNotificationMsg");
   gen->computeHdrLenChecksum();
   if (pwFecSessionSend(in_, pkt)) pwMsgCountInc(ls_.ptr(), true, LdpLabelAbortReq_);
   ls_->labelRequestMsgIdAckedIs(ls_->labelRequestMsgId());
}

void PwFecSessionLocalRxSm::handleSessionState() {
   if (!initialized_) return;
   if (in_.sessionStatus->sessionState() != stateClosed_) return;
   ls_->labelRequestMsgIdIs(0);
   ls_->labelRequestMsgIdAckedIs(0);
   ls_->labelReleaseMsgIdIs(0);
   ls_->labelSessionStateIs(localLabelSessionNone_);
}

}  // namespace Ldp

#include "pw/PwFecSessionRemoteRxSm.h"

#include <cstdio>

#include "pw/PwFecSessionLocalRxSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwFecSessionRemote");

std::string hex8(U32 v) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%.8x", v);
   return buf;
}
}  // namespace

PwFecSessionRemoteRxSm::PwFecSessionRemoteRxSm(U32 instId, PwFecSessionSmInputs const& in,
                                               Vek::Ptr<RemotePwFecSessionStatus> const& rs)
   : LdpSm(instId), in_(in), rs_(Vek::validPtr(rs)) {
   Vek::validPtr(in_.rxMsgPipe);
   Vek::validPtr(in_.sessionStatus);
   Vek::validPtr(rs_->mplsLabelSet());
   Vek::validPtr(rs_->mplsReleaseLabelSet());
   rxMsgPipeReactor_.init(this, in_.rxMsgPipe);
   sessionReactor_.init(this, in_.sessionStatus);
   handleInitialized();
}

void PwFecSessionRemoteRxSm::handleInitialized() {
   LDP_HANDLER(th, "PwFecSessionRemoteRxSm::handleInitialized " << in_.id);
   initialized_ = true;
   handleMsgPipeReadable();
}

void PwFecSessionRemoteRxSm::handleMsgPipeReadable() {
   if (!initialized_) return;
   while (initialized_) {
      Vek::Ptr<LdpMsg> msg = in_.rxMsgPipe->rxMsg();
      if (!msg) break;
      handleRxLabelMsg(msg);
   }
}

void PwFecSessionRemoteRxSm::handleRxLabelMsg(Vek::Ptr<LdpMsg> const& msg) {
   VEK_ASSERT(msg->pkt() && "Internal Error");
   VEK_ASSERT((msg->pkt()->frontBytes() > msg->offset()) && "Internal Error");
   auto parser = pwMsgParser(*msg);
   VEK_ASSERT(parser->validMsg() && "Internal Error");
   LDP_HANDLER(th, "PwFecSessionRemoteRxSm::handleRxLabelMsg " << in_.id << " "
                      << ldpMsgTypeStr(parser->msgType()));
   switch (parser->msgType()) {
   case LdpLabelMapping_:
      rs_->lastMsgTypeWithdrawIs(false);
      handleRxMappingMsg(*parser);
      break;
   case LdpLabelWithdraw_:
      rs_->lastMsgTypeWithdrawIs(true);
      handleRxWithdrawMsg(*parser);
      break;
   case LdpNotification_: handleRxNotificationMsg(*parser); break;
   default:
      LDP_TRACE(th, 5, "   Ignored " << ldpMsgTypeStr(parser->msgType()) << " for " << in_.id);
      break;
   }
}

void PwFecSessionRemoteRxSm::handleRxMappingMsg(LdpMsgParser const& parser) {
   pwMsgCountInc(rs_.ptr(), false, LdpLabelMapping_);
   // The peer's first mapping decides whether it speaks the PW Status TLV,
   // and every mapping revises it.
   bool tlv = parser.pwStatusTlv() != nullptr;
   if (rs_->peerPwStatusMethod() != pwStatusMethodTlv_ || !tlv) {
      LDP_TRACE(th, 5, "   Configuring PW to" << (tlv ? "" : " NOT") << " use PW status TLV");
      rs_->peerPwStatusMethodIs(tlv ? pwStatusMethodTlv_ : pwStatusMethodWithdraw_);
   }
   if (tlv) {
      U32 flags = parser.pwStatusTlv()->flags();
      LDP_TRACE(th, 5, "   Updating PW status to " << hex8(flags));
      rs_->pwStatusFlagsIs(Pseudowire::PseudowireLdpStatusFlags(flags));
   } else {
      rs_->pwStatusFlagsIs(Pseudowire::pwStatusForwarding_);
   }
   if (!parser.genLabelTlv()) return;
   Nolu::MplsLabel label = parser.genLabelTlv()->label();
   auto set = rs_->mplsLabelSet();
   bool multi = in_.protoConfig && in_.protoConfig->ldpMultiLabelSupport();
   if (set->mplsLabelSize() != 0 && multi) {
      set->mplsLabelIs(label, true);
   } else if (set->mplsLabelHas(label)) {
      // Held already.
   } else {
      // A new mapping on an old one replaces it and frees the old label for
      // a Release: the implicit withdraw.
      auto rel = rs_->mplsReleaseLabelSet();
      for (auto it = set->mplsLabelIter(); it; ++it) rel->mplsLabelIs(it.key(), true);
      set->mplsLabelDelAll();
      set->mplsLabelIs(label, true);
   }
}

void PwFecSessionRemoteRxSm::handleRxWithdrawMsg(LdpMsgParser const& parser) {
   rs_->labelWithdrawLabelIs(parser.genLabelTlv() ? parser.genLabelTlv()->label()
                                                  : Nolu::MplsLabel::any());
   if (parser.statusTlv() && parser.statusTlv()->statusData() == statusWrongCBit_)
      LDP_TRACE(th, 3, "   Received \"Wrong C-Bit\" status code");
   pwMsgCountInc(rs_.ptr(), false, LdpLabelWithdraw_);
   rs_->labelWithdrawMsgIdIs(parser.msgId());
}

void PwFecSessionRemoteRxSm::handleRxNotificationMsg(LdpMsgParser const& parser) {
   pwMsgCountInc(rs_.ptr(), false, LdpNotification_);
   if (!parser.statusTlv() || parser.statusTlv()->statusData() != statusPwStatus_) return;
   // A PW Status Notification without its TLV is refused before it gets here.
   if (!parser.pwStatusTlv()) return;
   U32 flags = parser.pwStatusTlv()->flags();
   LDP_TRACE(th, 5, "   Updating PW status to " << hex8(flags));
   rs_->pwStatusFlagsIs(Pseudowire::PseudowireLdpStatusFlags(flags));
}

// The peer forgets what it advertised with the session.
void PwFecSessionRemoteRxSm::handleSessionState() {
   if (!initialized_) return;
   if (in_.sessionStatus->sessionState() != stateClosed_) return;
   rs_->labelWithdrawMsgIdIs(0);
   rs_->labelReleaseMsgIdIs(0);
   rs_->mplsLabelSet()->mplsLabelDelAll();
   rs_->mplsReleaseLabelSet()->mplsLabelDelAll();
   rs_->labelSessionStateIs(peerLabelSessionNone_);
   rs_->peerPwStatusMethodIs(pwStatusMethodUnknown_);
}

}  // namespace Ldp

#include "session/LdpSessionMsgSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionMsg");
}

LdpSessionMsgSm::LdpSessionMsgSm(
   U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
   Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
   Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
   Vek::Ptr<PwFecSessionConfigColl> const& localPwFecSessionConfigColl,
   Vek::Ptr<PwFecSessionConfigColl> const& remotePwFecSessionConfigColl,
   Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl,
   Vek::Ptr<LdpFecMsgPipeColl const> const& ldpFecMsgPipeColl,
   Vek::Ptr<PwFecSessionMsgPipeColl const> const& pwFecSessionMsgPipeColl,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSessionSmCommon(instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus,
                        status, sessionStatistics),
     localPwFecSessionConfigColl_(localPwFecSessionConfigColl),
     remotePwFecSessionConfigColl_(remotePwFecSessionConfigColl),
     ldpFecConfigColl_(ldpFecConfigColl), ldpFecMsgPipeColl_(ldpFecMsgPipeColl),
     pwFecSessionMsgPipeColl_(pwFecSessionMsgPipeColl), scheduler_(Vek::validPtr(scheduler)) {
   sessionStatusReactor_.init(this, Vek::Ptr<LdpSessionStatus const>(sessionStatus));
   sessionCommonConfigReactor_.init(this, sessionCommonConfig);
   sessionConfigReactor_.init(this, sessionConfig);
   handleInitialized();
}

void LdpSessionMsgSm::handleInitialized() {
   ipTransportAddr_ = ldpSessionCommonConfig()->ipTransportAddr();
   peerIpAddr_ = ldpSessionConfig()->peerIpAddr();
   keepAliveTimerTask_ =
      Hesk::timerTaskIs(this, &LdpSessionMsgSm::handleKeepAliveTimerTask, scheduler_, 2,
                        "SessionMsg-" + ldpSessionId().ldpIdentifier().stringValue());
   initialized_ = true;
}

void LdpSessionMsgSm::ldpPduReactRxPamIs(Vek::Ptr<Nolu::Pam const> const& p) {
   if (ldpPduReactRxPam_.notifier() == p) return;
   ldpPduReactRxPam_.assign(this, p, &LdpSessionMsgSm::handlePamReadable);
}

void LdpSessionMsgSm::ldpPduSend(PktPtr const& pkt) {
   LDP_TRACE(th, 7, "ldpPduSend " << ldpSessionId() << " " << pkt->dataBytes() << " bytes");
   if (ldpPduTxPam_) ldpPduTxPam_->txPktIs(pkt);
}

void LdpSessionMsgSm::sendNotification(LdpStatusCode code, LdpMsgType refType, U32 refId) {
   PktPtr pkt = newPkt();
   genLdpNotificationMsg(pkt, false, code, refType, refId);
   ldpPduSend(pkt);
}

void LdpSessionMsgSm::handleSessionState() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpSessionMsgSm::handleSessionState " << ldpSessionId() << " "
                                                           << sessionStateStr(sessionState()));
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   switch (sessionState()) {
   case stateOperational_:
      VEK_ASSERT(ldpPduRxPam() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduTxPam() && "Internal Error. PAM should be valid.");
      st->addressMsgRcvdIs(false);
      resetKeepAliveTimerTask(true);
      // The peer's session address is known before its Address message.
      if (!st->peerIpAddr().isUnspecified()) st->peerIntfIpIs(st->peerIpAddr(), true);
      ldpPduReactRxPamIs(ldpPduRxPam_);
      break;
   case stateClosed_:
      ldpPduReactRxPamIs(nullptr);
      resetKeepAliveTimerTask(false);
      st->peerIntfIpDelAll();
      break;
   default:
      ldpPduReactRxPamIs(nullptr);
      resetKeepAliveTimerTask(false);
      break;
   }
}

void LdpSessionMsgSm::resetKeepAliveTimerTask(bool active) {
   if (active) {
      Vek::Seconds t = ldpSessionStatus()->operKeepAliveTime();
      keepAliveTimerTask_->scheduleTaskDelay(t);
      ldpSessionStatus()->sessionExpireTimeIs(Vek::System::currentTime() + t);
   } else {
      keepAliveTimerTask_->scheduleTaskDelay(Vek::infinity);
      ldpSessionStatus()->sessionExpireTimeIs(0.0);
   }
}

void LdpSessionMsgSm::handlePamReadable() {
   if (!initialized_ || !ldpPduReactRxPam_) return;
   PktPtr pkt = ldpPduRxPam_->rxPkt();
   if (!pkt) return;
   VEK_ASSERT(ldpSessionStatus()->sessionState() == stateOperational_);
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   sessionStatistics()->ldpPduRxCountInc(1);
   handleRxLdpPdu(pkt, 0);
   // Any PDU is a sign of life, whatever it held.
   resetKeepAliveTimerTask(true);
}

void LdpSessionMsgSm::handleKeepAliveTimerTask() {
   if (!initialized_) return;
   switch (sessionState()) {
   case stateOperational_:
      LDP_TRACE(th, 3, "   KeepAlive timer expired for " << ldpSessionId());
      sendNotification(statusKeepAliveTimerExpired_, LdpKeepAlive_, 0);
      changeSessionState(stateClosed_, statusKeepAliveTimerExpired_);
      break;
   case stateClosed_: break;
   default: VEK_ASSERT(0 && "Internal Error. keepAlive Timer shouldn't be alarmed");
   }
}

void LdpSessionMsgSm::handleRxLdpKeepAliveMsg(PktPtr const&, U32) {
   ldpMsgRxCountInc(sessionStatistics().ptr(), LdpKeepAlive_);
}

void LdpSessionMsgSm::handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
   changeSessionState(stateClosed_, statusUnknownMsgType_);
   sessionStatistics()->ldpPduRxErrorCountInc(1);
}

void LdpSessionMsgSm::handleRxLdpHelloMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpInitMsg(pkt, offset);
}

void LdpSessionMsgSm::handleRxLdpMsgError(PktPtr const& pkt, U32 offset, LdpStatusCode code) {
   if (code == localRxDropSilent) return;
   LdpMsgType type;
   U32 id;
   refMsgAt(pkt, offset, &type, &id);
   LDP_TRACE(th, 3, "   Receive error " << code << " on message " << U16(type) << " id " << id);
   sendNotification(code, type, id);
   if (statusCodeEBitForStatusCode(code)) changeSessionState(stateClosed_, code);
}

void LdpSessionMsgSm::txMsg(Vek::Ptr<LdpMsgPipe> const& pipe, PktPtr const& pkt, U32 offset) {
   pipe->txMsgIs(ldpMsgFactory(ldpSessionId().ldpIdentifier(), pkt, offset));
}

void LdpSessionMsgSm::handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpNotificationMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      LdpStatusCode code = parser->statusCode();
      handleRxLdpMsgError(pkt, offset, code);
      if (statusCodeEBitForStatusCode(code)) changeSessionState(stateClosed_, code);
      return;
   }
   VEK_ASSERT(parser->msgHdr());
   VEK_ASSERT(parser->statusTlv());
   LDP_TRACE(th, 5, parser->stringValue());
   ldpMsgRxCountInc(sessionStatistics().ptr(), LdpNotification_);
   ldpMsgNotificationRxCountInc(sessionStatistics().ptr(), parser->statusData());
   if (parser->statusEBit()) {
      changeSessionState(stateClosed_, parser->statusData());
      return;
   }
   if (parser->statusData() == statusPwStatus_) {
      handleRxPwStatusNotifMsg(pkt, offset, parser);
      return;
   }
   if (parser->statusData() == statusLabelResourcesAvailable_)
      ldpSessionStatus()->peerLabelRescAvailableCountIs(
         ldpSessionStatus()->peerLabelRescAvailableCount() + 1);
   U32 id = parser->refMsgId();
   LdpMsgType type = parser->refMsgType();
   Vek::Ptr<LdpMsgPipe> pipe;
   if (type >= LdpLabelMapping_ && type <= LdpLabelAbortReq_) {
      LdpSessionStatistics* stats = sessionStatistics().ptr();
      if (auto const* info = stats->ldpMsgIdFecMappingInfoFind(id)) {
         if (ldpFecMsgPipeColl_) pipe = ldpFecMsgPipeColl_->msgPipe(info->fec);
      } else if (auto const* local = stats->pwLocalMsgIdInfoFind(id)) {
         if (pwFecSessionMsgPipeColl_)
            pipe = pwFecSessionMsgPipeColl_->localMsgPipe(PwFecSessionId(local->fec, ldpSessionId()));
      } else if (auto const* remote = stats->pwRemoteMsgIdInfoFind(id)) {
         if (pwFecSessionMsgPipeColl_)
            pipe = pwFecSessionMsgPipeColl_->remoteMsgPipe(
               PwFecSessionId(remote->fec, ldpSessionId()));
      }
   }
   if (pipe) txMsg(pipe, pkt, offset);
   else LDP_TRACE(th, 5, "   unknown message ID in notification: " << id);
}

void LdpSessionMsgSm::handleRxPwStatusNotifMsg(PktPtr const& pkt, U32 offset,
                                               Vek::Ptr<LdpNotificationMsgParser> const& parser) {
   // A PW Status Notification names its pseudowire in a FEC TLV; one without
   // is the peer's error and is not forwarded.
   LdpFecTlvParser const* fec = parser->ldpFecTlvParser();
   if (!fec || fec->fecElementNum() == 0) {
      LDP_TRACE(th, 3, "   PW Status Notification without a FEC TLV dropped");
      return;
   }
   if (fec->fecElementType(0) != pwIdElement_) {
      char buf[16];
      std::snprintf(buf, sizeof buf, "0x%04x", unsigned(fec->fecElementType(0)));
      LDP_TRACE(th, 3, "   Unhandled fecElement type in PW Status Notification: " << buf);
      return;
   }
   handleRxPwFec(pkt, offset, LdpNotification_, fec->pwFwdEqvCls(0));
}

void LdpSessionMsgSm::handleRxPwFec(PktPtr const& pkt, U32 offset, LdpMsgType type,
                                    PwFwdEqvClassInfo const& info) {
   if (!pwFecSessionMsgPipeColl_) return;
   PwFecMsgContext context = pwFecMessagecontextForMsgType(type);
   PwFwdEqvClass const& pw = info.fwdEqvClass();
   bool remote = context == remotePwFecMessage;
   if (pw.pwId().value() == 0) {
      LDP_TRACE(th, 5, "   Processing Pseudowire group " << pw.groupId() << " for group "
                                                        << "with msgType=" << U16(type));
      if (context == otherMessageContext) return;
      auto const& pipes = remote ? pwFecSessionMsgPipeColl_->remoteMsgPipe()
                                 : pwFecSessionMsgPipeColl_->localMsgPipe();
      for (auto it = pipes.begin(); it; ++it) {
         PwFecSessionId const& id = it.key();
         if (id.sessionId() != ldpSessionId() || id.fec().groupId() != pw.groupId()) continue;
         if (it.value()) txMsg(it.value(), pkt, offset);
         else if (remote) LDP_TRACE(th, 5, "      PwFecSessionId with no remoteMsgPipe: " << id);
         else LDP_TRACE(th, 5, "      PwFecSessionId with no localMsgPipe: " << id);
      }
      return;
   }
   PwFecSessionId id(pw, ldpSessionId());
   if (type != LdpNotification_) getOrCreatePwFecSessionConfig(info, id, context);
   Vek::Ptr<LdpMsgPipe> pipe = remote ? pwFecSessionMsgPipeColl_->remoteMsgPipe(id)
                                      : pwFecSessionMsgPipeColl_->localMsgPipe(id);
   if (pipe) txMsg(pipe, pkt, offset);
   else if (remote) LDP_TRACE(th, 5, "      PwFecSessionId with no remoteMsgPipe: " << id);
   else LDP_TRACE(th, 5, "      PwFecSessionId with no localMsgPipe: " << id);
}

LdpFecConfigColl::FecConfigRef LdpSessionMsgSm::getOrCreateLdpFecConfig(Mpls::FwdEqvClass const& fec) {
   VEK_ASSERT(ldpFecConfigColl_ && "Internal Error");
   LDP_TRACE(th, 7, "getOrCreateLdpFecConfig" << ", FEC: " << fec.stringValue());
   return ldpFecConfigColl_->fecConfigIs(fec);
}

Vek::Ptr<PwFecSessionConfig> LdpSessionMsgSm::getOrCreatePwFecSessionConfig(
   PwFwdEqvClassInfo const& info, PwFecSessionId const& id, PwFecMsgContext context) {
   VEK_ASSERT(initialized() && "Internal error");
   LDP_TRACE(th, 7, "pwId: " << info.fwdEqvClass().pwId() << ", sessionId: " << ldpSessionId()
                             << ", msgContext: " << int(context));
   auto& coll = context == remotePwFecMessage ? remotePwFecSessionConfigColl_
                                              : localPwFecSessionConfigColl_;
   if (!coll) return nullptr;
   auto c = coll->fecSessionConfig(id);
   if (!c) c = coll->fecSessionConfigIs(id, pwMemberMachines_);
   c->memberIs(pwMemberMachines_, true);
   if (context == remotePwFecMessage) c->fecParamsIs(info.fwdEqvClassParams());
   return c;
}

void LdpSessionMsgSm::handleRxLdpLabelMsg(PktPtr const& pkt, U32 offset, LdpMsgType type) {
   auto parser = ldpMsgParserGet(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   ldpMsgRxCountInc(sessionStatistics().ptr(), type);
   LdpFecTlvParser const* fec = parser->ldpFecTlvParser();
   if (!fec) return;
   for (U32 i = 0; i < fec->fecElementNum(); ++i) {
      switch (fec->fecElementType(i)) {
      case prefixElement_:
      case hostAddrElement_: {
         Mpls::FwdEqvClass f = fec->fwdEqvCls(i);
         LDP_TRACE(th, 7, "   Processing FEC: " << f.stringValue());
         if (!ldpFecConfigColl_) break;
         auto fecConfig = getOrCreateLdpFecConfig(f);
         VEK_ASSERT(fecConfig && "Internal Error");
         LdpSessionId const& peer = ldpSessionId();
         if (!fecConfig->sessionRxReqTimeHas(peer))
            fecConfig->sessionRxReqTimeIs(peer, Vek::System::currentTime());
         // Without a label machine for the FEC there is no one to hand it to.
         auto pipe = ldpFecMsgPipeColl_ ? ldpFecMsgPipeColl_->msgPipe(f) : nullptr;
         if (pipe) txMsg(pipe, pkt, offset);
         else LDP_TRACE(th, 5, "   No message pipe for FEC " << f.stringValue());
         break;
      }
      case wildcardElement_: {
         LDP_TRACE(th, 7, "   Processing wildcard FEC");
         if (!ldpFecMsgPipeColl_) break;
         auto msg = ldpMsgFactory(ldpSessionId().ldpIdentifier(), pkt, offset);
         for (auto it = ldpFecMsgPipeColl_->msgPipe().begin(); it; ++it)
            if (it.value()) it.value()->txMsgIs(msg);
         break;
      }
      case pwIdElement_:
         LDP_TRACE(th, 7, "   Processing Pseudowire FEC: " << fec->pwFwdEqvCls(i).fwdEqvClass().pwId());
         handleRxPwFec(pkt, offset, type, fec->pwFwdEqvCls(i));
         break;
      default:
         // The parser admits only the elements above; anything else would
         // be its fault, and is dropped here rather than trusted.
         LDP_TRACE(th, 1, "   Unexpected FEC element " << U16(fec->fecElementType(i)));
         break;
      }
   }
}

void LdpSessionMsgSm::handleRxLdpLabelMappingMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpLabelMsg(pkt, offset, LdpLabelMapping_);
}
void LdpSessionMsgSm::handleRxLdpLabelReqMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpLabelMsg(pkt, offset, LdpLabelRequest_);
}
void LdpSessionMsgSm::handleRxLdpLabelWithdrawMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpLabelMsg(pkt, offset, LdpLabelWithdraw_);
}
void LdpSessionMsgSm::handleRxLdpLabelReleaseMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpLabelMsg(pkt, offset, LdpLabelRelease_);
}
void LdpSessionMsgSm::handleRxLdpLabelAbortReqMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpLabelMsg(pkt, offset, LdpLabelAbortReq_);
}

void LdpSessionMsgSm::handleRxLdpAddressMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpAddressMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   // An Address message without an address is malformed, not a fault.
   if (parser->numAddress() == 0) {
      handleRxLdpMsgError(pkt, offset, statusMalformedTlvValue_);
      return;
   }
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   for (U32 i = 0; i < parser->numAddress(); ++i) st->peerIntfIpIs(parser->address(i), true);
   ldpMsgRxCountInc(sessionStatistics().ptr(), LdpAddress_);
   st->addressMsgRcvdIs(true);
}

void LdpSessionMsgSm::handleRxLdpAddressWithdrawMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpAddressWithdrawMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   if (parser->numAddress() == 0) {
      handleRxLdpMsgError(pkt, offset, statusMalformedTlvValue_);
      return;
   }
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   for (U32 i = 0; i < parser->numAddress(); ++i) st->peerIntfIpDel(parser->address(i));
   ldpMsgRxCountInc(sessionStatistics().ptr(), LdpAddressWithdraw_);
}

void LdpSessionMsgSm::handleIpTransportAddr() {
   if (!initialized_) return;
   if (!updateIpTransportAddr() || sessionState() != stateOperational_) return;
   sendNotification(statusShutdown_, LdpNotification_, 0);
   changeSessionState(stateClosed_, localAddrChange);
}

void LdpSessionMsgSm::handleLocalLdpIdentifier() {
   if (!initialized_) return;
   LdpIdentifier configured = ldpSessionConfig()->localLdpIdentifier();
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   if (configured == st->localLdpIdentifier() || sessionState() != stateOperational_) return;
   Vek::Ptr<LdpSessionStatus> keep(ldpSessionStatus());
   if (!st->localLdpIdentifier().isEmpty()) {
      sendNotification(statusShutdown_, LdpNotification_, 0);
      changeSessionState(stateClosed_, localLdpIdChange);
   }
   st->localLdpIdentifierIs(configured);
}

void LdpSessionMsgSm::handleLdpSessionRole() {
   if (!initialized_ || sessionState() != stateOperational_) return;
   sendNotification(statusShutdown_, LdpNotification_, 0);
   changeSessionState(stateClosed_, localSessionRoleChange);
}

void LdpSessionMsgSm::handleLdpPeerStatus() {
   if (!initialized_ || sessionState() != stateOperational_) return;
   LdpStatusCode code = ldpSessionConfig()->ldpPeerStatusCode();
   if (!statusCodeEBitForStatusCode(code)) return;
   sendNotification(code, LdpNotification_, 0);
   changeSessionState(stateClosed_, code);
}

}  // namespace Ldp

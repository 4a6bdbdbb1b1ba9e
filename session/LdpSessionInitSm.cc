#include "session/LdpSessionInitSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionInit");
}

LdpSessionInitSm::LdpSessionInitSm(
   U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
   Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
   Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSessionSmCommon(instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus,
                        status, sessionStatistics),
     scheduler_(scheduler) {
   sessionStatusReactor_.init(this, Vek::Ptr<LdpSessionStatus const>(sessionStatus));
   sessionCommonConfigReactor_.init(this, sessionCommonConfig);
   sessionConfigReactor_.init(this, sessionConfig);
   handleInitialized();
}

void LdpSessionInitSm::handleInitialized() {
   ipTransportAddr_ = ldpSessionCommonConfig()->ipTransportAddr();
   peerIpAddr_ = ldpSessionConfig()->peerIpAddr();
   initialized_ = true;
   handleAdvDiscipline();
}

void LdpSessionInitSm::ldpPduReactRxPamIs(Vek::Ptr<Nolu::Pam const> const& p) {
   if (ldpPduReactRxPam_.notifier() == p) return;
   ldpPduReactRxPam_.assign(this, p, &LdpSessionInitSm::handlePamReadable);
}

void LdpSessionInitSm::ldpPduSend(PktPtr const& pkt) {
   LDP_TRACE(th, 7, "ldpPduSend " << ldpSessionId() << " " << pkt->dataBytes() << " bytes");
   if (ldpPduTxPam_) ldpPduTxPam_->txPktIs(pkt);
}

void LdpSessionInitSm::sendNotification(LdpStatusCode code, LdpMsgType refType, U32 refId) {
   // Every Notification sent during initialisation goes with the end of the
   // session: it is fatal whatever its code.
   PktPtr pkt = newPkt();
   genLdpNotificationMsg(pkt, false, code, refType, refId, true);
   ldpPduSend(pkt);
}

void LdpSessionInitSm::handleSessionState() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpSessionInitSm::handleSessionState " << ldpSessionId() << " "
                                                            << sessionStateStr(sessionState()));
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   switch (sessionState()) {
   case stateUnknown_:
   case stateNonExistent_:
   case stateOperational_:
   case stateClosed_: ldpPduReactRxPamIs(nullptr); break;
   case stateInitialized_:
      VEK_ASSERT(ldpPduRxPam() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduTxPam() && "Internal Error. PAM should be valid.");
      ldpPduReactRxPamIs(ldpPduRxPam_);
      if (sessionState() == stateInitialized_) handleConnEstablished();
      break;
   case stateOpenSent_:
      VEK_ASSERT(ldpSessionConfig()->ldpSessionRole() == roleActive_);
      VEK_ASSERT(ldpPduReactRxPam() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduTxPam() && "Internal Error. PAM should be valid.");
      break;
   case stateOpenRec_:
      VEK_ASSERT(ldpPduReactRxPam() && "Internal Error. PAM should be valid.");
      VEK_ASSERT(ldpPduTxPam() && "Internal Error. PAM should be valid.");
      break;
   }
}

void LdpSessionInitSm::handleConnEstablished() {
   VEK_ASSERT(ldpPduRxPam());
   VEK_ASSERT(ldpPduReactRxPam());
   switch (ldpSessionConfig()->ldpSessionRole()) {
   case roleActive_:
      if (sessionState() == stateInitialized_) {
         PktPtr pkt = newPkt();
         genLdpInitMsg(pkt, false);
         ldpPduSend(pkt);
         if (sessionState() == stateInitialized_) changeSessionState(stateOpenSent_, statusSuccess_);
      } else {
         changeSessionState(stateClosed_, statusUnknownMsgType_);
      }
      break;
   case roleUnknown_:
      // A channel is only given to a session with a role; the role may have
      // been lost since, and the session then goes down like on a role change.
      LDP_TRACE(th, 3, "   Unknown session role on an established connection");
      changeSessionState(stateClosed_, localSessionRoleChange);
      break;
   case rolePassive_: break;
   }
}

void LdpSessionInitSm::handlePamReadable() {
   if (!initialized_ || !ldpPduReactRxPam_ || !inInitStates()) return;
   rxMsgUnitFrom(ldpPduRxPam_.ptr(), ldpPduRxUnitPipe_);
}

void LdpSessionInitSm::handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpInitMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   LDP_TRACE(th, 7, parser->stringValue());
   LdpStatusCode status = parseLdpInitMsg(parser);
   if (status != statusSuccess_) {
      handleRxLdpMsgError(pkt, offset, status);
      return;
   }
   PktPtr out = newPkt();
   SessionState st = sessionState();
   switch (ldpSessionConfig()->ldpSessionRole()) {
   case rolePassive_:
      if (st != stateInitialized_) return handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
      genLdpInitMsg(out, true);
      ldpPduSend(out);
      if (sessionState() == stateInitialized_) changeSessionState(stateOpenRec_, statusSuccess_);
      break;
   case roleActive_:
      if (st != stateOpenSent_) return handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
      genLdpKeepAliveMsg(out);
      ldpPduSend(out);
      if (sessionState() == stateOpenSent_) changeSessionState(stateOpenRec_, statusSuccess_);
      break;
   case roleUnknown_:
      // The role went away while the connection was being set up.
      changeSessionState(stateClosed_, localSessionRoleChange);
      break;
   }
}

LdpStatusCode LdpSessionInitSm::parseLdpInitMsg(Vek::Ptr<LdpInitMsgParser> const& parser) {
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   LdpIdentifier receiver = parser->receiverLdpId();
   if (receiver != st->localLdpIdentifier()) {
      LDP_TRACE(th, 3, "   Rejected. Receiver LDP ID mismatch "
                          << "   Expected: " << st->localLdpIdentifier()
                          << " Received: " << receiver);
      return statusSessionRejectedNoHello_;
   }
   U16 peerKeepAlive = parser->keepAliveTime();
   if (peerKeepAlive == 0) peerKeepAlive = LdpProtoParam::defaultPeerKeepAliveTime();
   st->peerKeepAliveTimeIs(peerKeepAlive);
   st->peerKeepAliveTxIntervalIs(U16(peerKeepAlive / 3));
   U16 oper = std::min<U16>(ldpSessionConfig()->keepAliveTime(), peerKeepAlive);
   st->operKeepAliveTimeIs(oper);
   handleCapabilities(parser);
   U16 txInterval = U16(oper / 3);
   st->operKeepAliveTxIntervalIs(txInterval < 2 ? 1 : txInterval);
   U16 peerMax = parser->maxPduLength();
   if (peerMax <= LdpProtoParam::maxPduLengthDefaultLimit())
      peerMax = U16(LdpProtoParam::defaultMaxPduLength());
   st->peerMaxPduLengthIs(peerMax);
   st->operMaxPduLengthIs(std::min<U16>(ldpSessionConfig()->maxPduLength(), peerMax));
   st->peerLabelAdvDsplIs(parser->advDiscipline() ? downstreamOnDemandAdvDspl_
                                                  : unsolicitedAdvDspl_);
   return statusSuccess_;
}

void LdpSessionInitSm::handleAdvDiscipline() {
   if (!initialized_) return;
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   switch (ldpSessionCommonConfig()->ldpLabelAdvDspl()) {
   case unsolicitedAdvDspl_: st->operLabelAdvDsplIs(unsolicitedAdvDspl_); break;
   case downstreamOnDemandAdvDspl_:
      if (protoConfig()->ldpProtoParamSetting().hasFlag(
             LdpProtoParamSetting::keepDownstreamOnDemand))
         st->operLabelAdvDsplIs(downstreamOnDemandAdvDspl_);
      else if (st->peerLabelAdvDspl() == unsolicitedAdvDspl_)
         st->operLabelAdvDsplIs(unsolicitedAdvDspl_);
      else st->operLabelAdvDsplIs(downstreamOnDemandAdvDspl_);
      break;
   default:
      // Configuration without a known discipline: nothing is agreed from it.
      LDP_TRACE(th, 3, "   Unknown label advertisement discipline in the configuration");
      break;
   }
}

void LdpSessionInitSm::handleRxLdpKeepAliveMsg(PktPtr const& pkt, U32 offset) {
   switch (sessionState()) {
   case stateOpenRec_: changeSessionState(stateOperational_, statusSuccess_); break;
   case stateInitialized_:
   case stateOpenSent_: handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_); break;
   default:
      // Only the initialisation states are read here; the operational ones
      // belong to the message machine.
      LDP_TRACE(th, 3, "   KeepAlive ignored in " << sessionStateStr(sessionState()));
      break;
   }
}

void LdpSessionInitSm::handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpNotificationMsgParserFactory(pkt, offset);
   if (!parser->validMsg() || !parser->statusTlv()) {
      handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
      return;
   }
   LDP_TRACE(th, 5, parser->stringValue());
   ldpMsgNotificationRxCountInc(sessionStatistics().ptr(), parser->statusData());
   if (!parser->statusEBit()) {
      // An advisory Notification tells of something the peer noticed; the
      // initialisation goes on.
      LDP_TRACE(th, 5, "   Advisory Notification during initialisation: "
                          << parser->statusData());
      return;
   }
   if (parser->statusData() == statusShutdown_)
      sendNotification(statusShutdown_, parser->msgType(), parser->msgId());
   changeSessionState(stateClosed_, parser->statusData());
}

void LdpSessionInitSm::handleRxLdpMsgError(PktPtr const& pkt, U32 offset, LdpStatusCode code) {
   LdpMsgType type;
   U32 id;
   refMsgAt(pkt, offset, &type, &id);
   LDP_TRACE(th, 3, "   Receive error " << code << " on message " << U16(type) << " id " << id);
   sendNotification(code, type, id);
   changeSessionState(stateClosed_, code);
}

void LdpSessionInitSm::handleLdpSessionRole() {
   if (!initialized_ || !inInitStates()) return;
   sendNotification(statusShutdown_, LdpNotification_, 0);
   changeSessionState(stateClosed_, localSessionRoleChange);
}

void LdpSessionInitSm::handleLdpPeerStatus() {
   if (!initialized_ || !inInitStates()) return;
   LdpStatusCode code = ldpSessionConfig()->ldpPeerStatusCode();
   if (!statusCodeEBitForStatusCode(code)) return;
   sendNotification(code, LdpNotification_, 0);
   changeSessionState(stateClosed_, code);
}

void LdpSessionInitSm::handleIpTransportAddr() {
   if (!initialized_) return;
   if (!updateIpTransportAddr()) return;
   SessionState s = sessionState();
   if (s >= stateNonExistent_ && s <= stateOpenRec_) changeSessionState(stateClosed_, localAddrChange);
}

void LdpSessionInitSm::handleLocalLdpIdentifier() {
   if (!initialized_) return;
   LdpIdentifier configured = ldpSessionConfig()->localLdpIdentifier();
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   SessionState s = sessionState();
   if (configured == st->localLdpIdentifier() || s < stateNonExistent_ || s > stateOpenRec_) return;
   Vek::Ptr<LdpSessionStatus> keep(ldpSessionStatus());
   if (!st->localLdpIdentifier().isEmpty()) changeSessionState(stateClosed_, localLdpIdChange);
   st->localLdpIdentifierIs(configured);
}

}  // namespace Ldp

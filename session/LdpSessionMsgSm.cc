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
   Vek::Ptr<LdpMsgPipe> const& ldpFecSessionMsgPipe,
   Vek::Ptr<PwFecSessionMsgPipeColl const> const& pwFecSessionMsgPipeColl,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSessionSmCommon(instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus,
                        status, sessionStatistics),
     localPwFecSessionConfigColl_(localPwFecSessionConfigColl),
     remotePwFecSessionConfigColl_(remotePwFecSessionConfigColl),
     ldpFecConfigColl_(ldpFecConfigColl), ldpFecMsgPipeColl_(ldpFecMsgPipeColl),
     ldpFecSessionMsgPipe_(ldpFecSessionMsgPipe),
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
   heldMsgTimerTask_ =
      Hesk::timerTaskIs(this, &LdpSessionMsgSm::handleHeldMsgTimerTask, scheduler_, 2,
                        "SessionMsg-" + ldpSessionId().ldpIdentifier().stringValue() + "-held");
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
      heldFecMsgDelAll();
      break;
   default:
      ldpPduReactRxPamIs(nullptr);
      resetKeepAliveTimerTask(false);
      heldFecMsgDelAll();
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
   if (!isRxReader()) return;
   rxMsgUnitFrom(ldpPduRxPam_.ptr(), ldpPduRxUnitPipe_);
}

void LdpSessionMsgSm::handleRxLdpMsgUnit(PktPtr const& pkt, LdpPduParser const& pdu, U32 index) {
   LdpSessionSmCommon::handleRxLdpMsgUnit(pkt, pdu, index);
   // Any PDU is a sign of life, whatever it held.
   if (index == 0 && sessionState() == stateOperational_) resetKeepAliveTimerTask(true);
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
   // Counted with every message; the hold timer is refreshed by any PDU.
}

void LdpSessionMsgSm::handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) {
   // An opening message on an open session: the peer and this LSR no longer
   // agree on the session, which therefore ends, and the Notification says so.
   LdpMsgType type;
   U32 id;
   refMsgAt(pkt, offset, &type, &id);
   LDP_TRACE(th, 3, "   Unexpected message " << U16(type) << " id " << id << " ends the session");
   PktPtr out = newPkt();
   genLdpNotificationMsg(out, false, statusUnknownMsgType_, type, id, true);
   ldpPduSend(out);
   sessionStatistics()->ldpPduRxErrorCountInc(1);
   changeSessionState(stateClosed_, statusUnknownMsgType_);
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

Vek::Ptr<LdpMsg> LdpSessionMsgSm::rxLdpMsg(Vek::Ptr<LdpMsgParser const> const& parser,
                                           U32 index) const {
   auto m = ldpMsgFactory(ldpSessionId().ldpIdentifier(), parser->pkt(), parser->offset());
   m->parserIs(parser);
   m->fecElementIndexIs(U16(index));
   return m;
}

void LdpSessionMsgSm::handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) {
   Vek::Ptr<LdpNotificationMsgParser> parser = ldpNotificationMsgParserFactory(pkt, offset);
   if (!parser->validMsg() || !parser->statusTlv()) {
      handleRxLdpMsgError(pkt, offset,
                          parser->validMsg() ? statusMissingMsgParams_ : parser->statusCode());
      return;
   }
   LDP_TRACE(th, 5, parser->stringValue());
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
      // Who sent the message that the Notification is about; a record whose
      // validity flag is clear counts as none.
      LdpSessionStatistics* stats = sessionStatistics().ptr();
      if (auto const* info = stats->ldpMsgIdFecMappingInfoFind(id)) {
         if (info->valid && ldpFecMsgPipeColl_) {
            // A copy: the record's storage may move once reactors run below.
            Mpls::FwdEqvClass const fec = info->fec;
            pipe = ldpFecMsgPipeColl_->msgPipe(fec);
            // A FEC that the peer never spoke of has no pipe yet: its answer
            // to our message makes the peer one that did.
            LdpFecConfigColl::FecConfigRef fecConfig;
            if (ldpFecConfigColl_) fecConfig = ldpFecConfigColl_->fecConfig(fec);
            if (!pipe && fecConfig && !fecConfig->sessionRxReqTimeHas(ldpSessionId())) {
               fecConfig->sessionRxReqTimeIs(ldpSessionId(), Vek::System::currentTime());
               fecConfig = {};
               pipe = ldpFecMsgPipeColl_->msgPipe(fec);
            }
         }
      } else if (auto const* local = stats->pwLocalMsgIdInfoFind(id)) {
         if (local->valid && pwFecSessionMsgPipeColl_)
            pipe = pwFecSessionMsgPipeColl_->localMsgPipe(
               PwFecSessionId(local->fec, ldpSessionId()));
      } else if (auto const* remote = stats->pwRemoteMsgIdInfoFind(id)) {
         if (remote->valid && pwFecSessionMsgPipeColl_)
            pipe = pwFecSessionMsgPipeColl_->remoteMsgPipe(
               PwFecSessionId(remote->fec, ldpSessionId()));
      }
   }
   if (pipe) pipe->txMsgIs(rxLdpMsg(parser, 0));
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
   handleRxPwFec(parser, 0, LdpNotification_, fec->pwFwdEqvCls(0));
}

void LdpSessionMsgSm::handleRxPwFec(Vek::Ptr<LdpMsgParser const> const& parser, U32 index,
                                    LdpMsgType type, PwFwdEqvClassInfo const& info) {
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
         if (it.value()) it.value()->txMsgIs(rxLdpMsg(parser, index));
         else if (remote) LDP_TRACE(th, 5, "      PwFecSessionId with no remoteMsgPipe: " << id);
         else LDP_TRACE(th, 5, "      PwFecSessionId with no localMsgPipe: " << id);
      }
      return;
   }
   PwFecSessionId id(pw, ldpSessionId());
   if (type == LdpLabelRelease_ && parser->genLabelTlv())
      id = releasedPwFecSession(id, parser->genLabelTlv()->label());
   if (type == LdpLabelMapping_ || type == LdpLabelRequest_) {
      getOrCreatePwFecSessionConfig(info, id, context);
   } else if (type != LdpNotification_) {
      // Withdraw, Release and Abort speak only of pseudowires that exist.
      auto& coll = remote ? remotePwFecSessionConfigColl_ : localPwFecSessionConfigColl_;
      if (!coll || !coll->fecSessionConfig(id)) {
         LDP_TRACE(th, 5, "   " << ldpMsgTypeStr(type) << " for unknown pseudowire " << id);
         if (type == LdpLabelWithdraw_) sendReleaseForUnknownFec(*parser, nullptr, &info);
         return;
      }
   }
   Vek::Ptr<LdpMsgPipe> pipe = remote ? pwFecSessionMsgPipeColl_->remoteMsgPipe(id)
                                      : pwFecSessionMsgPipeColl_->localMsgPipe(id);
   if (pipe) pipe->txMsgIs(rxLdpMsg(parser, index));
   else if (remote) LDP_TRACE(th, 5, "      PwFecSessionId with no remoteMsgPipe: " << id);
   else LDP_TRACE(th, 5, "      PwFecSessionId with no localMsgPipe: " << id);
}

// A peer's Release may name the pseudowire's FEC as it is now while it
// answers our Withdraw of the label under the FEC that the pseudowire had
// before (another control word or PW type): it goes to the FEC session whose
// label it releases.
PwFecSessionId LdpSessionMsgSm::releasedPwFecSession(PwFecSessionId const& named,
                                                     Nolu::MplsLabel label) const {
   auto const* coll = status()->localPwFecSessionStatusColl().ptr();
   if (!coll) return named;
   if (auto st = coll->fecSessionStatus(named)) {
      if (st->labelWithdrawOutstanding() == label || st->labelMappingSent() == label) return named;
   }
   // The FEC sessions of this pw-id to the peer, from the index: a peer's
   // Releases cost no walk over every pseudowire.
   auto const* index = status()->index().ptr();
   auto info = index ? index->pwKeyToPwFecSessionInfo(Pseudowire::PseudowireLdpRequestKey(
                          ldpSessionStatus()->peerIpAddr(), named.fec().pwId()))
                     : nullptr;
   if (!info) return named;
   for (auto it = info->localStatusIter(); it; ++it) {
      PwFecSessionId const& id = it.key();
      if (id.sessionId() != named.sessionId() || id.fec().groupId() != named.fec().groupId())
         continue;
      if (it.value() && it.value()->labelWithdrawOutstanding() == label) {
         LDP_TRACE(th, 5, "   Release of " << label << " named " << named << ", answers " << id);
         return id;
      }
   }
   return named;
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
   // The one parse of the message: every reader downstream gets it with the
   // message, together with the FEC element it is handed on for.
   Vek::Ptr<LdpMsgParser const> parser = ldpMsgParserGet(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   LdpFecTlvParser const* fec = parser->ldpFecTlvParser();
   if (!fec) return;
   // This LSR distributes labels for IPv4 only: a FEC of another family gets
   // Unsupported Address Family and its message is not processed, so that
   // nothing is kept of it.
   for (U32 i = 0; i < fec->fecElementNum(); ++i) {
      U16 family = fec->fecElementFamily(i);
      if (family != 0 && family != 1) {
         handleRxLdpMsgError(pkt, offset, statusUnsupportedAddrFamily_);
         return;
      }
   }
   for (U32 i = 0; i < fec->fecElementNum(); ++i) {
      switch (fec->fecElementType(i)) {
      case prefixElement_:
      case hostAddrElement_: handleRxFec(parser, i, type, fec->fwdEqvCls(i)); break;
      case wildcardElement_:
         // Every FEC of the session: the FEC sessions walk them, once, and
         // only a Withdraw or a Release may speak of them all.
         if (type != LdpLabelWithdraw_ && type != LdpLabelRelease_) {
            LDP_TRACE(th, 3, "   Wildcard FEC in " << ldpMsgTypeStr(type) << " ignored");
            break;
         }
         LDP_TRACE(th, 7, "   Processing wildcard FEC");
         if (ldpFecSessionMsgPipe_) ldpFecSessionMsgPipe_->txMsgIs(rxLdpMsg(parser, i));
         break;
      case pwIdElement_:
         LDP_TRACE(th, 7,
                   "   Processing Pseudowire FEC: " << fec->pwFwdEqvCls(i).fwdEqvClass().pwId());
         handleRxPwFec(parser, i, type, fec->pwFwdEqvCls(i));
         break;
      default:
         // The parser admits only the elements above; anything else would
         // be its fault, and is dropped here rather than trusted.
         LDP_TRACE(th, 1, "   Unexpected FEC element " << U16(fec->fecElementType(i)));
         break;
      }
   }
}

void LdpSessionMsgSm::handleRxFec(Vek::Ptr<LdpMsgParser const> const& parser, U32 index,
                                  LdpMsgType type, Mpls::FwdEqvClass const& fec) {
   LDP_TRACE(th, 7, "   Processing FEC: " << fec.stringValue());
   if (!ldpFecConfigColl_) return;
   // The FEC's pipe is looked up first, independently of its entry, so that
   // the two look-ups in large tables overlap.
   Vek::Ptr<LdpMsgPipe> pipe = ldpFecMsgPipeColl_ ? ldpFecMsgPipeColl_->msgPipe(fec) : nullptr;
   LdpFecConfigColl::FecConfigRef fecConfig;
   if (type == LdpLabelMapping_ || type == LdpLabelRequest_) {
      // A peer's mapping or request makes the FEC known here.
      fecConfig = getOrCreateLdpFecConfig(fec);
   } else {
      // A Withdraw, Release or Abort only speaks of what exists: one for a FEC
      // that this LSR never knew leaves no state behind.
      fecConfig = ldpFecConfigColl_->fecConfig(fec);
      if (!fecConfig) {
         LDP_TRACE(th, 5, "   " << ldpMsgTypeStr(type) << " for unknown FEC " << fec.stringValue());
         if (type == LdpLabelWithdraw_) sendReleaseForUnknownFec(*parser, &fec, nullptr);
         return;
      }
   }
   LdpSessionId const& peer = ldpSessionId();
   if (!fecConfig->sessionRxReqTimeHas(peer)) {
      fecConfig->sessionRxReqTimeIs(peer, Vek::System::currentTime());
      // The FEC machinery may have made (or dropped) the pipe on hearing of it.
      pipe = ldpFecMsgPipeColl_ ? ldpFecMsgPipeColl_->msgPipe(fec) : nullptr;
   }
   auto msg = rxLdpMsg(parser, index);
   // Behind messages that already wait for the FEC's pipe, or for a pipe
   // that is not there yet: the message waits.
   if (!held_.empty() && held_.contains(fec)) return holdFecMsg(fec, msg);
   if (pipe) pipe->txMsgIs(msg);
   else holdFecMsg(fec, msg);
}

void LdpSessionMsgSm::sendReleaseForUnknownFec(LdpMsgParser const& withdraw,
                                               Mpls::FwdEqvClass const* fec,
                                               PwFwdEqvClassInfo const* pw) {
   // A withdrawn label is released even when nothing here used it, so that
   // the peer does not keep it waiting.
   PktPtr pkt = newPkt();
   auto gen = ldpPwMsgGenFactory(pkt);
   bool ok =
      gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), ldpSessionStatus()->localLdpIdentifier());
   ok = ok && gen->addLdpMsgHdr(false, LdpLabelRelease_, nextMessageId());
   ok = ok && (fec ? gen->addFecTlvPrefix(*fec) : gen->addFecTlvPwId(*pw, false));
   if (auto const* label = withdraw.genLabelTlv())
      ok = ok && label->label().isValid() && gen->addGenLabelTlv(false, label->label());
   if (!ok) return;
   gen->computeHdrLenChecksum();
   ldpPduSend(pkt);
}

void LdpSessionMsgSm::holdFecMsg(Mpls::FwdEqvClass const& fec, Vek::Ptr<LdpMsg> const& msg) {
   if (heldCount_ >= heldFecMsgMax) {
      LDP_TRACE(th, 3, "   No message pipe for FEC " << fec.stringValue() << ", message dropped");
      return;
   }
   LDP_TRACE(th, 5, "   No message pipe for FEC " << fec.stringValue() << " yet, message held");
   auto [v, inserted] = held_.emplace(fec);
   v->push_back(HeldMsg{msg, Vek::System::currentTime() + heldFecMsgTime});
   ++heldCount_;
   // The pipe collection is watched only while something waits for it.
   if (!fecMsgPipeCollReactor_ && ldpFecMsgPipeColl_)
      fecMsgPipeCollReactor_.assign(this, ldpFecMsgPipeColl_);
   heldMsgTimerTask_->scheduleTaskLowestDelay(heldFecMsgTime);
}

void LdpSessionMsgSm::handleMsgPipe(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto* v = held_.find(fec);
   if (!v) return;
   auto pipe = ldpFecMsgPipeColl_->msgPipe(fec);
   if (!pipe) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   std::vector<HeldMsg> msgs;
   held_.erase(fec, &msgs);
   heldCount_ -= msgs.size();
   if (held_.empty()) fecMsgPipeCollReactor_.reset();
   LDP_TRACE(th, 5, "   Message pipe for FEC " << fec.stringValue() << ": " << msgs.size()
                                              << " held messages go in");
   for (auto& h : msgs) pipe->txMsgIs(h.msg);
}

void LdpSessionMsgSm::handleHeldMsgTimerTask() {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   Vek::Seconds next = Vek::infinity;
   std::vector<Mpls::FwdEqvClass> gone;
   for (auto it = held_.begin(); it; ++it) {
      auto& v = it.value();
      std::size_t expired = 0;
      while (expired < v.size() && v[expired].due <= now) ++expired;
      if (expired) {
         LDP_TRACE(th, 3, "   No message pipe for FEC " << it.key().stringValue() << ": "
                                                      << expired << " held messages dropped");
         v.erase(v.begin(), v.begin() + long(expired));
         heldCount_ -= expired;
      }
      if (v.empty()) gone.push_back(it.key());
      else next = std::min(next, v.front().due);
   }
   for (auto const& f : gone) held_.erase(f);
   if (held_.empty()) fecMsgPipeCollReactor_.reset();
   if (next != Vek::infinity) heldMsgTimerTask_->scheduleTaskDelay(next - now);
}

void LdpSessionMsgSm::heldFecMsgDelAll() {
   if (held_.empty()) return;
   LDP_TRACE(th, 5, "   " << heldCount_ << " held messages dropped with the session");
   while (!held_.empty()) held_.erase(Mpls::FwdEqvClass(held_.begin().key()));
   heldCount_ = 0;
   fecMsgPipeCollReactor_.reset();
   heldMsgTimerTask_->scheduleTaskDelay(Vek::infinity);
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
   // An empty list tells nothing new, and harms nothing.
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   for (U32 i = 0; i < parser->numAddress(); ++i) st->peerIntfIpIs(parser->address(i), true);
   st->addressMsgRcvdIs(true);
}

void LdpSessionMsgSm::handleRxLdpAddressWithdrawMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpAddressWithdrawMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   // A VPLS peer's MAC Address Withdraw has no address: it withdraws MAC
   // addresses of a VPLS instance, which this LSR does not run.
   if (parser->numAddress() == 0) {
      LDP_TRACE(th, 5, "   Address Withdraw without address ignored: " << parser->stringValue());
      return;
   }
   LdpSessionStatus* st = ldpSessionStatus().ptr();
   for (U32 i = 0; i < parser->numAddress(); ++i) st->peerIntfIpDel(parser->address(i));
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

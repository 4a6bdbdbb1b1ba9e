#include "session/LdpSessionSmCommon.h"

#include <algorithm>
#include <cstdio>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSession");
}

Vek::EventLogMsg const LDP_SESSION_UP{
   "LDP_SESSION_UP", Vek::EventLogSeverity::notice,
   "Peer LDP ID: %s, Peer IP: %a, Local LDP ID: %s, VRF: %s",
   "A new TCP session has been established with the LDP peer on the given IP address in the "
   "specified VRF."};
Vek::EventLogMsg const LDP_SESSION_DOWN{
   "LDP_SESSION_DOWN", Vek::EventLogSeverity::notice,
   "Peer LDP ID: %s, Local LDP ID: %s, VRF: %s, Uptime: %s, Reason: %s",
   "The TCP session with the specified LDP peer is closed."};


PwFecMsgContext pwFecMessagecontextForMsgType(LdpMsgType type) {
   switch (type) {
   // A Request asks for our label, like Release and Abort speak of it: all
   // three go to the side that advertises it.
   case LdpLabelRequest_:
   case LdpLabelRelease_:
   case LdpLabelAbortReq_: return localPwFecMessage;
   case LdpNotification_:
   case LdpLabelMapping_:
   case LdpLabelWithdraw_: return remotePwFecMessage;
   case LdpHello_:
   case LdpInitialization_:
   case LdpKeepAlive_:
   case LdpCapability_:
   case LdpAddress_:
   case LdpAddressWithdraw_: return otherMessageContext;
   default: break;
   }
   VEK_TRACE(th, 1, " unexpected LdpMsgType: " << U16(type));
   VEK_ASSERT(!"unexpected LdpMsgType");
   return otherMessageContext;
}

void ldpMsgRxCountInc(LdpSessionStatistics* s, LdpMsgType type) {
   s->ldpMsgRxCountIs(type, s->ldpMsgRxCount(type) + 1);
}
void ldpMsgTxCountInc(LdpSessionStatistics* s, LdpMsgType type) {
   s->ldpMsgTxCountIs(type, s->ldpMsgTxCount(type) + 1);
}
void ldpMsgNotificationRxCountInc(LdpSessionStatistics* s, LdpStatusCode code) {
   s->ldpMsgNotificationRxCountIs(code, s->ldpMsgNotificationRxCount(code) + 1);
}
void ldpMsgNotificationTxCountInc(LdpSessionStatistics* s, LdpStatusCode code) {
   s->ldpMsgNotificationTxCountIs(code, s->ldpMsgNotificationTxCount(code) + 1);
}

std::string pktHexDump(Nolu::Pkt const* pkt, U32 offset) {
   std::string out;
   if (!pkt || offset > pkt->dataBytes()) return out;
   U32 n = pkt->dataBytes() - offset;
   U8 const* p = pkt->readPtr(offset);
   out.reserve(n * 4);
   char buf[5];
   for (U32 i = 0; i < n; ++i) {
      std::snprintf(buf, sizeof buf, "\\x%02x", p[i]);
      out += buf;
   }
   return out;
}

LdpSessionSmCommon::LdpSessionSmCommon(
   U32 instId, LdpSessionId const& ldpSessionId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
   Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
   Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics)
   : LdpSm(instId), ldpSessionId_(ldpSessionId), protoConfig_(Vek::validPtr(protoConfig)),
     sessionConfig_(Vek::validPtr(sessionConfig)),
     sessionCommonConfig_(Vek::validPtr(sessionCommonConfig)),
     sessionStatus_(Vek::validPtr(sessionStatus)), status_(Vek::validPtr(status)),
     sessionStatistics_(Vek::validPtr(sessionStatistics)) {}

LdpSessionSmCommon::PktPtr LdpSessionSmCommon::newPkt() {
   return Nolu::globalPktManager()->newPkt();
}

U32 LdpSessionSmCommon::nextMessageId() { return status_->statistics()->messageIdInc(1); }

void LdpSessionSmCommon::refMsgAt(PktPtr const& pkt, U32 offset, LdpMsgType* type, U32* id) {
   *type = LdpMsgTypeNone_;
   *id = 0;
   if (!pkt) return;
   U32 const hdr = LdpProtoParam::pduHeaderLength();
   if (offset < hdr) offset += hdr;
   if (U64(offset) + LdpProtoParam::msgHeaderLength() > pkt->dataBytes()) return;
   auto const* m = reinterpret_cast<LdpMsgHdr const*>(pkt->readPtr(offset));
   *type = m->type();
   *id = m->msgId();
}

bool LdpSessionSmCommon::updateIpTransportAddr() {
   auto specified = [](Nolu::IpGenAddr const& a) { return a.isV4() || a.isV6(); };
   Nolu::IpGenAddr transport = sessionCommonConfig_->ipTransportAddr();
   Nolu::IpGenAddr peer = sessionConfig_->peerIpAddr();
   bool transportChanged = specified(ipTransportAddr_) && ipTransportAddr_ != transport;
   bool peerChanged = specified(peerIpAddr_) && peerIpAddr_ != peer;
   ipTransportAddr_ = transport;
   peerIpAddr_ = peer;
   return transportChanged || peerChanged;
}

// ---- receive dispatch

void LdpSessionSmCommon::rxMsgUnitFrom(Nolu::Pam* pipe, LdpPduPamPipe* unit) {
   // The parse and the index first: taking the packet empties the pipe.
   Vek::Ptr<LdpPduParser const> pdu = unit ? unit->rxPduParser() : nullptr;
   U32 index = unit ? unit->rxMsgIndex() : 0;
   PktPtr pkt = pipe->rxPkt();
   if (!pkt) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   if (pdu) handleRxLdpMsgUnit(pkt, *pdu, index);
   else handleRxLdpPdu(pkt, 0);
}

void LdpSessionSmCommon::handleRxLdpPdu(PktPtr const& pkt, U32 offset) {
   auto pdu = ldpPduParserFactory(pkt, offset);
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   U32 units = pdu->validLdpPdu() ? std::max<U32>(pdu->msgNum(), 1) : 1;
   for (U32 i = 0; i < units && isRxReader(); ++i) handleRxLdpMsgUnit(pkt, *pdu, i);
}

void LdpSessionSmCommon::handleRxLdpMsgUnit(PktPtr const& pkt, LdpPduParser const& pdu,
                                            U32 index) {
   if (index == 0) {
      LDP_TRACE(th, 7, "LdpPdu " << pkt->dataBytes() << " bytes rcvd for " << ldpSessionId_);
      LDP_TRACE(th, 9, "   LDP PDU Rx Dump: " << pktHexDump(pkt.ptr(), pdu.offset()));
      LDP_TRACE(th, 7, pdu.stringValue());
      if (!pdu.validLdpPdu()) {
         LDP_TRACE(th, 3, "   LDP PDU Invalid, reason: " << pdu.reason());
         handleRxLdpMsgError(pkt, pdu.offset(), pdu.statusCode());
         return;
      }
      if (pdu.ldpIdentifier() != ldpSessionId_.ldpIdentifier()) {
         LDP_TRACE(th, 3, "   LDP PDU LdpId mismatch");
         handleRxLdpMsgError(pkt, pdu.offset(), statusBadLdpIdentifier_);
         return;
      }
   }
   if (index >= pdu.msgNum()) return;
   SessionState st = sessionState();
   if (st == stateNonExistent_ || st == stateClosed_) {
      LDP_TRACE(th, 5, "   LDP PDU dropped because of sessionState " << sessionStateStr(st));
      return;
   }
   U32 msgOffset = pdu.msgOffset(index);
   LdpMsgHdr const* hdr = pdu.msgHdr(index);
   LdpMsgType type = hdr->type();
   // Every message is counted here, once, whichever machine handles it.
   switch (type) {
   case LdpNotification_:
   case LdpHello_:
   case LdpInitialization_:
   case LdpKeepAlive_:
   case LdpCapability_:
   case LdpAddress_:
   case LdpAddressWithdraw_:
   case LdpLabelMapping_:
   case LdpLabelRequest_:
   case LdpLabelWithdraw_:
   case LdpLabelRelease_:
   case LdpLabelAbortReq_: ldpMsgRxCountInc(sessionStatistics_.ptr(), type); break;
   default: break;
   }
   switch (type) {
   case LdpNotification_: handleRxLdpNotificationMsg(pkt, msgOffset); break;
   case LdpHello_: handleRxLdpHelloMsg(pkt, msgOffset); break;
   case LdpInitialization_: handleRxLdpInitMsg(pkt, msgOffset); break;
   case LdpKeepAlive_: handleRxLdpKeepAliveMsg(pkt, msgOffset); break;
   case LdpCapability_: handleRxLdpCapabilityMsg(pkt, msgOffset); break;
   case LdpAddress_: handleRxLdpAddressMsg(pkt, msgOffset); break;
   case LdpAddressWithdraw_: handleRxLdpAddressWithdrawMsg(pkt, msgOffset); break;
   case LdpLabelMapping_: handleRxLdpLabelMappingMsg(pkt, msgOffset); break;
   case LdpLabelRequest_: handleRxLdpLabelReqMsg(pkt, msgOffset); break;
   case LdpLabelWithdraw_: handleRxLdpLabelWithdrawMsg(pkt, msgOffset); break;
   case LdpLabelRelease_: handleRxLdpLabelReleaseMsg(pkt, msgOffset); break;
   case LdpLabelAbortReq_: handleRxLdpLabelAbortReqMsg(pkt, msgOffset); break;
   default:
      // An unknown type: answered, naming the message itself, unless the
      // sender marked it to be ignored.
      if (!hdr->uBit()) handleRxLdpMsgError(pkt, msgOffset, statusUnknownMsgType_);
      else LDP_TRACE(th, 5, "   Unknown message type skipped: " << U16(type));
      break;
   }
}

void LdpSessionSmCommon::handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpHelloMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpKeepAliveMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpAddressMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpAddressWithdrawMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpLabelMappingMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpLabelReqMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpLabelWithdrawMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpLabelReleaseMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}
void LdpSessionSmCommon::handleRxLdpLabelAbortReqMsg(PktPtr const& pkt, U32 offset) {
   handleRxLdpMsgError(pkt, offset, statusUnknownMsgType_);
}

void LdpSessionSmCommon::handleRxLdpMsgError(PktPtr const&, U32, LdpStatusCode) {
   VEK_ASSERT(false && "function must be implemented by derived class");
}

void LdpSessionSmCommon::handleRxLdpCapabilityMsg(PktPtr const& pkt, U32 offset) {
   auto parser = ldpCapabilityMsgParserFactory(pkt, offset);
   if (!parser->validMsg()) {
      handleRxLdpMsgError(pkt, offset, parser->statusCode());
      return;
   }
   LDP_TRACE(th, 7, parser->stringValue());
   handleCapabilities(parser);
}

void LdpSessionSmCommon::handleCapabilities(Vek::Ptr<LdpCapabilityParser> const& parser) {
   for (U32 i = 0; i < parser->capabilityTlvNum(); ++i) {
      LdpTlvType type = parser->capabilityTlv(i)->type();
      if (parser->capabilityAnnounced(i)) sessionStatus_->peerCapabilityIs(type, true);
      else sessionStatus_->peerCapabilityDel(type);
   }
}

// ---- the session state

void LdpSessionSmCommon::changeSessionState(SessionState state, LdpStatusCode code) {
   LdpSessionStatus* st = sessionStatus_.ptr();
   SessionState old = st->sessionState();
   LDP_TRACE(th, 3, " State change: " << sessionStateStr(old) << " --> " << sessionStateStr(state)
                                      << ", code: " << code);
   Vek::Ptr<LdpSessionStatus> keep(sessionStatus_);
   Vek::Seconds now = Vek::System::currentTimeUtc();
   LdpStatusCode effective = code;
   if (state == old && U32(code) <= U32(st->code())) effective = st->code();
   else st->codeIs(code);

   Vek::String reason;
   if (state == stateNonExistent_) reason = sessionStateStrForStatusCode(localReasonNonExistent);
   else if (state == stateClosed_) reason = sessionStateStrForStatusCode(st->code());
   st->sessionStateReasonIs(reason);

   if (state != old) {
      std::string vrf = protoConfig_->vrfName();
      if (vrf.empty()) vrf = "default";
      std::string peerId = ldpSessionId_.ldpIdentifier().stringValue();
      std::string localId = st->localLdpIdentifier().stringValue();
      if (state == stateOperational_) {
         Vek::eventLog(LDP_SESSION_UP, {peerId, st->peerIpAddr().stringValue(), localId, vrf});
      } else if (state == stateClosed_) {
         std::string uptime = "N/A";
         if (st->sessionUptime() != 0.0) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%.1f seconds", now - st->sessionUptime());
            uptime = buf;
         }
         Vek::eventLog(LDP_SESSION_DOWN, {peerId, localId, vrf, uptime, reason});
      }
      st->sessionStateLastChangeIs(now);
   }
   if (state == stateOperational_ && old != stateOperational_) st->sessionUptimeIs(now);
   else if (state != stateOperational_) st->sessionUptimeIs(0.0);

   LdpSessionStateLogEntry entry;
   entry.time = now;
   entry.sessionState = U8(state);
   entry.code = effective;
   entry.reason = reason;
   st->addSessionStateLogEntry(entry);
   st->sessionStateIs(state);
}

// ---- messages built here

void LdpSessionSmCommon::setPacketBufferSize() {
   Nolu::PktManager* m = Nolu::globalPktManager();
   if (m->defaultBufferSize() < 9601) m->defaultBufferSizeIs(9600);
}

void LdpSessionSmCommon::genLdpInitMsg(PktPtr const& pkt, bool includeKeepAlive) {
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), sessionStatus_->localLdpIdentifier());
   ok = ok && gen->addLdpMsgHdr(false, LdpInitialization_, nextMessageId());
   ok = ok && gen->addLdpCommonSessionParamTlv(
                 false, LdpProtoParam::ldpVersion(), sessionConfig_->keepAliveTime(),
                 sessionStatus_->operLabelAdvDspl() == downstreamOnDemandAdvDspl_,
                 protoConfig_->ldpLoopDetection(), 0, sessionConfig_->maxPduLength(),
                 ldpSessionId_.ldpIdentifier());
   if (includeKeepAlive) ok = ok && gen->addLdpMsgHdr(false, LdpKeepAlive_, nextMessageId());
   VEK_ASSERT(ok && "Internal Error: an Initialization message fits any packet");
   gen->computeHdrLenChecksum();
}

void LdpSessionSmCommon::genLdpKeepAliveMsg(PktPtr const& pkt) {
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), sessionStatus_->localLdpIdentifier());
   ok = ok && gen->addLdpMsgHdr(false, LdpKeepAlive_, nextMessageId());
   VEK_ASSERT(ok && "Internal Error: a KeepAlive message fits any packet");
   gen->computeHdrLenChecksum();
}

void LdpSessionSmCommon::genLdpNotificationMsg(PktPtr const& pkt, bool tlvForwardUnknown,
                                               LdpStatusCode statusCode, LdpMsgType refMsgType,
                                               U32 refMsgId) {
   LdpStatusCode wire = isLocalStatusCode(statusCode) ? statusInternalError_ : statusCode;
   genLdpNotificationMsg(pkt, tlvForwardUnknown, statusCode, refMsgType, refMsgId,
                         statusCodeEBitForStatusCode(wire));
}

void LdpSessionSmCommon::genLdpNotificationMsg(PktPtr const& pkt, bool tlvForwardUnknown,
                                               LdpStatusCode statusCode, LdpMsgType refMsgType,
                                               U32 refMsgId, bool eBit) {
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), sessionStatus_->localLdpIdentifier());
   ok = ok && gen->addLdpMsgHdr(tlvForwardUnknown, LdpNotification_, nextMessageId());
   // An internal code never goes on the wire; a Notification for one says
   // only that something went wrong here.
   LdpStatusCode wire = isLocalStatusCode(statusCode) ? statusInternalError_ : statusCode;
   ok = ok && gen->addStatusTlv(false, tlvForwardUnknown, wire, refMsgType, refMsgId, eBit);
   VEK_ASSERT(ok && "Internal Error: a Notification message fits any packet");
   gen->computeHdrLenChecksum();
}

}  // namespace Ldp

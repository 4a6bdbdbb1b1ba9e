#include "entities/Enums.h"

#include <cstdio>

namespace Ldp {

char const* ldpMsgTypeStr(LdpMsgType t) {
   switch (t) {
    case LdpMsgTypeNone_: return "LdpMsgTypeNone";
    case LdpNotification_: return "LdpNotification";
    case LdpHello_: return "LdpHello";
    case LdpInitialization_: return "LdpInitialization";
    case LdpKeepAlive_: return "LdpKeepAlive";
    case LdpCapability_: return "LdpCapability";
    case LdpAddress_: return "LdpAddress";
    case LdpAddressWithdraw_: return "LdpAddressWithdraw";
    case LdpLabelMapping_: return "LdpLabelMapping";
    case LdpLabelRequest_: return "LdpLabelRequest";
    case LdpLabelWithdraw_: return "LdpLabelWithdraw";
    case LdpLabelRelease_: return "LdpLabelRelease";
    case LdpLabelAbortReq_: return "LdpLabelAbortReq";
   }
   return nullptr;
}

bool isKnownLdpMsgType(U16 type) {
   return type != LdpMsgTypeNone_ && ldpMsgTypeStr(LdpMsgType(type)) != nullptr;
}

namespace {

// Prints the enumerator's name, or the number when the value has none.
template <class E>
std::ostream& printEnum(std::ostream& os, char const* name, E v, char const* fmt) {
   if (name) return os << name;
   char buf[24];
   std::snprintf(buf, sizeof(buf), fmt, unsigned(v));
   return os << buf;
}

}  // namespace

std::ostream& operator<<(std::ostream& os, LdpMsgType t) {
   return printEnum(os, ldpMsgTypeStr(t), t, "0x%04x");
}

char const* ldpTlvTypeStr(LdpTlvType t) {
   switch (t) {
    case tlvNone_: return "tlvNone";
    case tlvFec_: return "tlvFec";
    case tlvAddressList_: return "tlvAddressList";
    case tlvHopCount_: return "tlvHopCount";
    case tlvPathVector_: return "tlvPathVector";
    case tlvGenericLabel_: return "tlvGenericLabel";
    case tlvAtmLabel_: return "tlvAtmLabel";
    case tlvFrameRelayLabel_: return "tlvFrameRelayLabel";
    case tlvStatus_: return "tlvStatus";
    case tlvExtendedStatus_: return "tlvExtendedStatus";
    case tlvReturnedPdu_: return "tlvReturnedPdu";
    case tlvReturnedMsg_: return "tlvReturnedMsg";
    case tlvCommonHelloParam_: return "tlvCommonHelloParam";
    case tlvIpv4TransportAddr_: return "tlvIpv4TransportAddr";
    case tlvConfigSeqNum_: return "tlvConfigSeqNum";
    case tlvIpv6TransportAddr_: return "tlvIpv6TransportAddr";
    case tlvCommonSessionParam_: return "tlvCommonSessionParam";
    case tlvAtmSessionParam_: return "tlvAtmSessionParam";
    case tlvFrameRelaySessionParam_: return "tlvFrameRelaySessionParam";
    case tlvLabelRequestMsgId_: return "tlvLabelRequestMsgId";
    case tlvPwStatus_: return "tlvPwStatus";
    case tlvPwIntfParams_: return "tlvPwIntfParams";
    case tlvPwGroupId_: return "tlvPwGroupId";
   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& os, LdpTlvType t) {
   return printEnum(os, ldpTlvTypeStr(t), t, "0x%04x");
}

char const* ldpFecElementTypeStr(LdpFecElementType t) {
   switch (t) {
    case unknownElement_: return "unknownElement";
    case wildcardElement_: return "wildcardElement";
    case prefixElement_: return "prefixElement";
    case hostAddrElement_: return "hostAddrElement";
    case pwIdElement_: return "pwIdElement";
   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& os, LdpFecElementType t) {
   return printEnum(os, ldpFecElementTypeStr(t), t, "0x%02x");
}

char const* ldpPwIntfParamSubTlvTypeStr(LdpPwIntfParamSubTlvType t) {
   switch (t) {
    case pwIntfParamNone_: return "pwIntfParamNone";
    case pwIntfParamMtu_: return "pwIntfParamMtu";
    case pwIntfParamMaxAtmCells_: return "pwIntfParamMaxAtmCells";
    case pwIntfParamDescription_: return "pwIntfParamDescription";
    case pwIntfParamCepTdmPayloadBytes_: return "pwIntfParamCepTdmPayloadBytes";
    case pwIntfParamCepOptions_: return "pwIntfParamCepOptions";
    case pwIntfParamRequestedVlanId_: return "pwIntfParamRequestedVlanId";
    case pwIntfParamCepTdmBitRate_: return "pwIntfParamCepTdmBitRate";
    case pwIntfParamFrDlciLength_: return "pwIntfParamFrDlciLength";
    case pwIntfParamFragmentation_: return "pwIntfParamFragmentation";
    case pwIntfParamFcsRetention_: return "pwIntfParamFcsRetention";
    case pwIntfParamTdmOptions_: return "pwIntfParamTdmOptions";
    case pwIntfParamVccv_: return "pwIntfParamVccv";
   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& os, LdpPwIntfParamSubTlvType t) {
   return printEnum(os, ldpPwIntfParamSubTlvTypeStr(t), t, "0x%02x");
}

char const* ldpStatusCodeStr(LdpStatusCode c) {
   switch (c) {
    case statusSuccess_: return "Success";
    case statusBadLdpIdentifier_: return "Bad LDP Identifier";
    case statusBadProtocolVersion_: return "Bad Protocol Version";
    case statusBadPduLength_: return "Bad PDU Length";
    case statusUnknownMsgType_: return "Unknown Message Type";
    case statusBadMsgLength_: return "Bad Message Length";
    case statusUnknownTlv_: return "Unknown TLV";
    case statusBadTlvLength_: return "Bad TLV Length";
    case statusMalformedTlvValue_: return "Malformed TLV Value";
    case statusHoldTimerExpired_: return "Hold Timer Expired";
    case statusShutdown_: return "Shutdown";
    case statusLoopDetected_: return "Loop Detected";
    case statusUnknownFec_: return "Unknown FEC";
    case statusNoRoute_: return "No Route";
    case statusNoLabelResources_: return "No Label Resources";
    case statusLabelResourcesAvailable_: return "Label Resources Available";
    case statusSessionRejectedNoHello_: return "Session Rejected/No Hello";
    case statusSessionRejectedAdvMode_: return "Session Rejected/Parameters Advertisement Mode";
    case statusSessionRejectedMaxPduLength_: return "Session Rejected/Parameters Max PDU Length";
    case statusSessionRejectedLabelRange_: return "Session Rejected/Parameters Label Range";
    case statusKeepAliveTimerExpired_: return "KeepAlive Timer Expired";
    case statusLabelRequestAborted_: return "Label Request Aborted";
    case statusMissingMsgParams_: return "Missing Message Parameters";
    case statusUnsupportedAddrFamily_: return "Unsupported Address Family";
    case statusSessionRejectedBadKeepAlive_: return "Session Rejected/Bad KeepAlive Time";
    case statusInternalError_: return "Internal Error";
    case statusIllegalCBit_: return "Illegal C-Bit";
    case statusWrongCBit_: return "Wrong C-Bit";
    case statusIncompatibleBitRate_: return "Incompatible bit-rate";
    case statusCepTdmMisconfiguration_: return "CEP-TDM mis-configuration";
    case statusPwStatus_: return "PW Status";
    case statusUnassignedTai_: return "Unassigned/Unrecognized TAI";
    case statusGenericMisconfiguration_: return "Generic Misconfiguration Error";
    case statusLabelWithdrawPwStatusMethod_: return "Label Withdraw PW Status Method";
    case statusUnsupportedCapability_: return "Unsupported Capability";
    case localRxDropSilent: return "localRxDropSilent";
    case localReasonNonExistent: return "localReasonNonExistent";
    case localSessionInitTimeout: return "localSessionInitTimeout";
    case localSessionRoleChange: return "localSessionRoleChange";
    case localTcpConnLost: return "localTcpConnLost";
    case localAddrChange: return "localAddrChange";
    case localLdpIdChange: return "localLdpIdChange";
   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& os, LdpStatusCode c) {
   return printEnum(os, ldpStatusCodeStr(c), c, "0x%08x");
}

bool statusCodeEBitForStatusCode(LdpStatusCode code) {
   switch (code) {
    case statusBadLdpIdentifier_:
    case statusBadProtocolVersion_:
    case statusBadPduLength_:
    case statusBadMsgLength_:
    case statusBadTlvLength_:
    case statusMalformedTlvValue_:
    case statusHoldTimerExpired_:
    case statusShutdown_:
    case statusSessionRejectedNoHello_:
    case statusSessionRejectedAdvMode_:
    case statusSessionRejectedMaxPduLength_:
    case statusSessionRejectedLabelRange_:
    case statusKeepAliveTimerExpired_:
    case statusSessionRejectedBadKeepAlive_:
    case statusInternalError_:
      return true;
    default:
      return false;
   }
}

Vek::String sessionStateStrForStatusCode(LdpStatusCode code) {
   switch (code) {
    case statusSuccess_: return "";
    case localRxDropSilent: return "Receive error dropped silently";
    case localReasonNonExistent: return "Waiting for TCP connection";
    case localSessionInitTimeout: return "Session initialization timed out";
    case localSessionRoleChange: return "Session role changed";
    case localTcpConnLost: return "TCP connection lost";
    case localAddrChange: return "Transport address changed";
    case localLdpIdChange: return "Local LDP identifier changed";
    default: break;
   }
   if (char const* name = ldpStatusCodeStr(code)) return name;
   char buf[32];
   std::snprintf(buf, sizeof(buf), "Status code 0x%08x", unsigned(code));
   return buf;
}

char const* ldpLabelAdvDsplStr(LdpLabelAdvDspl d) {
   switch (d) {
    case unknownAdvDspl_: return "unknownAdvDspl";
    case unsolicitedAdvDspl_: return "unsolicitedAdvDspl";
    case downstreamOnDemandAdvDspl_: return "downstreamOnDemandAdvDspl";
   }
   return nullptr;
}

std::ostream& operator<<(std::ostream& os, LdpLabelAdvDspl d) {
   return printEnum(os, ldpLabelAdvDsplStr(d), d, "%u");
}

}  // namespace Ldp

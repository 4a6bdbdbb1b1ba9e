#pragma once
// Enumerations of the LDP wire and of the session, with their wire values,
// and the fixed protocol parameters. Each prints by name.
#include <ostream>

#include "runtime/vek/Types.h"

namespace Ldp {

// Message types, by their wire code (15 bits; the top bit is the U bit).
enum LdpMsgType : U16 {
   LdpMsgTypeNone_ = 0x0000,
   LdpNotification_ = 0x0001,
   LdpHello_ = 0x0100,
   LdpInitialization_ = 0x0200,
   LdpKeepAlive_ = 0x0201,
   LdpCapability_ = 0x0202,
   LdpAddress_ = 0x0300,
   LdpAddressWithdraw_ = 0x0301,
   LdpLabelMapping_ = 0x0400,
   LdpLabelRequest_ = 0x0401,
   LdpLabelWithdraw_ = 0x0402,
   LdpLabelRelease_ = 0x0403,
   LdpLabelAbortReq_ = 0x0404,
};
char const* ldpMsgTypeStr(LdpMsgType t);
std::ostream& operator<<(std::ostream& os, LdpMsgType t);
// True for the types that this library parses.
bool isKnownLdpMsgType(U16 type);

// TLV types, by their wire code (14 bits; the top two bits are U and F).
enum LdpTlvType : U16 {
   tlvNone_ = 0x0000,
   tlvFec_ = 0x0100,
   tlvAddressList_ = 0x0101,
   tlvHopCount_ = 0x0103,
   tlvPathVector_ = 0x0104,
   tlvGenericLabel_ = 0x0200,
   tlvAtmLabel_ = 0x0201,
   tlvFrameRelayLabel_ = 0x0202,
   tlvStatus_ = 0x0300,
   tlvExtendedStatus_ = 0x0301,
   tlvReturnedPdu_ = 0x0302,
   tlvReturnedMsg_ = 0x0303,
   tlvCommonHelloParam_ = 0x0400,
   tlvIpv4TransportAddr_ = 0x0401,
   tlvConfigSeqNum_ = 0x0402,
   tlvIpv6TransportAddr_ = 0x0403,
   tlvCommonSessionParam_ = 0x0500,
   tlvAtmSessionParam_ = 0x0501,
   tlvFrameRelaySessionParam_ = 0x0502,
   tlvLabelRequestMsgId_ = 0x0600,
   tlvPwStatus_ = 0x096A,
   tlvPwIntfParams_ = 0x096B,
   tlvPwGroupId_ = 0x096C,
};
char const* ldpTlvTypeStr(LdpTlvType t);
std::ostream& operator<<(std::ostream& os, LdpTlvType t);

// FEC element types of the FEC TLV.
enum LdpFecElementType : U8 {
   unknownElement_ = 0,
   wildcardElement_ = 1,
   prefixElement_ = 2,
   hostAddrElement_ = 3,
   pwIdElement_ = 128,
};
char const* ldpFecElementTypeStr(LdpFecElementType t);
std::ostream& operator<<(std::ostream& os, LdpFecElementType t);

// Interface parameter sub-TLVs of the PWid FEC element.
enum LdpPwIntfParamSubTlvType : U8 {
   pwIntfParamNone_ = 0x00,
   pwIntfParamMtu_ = 0x01,
   pwIntfParamMaxAtmCells_ = 0x02,
   pwIntfParamDescription_ = 0x03,
   pwIntfParamCepTdmPayloadBytes_ = 0x04,
   pwIntfParamCepOptions_ = 0x05,
   pwIntfParamRequestedVlanId_ = 0x06,
   pwIntfParamCepTdmBitRate_ = 0x07,
   pwIntfParamFrDlciLength_ = 0x08,
   pwIntfParamFragmentation_ = 0x09,
   pwIntfParamFcsRetention_ = 0x0A,
   pwIntfParamTdmOptions_ = 0x0B,
   pwIntfParamVccv_ = 0x0C,
};
char const* ldpPwIntfParamSubTlvTypeStr(LdpPwIntfParamSubTlvType t);
std::ostream& operator<<(std::ostream& os, LdpPwIntfParamSubTlvType t);

// Status codes: the status data of the Status TLV (low 30 bits of the status
// word), and with the top bit set, causes of a session closure that never go
// on the wire.
enum LdpStatusCode : U32 {
   statusSuccess_ = 0x00,
   statusBadLdpIdentifier_ = 0x01,
   statusBadProtocolVersion_ = 0x02,
   statusBadPduLength_ = 0x03,
   statusUnknownMsgType_ = 0x04,
   statusBadMsgLength_ = 0x05,
   statusUnknownTlv_ = 0x06,
   statusBadTlvLength_ = 0x07,
   statusMalformedTlvValue_ = 0x08,
   statusHoldTimerExpired_ = 0x09,
   statusShutdown_ = 0x0A,
   statusLoopDetected_ = 0x0B,
   statusUnknownFec_ = 0x0C,
   statusNoRoute_ = 0x0D,
   statusNoLabelResources_ = 0x0E,
   statusLabelResourcesAvailable_ = 0x0F,
   statusSessionRejectedNoHello_ = 0x10,
   statusSessionRejectedAdvMode_ = 0x11,
   statusSessionRejectedMaxPduLength_ = 0x12,
   statusSessionRejectedLabelRange_ = 0x13,
   statusKeepAliveTimerExpired_ = 0x14,
   statusLabelRequestAborted_ = 0x15,
   statusMissingMsgParams_ = 0x16,
   statusUnsupportedAddrFamily_ = 0x17,
   statusSessionRejectedBadKeepAlive_ = 0x18,
   statusInternalError_ = 0x19,
   statusIllegalCBit_ = 0x24,
   statusWrongCBit_ = 0x25,
   statusIncompatibleBitRate_ = 0x26,
   statusCepTdmMisconfiguration_ = 0x27,
   statusPwStatus_ = 0x28,
   statusUnassignedTai_ = 0x29,
   statusGenericMisconfiguration_ = 0x2A,
   statusLabelWithdrawPwStatusMethod_ = 0x2B,
   statusUnsupportedCapability_ = 0x2E,
   localRxDropSilent = 0x80000004,
   localReasonNonExistent = 0x80000042,
   localSessionInitTimeout = 0x80000100,
   localSessionRoleChange = 0x80000101,
   localTcpConnLost = 0x80000102,
   localAddrChange = 0x80000103,
   localLdpIdChange = 0x80000104,
};
char const* ldpStatusCodeStr(LdpStatusCode c);
std::ostream& operator<<(std::ostream& os, LdpStatusCode c);
// True for the codes that are internal to the agent.
inline bool isLocalStatusCode(LdpStatusCode c) { return c & 0x80000000u; }
// The E bit that goes with a code: true for the fatal errors, which close
// the session. Internal codes have none.
bool statusCodeEBitForStatusCode(LdpStatusCode code);
// A readable text for the reason a session is, or was put, in its state.
Vek::String sessionStateStrForStatusCode(LdpStatusCode code);

enum LdpLabelAdvDspl : U8 {
   unknownAdvDspl_ = 0,
   unsolicitedAdvDspl_ = 1,
   downstreamOnDemandAdvDspl_ = 2,
};
char const* ldpLabelAdvDsplStr(LdpLabelAdvDspl d);
std::ostream& operator<<(std::ostream& os, LdpLabelAdvDspl d);

// Fixed parameters of the protocol, and the switches of the parser.
class LdpProtoParam {
 public:
   static constexpr U16 ldpVersion() { return 1; }
   static constexpr U16 ldpPort() { return 646; }
   static constexpr U32 defaultMaxPduLength() { return 4096; }
   // A maximum PDU length proposed by a peer at or below this means the
   // default.
   static constexpr U32 maxPduLengthDefaultLimit() { return 254; }
   static constexpr U16 defaultKeepAliveTime() { return 180; }
   static constexpr U16 defaultPeerKeepAliveTime() { return 30; }
   static constexpr U16 defaultLinkHelloHoldTime() { return 15; }
   static constexpr U16 defaultTargetedHelloHoldTime() { return 45; }
   static constexpr U16 infiniteHelloHoldTime() { return 0xFFFF; }
   static constexpr U8 ldpTos() { return 192; }
   static constexpr U32 allRoutersGroup() { return 0xE0000002; }  // 224.0.0.2
   static constexpr U16 pduHeaderLength() { return 10; }
   static constexpr U16 msgHeaderLength() { return 8; }
   static constexpr U16 tlvHeaderLength() { return 4; }

   // With this switch on, the parser takes only prefix and wildcard elements
   // in a FEC TLV, and answers others with Unknown FEC.
   static bool fecTlvStrictPrefixWildcardOnlyElement() {
      return fecTlvStrictPrefixWildcardOnlyElement_;
   }
   static void fecTlvStrictPrefixWildcardOnlyElementIs(bool b) {
      fecTlvStrictPrefixWildcardOnlyElement_ = b;
   }

 private:
   static inline bool fecTlvStrictPrefixWildcardOnlyElement_ = false;
};

}  // namespace Ldp

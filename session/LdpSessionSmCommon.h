#pragma once
// What the five machines of a session share: their inputs, the receive
// dispatch of a PDU by message type, the builders of the Initialization,
// KeepAlive and Notification messages, and changeSessionState, the one writer
// of the session state.
#include "entities/LdpSm.h"
#include "entities/LdpConfig.h"
#include "entities/LdpSession.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/EventLog.h"
#include "runtime/nolu/Pam.h"
#include "runtime/vek/Reactor.h"
#include "session/LdpSessionColls.h"
#include "wire/LdpMsgGen.h"
#include "wire/LdpParser.h"

namespace Ldp {

// The event log messages of a session's life.
extern Vek::EventLogMsg const LDP_SESSION_UP;
extern Vek::EventLogMsg const LDP_SESSION_DOWN;


// Which side of a pseudowire a message concerns.
enum PwFecMsgContext : U8 {
   localPwFecMessage = 0,
   remotePwFecMessage = 1,
   otherMessageContext = 2,
};
PwFecMsgContext pwFecMessagecontextForMsgType(LdpMsgType type);

// Reactors on a packet channel that forward only one of its counters.
template <class S, void (S::*H)()>
class PamReadableReactor : public Vek::CustomReactor<Nolu::Pam::NotifieeConst, S> {
 public:
   using Vek::CustomReactor<Nolu::Pam::NotifieeConst, S>::CustomReactor;
   void onReadableCount() override {
      this->fwd([](S* s) { (s->*H)(); });
   }
};
template <class S, void (S::*H)()>
class PamWritableReactor : public Vek::CustomReactor<Nolu::Pam::NotifieeConst, S> {
 public:
   using Vek::CustomReactor<Nolu::Pam::NotifieeConst, S>::CustomReactor;
   void onWritableCount() override {
      this->fwd([](S* s) { (s->*H)(); });
   }
};

class LdpSessionSmCommon : public LdpSm {
 public:
   using PktPtr = Vek::Ptr<Nolu::Pkt>;

   LdpSessionSmCommon(U32 instId, LdpSessionId const& ldpSessionId,
                      Vek::Ptr<ProtoConfig const> const& protoConfig,
                      Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
                      Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
                      Vek::Ptr<LdpSessionStatus> const& sessionStatus,
                      Vek::Ptr<Status> const& status,
                      Vek::Ptr<LdpSessionStatistics> const& sessionStatistics);

   LdpSessionId const& ldpSessionId() const { return ldpSessionId_; }
   Vek::Ptr<ProtoConfig const> const& protoConfig() const { return protoConfig_; }
   Vek::Ptr<LdpSessionConfig const> const& ldpSessionConfig() const { return sessionConfig_; }
   Vek::Ptr<LdpSessionCommonConfig const> const& ldpSessionCommonConfig() const {
      return sessionCommonConfig_;
   }
   Vek::Ptr<LdpSessionStatus> const& ldpSessionStatus() const { return sessionStatus_; }
   Vek::Ptr<Status> const& status() const { return status_; }
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics() const { return sessionStatistics_; }
   SessionState sessionState() const { return sessionStatus_->sessionState(); }

   // The shared receive path, one message at a time: the message at index of
   // a PDU that the receive side has framed goes to the operation of its
   // type; with index 0 the PDU's own checks come first, and a PDU that fails
   // them is answered as a whole.
   virtual void handleRxLdpMsgUnit(PktPtr const& pkt, LdpPduParser const& pdu, U32 index);
   // A whole PDU that nobody has framed: each message in turn, while this
   // machine is the one that reads the session in its state.
   virtual void handleRxLdpPdu(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpHelloMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpInitMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpKeepAliveMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpAddressMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpAddressWithdrawMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpLabelMappingMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpLabelReqMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpLabelWithdrawMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpLabelReleaseMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpLabelAbortReqMsg(PktPtr const& pkt, U32 offset);
   virtual void handleRxLdpMsgError(PktPtr const& pkt, U32 offset, LdpStatusCode code);
   virtual void handleRxLdpCapabilityMsg(PktPtr const& pkt, U32 offset);

   void changeSessionState(SessionState state, LdpStatusCode code);
   void handleCapabilities(Vek::Ptr<LdpCapabilityParser> const& parser);
   static void setPacketBufferSize();
   void genLdpInitMsg(PktPtr const& pkt, bool includeKeepAlive);
   void genLdpKeepAliveMsg(PktPtr const& pkt);
   void genLdpNotificationMsg(PktPtr const& pkt, bool tlvForwardUnknown, LdpStatusCode statusCode,
                              LdpMsgType refMsgType, U32 refMsgId);
   // The same with the E bit given: set when the session is closed after the
   // Notification, clear when it stays up.
   void genLdpNotificationMsg(PktPtr const& pkt, bool tlvForwardUnknown, LdpStatusCode statusCode,
                              LdpMsgType refMsgType, U32 refMsgId, bool eBit);

 protected:
   // Whether this machine reads the session's messages in the present state.
   virtual bool isRxReader() const { return false; }
   // Takes the message unit waiting in the session's receive pipe and runs it;
   // unit is the same pipe when it hands over message units.
   void rxMsgUnitFrom(Nolu::Pam* pipe, LdpPduPamPipe* unit);
   static PktPtr newPkt();
   U32 nextMessageId();
   // The type and id of the message that an error refers to. An offset that
   // stands on the PDU header refers to the PDU's first message; whatever
   // the packet holds, nothing outside it is read.
   static void refMsgAt(PktPtr const& pkt, U32 offset, LdpMsgType* type, U32* id);
   // The change rule of the addresses: a change counts only where the stored
   // address was specified. Both copies are updated; true when either changed.
   bool updateIpTransportAddr();
   Nolu::IpGenAddr ipTransportAddr_;
   Nolu::IpGenAddr peerIpAddr_;

 private:
   LdpSessionId ldpSessionId_;
   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpSessionConfig const> sessionConfig_;
   Vek::Ptr<LdpSessionCommonConfig const> sessionCommonConfig_;
   Vek::Ptr<LdpSessionStatus> sessionStatus_;
   Vek::Ptr<Status> status_;
   Vek::Ptr<LdpSessionStatistics> sessionStatistics_;
};

// Count one message of a type, or one Notification of a status, in a
// session's statistics.
void ldpMsgRxCountInc(LdpSessionStatistics* s, LdpMsgType type);
void ldpMsgTxCountInc(LdpSessionStatistics* s, LdpMsgType type);
void ldpMsgNotificationRxCountInc(LdpSessionStatistics* s, LdpStatusCode code);
void ldpMsgNotificationTxCountInc(LdpSessionStatistics* s, LdpStatusCode code);

// The bytes of a packet as \x-escaped hexadecimal, for the PDU dumps.
std::string pktHexDump(Nolu::Pkt const* pkt, U32 offset = 0);

}  // namespace Ldp

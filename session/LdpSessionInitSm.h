#pragma once
// The session initialisation on a fresh TCP connection: who speaks first,
// what is checked in the peer's Initialization message, which session
// parameters result, and the way to stateOperational_.
#include "session/LdpSessionSmCommon.h"

namespace Ldp {

class LdpSessionInitSm : public LdpSessionSmCommon {
 public:
   static Vek::Ptr<LdpSessionInitSm> LdpSessionInitSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
      Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
      Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
      Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionInitSm>(instId, id, protoConfig, sessionConfig,
                                           sessionCommonConfig, sessionStatus, status,
                                           sessionStatistics, scheduler);
   }
   LdpSessionInitSm(U32 instId, LdpSessionId const& id,
                    Vek::Ptr<ProtoConfig const> const& protoConfig,
                    Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
                    Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
                    Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
                    Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
                    Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   // The session's receive and transmit pipes, set once after construction.
   void ldpPduRxPamIs(Vek::Ptr<Nolu::Pam> const& p) {
      ldpPduRxPam_ = p;
      ldpPduRxUnitPipe_ = dynamic_cast<LdpPduPamPipe*>(p.ptr());
   }
   void ldpPduTxPamIs(Vek::Ptr<Nolu::Pam> const& p) { ldpPduTxPam_ = p; }
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPam() const { return ldpPduRxPam_; }
   Vek::Ptr<Nolu::Pam> const& ldpPduTxPam() const { return ldpPduTxPam_; }
   Vek::Ptr<Nolu::Pam const> ldpPduReactRxPam() const { return ldpPduReactRxPam_.notifier(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handleAdvDiscipline();
   void handleIpTransportAddr();
   void handleLocalLdpIdentifier();
   void handleLdpSessionRole();
   void handleLdpPeerStatus();
   void handlePamReadable();
   void handleConnEstablished();
   // Reactor handlers of the attributes, mapped onto the handlers above.
   void handlePeerLabelAdvDspl() { handleAdvDiscipline(); }
   void handleLdpLabelAdvDspl() { handleAdvDiscipline(); }
   void handlePeerIpAddr() { handleIpTransportAddr(); }
   void handleLdpPeerStatusCode() { handleLdpPeerStatus(); }

   void handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpKeepAliveMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpMsgError(PktPtr const& pkt, U32 offset, LdpStatusCode code) override;
   // Checks the peer's Initialization and takes the session parameters from
   // it; 0 for acceptance, else the status to reject it with.
   LdpStatusCode parseLdpInitMsg(Vek::Ptr<LdpInitMsgParser> const& parser);

 protected:
   bool isRxReader() const override { return initialized_ && ldpPduReactRxPam_ && inInitStates(); }

 private:
   using RxReactor = PamReadableReactor<LdpSessionInitSm, &LdpSessionInitSm::handlePamReadable>;
   bool inInitStates() const {
      return sessionState() >= stateInitialized_ && sessionState() <= stateOpenRec_;
   }
   void ldpPduReactRxPamIs(Vek::Ptr<Nolu::Pam const> const& p);
   void ldpPduSend(PktPtr const& pkt);
   void sendNotification(LdpStatusCode code, LdpMsgType refType, U32 refId);

   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPam_;
   LdpPduPamPipe* ldpPduRxUnitPipe_ = nullptr;
   Vek::Ptr<Nolu::Pam> ldpPduTxPam_;
   Vek::Input<RxReactor> ldpPduReactRxPam_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionInitSm>> sessionStatusReactor_;
   Vek::Input<LdpSessionCommonConfig::Reactor<LdpSessionInitSm>> sessionCommonConfigReactor_;
   Vek::Input<LdpSessionConfig::Reactor<LdpSessionInitSm>> sessionConfigReactor_;
};

}  // namespace Ldp

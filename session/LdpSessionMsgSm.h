#pragma once
// The operational receive side of a session: runs the KeepAlive hold timer,
// keeps the peer's address table, and hands every label message to the
// message pipe of the FEC or pseudowire FEC session that it concerns; a
// Withdraw or Release of the Wildcard FEC goes once to the FEC sessions' pipe.
#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpPw.h"
#include "session/LdpSessionSmCommon.h"

namespace Ldp {

class LdpSessionMsgSm : public LdpSessionSmCommon {
 public:
   static Vek::Ptr<LdpSessionMsgSm> LdpSessionMsgSmIs(
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
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionMsgSm>(
         instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus, status,
         sessionStatistics, localPwFecSessionConfigColl, remotePwFecSessionConfigColl,
         ldpFecConfigColl, ldpFecMsgPipeColl, ldpFecSessionMsgPipe, pwFecSessionMsgPipeColl,
         scheduler);
   }
   LdpSessionMsgSm(U32 instId, LdpSessionId const& id,
                   Vek::Ptr<ProtoConfig const> const& protoConfig,
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
                   Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   void ldpPduRxPamIs(Vek::Ptr<Nolu::Pam> const& p) {
      ldpPduRxPam_ = p;
      ldpPduRxUnitPipe_ = dynamic_cast<LdpPduPamPipe*>(p.ptr());
   }
   void ldpPduTxPamIs(Vek::Ptr<Nolu::Pam> const& p) { ldpPduTxPam_ = p; }
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPam() const { return ldpPduRxPam_; }
   Vek::Ptr<Nolu::Pam> const& ldpPduTxPam() const { return ldpPduTxPam_; }
   Hesk::TimerTask* keepAliveTimerTask() const { return keepAliveTimerTask_.ptr(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handlePamReadable();
   void handleKeepAliveTimerTask();
   void handleIpTransportAddr();
   void handleLocalLdpIdentifier();
   void handleLdpSessionRole();
   void handleLdpPeerStatus();
   void handlePeerIpAddr() { handleIpTransportAddr(); }
   void handleLdpPeerStatusCode() { handleLdpPeerStatus(); }
   // A FEC's pipe came: the messages held for it go in.
   void handleMsgPipe(Mpls::FwdEqvClass const& fec);
   void handleHeldMsgTimerTask();

   // Label messages for a FEC whose pipe is not there yet wait for it, so that
   // the first message for a new FEC is not lost while its machinery is made:
   // at most heldFecMsgMax of them per session, each for heldFecMsgTime.
   static constexpr std::size_t heldFecMsgMax = 256;
   static constexpr Vek::Seconds heldFecMsgTime = 1.0;
   std::size_t heldFecMsgCount() const { return heldCount_; }

   void handleRxLdpNotificationMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpHelloMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpInitMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpKeepAliveMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpAddressMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpAddressWithdrawMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpLabelMappingMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpLabelReqMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpLabelWithdrawMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpLabelReleaseMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpLabelAbortReqMsg(PktPtr const& pkt, U32 offset) override;
   void handleRxLdpMsgError(PktPtr const& pkt, U32 offset, LdpStatusCode code) override;
   void handleRxLdpMsgUnit(PktPtr const& pkt, LdpPduParser const& pdu, U32 index) override;

 protected:
   bool isRxReader() const override {
      return initialized_ && ldpPduReactRxPam_ && sessionState() == stateOperational_;
   }

 private:
   struct HeldMsg {
      Vek::Ptr<LdpMsg> msg;
      Vek::Seconds due;
   };
   using RxReactor = PamReadableReactor<LdpSessionMsgSm, &LdpSessionMsgSm::handlePamReadable>;
   void ldpPduReactRxPamIs(Vek::Ptr<Nolu::Pam const> const& p);
   void ldpPduSend(PktPtr const& pkt);
   void sendNotification(LdpStatusCode code, LdpMsgType refType, U32 refId);
   void resetKeepAliveTimerTask(bool active);
   void handleRxLdpLabelMsg(PktPtr const& pkt, U32 offset, LdpMsgType type);
   void handleRxFec(Vek::Ptr<LdpMsgParser const> const& parser, U32 index, LdpMsgType type,
                    Mpls::FwdEqvClass const& fec);
   PwFecSessionId releasedPwFecSession(PwFecSessionId const& named, Nolu::MplsLabel label) const;
   // The Release of a withdrawn label of a prefix FEC (fec) or pseudowire
   // (pw) that this LSR does not know.
   void sendReleaseForUnknownFec(LdpMsgParser const& withdraw, Mpls::FwdEqvClass const* fec,
                                 PwFwdEqvClassInfo const* pw);
   Vek::Ptr<LdpMsg> rxLdpMsg(Vek::Ptr<LdpMsgParser const> const& parser, U32 index) const;
   void holdFecMsg(Mpls::FwdEqvClass const& fec, Vek::Ptr<LdpMsg> const& msg);
   void heldFecMsgDelAll();
   void handleRxPwStatusNotifMsg(PktPtr const& pkt, U32 offset,
                                 Vek::Ptr<LdpNotificationMsgParser> const& parser);
   void handleRxPwFec(Vek::Ptr<LdpMsgParser const> const& parser, U32 index, LdpMsgType type,
                      PwFwdEqvClassInfo const& info);
   LdpFecConfigColl::FecConfigRef getOrCreateLdpFecConfig(Mpls::FwdEqvClass const& fec);
   Vek::Ptr<PwFecSessionConfig> getOrCreatePwFecSessionConfig(PwFwdEqvClassInfo const& info,
                                                              PwFecSessionId const& id,
                                                              PwFecMsgContext context);

   Vek::Ptr<PwFecSessionConfigColl> localPwFecSessionConfigColl_;
   Vek::Ptr<PwFecSessionConfigColl> remotePwFecSessionConfigColl_;
   Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl_;
   Vek::Ptr<LdpFecMsgPipeColl const> ldpFecMsgPipeColl_;
   Vek::Ptr<LdpMsgPipe> ldpFecSessionMsgPipe_;
   Vek::Ptr<PwFecSessionMsgPipeColl const> pwFecSessionMsgPipeColl_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPam_;
   LdpPduPamPipe* ldpPduRxUnitPipe_ = nullptr;
   Vek::Ptr<Nolu::Pam> ldpPduTxPam_;
   Vek::Ptr<Hesk::TimerTask> keepAliveTimerTask_;
   Vek::Ptr<Hesk::TimerTask> heldMsgTimerTask_;
   Vek::HashMap<Mpls::FwdEqvClass, std::vector<HeldMsg>> held_;
   std::size_t heldCount_ = 0;
   Vek::Input<LdpFecMsgPipeColl::Reactor<LdpSessionMsgSm>> fecMsgPipeCollReactor_;
   Vek::Input<RxReactor> ldpPduReactRxPam_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionMsgSm>> sessionStatusReactor_;
   Vek::Input<LdpSessionCommonConfig::Reactor<LdpSessionMsgSm>> sessionCommonConfigReactor_;
   Vek::Input<LdpSessionConfig::Reactor<LdpSessionMsgSm>> sessionConfigReactor_;
};

}  // namespace Ldp

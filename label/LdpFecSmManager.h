#pragma once
// Which FECs have label state: a FEC that is unfiltered, or that a session
// keeps, gets its status; a FEC whose last reason to exist went a moment ago
// is removed. The status carries the hop count and path vector to send.
// A FEC's message pipe, and the relay that reads it, exist only once a peer
// has spoken of the FEC, so that a table of routes costs entries alone.
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpFecSmManager;

// Relays the messages of one FEC's pipe to the VRF's FEC sessions, telling
// first which FEC session each is for.
class LdpFecSm : public LdpSm {
 public:
   LdpFecSm(LdpFecSmManager* owner, Mpls::FwdEqvClass const& fec,
            Vek::Ptr<LdpMsgPipe> const& pipe);
   void handleReadableCount() { handleMsgReadableCount(); }
   void handleMsgReadableCount();

 private:
   LdpFecSmManager* owner_;
   Mpls::FwdEqvClass fec_;
   Vek::Ptr<LdpMsgPipe> pipe_;
   Vek::Input<LdpMsgPipe::Reactor<LdpFecSm>> pipeReactor_;
};

class LdpFecSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
      Vek::Ptr<LdpFecStatusColl> ldpFecStatusColl;
      Vek::Ptr<LdpFecMsgPipeColl> ldpFecMsgPipeColl;
      Vek::Ptr<LdpFecSessionNotifier> ldpFecSessionRxNotifier;
      Vek::Ptr<LdpMsgPipe> ldpFecSessionMsgPipe;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpFecSmManager> LdpFecSmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecSmManager>(instId, in);
   }
   LdpFecSmManager(U32 instId, Inputs const& in);
   ~LdpFecSmManager() override;

   void handleInitialized();
   void handleDelete() override;

   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecConfigFecFilteredState(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigMembership(Mpls::FwdEqvClass const& fec, LdpFecConfigMembership const&);
   void handleFecConfigSessionRxReqTime(Mpls::FwdEqvClass const& fec, LdpSessionId const&);
   void handleFecConfigLdpLoopDetection(Mpls::FwdEqvClass const& fec) { handleLoopDetection(fec); }
   void handleFecConfigLdpFecDeliveryType(Mpls::FwdEqvClass const& fec) { handleLoopDetection(fec); }
   void handleFecConfigLdpFecLspRole(Mpls::FwdEqvClass const& fec) { handleLoopDetection(fec); }
   void handleFecConfigRouterId(Mpls::FwdEqvClass const& fec) { handleLoopDetection(fec); }
   void handleFecStatusHopCountMappingLearnt(Mpls::FwdEqvClass const& fec) {
      handleLoopDetection(fec);
   }
   void handleFecStatusHopCountRequestLearnt(Mpls::FwdEqvClass const& fec) {
      handleLoopDetection(fec);
   }
   void handleMembership(Mpls::FwdEqvClass const& fec);
   void handleMembershipTimerTask();
   void handleLoopDetection(Mpls::FwdEqvClass const& fec);

   void addFecSm(Mpls::FwdEqvClass const& fec);
   void delFecSm(Mpls::FwdEqvClass const& fec);
   void addFecPipe(Mpls::FwdEqvClass const& fec);
   // A message read off a FEC's pipe goes on to the FEC sessions.
   void relayMsg(Mpls::FwdEqvClass const& fec, Vek::Ptr<LdpMsg> const& msg);

   Vek::Seconds delayMembership() const { return delayMembership_; }
   void delayMembershipIs(Vek::Seconds d) { delayMembership_ = d; }
   std::size_t membershipWorkQueueSize() const { return membershipWorkQueue_.size(); }
   std::size_t fecSms() const { return fecSm_.size(); }

 private:
   Inputs in_;
   Vek::Seconds delayMembership_ = 1.0;
   Vek::Seconds nextScheduleTime_ = 0.0;
   Vek::HashMap<Mpls::FwdEqvClass, double> membershipWorkQueue_;
   Vek::Bookmark<Mpls::FwdEqvClass> membershipWorkQueueBookmark_;
   Vek::Ptr<Hesk::TimerTask> membershipTimerTask_;
   Vek::HashMap<Mpls::FwdEqvClass, Vek::Ptr<LdpFecSm>> fecSm_;
   // The path vector of a FEC learnt from nobody holds this LSR alone: one
   // packet serves every FEC.
   Nolu::IpAddr pathVectorRouterId_;
   Vek::Ptr<Nolu::Pkt> pathVectorPkt_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecSmManager>> fecConfigReactor_;
   Vek::Input<LdpFecStatusColl::Reactor<LdpFecSmManager>> fecStatusReactor_;
};

}  // namespace Ldp

#pragma once
// Owns the death of the TCP PDU channels: the identification time-out of a
// channel whose peer never sends a whole PDU, the delete queue that frees
// channels on a clean stack, and the service ACL held against live channels.
#include <set>

#include "entities/Platform.h"
#include "session/LdpTcpServerSm.h"

namespace Ldp {

class LdpPduPamManager : public LdpSm {
 public:
   static Vek::Ptr<LdpPduPamManager> LdpPduPamManagerIs(
      U32 instId, Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl, LdpConnectionFilter const& filter,
      Vek::Ptr<Acl::Config const> const& aclStatus, L3::VrfName const& vrfName,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpPduPamManager>(instId, ldpPduPamColl, filter, aclStatus, vrfName,
                                           scheduler);
   }
   LdpPduPamManager(U32 instId, Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl,
                    LdpConnectionFilter const& filter, Vek::Ptr<Acl::Config const> const& aclStatus,
                    L3::VrfName const& vrfName, Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   std::size_t ldpPduPamDeleteQueueSize() const { return ldpPduPamDeleteQueue_.size(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handlePduPam(int const& sd);
   void handleLdpPduPam(int const& sd);
   void handleLdpPduPamDeleteTimerTask();
   void handleAclChange();
   void handleVersion() { handleAclChange(); }

 private:
   class ChannelReactor;
   void handleLdpIdTimer(int sd);

   Vek::Ptr<LdpPduPamColl> ldpPduPamColl_;
   LdpConnectionFilter filter_;
   L3::VrfName vrfName_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   std::set<int> ldpPduPamDeleteQueue_;
   Vek::Ptr<Hesk::TimerTask> ldpPduPamDeleteTimerTask_;
   Vek::Input<LdpPduPamColl::Reactor<LdpPduPamManager>> pduPamCollReactor_;
   Vek::Input<Acl::Config::Reactor<LdpPduPamManager>> aclStatusReactor_;
   Vek::ReactorColl<int, ChannelReactor> pduPam_;
};

// Rejects the channels that no session wants: answers the peer's first PDU
// with a Session Rejected/No Hello Notification, then lets the channel go.
class LdpSessionPamShutdownSm : public LdpSm {
 public:
   static Vek::Ptr<LdpSessionPamShutdownSm> LdpSessionPamShutdownSmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpPduPamShutdownColl> const& ldpPduPamShutdownColl,
      Vek::Ptr<Status> const& status) {
      return Vek::makeSm<LdpSessionPamShutdownSm>(instId, protoConfig, ldpPduPamShutdownColl,
                                                  status);
   }
   LdpSessionPamShutdownSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                           Vek::Ptr<LdpPduPamShutdownColl> const& ldpPduPamShutdownColl,
                           Vek::Ptr<Status> const& status);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   // A channel came into or left the collection of rejected channels.
   void handleLdpPduPam(int const& sd);
   // A change of a rejected channel.
   void handlePamChange(int const& sd);
   void handlePamReadable(int const& sd);

 private:
   using PamReactor = LdpPduPam::ChannelReactor<LdpSessionPamShutdownSm>;
   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpPduPamShutdownColl> ldpPduPamShutdownColl_;
   Vek::Ptr<Status> status_;
   Vek::Input<LdpPduPamShutdownColl::Reactor<LdpSessionPamShutdownSm>> shutdownCollReactor_;
   Vek::ReactorColl<int, PamReactor> ldpPduPam_;
};

}  // namespace Ldp

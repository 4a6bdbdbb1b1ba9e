#pragma once
// Routes become FECs: follows the route and forwarding tables, decides which
// prefixes are FECs of LDP (their route membership) and fills each FEC's
// delivery type and vias.
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

// Route types as the host writes them: an address of this host, a route
// through a next hop, a connected segment.
enum LdpRouteType : U8 {
   routeTypeReceive_ = 1,
   routeTypeReceiveBcast_ = 5,
   routeTypeConnected_ = 11,
};

class LdpFibSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<Tesh::Fib::RouteStatus const> routeStatus;
      Vek::Ptr<Tesh::Fib::ForwardingStatus const> forwardingStatus;
      Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpFibSm> LdpFibSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFibSm>(instId, in);
   }
   LdpFibSm(U32 instId, Inputs const& in);

   void handleInitialized();
   // A route came, went or changed.
   void handleRoute(Nolu::IpGenPrefix const& prefix) { handleFibRoute(prefix); }
   void handleRouteFecId(Nolu::IpGenPrefix const& prefix) { handleFibRoute(prefix); }
   void handleRouteRouteType(Nolu::IpGenPrefix const& prefix) { handleFibRoute(prefix); }
   // A forwarding entry came, went or changed: its routes are seen to, once
   // per turn of the loop however many of its vias changed.
   void handleFec(U32 const& fecId) { handleFibAdj(fecId); }
   void handleFecVia(U32 const& fecId, Via const&) { handleFibAdj(fecId); }
   void handleFecLabelledVia(U32 const& fecId) { handleFibAdj(fecId); }
   void handleFecTunnelVia(U32 const& fecId) { handleFibAdj(fecId); }
   void handleFibAdj(U32 fecId);
   void handleFibAdjTimerTask();
   // Control mode and the feature word change which routes make FECs.
   void handleLdpLabelDistCtrl() { handleFibRoute(); }
   void handleLdpProtoParamSetting() { handleFibRoute(); }
   // A FEC that another machine made is filled from its route.
   void handleFecConfig(Mpls::FwdEqvClass const& fec);

   void handleFibRoute();
   void handleFibRoute(Nolu::IpGenPrefix const& prefix);
   bool computeFibSmMembership(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route,
                               Tesh::Fib::Fec const* fwd) const;
   void updateFecConfig(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route,
                        Tesh::Fib::Fec const* fwd, LdpFecConfigColl::FecConfigRef& cfg);

 private:
   void handleV4Prefix(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route);
   Tesh::Fib::Fec const* fwdOf(Tesh::Fib::Route const* route) const;

   Inputs in_;
   Vek::Ptr<Hesk::TimerTask> fibAdjTimerTask_;
   Vek::HashMap<U32, bool> fibAdjQueue_;
   Vek::Input<Tesh::Fib::RouteStatus::Reactor<LdpFibSm>> routeStatusReactor_;
   Vek::Input<Tesh::Fib::ForwardingStatus::Reactor<LdpFibSm>> forwardingStatusReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFibSm>> ldpFecConfigCollReactor_;
   Vek::Input<ProtoConfig::Reactor<LdpFibSm>> protoConfigReactor_;
};

}  // namespace Ldp

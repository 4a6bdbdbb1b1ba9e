#include "label/LdpFibSm.h"

#include "entities/Functions.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFib");
}

LdpFibSm::LdpFibSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.routeStatus);
   Vek::validPtr(in_.forwardingStatus);
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.scheduler);
   routeStatusReactor_.init(this, in_.routeStatus);
   forwardingStatusReactor_.init(this, in_.forwardingStatus);
   ldpFecConfigCollReactor_.init(this, in_.ldpFecConfigColl);
   protoConfigReactor_.init(this, in_.protoConfig);
   handleInitialized();
}

void LdpFibSm::handleInitialized() {
   fibAdjTimerTask_ =
      Hesk::timerTaskIs(this, &LdpFibSm::handleFibAdjTimerTask, in_.scheduler, 2, "FibSm-Adj");
   initialized_ = true;
   handleFibRoute();
}

Tesh::Fib::Fec const* LdpFibSm::fwdOf(Tesh::Fib::Route const* route) const {
   return route ? in_.forwardingStatus->fecFind(route->fecId()) : nullptr;
}

// Every route again; and the FECs of routes that are gone lose their route
// membership (a table read again after a restart may lack some).
void LdpFibSm::handleFibRoute() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpFibSm::handleFibRoute");
   for (auto it = in_.routeStatus->routeIter(); it; ++it) handleFibRoute(it.key());
   std::vector<Mpls::FwdEqvClass> orphans;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) {
      if (it.value().membershipHas(membershipRoute_) &&
          !in_.routeStatus->routeHas(it.key().prefix()))
         orphans.push_back(it.key());
   }
   for (auto const& f : orphans) handleFibRoute(f.prefix());
}

void LdpFibSm::handleFibRoute(Nolu::IpGenPrefix const& prefix) {
   if (!initialized_ || prefix.af() != Nolu::ipv4_) return;
   handleV4Prefix(prefix.v4Prefix(), in_.routeStatus->routeFind(prefix));
}

void LdpFibSm::handleFibAdj(U32 fecId) {
   if (!initialized_) return;
   fibAdjQueue_.emplace(fecId, true);
   fibAdjTimerTask_->scheduleTaskDelay(0.0);
}

// The routes of the forwarding entries that changed. Entries are shared by
// many routes, and few change at once: one walk of the routes serves them all.
void LdpFibSm::handleFibAdjTimerTask() {
   if (!initialized_ || fibAdjQueue_.empty()) return;
   LDP_HANDLER(th, "LdpFibSm::handleFibAdjTimerTask " << fibAdjQueue_.size() << " entries");
   U64 done = 0;
   for (auto it = in_.routeStatus->routeIter(); it; ++it) {
      if (!fibAdjQueue_.contains(it.value().fecId())) continue;
      handleFibRoute(it.key());
      ++done;
   }
   if (done == 0) LDP_TRACE(th, 7, "No route associated with the changed forwarding entries");
   fibAdjQueue_.clear();
   fibAdjTimerTask_->taskWorkCountInc(done);
   fibAdjTimerTask_->taskWorkPendingIs(0);
}

void LdpFibSm::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_ || fec.af() != Nolu::ipv4_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   Nolu::Prefix prefix = fec.prefix().v4Prefix();
   auto const* route = in_.routeStatus->routeFind(fec.prefix());
   updateFecConfig(prefix, route, fwdOf(route), cfg);
}

void LdpFibSm::handleV4Prefix(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route) {
   Mpls::FwdEqvClass fec(prefix);
   Tesh::Fib::Fec const* fwd = fwdOf(route);
   bool member = computeFibSmMembership(prefix, route, fwd);
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (cfg) {
      // A FEC kept for a moment after its route went takes it back.
      if (member && cfg) cfg->membershipIs(membershipRoute_, true);
      updateFecConfig(prefix, route, fwd, cfg);
      if (!member && cfg) cfg->membershipDel(membershipRoute_);
      return;
   }
   if (!member) return;
   cfg = in_.ldpFecConfigColl->fecConfigIs(fec);
   if (cfg) cfg->membershipIs(membershipRoute_, true);
   // The entry's reactors may have filled it and even removed it already.
   if (cfg) updateFecConfig(prefix, route, fwd, cfg);
}

// Whether a route makes a FEC of LDP.
bool LdpFibSm::computeFibSmMembership(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route,
                                      Tesh::Fib::Fec const* fwd) const {
   char const* why = nullptr;
   bool member = false;
   if (!route || !fwd || fwd->viaSize() == 0) {
      why = " no FibSm membership: no vias.";
   } else if (fwd->labelledVia()) {
      why = " no FibSm membership: labelled via.";
   } else if (fwd->tunnelVia()) {
      why = " no FibSm membership: route pointing to tunnel.";
   } else {
      for (auto it = fwd->viaIter(); it; ++it) {
         if (isManagementOrInternalInterface(it.key().intfId())) {
            why = " no FibSm membership: management/internal interface.";
            break;
         }
      }
   }
   if (!why) {
      Via const& first = fwd->viaIter().key();
      Nolu::IntfId const& intf = first.intfId();
      Nolu::IpAddr hop = first.addr().v4Addr();
      U8 type = route->routeType();
      bool remote = type != routeTypeReceive_ && type != routeTypeReceiveBcast_;
      if (prefix.len() == 32 && !intf.isEmpty() && isLoopbackInterface(intf)) {
         member = true;
         why = " add FibSm membership: loopback interface.";
      } else if (prefix.len() == 32 && !intf.isEmpty() && remote && !hop.isZero() &&
                 in_.protoConfig->ldpLabelDistCtrl() == independentDistCtrl_) {
         member = true;
         why = " add FibSm membership: remote IP address.";
      } else if (prefix.len() == 32) {
         why = " no FibSm membership: host route.";
      } else if (!in_.protoConfig->ldpProtoParamSetting().hasFlag(
                    LdpProtoParamSetting::shortPrefixFecs)) {
         why = " no FibSm membership: prefix shorter than 32.";
      } else if (type == routeTypeConnected_) {
         member = true;
         why = " add FibSm membership: connected network segment.";
      } else if (!intf.isEmpty()) {
         member = true;
         why = " add FibSm membership: valid nexthop.";
      } else {
         why = " no FibSm membership: no interface.";
      }
   }
   LDP_TRACE(th, 7, prefix << why);
   return member;
}

// Fills a FEC's delivery type and vias from its route.
void LdpFibSm::updateFecConfig(Nolu::Prefix const& prefix, Tesh::Fib::Route const* route,
                               Tesh::Fib::Fec const* fwd, LdpFecConfigColl::FecConfigRef& cfg) {
   if (!cfg) {
      LDP_TRACE(th, 7, prefix << " no fecConfig to update.");
      return;
   }
   LdpFecDeliveryType type = deliveryNone_;
   if (!route || !fwd) {
      LDP_TRACE(th, 7, prefix << " ignore FEC: no route information.");
   } else if (fwd->labelledVia()) {
      LDP_TRACE(th, 7, prefix << "  ignore FEC: labelled via.");
   } else if (fwd->tunnelVia()) {
      LDP_TRACE(th, 7, prefix << "  ignore FEC: route pointing to tunnel.");
   } else {
      bool mgmt = false;
      for (auto it = fwd->viaIter(); it; ++it)
         mgmt = mgmt || isManagementOrInternalInterface(it.key().intfId());
      if (mgmt) {
         LDP_TRACE(th, 7, prefix << "  ignore FEC: management/internal interface.");
      } else if (fwd->viaSize() > 0) {
         Via const& first = fwd->viaIter().key();
         Nolu::IntfId const& intf = first.intfId();
         U8 rt = route->routeType();
         bool remote = rt != routeTypeReceive_ && rt != routeTypeReceiveBcast_;
         if (prefix.len() == 32) {
            if (!intf.isEmpty() && isLoopbackInterface(intf)) type = deliveryLocal_;
            else if (!intf.isEmpty() && remote && !first.addr().v4Addr().isZero())
               type = deliveryRemote_;
         } else if (rt == routeTypeConnected_) {
            type = deliveryConnected_;
         } else if (!intf.isEmpty()) {
            type = deliveryRemote_;
         }
      }
   }
   LDP_TRACE(th, 7, "Updating type: " << prefix << " " << int(type));
   if (type != deliveryNone_ && (!fwd || fwd->viaSize() == 0)) {
      LDP_TRACE(th, 7, prefix << " ignore FEC: no vias.");
      type = deliveryNone_;
   }
   cfg->ldpFecDeliveryTypeIs(type);
   // The vias follow the route's: those gone go, the new ones come.
   std::vector<Via> gone;
   for (auto it = cfg->viaIter(); it; ++it)
      if (type == deliveryNone_ || !fwd->viaHas(it.key())) gone.push_back(it.key());
   for (auto const& v : gone) {
      if (!cfg) return;
      cfg->viaDel(v);
   }
   if (type == deliveryNone_) return;
   for (auto it = fwd->viaIter(); it; ++it) {
      if (!cfg) return;
      if (cfg->viaHas(it.key())) continue;
      LDP_TRACE(th, 7, "Adding LdpVia: " << it.key());
      cfg->viaIs(it.key(), true);
   }
}

}  // namespace Ldp

#include "aux/LdpTunnelRibListenerSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTunnelRibListener");
}

LdpTunnelRibListenerSm::LdpTunnelRibListenerSm(
   U32 instId, Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> const& srTunnelRib,
   Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl)
   : LdpSm(instId), srTunnelRib_(srTunnelRib), ldpFecConfigColl_(Vek::validPtr(ldpFecConfigColl)) {
   ribReactor_.init(this, srTunnelRib_);
   handleInitialized();
}

void LdpTunnelRibListenerSm::handleInitialized() {
   initialized_ = true;
   handleTunnelEndPoint();
}

// Every end point, then every FEC, so that memberships a restart or a lost
// entry left behind go.
void LdpTunnelRibListenerSm::handleTunnelEndPoint() {
   if (!initialized_) return;
   if (srTunnelRib_)
      for (auto it = srTunnelRib_->entryIter(); it; ++it) handleTunnelEndPoint(it.key());
   std::vector<Nolu::IpGenPrefix> fecs;
   for (auto it = ldpFecConfigColl_->fecConfigIter(); it; ++it)
      if (it.value().membershipHas(membershipTunnel_)) fecs.push_back(it.key().prefix());
   for (auto const& p : fecs) handleTunnelEndPoint(p);
}

void LdpTunnelRibListenerSm::handleTunnelEndPoint(Nolu::IpGenPrefix const& prefix) {
   if (!initialized_) return;
   // Only IPv4 host prefixes are end points of LDP.
   if (prefix.af() != Nolu::ipv4_ || prefix.len() != 32) return;
   Mpls::FwdEqvClass fec(prefix);
   if (srTunnelRib_ && srTunnelRib_->entryHas(prefix)) {
      LDP_TRACE(th, 7, "Tunnel end point " << prefix);
      auto cfg = ldpFecConfigColl_->fecConfigIs(fec);
      if (cfg) cfg->membershipIs(membershipTunnel_, true);
   } else if (auto cfg = ldpFecConfigColl_->fecConfig(fec)) {
      LDP_TRACE(th, 7, "No tunnel end point " << prefix);
      cfg->membershipDel(membershipTunnel_);
   }
}

}  // namespace Ldp

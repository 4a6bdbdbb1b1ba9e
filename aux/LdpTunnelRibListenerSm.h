#pragma once
// The end points of segment routing tunnels are FECs of LDP: each IPv4 host
// prefix of the tunnel RIB gives its FEC a membership of its own.
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpTunnelRibListenerSm : public LdpSm {
 public:
   static Vek::Ptr<LdpTunnelRibListenerSm> LdpTunnelRibListenerSmIs(
      U32 instId, Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> const& srTunnelRib,
      Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl) {
      return Vek::makeSm<LdpTunnelRibListenerSm>(instId, srTunnelRib, ldpFecConfigColl);
   }
   LdpTunnelRibListenerSm(U32 instId,
                          Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> const& srTunnelRib,
                          Vek::Ptr<LdpFecConfigColl> const& ldpFecConfigColl);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleTunnelEndPoint();
   void handleTunnelEndPoint(Nolu::IpGenPrefix const& prefix);
   void handleEntry(Nolu::IpGenPrefix const& prefix) { handleTunnelEndPoint(prefix); }

 private:
   Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> srTunnelRib_;
   Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl_;
   Vek::Input<Tunnel::TunnelTable::TunnelRib::Reactor<LdpTunnelRibListenerSm>> ribReactor_;
};

}  // namespace Ldp

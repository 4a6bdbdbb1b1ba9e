#pragma once
// Wants one session per peer: the session's key is the peer's LDP identifier.
// Sessions follow the peer table alone, so a session outlives the loss of one
// adjacency while the peer has another.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpPeerSessionManager : public LdpSm {
 public:
   static Vek::Ptr<LdpPeerSessionManager> LdpPeerSessionManagerIs(
      U32 instId, Vek::Ptr<LdpPeerConfigColl const> const& ldpPeerConfigColl,
      Vek::Ptr<LdpSessionConfigColl> const& ldpSessionConfigColl) {
      return Vek::makeSm<LdpPeerSessionManager>(instId, ldpPeerConfigColl, ldpSessionConfigColl);
   }
   LdpPeerSessionManager(U32 instId, Vek::Ptr<LdpPeerConfigColl const> const& ldpPeerConfigColl,
                         Vek::Ptr<LdpSessionConfigColl> const& ldpSessionConfigColl);

   void handleInitialized();
   void handleLdpPeerConfig();
   void handleLdpPeerConfig(LdpIdentifier const& ldpId);

 private:
   class PeerConfigCollReactor
      : public Vek::CustomReactor<LdpPeerConfigColl::NotifieeConst, LdpPeerSessionManager> {
    public:
      using CustomReactor::CustomReactor;
      void onPeerConfig(LdpIdentifier const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpPeerConfig(k); });
      }
   };
   Vek::Ptr<LdpPeerConfigColl const> ldpPeerConfigColl_;
   Vek::Ptr<LdpSessionConfigColl> ldpSessionConfigColl_;
   Vek::Input<PeerConfigCollReactor> ldpPeerConfigCollReactor_;
};

}  // namespace Ldp

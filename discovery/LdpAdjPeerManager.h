#pragma once
// Keeps one peer per LDP identifier heard through adjacencies, with the set
// of its adjacencies. A peer dies with its last adjacency, and with that
// adjacency's status code.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpAdjPeerManager : public LdpSm {
 public:
   static Vek::Ptr<LdpAdjPeerManager> LdpAdjPeerManagerIs(
      U32 instId, Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
      Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
      Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl) {
      return Vek::makeSm<LdpAdjPeerManager>(instId, ldpAdjConfigColl, ldpAdjStatusColl,
                                            ldpPeerConfigColl);
   }
   LdpAdjPeerManager(U32 instId, Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
                     Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                     Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl);

   void handleInitialized();
   void handleLdpAdjStatus();
   void handleLdpAdjStatus(LdpAdjId const& adjId);
   void ldpPeerCreate(LdpAdjId const& adjId);
   void ldpPeerDelete(LdpAdjId const& adjId);

 private:
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpAdjPeerManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpAdjStatus(k); });
      }
   };
   Vek::Ptr<LdpAdjConfigColl const> ldpAdjConfigColl_;
   Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl_;
   Vek::Ptr<LdpPeerConfigColl> ldpPeerConfigColl_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
};

}  // namespace Ldp

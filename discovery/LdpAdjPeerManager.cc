#include "discovery/LdpAdjPeerManager.h"

#include <vector>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpAdjPeer");
}

LdpAdjPeerManager::LdpAdjPeerManager(U32 instId,
                                     Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
                                     Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                                     Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl)
   : LdpSm(instId), ldpAdjConfigColl_(ldpAdjConfigColl),
     ldpAdjStatusColl_(Vek::validPtr(ldpAdjStatusColl)),
     ldpPeerConfigColl_(Vek::validPtr(ldpPeerConfigColl)) {
   ldpAdjStatusCollReactor_.init(this, ldpAdjStatusColl_);
   handleInitialized();
}

void LdpAdjPeerManager::handleInitialized() {
   initialized_ = true;
   handleLdpAdjStatus();
}

// At start: every adjacency joins its peer, then members and peers that have
// no adjacency any more are swept away.
void LdpAdjPeerManager::handleLdpAdjStatus() {
   if (!initialized_) return;
   for (auto it = ldpAdjStatusColl_->adjStatusIter(); it; ++it) handleLdpAdjStatus(it.key());
   for (auto it = ldpPeerConfigColl_->peerConfigIter(); it; ++it) {
      LdpIdentifier ldpId = it.key();
      auto peer = it.value();
      LDP_TRACE(th, 7, "Iterating " << ldpId << " With " << peer->ldpAdjSize() << " members");
      std::vector<LdpAdjId> stale;
      for (auto m = peer->ldpAdjIter(); m; ++m) {
         if (!ldpAdjStatusColl_->adjStatusHas(m.key())) stale.push_back(m.key());
      }
      for (auto const& adjId : stale) {
         LDP_TRACE(th, 5, "   Delete Member " << adjId);
         peer->ldpAdjDel(adjId);
      }
      if (peer->ldpAdjSize() == 0) {
         LDP_TRACE(th, 5, "   Delete LdpPeer " << ldpId);
         ldpPeerConfigColl_->peerConfigDel(ldpId);
      }
   }
}

void LdpAdjPeerManager::handleLdpAdjStatus(LdpAdjId const& adjId) {
   if (!initialized_) return;
   if (ldpAdjStatusColl_->adjStatusHas(adjId)) ldpPeerCreate(adjId);
   else ldpPeerDelete(adjId);
}

void LdpAdjPeerManager::ldpPeerCreate(LdpAdjId const& adjId) {
   LdpIdentifier const& ldpId = adjId.ldpIdentifier();
   auto peer = ldpPeerConfigColl_->peerConfig(ldpId);
   if (!peer) {
      peer = ldpPeerConfigColl_->peerConfigIs(ldpId);
      LDP_TRACE(th, 5, "   Created LdpPeer: " << ldpId);
   }
   if (!peer->ldpAdjHas(adjId)) {
      peer->ldpAdjIs(adjId, true);
      LDP_TRACE(th, 5, "   Added Member: " << adjId);
   }
}

// The code of the last adjacency's end is what the peer dies with, written
// before the peer goes so that its watchers can read it.
void LdpAdjPeerManager::ldpPeerDelete(LdpAdjId const& adjId) {
   LdpIdentifier const& ldpId = adjId.ldpIdentifier();
   auto peer = ldpPeerConfigColl_->peerConfig(ldpId);
   if (!peer) return;
   peer->ldpAdjDel(adjId);
   LDP_TRACE(th, 5, "   Deleted Member: " << adjId);
   if (peer->ldpAdjSize() != 0) return;
   peer->statusCodeIs(peer->latestAdjStatusCode());
   ldpPeerConfigColl_->peerConfigDel(ldpId);
   LDP_TRACE(th, 5, "   Deleted LdpPeer: " << ldpId);
}

}  // namespace Ldp

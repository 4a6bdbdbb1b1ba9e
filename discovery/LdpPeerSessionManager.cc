#include "discovery/LdpPeerSessionManager.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPeerSession");
}

LdpPeerSessionManager::LdpPeerSessionManager(
   U32 instId, Vek::Ptr<LdpPeerConfigColl const> const& ldpPeerConfigColl,
   Vek::Ptr<LdpSessionConfigColl> const& ldpSessionConfigColl)
   : LdpSm(instId), ldpPeerConfigColl_(Vek::validPtr(ldpPeerConfigColl)),
     ldpSessionConfigColl_(Vek::validPtr(ldpSessionConfigColl)) {
   ldpPeerConfigCollReactor_.init(this, ldpPeerConfigColl_);
   handleInitialized();
}

void LdpPeerSessionManager::handleInitialized() {
   initialized_ = true;
   handleLdpPeerConfig();
}

// At start: a session for every peer, and none for a peer that has gone.
void LdpPeerSessionManager::handleLdpPeerConfig() {
   if (!initialized_) return;
   for (auto it = ldpPeerConfigColl_->peerConfigIter(); it; ++it) handleLdpPeerConfig(it.key());
   for (auto it = ldpSessionConfigColl_->sessionConfigIter(); it; ++it) {
      LdpSessionId sessionId = it.key();
      if (!ldpPeerConfigColl_->peerConfigHas(sessionId.ldpIdentifier()))
         handleLdpPeerConfig(sessionId.ldpIdentifier());
   }
}

void LdpPeerSessionManager::handleLdpPeerConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   LdpSessionId sessionId(ldpId);
   if (ldpPeerConfigColl_->peerConfigHas(ldpId)) {
      if (ldpSessionConfigColl_->sessionConfigHas(sessionId)) return;
      ldpSessionConfigColl_->sessionConfigIs(sessionId);
      LDP_TRACE(th, 5, "Create LdpSessionConfig " << sessionId);
   } else if (ldpSessionConfigColl_->sessionConfigHas(sessionId)) {
      ldpSessionConfigColl_->sessionConfigDel(sessionId);
      LDP_TRACE(th, 5, "Delete LdpSessionConfig " << sessionId);
   }
}

}  // namespace Ldp

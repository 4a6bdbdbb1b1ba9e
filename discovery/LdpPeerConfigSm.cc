#include "discovery/LdpPeerConfigSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPeerConfig");
}

LdpPeerConfigSm::LdpPeerConfigSm(U32 instId,
                                 Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
                                 Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                                 Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl)
   : LdpSm(instId), ldpAdjConfigColl_(ldpAdjConfigColl),
     ldpAdjStatusColl_(Vek::validPtr(ldpAdjStatusColl)),
     ldpPeerConfigColl_(Vek::validPtr(ldpPeerConfigColl)) {
   ldpAdjStatusCollReactor_.init(this, ldpAdjStatusColl_);
   ldpPeerConfigCollReactor_.init(this, ldpPeerConfigColl_);
   handleInitialized();
}

void LdpPeerConfigSm::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpAdjStatusColl_->adjStatusIter(); it; ++it) {
      adjStatus_.is(it.key(), this, Vek::Ptr<LdpAdjStatus const>(it.value()), it.key(),
                    &LdpPeerConfigSm::handleAdjStatusMember);
   }
   for (auto it = ldpPeerConfigColl_->peerConfigIter(); it; ++it) {
      peerConfig_.is(it.key(), this, Vek::Ptr<LdpPeerConfig const>(it.value()), it.key(),
                     &LdpPeerConfigSm::handlePeerMember);
   }
   handleLdpPeer();
   handleAdjStatus();
}

void LdpPeerConfigSm::handleDelete() {
   VEK_ASSERT(initialized() == true);
   initialized_ = false;
}

void LdpPeerConfigSm::handleAdjStatus() {
   if (!initialized_) return;
   for (auto it = ldpAdjStatusColl_->adjStatusIter(); it; ++it) handleAdjStatus(it.key());
}

void LdpPeerConfigSm::handleAdjStatus(LdpAdjId const& adjId) {
   if (!initialized_) return;
   auto as = ldpAdjStatusColl_->adjStatus(adjId);
   auto peer = ldpPeerConfigColl_->peerConfig(adjId.ldpIdentifier());
   if (!as || !peer) return;
   peer->latestAdjStatusCodeIs(as->adjStatusCode());
   LDP_TRACE(th, 7, "Setting latestAdjStatusCode " << adjId << " " << as->adjStatusCode());
   handleLdpPeer(adjId.ldpIdentifier());
}

void LdpPeerConfigSm::handleLdpPeer() {
   if (!initialized_) return;
   for (auto it = ldpPeerConfigColl_->peerConfigIter(); it; ++it) handleLdpPeer(it.key());
}

// The first member in the collection's order that has had a valid Hello is
// the active adjacency; links and targets are alike here.
void LdpPeerConfigSm::handleLdpPeer(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto peer = ldpPeerConfigColl_->peerConfig(ldpId);
   if (!peer || peer->ldpAdjSize() == 0) return;
   for (auto it = peer->ldpAdjIter(); it; ++it) {
      auto as = ldpAdjStatusColl_->adjStatus(it.key());
      if (!as) {
         ++transitionDetectCount_;
         return;
      }
      if (as->peerIpAddr() == Nolu::IpGenAddr()) continue;
      LDP_TRACE(th, 7, "Setting LdpPeer " << ldpId << " IP Addr " << as->peerIpAddr());
      peer->peerIpAddrIs(as->peerIpAddr());
      peer->activeAdjIs(it.key());
      // The peer keeps the low 16 bits of the adjacency's sequence number.
      peer->peerConfigSeqNumIs(U16(as->peerConfigSeqNum()));
      return;
   }
   LDP_TRACE(th, 7, "PeerConfig for " << ldpId << " not yet valid");
   ++transitionDetectCount_;
}

void LdpPeerConfigSm::handleAdjStatusEntry(LdpAdjId const& adjId) {
   if (!initialized_) return;
   auto s = ldpAdjStatusColl_->adjStatus(adjId);
   if (s) {
      adjStatus_.is(adjId, this, Vek::Ptr<LdpAdjStatus const>(s), adjId,
                    &LdpPeerConfigSm::handleAdjStatusMember);
   } else {
      adjStatus_.del(adjId);
   }
}

void LdpPeerConfigSm::handlePeerConfigEntry(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto p = ldpPeerConfigColl_->peerConfig(ldpId);
   if (p) {
      peerConfig_.is(ldpId, this, Vek::Ptr<LdpPeerConfig const>(p), ldpId,
                     &LdpPeerConfigSm::handlePeerMember);
      handleLdpPeer(ldpId);
   } else {
      peerConfig_.del(ldpId);
   }
}

}  // namespace Ldp

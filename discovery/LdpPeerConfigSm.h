#pragma once
// Picks each peer's active adjacency, the first member that has had a valid
// Hello, and copies its address and configuration sequence number to the
// peer; keeps the status code of the peer's latest adjacency event.
#include "entities/LdpSm.h"
#include "discovery/LdpReactors.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpPeerConfigSm : public LdpSm {
 public:
   static Vek::Ptr<LdpPeerConfigSm> LdpPeerConfigSmIs(
      U32 instId, Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
      Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
      Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl) {
      return Vek::makeSm<LdpPeerConfigSm>(instId, ldpAdjConfigColl, ldpAdjStatusColl,
                                          ldpPeerConfigColl);
   }
   LdpPeerConfigSm(U32 instId, Vek::Ptr<LdpAdjConfigColl const> const& ldpAdjConfigColl,
                   Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                   Vek::Ptr<LdpPeerConfigColl> const& ldpPeerConfigColl);

   U32 transitionDetectCount() const { return transitionDetectCount_; }

   void handleInitialized();
   void handleDelete() override;
   void handleAdjStatus();
   void handleAdjStatus(LdpAdjId const& adjId);
   void handleLdpPeer();
   void handleLdpPeer(LdpIdentifier const& ldpId);
   // Collection reactors: they keep the per-member reactors.
   void handleAdjStatusEntry(LdpAdjId const& adjId);
   void handlePeerConfigEntry(LdpIdentifier const& ldpId);
   void handlePeerMember(LdpIdentifier const& ldpId) { handleLdpPeer(ldpId); }
   void handleAdjStatusMember(LdpAdjId const& adjId) { handleAdjStatus(adjId); }

 private:
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpPeerConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleAdjStatusEntry(k); });
      }
   };
   class PeerConfigCollReactor
      : public Vek::CustomReactor<LdpPeerConfigColl::NotifieeConst, LdpPeerConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onPeerConfig(LdpIdentifier const& k) override {
         fwd([&k](auto* sm) { sm->handlePeerConfigEntry(k); });
      }
   };
   class AdjStatusReactor
      : public KeyedReactor<LdpAdjStatus::NotifieeConst, LdpPeerConfigSm, LdpAdjId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onAdjStatusCode() override { fire(); }
      void onPeerIpAddr() override { fire(); }
   };
   class PeerConfigReactor
      : public KeyedReactor<LdpPeerConfig::NotifieeConst, LdpPeerConfigSm, LdpIdentifier> {
    public:
      using KeyedReactor::KeyedReactor;
      void onLdpAdj(LdpAdjId const&) override { fire(); }
   };

   Vek::Ptr<LdpAdjConfigColl const> ldpAdjConfigColl_;
   Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl_;
   Vek::Ptr<LdpPeerConfigColl> ldpPeerConfigColl_;
   U32 transitionDetectCount_ = 0;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::Input<PeerConfigCollReactor> ldpPeerConfigCollReactor_;
   Vek::ReactorColl<LdpAdjId, AdjStatusReactor> adjStatus_;
   Vek::ReactorColl<LdpIdentifier, PeerConfigReactor> peerConfig_;
};

}  // namespace Ldp

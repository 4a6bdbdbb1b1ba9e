#pragma once
// Keeps the index's reverse look-ups: from a peer address to its sessions,
// from a transport address to its peers, and from a pseudowire request to
// the FEC-session records that serve it. Nothing here is source state; it is
// rebuilt from the collections at start.
#include "entities/LdpSm.h"
#include "discovery/LdpReactors.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpIndexSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<LdpIndex> ldpIndex;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpPeerConfigColl const> ldpPeerConfigColl;
      Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig;
      Vek::Ptr<PwFecSessionConfigColl const> localPwFecSessionConfigColl;
      Vek::Ptr<PwFecSessionConfigColl const> remotePwFecSessionConfigColl;
      Vek::Ptr<LocalPwFecSessionStatusColl const> localPwFecSessionStatusColl;
      Vek::Ptr<RemotePwFecSessionStatusColl const> remotePwFecSessionStatusColl;
   };
   static Vek::Ptr<LdpIndexSm> LdpIndexSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpIndexSm>(instId, in);
   }
   LdpIndexSm(U32 instId, Inputs const& in);

   // The four kinds of pseudowire FEC-session records.
   enum PwRecord : U8 { localConfig_, remoteConfig_, localStatus_, remoteStatus_ };

   void handleInitialized();
   void handleSessionStatus(LdpSessionId const& sessionId);
   void handlePeerIpAddr(LdpSessionId const& sessionId);
   void handlePeerConfig(LdpIdentifier const& ldpId);
   void handlePeerConfigIpAddr(LdpIdentifier const& ldpId);
   void updatePeerSession(Nolu::IpGenAddr const& addr, LdpSessionId const& sessionId);
   void updateIpToPeer(Nolu::IpGenAddr const& addr, LdpIdentifier const& ldpId);
   void updatePwFecSessionInfoMapForPw(Pseudowire::PseudowireLdpRequestKey const& key);
   void handlePwRecord(PwRecord kind, PwFecSessionId const& id);
   void pwFecSessionInfoCheckDelete(Pseudowire::PseudowireLdpRequestKey const& key);
   std::size_t pwFecSessionInfoMapUsers(Pseudowire::PseudowireLdpRequestKey const& key) const;

 private:
   Pseudowire::PseudowireLdpRequestKey pwKeyForPwFecSessionId(PwFecSessionId const& id) const;
   bool pwRecordExists(PwRecord kind, PwFecSessionId const& id) const;

   class SessionCollReactor
      : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, LdpIndexSm> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionStatus(LdpSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleSessionStatus(k); });
      }
   };
   class PeerCollReactor : public Vek::CustomReactor<LdpPeerConfigColl::NotifieeConst, LdpIndexSm> {
    public:
      using CustomReactor::CustomReactor;
      void onPeerConfig(LdpIdentifier const& k) override {
         fwd([&k](auto* sm) { sm->handlePeerConfig(k); });
      }
   };
   class PwLdpConfigReactor
      : public Vek::CustomReactor<Pseudowire::PseudowireLdpConfig::NotifieeConst, LdpIndexSm> {
    public:
      using CustomReactor::CustomReactor;
      void onLdpRequest(Pseudowire::PseudowireLdpRequestKey const& k) override {
         fwd([&k](auto* sm) { sm->updatePwFecSessionInfoMapForPw(k); });
      }
   };
   class PwConfigCollReactor
      : public Vek::CustomReactor<PwFecSessionConfigColl::NotifieeConst, LdpIndexSm> {
    public:
      PwConfigCollReactor(LdpIndexSm* sm, Vek::Ptr<PwFecSessionConfigColl const> const& n,
                          PwRecord kind)
         : CustomReactor(sm, n), kind_(kind) {}
      void onFecSessionConfig(PwFecSessionId const& k) override {
         PwRecord kind = kind_;
         fwd([&k, kind](auto* sm) { sm->handlePwRecord(kind, k); });
      }

    private:
      PwRecord kind_;
   };
   class LocalPwStatusCollReactor
      : public Vek::CustomReactor<LocalPwFecSessionStatusColl::NotifieeConst, LdpIndexSm> {
    public:
      using CustomReactor::CustomReactor;
      void onFecSessionStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handlePwRecord(localStatus_, k); });
      }
   };
   class RemotePwStatusCollReactor
      : public Vek::CustomReactor<RemotePwFecSessionStatusColl::NotifieeConst, LdpIndexSm> {
    public:
      using CustomReactor::CustomReactor;
      void onFecSessionStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handlePwRecord(remoteStatus_, k); });
      }
   };
   // Each keeps the address that it indexed last, so that a change can
   // remove the old entry.
   class SessionReactor
      : public KeyedReactor<LdpSessionStatus::NotifieeConst, LdpIndexSm, LdpSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onPeerIpAddr() override { fire(); }
      Nolu::IpGenAddr indexed;
   };
   class PeerReactor
      : public KeyedReactor<LdpPeerConfig::NotifieeConst, LdpIndexSm, LdpIdentifier> {
    public:
      using KeyedReactor::KeyedReactor;
      void onPeerIpAddr() override { fire(); }
      Nolu::IpGenAddr indexed;
   };

   Inputs in_;
   Vek::Input<SessionCollReactor> ldpSessionStatusCollReactor_;
   Vek::Input<PeerCollReactor> ldpPeerConfigCollReactor_;
   Vek::Input<PwLdpConfigReactor> pwLdpConfigReactor_;
   Vek::Input<PwConfigCollReactor> localPwFecSessionConfigCollReactor_;
   Vek::Input<PwConfigCollReactor> remotePwFecSessionConfigCollReactor_;
   Vek::Input<LocalPwStatusCollReactor> localPwFecSessionStatusCollReactor_;
   Vek::Input<RemotePwStatusCollReactor> remotePwFecSessionStatusCollReactor_;
   Vek::ReactorColl<LdpSessionId, SessionReactor> sessionStatus_;
   Vek::ReactorColl<LdpIdentifier, PeerReactor> peerConfig_;
   // The request key that each pseudowire record was indexed under.
   Vek::HashMap<PwFecSessionId, Pseudowire::PseudowireLdpRequestKey> savedKey_[4];
};

}  // namespace Ldp

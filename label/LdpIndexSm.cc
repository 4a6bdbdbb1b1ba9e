#include "label/LdpIndexSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpIndex");
}

LdpIndexSm::LdpIndexSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpPeerConfigColl);
   ldpSessionStatusCollReactor_.init(this, in_.ldpSessionStatusColl);
   ldpPeerConfigCollReactor_.init(this, in_.ldpPeerConfigColl);
   pwLdpConfigReactor_.init(this, in_.pwLdpConfig);
   localPwFecSessionConfigCollReactor_.init(this, in_.localPwFecSessionConfigColl, localConfig_);
   remotePwFecSessionConfigCollReactor_.init(this, in_.remotePwFecSessionConfigColl,
                                             remoteConfig_);
   localPwFecSessionStatusCollReactor_.init(this, in_.localPwFecSessionStatusColl);
   remotePwFecSessionStatusCollReactor_.init(this, in_.remotePwFecSessionStatusColl);
   handleInitialized();
}

void LdpIndexSm::handleInitialized() {
   LDP_HANDLER(th, "LdpIndexSm::handleInitialized");
   in_.ldpIndex->peerToSessionDelAll();
   in_.ldpIndex->transportIpToPeerDelAll();
   in_.ldpIndex->pwKeyToPwFecSessionInfoDelAll();
   initialized_ = true;
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it)
      handleSessionStatus(it.key());
   for (auto it = in_.ldpPeerConfigColl->peerConfigIter(); it; ++it) handlePeerConfig(it.key());
   if (in_.localPwFecSessionConfigColl) {
      for (auto it = in_.localPwFecSessionConfigColl->fecSessionConfigIter(); it; ++it)
         handlePwRecord(localConfig_, it.key());
   }
   if (in_.remotePwFecSessionConfigColl) {
      for (auto it = in_.remotePwFecSessionConfigColl->fecSessionConfigIter(); it; ++it)
         handlePwRecord(remoteConfig_, it.key());
   }
   if (in_.localPwFecSessionStatusColl) {
      for (auto it = in_.localPwFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
         handlePwRecord(localStatus_, it.key());
   }
   if (in_.remotePwFecSessionStatusColl) {
      for (auto it = in_.remotePwFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
         handlePwRecord(remoteStatus_, it.key());
   }
   if (in_.pwLdpConfig) {
      for (auto it = in_.pwLdpConfig->ldpRequestIter(); it; ++it)
         updatePwFecSessionInfoMapForPw(it.key());
   }
}

void LdpIndexSm::handleSessionStatus(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (ss) {
      sessionStatus_.is(sessionId, this, ss, sessionId, &LdpIndexSm::handlePeerIpAddr);
      handlePeerIpAddr(sessionId);
      return;
   }
   if (auto* r = sessionStatus_.find(sessionId)) {
      Nolu::IpGenAddr old = r->indexed;
      sessionStatus_.del(sessionId);
      updatePeerSession(old, sessionId);
   }
}

void LdpIndexSm::handlePeerIpAddr(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto* r = sessionStatus_.find(sessionId);
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (!r || !ss) return;
   Nolu::IpGenAddr old = r->indexed;
   r->indexed = ss->peerIpAddr();
   updatePeerSession(old, sessionId);
   updatePeerSession(r->indexed, sessionId);
}

void LdpIndexSm::handlePeerConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto peer = in_.ldpPeerConfigColl->peerConfig(ldpId);
   if (peer) {
      peerConfig_.is(ldpId, this, peer, ldpId, &LdpIndexSm::handlePeerConfigIpAddr);
      handlePeerConfigIpAddr(ldpId);
      return;
   }
   if (auto* r = peerConfig_.find(ldpId)) {
      Nolu::IpGenAddr old = r->indexed;
      peerConfig_.del(ldpId);
      updateIpToPeer(old, ldpId);
   }
}

void LdpIndexSm::handlePeerConfigIpAddr(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto* r = peerConfig_.find(ldpId);
   auto peer = in_.ldpPeerConfigColl->peerConfig(ldpId);
   if (!r || !peer) return;
   Nolu::IpGenAddr old = r->indexed;
   r->indexed = peer->peerIpAddr();
   updateIpToPeer(old, ldpId);
   updateIpToPeer(r->indexed, ldpId);
}

void LdpIndexSm::updatePeerSession(Nolu::IpGenAddr const& addr, LdpSessionId const& sessionId) {
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   auto& index = *in_.ldpIndex;
   if (ss && ss->peerIpAddr() == addr) {
      index.peerToSessionIs(addr)->sessionIdIs(sessionId, true);
      return;
   }
   if (auto set = index.peerToSession(addr)) {
      set->sessionIdDel(sessionId);
      if (set->sessionIdSize() == 0) index.peerToSessionDel(addr);
   }
}

void LdpIndexSm::updateIpToPeer(Nolu::IpGenAddr const& addr, LdpIdentifier const& ldpId) {
   auto peer = in_.ldpPeerConfigColl->peerConfig(ldpId);
   auto& index = *in_.ldpIndex;
   LdpSessionId id(ldpId);
   if (peer && peer->peerIpAddr() == addr) {
      index.transportIpToPeerIs(addr)->sessionIdIs(id, true);
      return;
   }
   if (auto set = index.transportIpToPeer(addr)) {
      set->sessionIdDel(id);
      if (set->sessionIdSize() == 0) index.transportIpToPeerDel(addr);
   }
}

void LdpIndexSm::updatePwFecSessionInfoMapForPw(Pseudowire::PseudowireLdpRequestKey const& key) {
   if (!initialized_) return;
   auto& index = *in_.ldpIndex;
   if (in_.pwLdpConfig && in_.pwLdpConfig->ldpRequestHas(key)) {
      index.pwKeyToPwFecSessionInfoIs(key)->ldpRequestIs(key, true);
      return;
   }
   if (auto info = index.pwKeyToPwFecSessionInfo(key)) {
      info->ldpRequestDel(key);
      pwFecSessionInfoCheckDelete(key);
   }
}

bool LdpIndexSm::pwRecordExists(PwRecord kind, PwFecSessionId const& id) const {
   switch (kind) {
      case localConfig_:
         return in_.localPwFecSessionConfigColl &&
                in_.localPwFecSessionConfigColl->fecSessionConfigHas(id);
      case remoteConfig_:
         return in_.remotePwFecSessionConfigColl &&
                in_.remotePwFecSessionConfigColl->fecSessionConfigHas(id);
      case localStatus_:
         return in_.localPwFecSessionStatusColl &&
                in_.localPwFecSessionStatusColl->fecSessionStatusHas(id);
      case remoteStatus_:
         return in_.remotePwFecSessionStatusColl &&
                in_.remotePwFecSessionStatusColl->fecSessionStatusHas(id);
   }
   return false;
}

// The request of a pseudowire record is keyed by its session's peer address
// and the pseudowire id.
Pseudowire::PseudowireLdpRequestKey LdpIndexSm::pwKeyForPwFecSessionId(
   PwFecSessionId const& id) const {
   auto sess = in_.ldpSessionStatusColl->sessionStatus(id.sessionId());
   VEK_ASSERT(sess);
   return Pseudowire::PseudowireLdpRequestKey(sess->peerIpAddr(), id.fec().pwId());
}

void LdpIndexSm::handlePwRecord(PwRecord kind, PwFecSessionId const& id) {
   if (!initialized_) return;
   auto& index = *in_.ldpIndex;
   auto& saved = savedKey_[kind];
   bool deleted = !pwRecordExists(kind, id);
   if (deleted) {
      auto const* p = saved.find(id);
      if (!p) return;
      Pseudowire::PseudowireLdpRequestKey saveKey = *p;
      saved.erase(id);
      VEK_ASSERT(id.fec().pwId() == saveKey.pwId());
      if (auto info = index.pwKeyToPwFecSessionInfo(saveKey)) {
         switch (kind) {
            case localConfig_: info->localConfigDel(id); break;
            case remoteConfig_: info->remoteConfigDel(id); break;
            case localStatus_: info->localStatusDel(id); break;
            case remoteStatus_: info->remoteStatusDel(id); break;
         }
         pwFecSessionInfoCheckDelete(saveKey);
      }
      return;
   }
   Pseudowire::PseudowireLdpRequestKey key;
   if (auto const* p = saved.find(id)) key = *p;
   else {
      key = pwKeyForPwFecSessionId(id);
      saved.emplace(id, key);
   }
   auto info = index.pwKeyToPwFecSessionInfoIs(key);
   switch (kind) {
      case localConfig_:
         info->localConfigIs(id, in_.localPwFecSessionConfigColl->fecSessionConfig(id));
         break;
      case remoteConfig_:
         info->remoteConfigIs(id, in_.remotePwFecSessionConfigColl->fecSessionConfig(id));
         break;
      case localStatus_:
         info->localStatusIs(id, in_.localPwFecSessionStatusColl->fecSessionStatus(id));
         break;
      case remoteStatus_:
         info->remoteStatusIs(id, in_.remotePwFecSessionStatusColl->fecSessionStatus(id));
         break;
   }
}

std::size_t LdpIndexSm::pwFecSessionInfoMapUsers(
   Pseudowire::PseudowireLdpRequestKey const& key) const {
   auto info = in_.ldpIndex->pwKeyToPwFecSessionInfo(key);
   if (!info) return 0;
   return info->ldpRequestSize() + info->localConfigSize() + info->remoteConfigSize() +
          info->localStatusSize() + info->remoteStatusSize();
}

void LdpIndexSm::pwFecSessionInfoCheckDelete(Pseudowire::PseudowireLdpRequestKey const& key) {
   if (pwFecSessionInfoMapUsers(key) != 0) return;
   LDP_TRACE(th, 5, " remove entry for pwKey: " << key);
   in_.ldpIndex->pwKeyToPwFecSessionInfoDel(key);
}

}  // namespace Ldp

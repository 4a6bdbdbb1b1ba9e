#include "session/LdpSessionConfigSm.h"

#include <algorithm>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionConfig");
Vek::TraceHandle ths("LdpSessionStatus");
}  // namespace

class LdpSessionConfigSm::ProtoConfigReactor
   : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpSessionConfigSm> {
 public:
   using CustomReactor::CustomReactor;
   void onIpTransportAddr() override { fwd([](auto* s) { s->handleLdpSessionCommonConfig(); }); }
   void onLdpLabelAdvDspl() override { fwd([](auto* s) { s->handleLdpSessionCommonConfig(); }); }
   void onLdpIdentifier() override { fwd([](auto* s) { s->handleLdpSessionConfig(); }); }
   void onKeepAliveTime() override { fwd([](auto* s) { s->handleLdpSessionConfig(); }); }
   void onMaxPduLength() override { fwd([](auto* s) { s->handleLdpSessionConfig(); }); }
};

class LdpSessionConfigSm::CommonConfigReactor
   : public Vek::CustomReactor<LdpSessionCommonConfig::NotifieeConst, LdpSessionConfigSm> {
 public:
   using CustomReactor::CustomReactor;
   void onIpTransportAddr() override { fwd([](auto* s) { s->calculateSessionRole(); }); }
};

LdpSessionConfigSm::LdpSessionConfigSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpPduPamColl);
   Vek::validPtr(in_.ldpPeerConfigColl);
   Vek::validPtr(in_.ldpSessionConfigColl);
   Vek::validPtr(in_.ldpSessionSmColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpPduPamSessionColl);
   Vek::validPtr(in_.ldpPduPamShutdownColl);
   Vek::validPtr(in_.ldpSessionConfigColl->ldpSessionCommonConfig());
   protoConfigReactor_ = std::make_unique<ProtoConfigReactor>(this, in_.protoConfig);
   commonConfigReactor_ = std::make_unique<CommonConfigReactor>(
      this, Vek::Ptr<LdpSessionCommonConfig const>(in_.ldpSessionConfigColl->ldpSessionCommonConfig()));
   sessionConfigCollReactor_.init(this, Vek::Ptr<LdpSessionConfigColl const>(in_.ldpSessionConfigColl));
   peerConfigCollReactor_.init(this, in_.ldpPeerConfigColl);
   pduPamCollReactor_.init(this, Vek::Ptr<LdpPduPamColl const>(in_.ldpPduPamColl));
   localIntfIpCollReactor_.init(this, in_.localIntfIpColl);
   handleInitialized();
}

void LdpSessionConfigSm::handleInitialized() {
   initialized_ = true;
   handleLdpSessionCommonConfig();
   handleLdpPduPam();
   handleLdpPeerConfig();
   handleLdpSessionConfig();
   handleIntfIp();
}

void LdpSessionConfigSm::handleLdpSessionCommonConfig() {
   if (!initialized_) return;
   auto common = in_.ldpSessionConfigColl->ldpSessionCommonConfig();
   common->ipTransportAddrIs(in_.protoConfig->ipTransportAddr());
   common->ldpLabelAdvDsplIs(in_.protoConfig->ldpLabelAdvDspl());
}

void LdpSessionConfigSm::handleLdpSessionConfig() {
   if (!initialized_) return;
   for (auto it = in_.ldpSessionConfigColl->sessionConfigIter(); it; ++it)
      handleLdpSessionConfig(LdpSessionId(it.key()));
}

void LdpSessionConfigSm::handleLdpSessionConfig(LdpSessionId const& id) {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "handleLdpSessionConfig " << id);
   handleLdpPeerConfig(id.ldpIdentifier());
   // A session that is no longer wanted lets its channel go.
   if (!in_.ldpSessionConfigColl->sessionConfigHas(id))
      if (auto pam = in_.ldpPduPamSessionColl->ldpPduPam(id)) handleLdpPduPam(pam->fileDescriptor());
}

void LdpSessionConfigSm::handlePeerConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   if (auto p = in_.ldpPeerConfigColl->peerConfig(ldpId))
      peerConfig_.is(ldpId, this, p, &LdpSessionConfigSm::handleLdpPeerConfig);
   else peerConfig_.del(ldpId);
   handleLdpPeerConfig(ldpId);
}

void LdpSessionConfigSm::handleLdpPeerConfig() {
   if (!initialized_) return;
   for (auto it = in_.ldpPeerConfigColl->peerConfigIter(); it; ++it) handlePeerConfig(it.key());
}

void LdpSessionConfigSm::handleLdpPeerConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   LdpSessionId id(ldpId);
   auto sc = in_.ldpSessionConfigColl->sessionConfig(id);
   if (!sc) return;
   if (auto peer = in_.ldpPeerConfigColl->peerConfig(ldpId)) {
      sc->peerIpAddrIs(peer->peerIpAddr());
      LDP_TRACE(th, 7, "Setting IP Transport Address " << peer->peerIpAddr() << " to Session "
                                                       << id);
      sc->peerConfigSeqNumIs(peer->peerConfigSeqNum());
      sc->ldpPeerStatusCodeIs(peer->statusCode());
   } else {
      sc->peerIpAddrIs(Nolu::IpGenAddr());
      LDP_TRACE(th, 7, "Setting IP Transport Address to NULL to Session " << id);
   }
   sc->localLdpIdentifierIs(in_.protoConfig->ldpIdentifier());
   // What the session proposes when it is next established.
   U16 keepAlive = in_.protoConfig->keepAliveTime();
   sc->keepAliveTimeIs(keepAlive);
   sc->keepAliveTxIntervalIs(U16(keepAlive / 3));
   sc->maxPduLengthIs(in_.protoConfig->maxPduLength());
   calculateSessionRole(id);
}

void LdpSessionConfigSm::calculateSessionRole() {
   if (!initialized_) return;
   for (auto it = in_.ldpSessionConfigColl->sessionConfigIter(); it; ++it)
      calculateSessionRole(LdpSessionId(it.key()));
}

void LdpSessionConfigSm::calculateSessionRole(LdpSessionId const& id) {
   if (!initialized_) return;
   auto sc = in_.ldpSessionConfigColl->sessionConfig(id);
   if (!sc) return;
   Nolu::IpGenAddr l = in_.ldpSessionConfigColl->ldpSessionCommonConfig()->ipTransportAddr();
   Nolu::IpGenAddr p = sc->peerIpAddr();
   if (!l.isV4() || !p.isV4() || l.v4Addr().isZero() || p.v4Addr().isZero() || l == p) {
      LDP_TRACE(th, 7, "Setting Role Unknown");
      sc->ldpSessionRoleIs(roleUnknown_);
   } else if (l.v4Addr().value() > p.v4Addr().value()) {
      LDP_TRACE(th, 7, "Setting Role Active");
      sc->ldpSessionRoleIs(roleActive_);
   } else {
      LDP_TRACE(th, 7, "Setting Role Passive");
      sc->ldpSessionRoleIs(rolePassive_);
   }
}

// ---- channels and sessions

void LdpSessionConfigSm::handlePduPam(int const& sd) {
   if (!initialized_) return;
   if (auto pam = in_.ldpPduPamColl->pduPam(sd))
      pduPam_.is(sd, this, Vek::Ptr<LdpPduPam const>(pam), sd,
                 PamReactor::Handler(&LdpSessionConfigSm::handleLdpPduPam),
                 PamReactor::Handler(nullptr));
   else pduPam_.del(sd);
   handleLdpPduPam(sd);
}

void LdpSessionConfigSm::handleLdpPduPam() {
   if (!initialized_) return;
   for (auto it = in_.ldpPduPamColl->pduPamIter(); it; ++it) handlePduPam(it.key());
}

bool LdpSessionConfigSm::isSdThisSession(int sd, LdpSessionId const& id) const {
   auto pam = in_.ldpPduPamSessionColl->ldpPduPam(id);
   return pam && pam->fileDescriptor() == sd;
}

void LdpSessionConfigSm::shutdownPam(int sd, Vek::Ptr<LdpPduPam> const& pam) {
   pam->stateIs(pamShutdown);
   in_.ldpPduPamShutdownColl->ldpPduPamIs(sd, pam);
}

void LdpSessionConfigSm::handleLdpPduPam(int const& sd) {
   if (!initialized_) return;
   Vek::Ptr<LdpPduPam> pam = in_.ldpPduPamColl->pduPam(sd);
   if (!pam || pam->state() == pamShutdown || pam->state() == pamDestroy) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   LdpIdentifier ldpId = pam->ldpIdentifier();
   LdpSessionId id(ldpId);
   LDP_TRACE(th, 7, "LdpPduPam @sd " << sd << ", ldpId:" << ldpId << ", state: " << pam->state());

   bool fit = false;
   auto sc = in_.ldpSessionConfigColl->sessionConfig(id);
   if (ldpId.isEmpty()) {
      // Not identified yet: nothing fits or misfits.
   } else if (!sc) {
      LDP_TRACE(th, 5, "Removing ldpPduPam @sd: " << sd << ", Session " << id << " doesn't exist");
   } else if (sc->peerIpAddr().v4Addr() != pam->peerIpAddr()) {
      LDP_TRACE(th, 5, "Invalid PAM: PDU peerIp (" << pam->peerIpAddr()
                                                   << ") does not match session config peerIp ("
                                                   << sc->peerIpAddr() << ")");
   } else if (sc->ldpSessionRole() == roleActive_) {
      fit = pam->isClient();
   } else if (sc->ldpSessionRole() == rolePassive_) {
      fit = !pam->isClient();
   }
   // A session whose machines are gone (LDP stopping) takes no channel.
   if (fit && !in_.ldpSessionSmColl->sessionCtrlSm(id)) fit = false;

   if (pam->state() == pamReady) {
      if (pam->rxErrors()) {
         LDP_TRACE(th, 5, "Rx errors found " << pam->rxErrors());
         pam->stateIs(pamDestroy);
      } else if (pam->txErrors()) {
         LDP_TRACE(th, 5, "Tx errors found " << pam->txErrors());
         pam->stateIs(pamDestroy);
      } else if (pam->destroyRequest()) {
         LDP_TRACE(th, 5, "Destroy request");
         pam->stateIs(pamDestroy);
      } else if (ldpId.isEmpty()) {
         LDP_TRACE(th, 8, " LDP PDU Pam has ldpIdentifier being all 0, skip");
      } else if (!fit) {
         shutdownPam(sd, pam);
      } else if (isSdThisSession(sd, id)) {
         LDP_TRACE(th, 8, "This ldpPduPam already associated with this an ldp session");
      } else if (auto old = in_.ldpPduPamSessionColl->ldpPduPam(id)) {
         LDP_TRACE(th, 5, " New ldpPamPdu sd " << sd << " old ldpPduPam sd "
                                               << old->fileDescriptor());
         shutdownPam(sd, pam);
      } else {
         assignPamToSession(sd, id, pam);
      }
      return;
   }
   if (pam->state() != pamOperational) return;
   char const* why = nullptr;
   if (pam->rxErrors()) why = "Rx errors found ";
   else if (pam->txErrors()) why = "Tx errors found ";
   else if (pam->destroyRequest()) why = "Destroy request";
   if (why) {
      LDP_TRACE(th, 5, why);
      if (isSdThisSession(sd, id)) removePamFromSession(id);
      pam->stateIs(pamDestroy);
      return;
   }
   if (fit) return;
   LDP_TRACE(th, 5, "Removing ldpPduPam @sd: " << sd << ", Session " << id);
   if (isSdThisSession(sd, id)) removePamFromSession(id);
   shutdownPam(sd, pam);
}

void LdpSessionConfigSm::assignPamToSession(int sd, LdpSessionId const& id,
                                            Vek::Ptr<LdpPduPam> const& pam) {
   LDP_TRACE(th, 5, "Adding LdpPduPam to SessionSm " << id << " sd " << sd);
   auto status = in_.ldpSessionStatusColl->sessionStatus(id);
   LdpSessionSmColl* sms = in_.ldpSessionSmColl.ptr();
   auto txSm = sms->sessionTxSm(id);
   auto rxSm = sms->sessionRxSm(id);
   auto ctrlSm = sms->sessionCtrlSm(id);
   VEK_ASSERT(status && txSm && rxSm && ctrlSm && "Internal Error: the session has its machines");
   in_.ldpPduPamSessionColl->ldpPduPamIs(id, pam);
   // The addresses of the connection, as getsockname and getpeername gave
   // them when the socket was accepted or connected.
   Nolu::IpAddr localIp, peerIp;
   U16 localPort = 0, peerPort = 0;
   if (auto const& conn = pam->connSocket()) {
      localIp = conn->localIpAddr();
      localPort = conn->localPort();
      peerIp = conn->remoteIpAddr();
      peerPort = conn->remotePort();
   }
   status->localIpAddrIs(Nolu::IpGenAddr(localIp));
   status->localPortIs(localPort);
   status->peerIpAddrIs(Nolu::IpGenAddr(peerIp));
   status->peerPortIs(peerPort);
   // Until the session has agreed on a maximum, a PDU may be as long as the
   // default or as this LSR proposes, whichever is more.
   if (auto sc = in_.ldpSessionConfigColl->sessionConfig(id))
      pam->maxPduLengthIs(std::max<U32>(sc->maxPduLength(), LdpProtoParam::defaultMaxPduLength()));
   txSm->ldpPduTxPamIs(pam);
   rxSm->ldpPduRxPamInIs(pam);
   pam->stateIs(pamOperational);
   ctrlSm->ldpPduRxPamIs(pam);
}

void LdpSessionConfigSm::removePamFromSession(LdpSessionId const& id) {
   LdpSessionSmColl* sms = in_.ldpSessionSmColl.ptr();
   if (auto ctrlSm = sms->sessionCtrlSm(id)) ctrlSm->ldpPduRxPamIs(nullptr);
   if (auto rxSm = sms->sessionRxSm(id)) rxSm->ldpPduRxPamInIs(nullptr);
   if (auto txSm = sms->sessionTxSm(id)) txSm->ldpPduTxPamIs(nullptr);
   if (auto status = in_.ldpSessionStatusColl->sessionStatus(id)) {
      status->localIpAddrIs(Nolu::IpGenAddr());
      status->localPortIs(0);
      status->peerIpAddrIs(Nolu::IpGenAddr());
      status->peerPortIs(0);
   }
   in_.ldpPduPamSessionColl->ldpPduPamDel(id);
}

// ---- the addresses that this LSR advertises

void LdpSessionConfigSm::handleIntfIp(Nolu::IpAddrWithMask const& addrWithMask) {
   if (!initialized_ || !in_.localIntfIpColl) return;
   Nolu::IpAddr addr = addrWithMask.addr();
   if (in_.localIntfIpColl->intfIpWithMaskHas(addrWithMask)) {
      intfIpAddr_[addr].insert(addrWithMask);
   } else if (auto it = intfIpAddr_.find(addr); it != intfIpAddr_.end()) {
      it->second.erase(addrWithMask);
      if (it->second.empty()) intfIpAddr_.erase(it);
   }
   auto common = in_.ldpSessionConfigColl->ldpSessionCommonConfig();
   if (intfIpAddr_.count(addr)) common->localIntfIpIs(addr, true);
   else common->localIntfIpDel(addr);
   intfIpAddrDelQueue_.erase(addr);
}

void LdpSessionConfigSm::handleIntfIp() {
   if (!initialized_ || !in_.localIntfIpColl) return;
   auto common = in_.ldpSessionConfigColl->ldpSessionCommonConfig();
   for (auto it = common->localIntfIpIter(); it; ++it) intfIpAddrDelQueue_.insert(it.key());
   for (auto it = in_.localIntfIpColl->intfIpWithMaskIter(); it; ++it) handleIntfIp(it.key());
   for (Nolu::IpAddr a : intfIpAddrDelQueue_) common->localIntfIpDel(a);
   intfIpAddrDelQueue_.clear();
}

// ---- LdpSessionStatusSm

class LdpSessionStatusSm::StatusReactor : public LdpSessionStatus::NotifieeConst {
 public:
   StatusReactor(LdpSessionStatusSm* sm, Vek::Ptr<LdpSessionStatus const> const& n,
                 LdpSessionId const& id)
      : sm_(sm), id_(id) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   void onSessionState() override {
      auto* sm = sm_;
      LdpSessionId id = id_;
      Vek::Sm::run(sm, [sm, id] { sm->handleSessionState(id); });
   }
   void onPeerIntfIp(Nolu::IpGenAddr const& a) override {
      auto* sm = sm_;
      LdpSessionId id = id_;
      Nolu::IpGenAddr addr = a;
      Vek::Sm::run(sm, [sm, id, addr] { sm->handlePeerIntfIp(id, addr); });
   }

 private:
   LdpSessionStatusSm* sm_;
   LdpSessionId id_;
};

LdpSessionStatusSm::LdpSessionStatusSm(
   U32 instId, Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
   Vek::Ptr<LdpIdIntfIpMappingTable> const& ldpIdIntfIpMappingTable,
   Vek::Ptr<LdpPduPamSessionColl const> const& ldpPduPamSessionColl)
   : LdpSm(instId), ldpSessionStatusColl_(Vek::validPtr(ldpSessionStatusColl)),
     ldpIdIntfIpMappingTable_(Vek::validPtr(ldpIdIntfIpMappingTable)),
     ldpPduPamSessionColl_(Vek::validPtr(ldpPduPamSessionColl)) {
   statusCollReactor_.init(this, ldpSessionStatusColl_);
   handleInitialized();
}

void LdpSessionStatusSm::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpSessionStatusColl_->sessionStatusIter(); it; ++it)
      handleSessionStatus(LdpSessionId(it.key()));
   handlePeerIntfIp();
}

void LdpSessionStatusSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   auto st = ldpSessionStatusColl_->sessionStatus(id);
   if (st) {
      sessionStatus_.is(id, this, st, id);
      for (auto it = st->peerIntfIpIter(); it; ++it) handlePeerIntfIp(id, it.key());
      return;
   }
   sessionStatus_.del(id);
   // The session's addresses go with it.
   std::vector<Nolu::IpGenAddr> gone;
   for (auto const& [addr, ids] : intfIpSessionTable_)
      if (ids.count(id)) gone.push_back(addr);
   for (auto const& a : gone) handlePeerIntfIp(id, a);
}

void LdpSessionStatusSm::handleSessionState(LdpSessionId const& id) {
   if (!initialized_) return;
   auto st = ldpSessionStatusColl_->sessionStatus(id);
   auto pam = ldpPduPamSessionColl_->ldpPduPam(id);
   if (st && pam && st->sessionState() == stateClosed_) {
      VEK_TRACE(ths, 5, "Session " << id << " closed: destroy its channel");
      Vek::ptr_const_cast<LdpPduPam>(pam)->destroyRequestIs(true);
   }
}

void LdpSessionStatusSm::handlePeerIntfIp(LdpSessionId const& id, Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   auto st = ldpSessionStatusColl_->sessionStatus(id);
   if (st && st->peerIntfIpHas(addr)) {
      intfIpSessionTable_[addr].insert(id);
   } else if (auto it = intfIpSessionTable_.find(addr); it != intfIpSessionTable_.end()) {
      it->second.erase(id);
      if (it->second.empty()) intfIpSessionTable_.erase(it);
   }
   auto it = intfIpSessionTable_.find(addr);
   if (it != intfIpSessionTable_.end()) {
      VEK_ASSERT(!it->second.empty() && "There should be at least one session in the membership");
      ldpIdIntfIpMappingTable_->intfIpToLdpIdIs(addr, it->second.begin()->ldpIdentifier());
   } else {
      ldpIdIntfIpMappingTable_->intfIpToLdpIdDel(addr);
   }
   intfIpDelQueue_.erase(addr);
}

void LdpSessionStatusSm::handlePeerIntfIp() {
   if (!initialized_) return;
   for (auto it = ldpIdIntfIpMappingTable_->intfIpToLdpIdIter(); it; ++it)
      intfIpDelQueue_.insert(it.key());
   for (auto it = ldpSessionStatusColl_->sessionStatusIter(); it; ++it)
      for (auto a = it.value()->peerIntfIpIter(); a; ++a) handlePeerIntfIp(it.key(), a.key());
   for (auto const& a : intfIpDelQueue_) ldpIdIntfIpMappingTable_->intfIpToLdpIdDel(a);
   intfIpDelQueue_.clear();
}

}  // namespace Ldp

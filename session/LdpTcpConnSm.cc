#include "session/LdpTcpConnSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTcpConn");
}

// ---- LdpTcpConnConfigSm

class LdpTcpConnConfigSm::CommonConfigReactor
   : public Vek::CustomReactor<LdpSessionCommonConfig::NotifieeConst, LdpTcpConnConfigSm> {
 public:
   using CustomReactor::CustomReactor;
   void onIpTransportAddr() override { fwd([](auto* s) { s->handleLdpSession(); }); }
};

class LdpTcpConnConfigSm::ConfigReactor : public LdpSessionConfig::NotifieeConst {
 public:
   ConfigReactor(LdpTcpConnConfigSm* sm, Vek::Ptr<LdpSessionConfig const> const& n,
                 LdpSessionId const& id)
      : sm_(sm), id_(id) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   void onLdpSessionRole() override { fire(); }
   void onPeerIpAddr() override { fire(); }

 private:
   void fire() {
      auto* sm = sm_;
      LdpSessionId id = id_;
      Vek::Sm::run(sm, [sm, id] { sm->handleLdpSession(id); });
   }
   LdpTcpConnConfigSm* sm_;
   LdpSessionId id_;
};

class LdpTcpConnConfigSm::StatusReactor : public LdpSessionStatus::NotifieeConst {
 public:
   StatusReactor(LdpTcpConnConfigSm* sm, Vek::Ptr<LdpSessionStatus const> const& n,
                 LdpSessionId const& id)
      : sm_(sm), id_(id) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   void onTcpClientConnEnabled() override { fire(); }
   void onTcpClientConnReqTime() override { fire(); }

 private:
   void fire() {
      auto* sm = sm_;
      LdpSessionId id = id_;
      Vek::Sm::run(sm, [sm, id] { sm->handleLdpSession(id); });
   }
   LdpTcpConnConfigSm* sm_;
   LdpSessionId id_;
};

LdpTcpConnConfigSm::LdpTcpConnConfigSm(
   U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfigColl const> const& ldpSessionConfigColl,
   Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
   Vek::Ptr<LdpTcpConnConfigColl> const& ldpTcpConnConfigColl,
   Vek::Ptr<LdpTcpServerConfig> const& ldpTcpServerConfig)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)),
     ldpSessionConfigColl_(Vek::validPtr(ldpSessionConfigColl)),
     ldpSessionStatusColl_(Vek::validPtr(ldpSessionStatusColl)),
     ldpTcpConnConfigColl_(Vek::validPtr(ldpTcpConnConfigColl)),
     ldpTcpServerConfig_(Vek::validPtr(ldpTcpServerConfig)) {
   protoConfigReactor_.init(this, protoConfig_);
   sessionConfigCollReactor_.init(this, ldpSessionConfigColl_);
   sessionStatusCollReactor_.init(this, ldpSessionStatusColl_);
   commonConfigReactor_ = std::make_unique<CommonConfigReactor>(
      this, Vek::validPtr(ldpSessionConfigColl_->ldpSessionCommonConfig()));
   handleInitialized();
}

void LdpTcpConnConfigSm::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpSessionConfigColl_->sessionConfigIter(); it; ++it)
      handleSessionConfig(it.key());
   for (auto it = ldpSessionStatusColl_->sessionStatusIter(); it; ++it)
      handleSessionStatus(it.key());
   handleLdpSession();
}

void LdpTcpConnConfigSm::handleSessionConfig(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto sc = ldpSessionConfigColl_->sessionConfig(id)) sessionConfig_.is(id, this, sc, id);
   else sessionConfig_.del(id);
   handleLdpSession(id);
}

void LdpTcpConnConfigSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto st = ldpSessionStatusColl_->sessionStatus(id)) sessionStatus_.is(id, this, st, id);
   else sessionStatus_.del(id);
   handleLdpSession(id);
}

void LdpTcpConnConfigSm::handleLdpSession() {
   if (!initialized_) return;
   for (auto it = ldpSessionConfigColl_->sessionConfigIter(); it; ++it)
      handleLdpSession(LdpSessionId(it.key()));
   // Wishes of sessions that are gone.
   for (auto it = ldpTcpConnConfigColl_->connConfigIter(); it; ++it) {
      LdpSessionId id(it.key());
      if (!ldpSessionConfigColl_->sessionConfigHas(id)) handleLdpSession(id);
   }
   Nolu::IpGenAddr transport = ldpSessionConfigColl_->ldpSessionCommonConfig()->ipTransportAddr();
   ldpTcpServerConfig_->listenIpAddrIs(Nolu::IpGenAddr(transport.v4Addr()));
}

void LdpTcpConnConfigSm::handleLdpSession(LdpSessionId const& id) {
   if (!initialized_) return;
   auto sc = ldpSessionConfigColl_->sessionConfig(id);
   auto st = ldpSessionStatusColl_->sessionStatus(id);
   auto cc = ldpTcpConnConfigColl_->connConfig(id.ldpIdentifier());
   Nolu::IpGenAddr local = ldpSessionConfigColl_->ldpSessionCommonConfig()->ipTransportAddr();
   char const* del = nullptr;
   if (!sc || !st) del = "ldpSessionStatus OR ldpSessionConfig is NULL";
   else if (sc->ldpSessionRole() != roleActive_) del = "Session is not in active role";
   else if (sc->peerIpAddr().v4Addr().isZero() || local.v4Addr().isZero()) del = "IP Address is 0";
   if (del) {
      if (cc) {
         LDP_TRACE(th, 7, del);
         handleLdpTcpConnConfigDel(id);
      }
      return;
   }
   if (!cc) {
      LDP_TRACE(th, 5, "Create new TCP session " << id);
      handleLdpTcpConnConfigAdd(id);
   } else if (cc->peerIp() == Nolu::IpGenAddr(sc->peerIpAddr().v4Addr()) &&
              cc->localIp() == Nolu::IpGenAddr(local.v4Addr())) {
      LDP_TRACE(th, 8, "Session with update information");
      handleLdpTcpConnConfigAdd(id);
   } else {
      LDP_TRACE(th, 5, "IP Address changed");
      handleLdpTcpConnConfigDel(id);
   }
}

void LdpTcpConnConfigSm::handleLdpTcpConnConfigAdd(LdpSessionId const& id) {
   auto sc = ldpSessionConfigColl_->sessionConfig(id);
   auto st = ldpSessionStatusColl_->sessionStatus(id);
   VEK_ASSERT(sc && "ldpSessionConfig");
   VEK_ASSERT(st && "ldpSessionStatus");
   Nolu::IpAddr local = ldpSessionConfigColl_->ldpSessionCommonConfig()->ipTransportAddr().v4Addr();
   Nolu::IpAddr peer = sc->peerIpAddr().v4Addr();
   auto cc = ldpTcpConnConfigColl_->connConfigIs(id.ldpIdentifier(), Nolu::IpGenAddr(local),
                                                 LdpProtoParam::ldpPort(), Nolu::IpGenAddr(peer));
   cc->timeoutIs(sc->keepAliveTime());
   cc->exponentialBackoffRetriesIs(5);
   cc->optionsIs(cc->options() | 10);
   cc->txDsIs(LdpProtoParam::ldpTos());
   if (!protoConfig_->md5Password().empty())
      cc->md5AuthIs(Nolu::IpAddrWithMask(peer, 32), protoConfig_->md5Password());
   cc->requestTimeIs(st->tcpClientConnReqTime());
   cc->enabledIs(st->tcpClientConnEnabled());
}

void LdpTcpConnConfigSm::handleLdpTcpConnConfigDel(LdpSessionId const& id) {
   ldpTcpConnConfigColl_->connConfigDel(id.ldpIdentifier());
}

void LdpTcpConnConfigSm::handleMd5PasswordChange() {
   if (!initialized_) return;
   Vek::String pw = protoConfig_->md5Password();
   for (auto it = ldpTcpConnConfigColl_->connConfigIter(); it; ++it) {
      Nolu::IpAddrWithMask key(it.value()->peerIp().v4Addr(), 32);
      if (pw.empty()) it.value()->md5AuthDel(key);
      else it.value()->md5AuthIs(key, pw);
   }
}

// ---- LdpTcpConnSm

class LdpTcpConnSm::ConfigReactor : public LdpTcpConnConfig::NotifieeConst {
 public:
   ConfigReactor(LdpTcpConnSm* sm, Vek::Ptr<LdpTcpConnConfig const> const& n,
                 LdpIdentifier const& id)
      : sm_(sm), id_(id) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   void onEnabled() override { fire(&LdpTcpConnSm::handleLdpConnConfig); }
   void onRequestTime() override { fire(&LdpTcpConnSm::handleLdpConnConfig); }
   void onMd5Auth(Nolu::IpAddrWithMask const&) override { fire(&LdpTcpConnSm::handleMd5Auth); }

 private:
   void fire(void (LdpTcpConnSm::*h)(LdpIdentifier const&)) {
      auto* sm = sm_;
      LdpIdentifier id = id_;
      Vek::Sm::run(sm, [sm, id, h] { (sm->*h)(id); });
   }
   LdpTcpConnSm* sm_;
   LdpIdentifier id_;
};

class LdpTcpConnSm::ClientStatusReactor : public Nolu::TcpClientStatus::NotifieeConst {
 public:
   ClientStatusReactor(LdpTcpConnSm* sm, Vek::Ptr<Nolu::TcpClientStatus const> const& n,
                       LdpIdentifier const& id)
      : sm_(sm), id_(id) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   void onConnectionStatus() override {
      auto* sm = sm_;
      LdpIdentifier id = id_;
      Vek::Sm::run(sm, [sm, id] { sm->handleLdpConnStatus(id); });
   }

 private:
   LdpTcpConnSm* sm_;
   LdpIdentifier id_;
};

LdpTcpConnSm::LdpTcpConnSm(U32 instId,
                           Vek::Ptr<LdpTcpConnConfigColl const> const& ldpTcpConnConfigColl,
                           Vek::Ptr<LdpTcpConnStatusColl> const& ldpTcpConnStatusColl,
                           Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl,
                           Vek::Ptr<Hesk::TaskScheduler> const& scheduler,
                           Nolu::NamespaceName const& netNs)
   : LdpSm(instId), ldpTcpConnConfigColl_(Vek::validPtr(ldpTcpConnConfigColl)),
     ldpTcpConnStatusColl_(Vek::validPtr(ldpTcpConnStatusColl)),
     ldpPduPamColl_(Vek::validPtr(ldpPduPamColl)), scheduler_(Vek::validPtr(scheduler)),
     netNs_(netNs) {
   connConfigCollReactor_.init(this, ldpTcpConnConfigColl_);
   handleInitialized();
}

void LdpTcpConnSm::handleInitialized() {
   initialized_ = true;
   handleLdpConnConfig();
}

void LdpTcpConnSm::handleLdpConnConfig() {
   if (!initialized_) return;
   for (auto it = ldpTcpConnConfigColl_->connConfigIter(); it; ++it) handleConnConfig(it.key());
   for (auto it = ldpTcpConnStatusColl_->connStatusIter(); it; ++it)
      if (!ldpTcpConnConfigColl_->connConfigHas(it.key()))
         ldpTcpConnStatusColl_->connStatusDel(it.key());
}

void LdpTcpConnSm::handleConnConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   if (auto c = ldpTcpConnConfigColl_->connConfig(ldpId)) connConfig_.is(ldpId, this, c, ldpId);
   else connConfig_.del(ldpId);
   handleLdpConnConfig(ldpId);
}

LdpTcpConnSm::Client* LdpTcpConnSm::client(LdpIdentifier const& ldpId) {
   auto s = ldpTcpConnStatusColl_->connStatus(ldpId);
   if (!s) return nullptr;
   auto* p = client_.find(s->clientId());
   return p ? p->get() : nullptr;
}

void LdpTcpConnSm::handleLdpConnConfig(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto c = ldpTcpConnConfigColl_->connConfig(ldpId);
   if (!c || !c->enabled()) {
      handleDeleteTcpClientSm(ldpId);
      return;
   }
   auto s = ldpTcpConnStatusColl_->connStatus(ldpId);
   if (s && client(ldpId)) {
      if (c->requestTime() != s->requestTime()) handleRestartTcpClientSm(ldpId);
      return;
   }
   handleDeleteTcpClientSm(ldpId);
   handleCreateTcpClientSm(ldpId);
}

void LdpTcpConnSm::handleCreateTcpClientSm(LdpIdentifier const& ldpId) {
   auto c = ldpTcpConnConfigColl_->connConfig(ldpId);
   U32 id = ++clientId_;
   auto s = ldpTcpConnStatusColl_->connStatusIs(ldpId, -1);
   s->clientIdIs(id);
   s->requestTimeIs(c->requestTime());
   auto cl = std::make_unique<Client>();
   cl->id = id;
   cl->config = Nolu::tcpClientConfigFactory(c->localIp().v4Addr(), c->port(), c->peerIp().v4Addr());
   cl->config->netnsIs(netNs_);
   cl->config->optionsIs(c->options());
   cl->config->txDsIs(c->txDs());
   cl->config->timeoutIs(c->timeout());
   cl->config->exponentialBackoffRetriesIs(c->exponentialBackoffRetries());
   for (auto it = c->md5AuthIter(); it; ++it) cl->config->md5AuthIs(it.key(), it.value());
   cl->status = Nolu::tcpClientStatusFactory();
   VEK_ASSERT(cl->config && "clientConfig");
   VEK_ASSERT(cl->status && "clientStatus");
   cl->sm = Nolu::TcpClientSm::TcpClientSmIs(id, cl->config, cl->status, scheduler_);
   cl->reactor = std::make_unique<ClientStatusReactor>(
      this, Vek::Ptr<Nolu::TcpClientStatus const>(cl->status), ldpId);
   LDP_TRACE(th, 5, "TcpClientSm Created: " << c->peerIp() << ":" << c->port() << ", LDP ID "
                                            << ldpId);
   Nolu::TcpClientSm* sm = cl->sm.ptr();
   client_.emplace(id, std::move(cl));
   if (tcpChannelsAvailable(netNs_)) sm->startConnection();
}

void LdpTcpConnSm::handleRestartTcpClientSm(LdpIdentifier const& ldpId) {
   Client* cl = client(ldpId);
   VEK_ASSERT(cl && "tcpClientSm");
   LDP_TRACE(th, 5, "TcpClientSm Restart: " << ldpId);
   // A client that had connected keeps its connected state; a new attempt
   // starts from idle.
   cl->sm->stopConnection();
   cl->status->resetConnSocket();
   cl->status->connectionStatusIs(Nolu::connIdle_);
   cl->sm->startConnection();
}

void LdpTcpConnSm::handleDeleteTcpClientSm(LdpIdentifier const& ldpId) {
   auto s = ldpTcpConnStatusColl_->connStatus(ldpId);
   if (!s) return;
   U32 id = s->clientId();
   ldpTcpConnStatusColl_->connStatusDel(ldpId);
   std::unique_ptr<Client> dead;
   if (client_.erase(id, &dead) && dead) {
      dead->reactor.reset();
      dead->sm->stopConnection();
   }
}

void LdpTcpConnSm::handleMd5Auth(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto c = ldpTcpConnConfigColl_->connConfig(ldpId);
   Client* cl = client(ldpId);
   if (!c || !cl) return;
   cl->config->md5AuthDelAll();
   for (auto it = c->md5AuthIter(); it; ++it) cl->config->md5AuthIs(it.key(), it.value());
}

void LdpTcpConnSm::handleLdpConnStatus(LdpIdentifier const& ldpId) {
   if (!initialized_) return;
   auto c = ldpTcpConnConfigColl_->connConfig(ldpId);
   Client* cl = client(ldpId);
   if (!c || !cl || cl->status->connectionStatus() != Nolu::connConnected_) return;
   Vek::Ptr<Nolu::TcpConnSocket> conn = cl->status->resetConnSocket();
   if (!conn) return;
   int sd = conn->fd();
   LDP_TRACE(th, 5, "LdpTcpClient connected to " << c->peerIp() << ":" << c->port());
   LDP_TRACE(th, 5, "   sd is: " << sd);
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   auto pam = ldpPduPamFactory(conn, true);
   // The channel knows its peer from the start; it is named before it reads,
   // so that a connection that the peer drops at once still reaches the
   // session as a lost connection.
   ldpPduPamColl_->pduPamIs(sd, pam);
   pam->peerIpAddrIs(c->peerIp().v4Addr());
   pam->ldpIdentifierIs(ldpId);
   pam->enabledIs(true);
}

}  // namespace Ldp

#include "aux/LdpEventMonSm.h"

#include <sstream>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpEventMon");

template <class T>
std::string str(T const& v) {
   std::ostringstream os;
   os << v;
   return os.str();
}

// "FEC: " and the prefix, then tail: written for every FEC that comes and
// goes, so built without a stream.
std::string fecLine(Mpls::FwdEqvClass const& fec, char const* tail) {
   std::string s;
   s.reserve(64);
   s += "FEC: ";
   fec.prefix().appendTo(s);
   s += tail;
   return s;
}
}  // namespace

void LdpEventMonLog::lineIs(U32 instId, std::string text) {
   th.write(0, instId, text);
   Line l{nextSeq_++, Vek::System::currentTimeUtc(), std::move(text)};
   if (sink_) sink_(l);
   lines_.push_back(std::move(l));
   while (lines_.size() > capacity_) lines_.pop_front();
}

bool LdpEventMonLog::contains(std::string const& text) const {
   for (auto const& l : lines_)
      if (l.text.find(text) != std::string::npos) return true;
   return false;
}

// ---- Config ----

LdpEventMonConfigSm::LdpEventMonConfigSm(U32 instId, L3::VrfName vrf,
                                         Vek::Ptr<Config const> const& config,
                                         Vek::Ptr<LdpEventMonLog> const& log)
   : LdpSm(instId), vrf_(std::move(vrf)), config_(Vek::validPtr(config)), log_(log) {
   reactor_.init(this, config_);
   handleInitialized();
}

void LdpEventMonConfigSm::handleInitialized() {
   initialized_ = true;
   log_->lineIs(instId(), "LdpEventMonConfigSm[" + vrf_ + "]: created");
   handleConfig();
}

void LdpEventMonConfigSm::handleConfig() {
   if (!initialized_) return;
   Config const& c = *config_;
   log_->lineIs(instId(), "Config: " + vrf_ + (c.enabled() ? " enabled" : " disabled"));
   log_->lineIs(instId(), "   routerId: " + str(c.routerId()));
   log_->lineIs(instId(), "   routerIdIntfId: " + str(c.routerIdIntfId()));
   log_->lineIs(instId(), "   ipTransportAddrIntfId: " + str(c.ipTransportAddrIntfId()));
   log_->lineIs(instId(), "   ldpLabelDistCtrl: " + str(c.ldpLabelDistCtrl()));
   log_->lineIs(instId(), "   ldpLabelAdvDspl: " + str(c.ldpLabelAdvDspl()));
   log_->lineIs(instId(), "   ldpLabelRetention: " + str(c.ldpLabelRetention()));
}

// ---- ProtoConfig ----

LdpEventMonProtoConfigSm::LdpEventMonProtoConfigSm(U32 instId, L3::VrfName vrf,
                                                   Vek::Ptr<ProtoConfig const> const& protoConfig,
                                                   Vek::Ptr<LdpEventMonLog> const& log)
   : LdpSm(instId), vrf_(std::move(vrf)), protoConfig_(Vek::validPtr(protoConfig)), log_(log) {
   reactor_.init(this, protoConfig_);
   handleInitialized();
}

void LdpEventMonProtoConfigSm::handleInitialized() {
   initialized_ = true;
   log_->lineIs(instId(), "LdpEventMonProtoConfigSm[" + vrf_ + "]: created");
}

void LdpEventMonProtoConfigSm::handleRunningState() {
   if (!initialized_) return;
   log_->lineIs(instId(), "ProtoConfig[" + vrf_ + "]: runningState: " +
                             str(protoConfig_->runningState()));
}
void LdpEventMonProtoConfigSm::handleRouterId() {
   if (!initialized_) return;
   log_->lineIs(instId(), "ProtoConfig[" + vrf_ + "]: routerId: " + str(protoConfig_->routerId()));
}
void LdpEventMonProtoConfigSm::handleLdpIdentifier() {
   if (!initialized_) return;
   log_->lineIs(instId(),
                "ProtoConfig[" + vrf_ + "]: ldpId: " + str(protoConfig_->ldpIdentifier()));
}
void LdpEventMonProtoConfigSm::handleIpTransportAddr() {
   if (!initialized_) return;
   log_->lineIs(instId(), "ProtoConfig[" + vrf_ + "]: ipTransAddr: " +
                             str(protoConfig_->ipTransportAddr()));
}
void LdpEventMonProtoConfigSm::handleIntfId() {
   if (!initialized_) return;
   log_->lineIs(instId(), "ProtoConfig[" + vrf_ + "]: intfId: " + str(protoConfig_->intfId()));
}

// ---- Status ----

class LdpEventMonStatusSm::LinkReactor
   : public Vek::CustomReactor<LdpLinkConfigColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onAdjLinkConfig(Nolu::IntfId const& k) override {
      fwd([&k](auto* sm) { sm->handleLinkConfig(k); });
   }
};
class LdpEventMonStatusSm::AdjReactor
   : public Vek::CustomReactor<LdpAdjConfigColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onAdjConfig(LdpAdjId const& k) override { fwd([&k](auto* sm) { sm->handleAdjConfig(k); }); }
};
class LdpEventMonStatusSm::PeerReactor
   : public Vek::CustomReactor<LdpPeerConfigColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onPeerConfig(LdpIdentifier const& k) override {
      fwd([&k](auto* sm) { sm->handlePeerConfig(k); });
   }
};
class LdpEventMonStatusSm::SessionConfigCollReactor
   : public Vek::CustomReactor<LdpSessionConfigColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onSessionConfig(LdpSessionId const& k) override {
      fwd([&k](auto* sm) { sm->handleSessionConfig(k); });
   }
};
class LdpEventMonStatusSm::SessionStatusCollReactor
   : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onSessionStatus(LdpSessionId const& k) override {
      fwd([&k](auto* sm) { sm->handleSessionStatus(k); });
   }
};
class LdpEventMonStatusSm::SessionConfigReactor
   : public Vek::KeyedCustomReactor<LdpSessionConfig::NotifieeConst, LdpEventMonStatusSm,
                                    LdpSessionId> {
 public:
   using KeyedCustomReactor::KeyedCustomReactor;
   void onLdpSessionRole() override { fwdKey(&LdpEventMonStatusSm::handleSessionRole); }
   void onPeerIpAddr() override { fwdKey(&LdpEventMonStatusSm::handleSessionPeerIpAddr); }
};
class LdpEventMonStatusSm::SessionStatusReactor
   : public Vek::KeyedCustomReactor<LdpSessionStatus::NotifieeConst, LdpEventMonStatusSm,
                                    LdpSessionId> {
 public:
   using KeyedCustomReactor::KeyedCustomReactor;
   void onSessionState() override { fwdKey(&LdpEventMonStatusSm::handleSessionState); }
   void onCode() override { fwdKey(&LdpEventMonStatusSm::handleSessionCode); }
   void onOperLabelAdvDspl() override { fwdKey(&LdpEventMonStatusSm::handleSessionOperAdv); }
};
class LdpEventMonStatusSm::FecConfigReactor
   : public Vek::CustomReactor<LdpFecConfigColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onFecConfig(Mpls::FwdEqvClass const& k) override {
      fwd([&k](auto* sm) { sm->handleFecConfig(k); });
   }
   void onFecConfigMembership(Mpls::FwdEqvClass const& k, LdpFecConfigMembership const& m) override {
      fwd([&k, &m](auto* sm) { sm->handleFecMembership(k, m); });
   }
};
class LdpEventMonStatusSm::FecStatusReactor
   : public Vek::CustomReactor<LdpFecStatusColl::NotifieeConst, LdpEventMonStatusSm> {
 public:
   using CustomReactor::CustomReactor;
   void onFecStatusLdpXsessionNotification(Mpls::FwdEqvClass const& k) override { fire(k); }
   void onFecStatusLabelXsessionMappingSmNotiTime(Mpls::FwdEqvClass const& k) override { fire(k); }
   void onFecStatusLabelXsessionRequestSmNotiTime(Mpls::FwdEqvClass const& k) override { fire(k); }

 private:
   void fire(Mpls::FwdEqvClass const& k) {
      fwd([&k](auto* sm) { sm->handleFecNotification(k); });
   }
};

LdpEventMonStatusSm::LdpEventMonStatusSm(U32 instId, L3::VrfName vrf,
                                         Vek::Ptr<Status const> const& status,
                                         Vek::Ptr<LdpEventMonLog> const& log)
   : LdpSm(instId), vrf_(std::move(vrf)), status_(Vek::validPtr(status)), log_(log) {
   statusReactor_.init(this, status_);
   handleInitialized();
}

LdpEventMonStatusSm::~LdpEventMonStatusSm() = default;

void LdpEventMonStatusSm::line(std::string text) { log_->lineIs(instId(), std::move(text)); }

void LdpEventMonStatusSm::handleInitialized() {
   initialized_ = true;
   line("LdpEventMonStatusSm[" + vrf_ + "]: created");
   watch();
}

// The root makes the collections after the status itself: each is watched
// from when it exists.
void LdpEventMonStatusSm::watch() {
   if (!initialized_) return;
   Status const& st = *status_;
   if (!link_ && st.ldpLinkConfigColl()) link_.reset(new LinkReactor(this, st.ldpLinkConfigColl()));
   if (!adj_ && st.ldpAdjConfigColl()) adj_.reset(new AdjReactor(this, st.ldpAdjConfigColl()));
   if (!peer_ && st.ldpPeerConfigColl()) peer_.reset(new PeerReactor(this, st.ldpPeerConfigColl()));
   if (!sessionConfigColl_ && st.ldpSessionConfigColl()) {
      auto c = st.ldpSessionConfigColl();
      sessionConfigColl_.reset(new SessionConfigCollReactor(this, c));
      for (auto it = c->sessionConfigIter(); it; ++it)
         sessionConfig_.is(it.key(), this, Vek::Ptr<LdpSessionConfig const>(it.value()), it.key());
   }
   if (!sessionStatusColl_ && st.ldpSessionStatusColl()) {
      auto c = st.ldpSessionStatusColl();
      sessionStatusColl_.reset(new SessionStatusCollReactor(this, c));
      for (auto it = c->sessionStatusIter(); it; ++it)
         sessionStatus_.is(it.key(), this, Vek::Ptr<LdpSessionStatus const>(it.value()), it.key());
   }
   if (!fecConfig_ && st.ldpFecConfigColl())
      fecConfig_.reset(new FecConfigReactor(this, st.ldpFecConfigColl()));
   if (!fecStatus_ && st.ldpFecStatusColl())
      fecStatus_.reset(new FecStatusReactor(this, st.ldpFecStatusColl()));
}

void LdpEventMonStatusSm::handleLinkConfig(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   bool on = status_->ldpLinkConfigColl()->adjLinkConfigHas(intf);
   line("Link: " + str(intf) + (on ? " enabled" : " removed"));
}

void LdpEventMonStatusSm::handleAdjConfig(LdpAdjId const& id) {
   if (!initialized_) return;
   bool on = status_->ldpAdjConfigColl()->adjConfigHas(id);
   line("Adjacency: " + str(id) + (on ? " enabled" : " removed"));
}

void LdpEventMonStatusSm::handlePeerConfig(LdpIdentifier const& id) {
   if (!initialized_) return;
   bool on = status_->ldpPeerConfigColl()->peerConfigHas(id);
   line("LdpPeer: " + str(id) + (on ? " created" : " removed"));
}

void LdpEventMonStatusSm::handleSessionConfig(LdpSessionId const& id) {
   if (!initialized_) return;
   auto sc = status_->ldpSessionConfigColl()->sessionConfig(id);
   if (sc) sessionConfig_.is(id, this, Vek::Ptr<LdpSessionConfig const>(sc), id);
   else sessionConfig_.del(id);
   line("Session: " + str(id) + (sc ? " created" : " removed"));
}

void LdpEventMonStatusSm::handleSessionRole(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto sc = status_->ldpSessionConfigColl()->sessionConfig(id))
      line("Session: " + str(id) + ", role: " + str(sc->ldpSessionRole()));
}

void LdpEventMonStatusSm::handleSessionPeerIpAddr(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto sc = status_->ldpSessionConfigColl()->sessionConfig(id))
      line("Session: " + str(id) + ", peerIpAddr: " + str(sc->peerIpAddr()));
}

void LdpEventMonStatusSm::handleSessionStatus(LdpSessionId const& id) {
   if (!initialized_) return;
   auto ss = status_->ldpSessionStatusColl()->sessionStatus(id);
   if (ss) sessionStatus_.is(id, this, Vek::Ptr<LdpSessionStatus const>(ss), id);
   else sessionStatus_.del(id);
}

void LdpEventMonStatusSm::handleSessionState(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto ss = status_->ldpSessionStatusColl()->sessionStatus(id))
      line("Session: " + str(id) + ", State: " + str(ss->sessionState()));
}

void LdpEventMonStatusSm::handleSessionCode(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto ss = status_->ldpSessionStatusColl()->sessionStatus(id))
      line("Session: " + str(id) + ", Code: " + str(ss->code()));
}

void LdpEventMonStatusSm::handleSessionOperAdv(LdpSessionId const& id) {
   if (!initialized_) return;
   if (auto ss = status_->ldpSessionStatusColl()->sessionStatus(id))
      line("Session: " + str(id) + ", Operational Adv-Discipline: " + str(ss->operLabelAdvDspl()));
}

void LdpEventMonStatusSm::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   bool on = status_->ldpFecConfigColl()->fecConfig(fec) != nullptr;
   line(fecLine(fec, on ? " created" : " removed"));
}

void LdpEventMonStatusSm::handleFecMembership(Mpls::FwdEqvClass const& fec,
                                              LdpFecConfigMembership m) {
   if (!initialized_) return;
   LdpFecConfig const* fc = status_->ldpFecConfigColl()->fecConfig(fec);
   bool on = fc && fc->membership(m);
   std::string s = fecLine(fec, on ? ": added " : ": deleted ");
   s += ldpFecConfigMembershipStr(m);
   line(std::move(s));
}

void LdpEventMonStatusSm::handleFecNotification(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   LdpFecStatus const* fs = status_->ldpFecStatusColl()->fecStatus(fec);
   auto const* n = fs ? fs->ldpXsessionNotification().ptr() : nullptr;
   if (!n) return;
   std::string s = fecLine(fec, " Notify: ");
   s += ldpXsessionNotificationTypeStr(n->ldpXsessionNotificationType());
   line(std::move(s));
}

// ---- Manager ----

LdpEventMonSmManager::LdpEventMonSmManager(U32 instId,
                                           Vek::Ptr<LdpConfigColl const> const& ldpConfigColl,
                                           Vek::Ptr<LdpProtoConfigColl const> const& ldpProtoConfigColl,
                                           Vek::Ptr<LdpStatusColl const> const& ldpStatusColl,
                                           Vek::Ptr<LdpEventMonLog> const& log)
   : LdpSm(instId), ldpConfigColl_(Vek::validPtr(ldpConfigColl)),
     ldpProtoConfigColl_(Vek::validPtr(ldpProtoConfigColl)),
     ldpStatusColl_(Vek::validPtr(ldpStatusColl)),
     log_(log ? log : Vek::Ptr<LdpEventMonLog>(new LdpEventMonLog)) {
   configReactor_.init(this, ldpConfigColl_);
   protoConfigReactor_.init(this, ldpProtoConfigColl_);
   statusReactor_.init(this, ldpStatusColl_);
   handleInitialized();
}

void LdpEventMonSmManager::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpConfigColl_->configIter(); it; ++it) handleVrf(it.key());
   for (auto it = ldpProtoConfigColl_->protoConfigIter(); it; ++it) handleVrf(it.key());
   for (auto it = ldpStatusColl_->statusIter(); it; ++it) handleVrf(it.key());
}

void LdpEventMonSmManager::handleVrf(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto c = ldpConfigColl_->config(vrf);
   auto cm = ldpEventMonConfigSm_.find(vrf);
   if (c && (!cm || cm->config() != c.ptr()))
      ldpEventMonConfigSm_.is(vrf, Vek::makeSm<LdpEventMonConfigSm>(instId(), vrf, c, log_));
   else if (!c && cm)
      ldpEventMonConfigSm_.del(vrf);
   auto pc = ldpProtoConfigColl_->protoConfig(vrf);
   auto pm = ldpEventMonProtoConfigSm_.find(vrf);
   if (pc && (!pm || pm->protoConfig() != pc.ptr()))
      ldpEventMonProtoConfigSm_.is(vrf,
                                   Vek::makeSm<LdpEventMonProtoConfigSm>(instId(), vrf, pc, log_));
   else if (!pc && pm)
      ldpEventMonProtoConfigSm_.del(vrf);
   auto st = ldpStatusColl_->status(vrf);
   auto sm = ldpEventMonStatusSm_.find(vrf);
   if (st && (!sm || sm->status() != st.ptr()))
      ldpEventMonStatusSm_.is(vrf, Vek::makeSm<LdpEventMonStatusSm>(instId(), vrf, st, log_));
   else if (!st && sm)
      ldpEventMonStatusSm_.del(vrf);
}

}  // namespace Ldp

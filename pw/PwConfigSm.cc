#include "pw/PwConfigSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwConfig");

// The local attachment circuit faults that an administratively down
// pseudowire signals.
constexpr U32 acFaultFlags = Pseudowire::pwStatusAcRxFault_ | Pseudowire::pwStatusAcTxFault_;
}  // namespace

// ---- PwConfigSm

PwConfigSm::PwConfigSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.pwConfig);
   Vek::validPtr(in_.pwStatus);
   Vek::validPtr(in_.localPwFecSessionConfigColl);
   pwConfigReactor_.init(this, in_.pwConfig);
   protoConfigReactor_.init(this, in_.protoConfig);
   infoMapReactor_.init(this, in_.pwFecSessionInfoMap);
   handleInitialized();
}

void PwConfigSm::handleInitialized() {
   LDP_HANDLER(th, "PwConfigSm::handleInitialized " << in_.key);
   initialized_ = true;
   if (in_.pwFecSessionInfoMap) {
      for (auto it = in_.pwFecSessionInfoMap->remoteStatusIter(); it; ++it)
         handleRemoteStatus(it.key());
   }
   computePwStatusMethod();
}

void PwConfigSm::handleDelete() {
   initialized_ = false;
   removeLocalConfig();
}

void PwConfigSm::pwFecSessionInfoMapIs(Vek::Ptr<PwFecSessionInfoMap const> const& m) {
   if (in_.pwFecSessionInfoMap == m) return;
   in_.pwFecSessionInfoMap = m;
   remoteStatus_.delAll();
   infoMapReactor_.assign(this, m);
   if (m) {
      for (auto it = m->remoteStatusIter(); it; ++it) handleRemoteStatus(it.key());
   }
   computePwStatusMethod();
}

void PwConfigSm::handleRemoteStatus(PwFecSessionId const& id) {
   if (!initialized_) return;
   auto const* m = in_.pwFecSessionInfoMap.ptr();
   Vek::Ptr<RemotePwFecSessionStatus const> rs = m ? m->remoteStatus(id) : nullptr;
   if (rs)
      remoteStatus_.is(id, this, rs, id, &PwConfigSm::handlePeerPwStatusMethod);
   else
      remoteStatus_.del(id);
   // A new remote status counts as a change of the peer's method.
   computePwStatusMethod(id);
}

void PwConfigSm::computePwStatusMethod(PwFecSessionId const& id) {
   if (!initialized_) return;
   LDP_TRACE(th, 7, " peer status method changed for " << id);
   computePwStatusMethod();
}

// The Status TLV unless the protocol forces the withdraw method, the request
// doesn't want the TLV, or a peer session doesn't use it: one such peer draws
// the pseudowire to withdrawing its label on faults.
void PwConfigSm::computePwStatusMethod() {
   if (!initialized_) return;
   PwStatusMethod method = pwStatusMethodTlv_;
   if (in_.protoConfig &&
       in_.protoConfig->ldpProtoParamSetting().hasFlag(LdpProtoParamSetting::pwStatusWithdrawMethod))
      method = pwStatusMethodWithdraw_;
   else if (!in_.pwConfig->pwStatusTlv())
      method = pwStatusMethodWithdraw_;
   else {
      if (auto const* m = in_.pwFecSessionInfoMap.ptr()) {
         PwStatusMethod seen = pwStatusMethodUnknown_;
         for (auto it = m->remoteStatusIter(); it; ++it) {
            if (!it.value()) continue;
            PwStatusMethod peer = it.value()->peerPwStatusMethod();
            if (peer == pwStatusMethodWithdraw_) {
               seen = peer;
               break;
            }
            if (peer == pwStatusMethodTlv_) seen = peer;
         }
         if (seen != pwStatusMethodUnknown_) peerMethod_ = seen;
      }
      if (peerMethod_ == pwStatusMethodWithdraw_) method = pwStatusMethodWithdraw_;
   }
   if (in_.pwStatus->pwStatusMethod() != method)
      LDP_TRACE(th, 5, " set status method " << U32(method) << " for " << in_.key);
   in_.pwStatus->pwStatusMethodIs(method);
   updateLocalPwFecSessionConfig();
}

// The one writer of the local FEC-session configuration of this pseudowire.
void PwConfigSm::updateLocalPwFecSessionConfig() {
   if (!initialized_) return;
   PwConfig const* c = in_.pwConfig.ptr();
   PwFwdEqvClass fec(c->pwId(), c->pwType(), c->groupId(), c->preferControlWord());
   PwFecSessionId id(fec, c->ldpSessionId());
   if (hasLocalId_ && localId_ != id) retireLocalConfig(localId_);
   localId_ = id;
   hasLocalId_ = true;
   auto& coll = *in_.localPwFecSessionConfigColl;
   auto fc = coll.fecSessionConfig(id);
   if (!fc) fc = coll.fecSessionConfigIs(id);
   PwFwdEqvClassParams params;
   params.mtuIs(c->mtu());
   params.intfDescriptionIs(c->intfDescription());
   bool up = c->adminPwStatus() > 25;
   U32 flags = fc->pwStatusFlags();
   flags = up ? (flags & ~acFaultFlags) : (flags | acFaultFlags);
   LDP_TRACE(th, 6, " add/update fecSessionConfig: " << id << ", mtu: " << c->mtu()
                       << ", label: " << c->localLabel() << ", params: " << params
                       << ", status: " << U32(c->adminPwStatus()) << ", status-up: " << up);
   fc->fecParamsIs(params);
   fc->labelIs(localLabelToAdvertise(id));
   fc->pwStatusMethodIs(in_.pwStatus->pwStatusMethod());
   fc->pwStatusFlagsIs(Pseudowire::PseudowireLdpStatusFlags(flags));
   fc->memberIs(pwMemberConfig_, true);
}

// The label that the FEC session may advertise: none while another FEC
// session of this pseudowire still holds the same label at the peer (a
// control word or PW type change), since a label is not given for another
// FEC before the peer released it. A peer that never releases it holds the
// label back for labelReleaseWaitMax at most; then the old FEC session's
// withdraw is given up and the label goes out under the new FEC.
Nolu::MplsLabel PwConfigSm::localLabelToAdvertise(PwFecSessionId const& id) {
   Nolu::MplsLabel label = in_.pwConfig->localLabel();
   PwFecSessionId holder;
   if (!label.isValid() || !labelHeldElsewhere(id, label, &holder)) {
      localStatus_.delAll();
      labelReleaseWaitOver_ = false;
      if (labelReleaseWaitTimerTask_) labelReleaseWaitTimerTask_->scheduleTaskDelay(Vek::infinity);
      return label;
   }
   if (labelReleaseWaitOver_) {
      LDP_TRACE(th, 3, " no Release of " << label << " for " << holder << ", withdraw given up");
      auto& coll = *in_.localPwFecSessionConfigColl;
      auto hc = coll.fecSessionConfig(holder);
      if (hc && !hc->memberHas(pwMemberConfig_)) coll.fecSessionConfigDel(holder);
      localStatus_.delAll();
      labelReleaseWaitOver_ = false;
      return label;
   }
   LDP_TRACE(th, 5, " label " << label << " for " << id << " waits for its Release at " << holder);
   if (auto const* m = in_.pwFecSessionInfoMap.ptr()) {
      if (auto st = m->localStatus(holder))
         localStatus_.is(holder, this, st, holder, &PwConfigSm::handleLocalLabelHeld);
   }
   if (!labelReleaseWaitTimerTask_) {
      labelReleaseWaitTimerTask_ =
         Hesk::timerTaskIs(this, &PwConfigSm::handleLabelReleaseWaitTimerTask, in_.scheduler, 2,
                           "PwConfig-releaseWait");
   }
   labelReleaseWaitTimerTask_->scheduleTaskLowestDelay(labelReleaseWaitMax);
   return Nolu::MplsLabel::null();
}

bool PwConfigSm::labelHeldElsewhere(PwFecSessionId const& id, Nolu::MplsLabel label,
                                    PwFecSessionId* holder) const {
   auto const* m = in_.pwFecSessionInfoMap.ptr();
   if (!m) return false;
   for (auto it = m->localStatusIter(); it; ++it) {
      PwFecSessionId const& other = it.key();
      if (other == id || other.sessionId() != id.sessionId() || !it.value()) continue;
      if (it.value()->labelMappingSent() == label ||
          it.value()->labelWithdrawOutstanding() == label) {
         *holder = other;
         return true;
      }
   }
   return false;
}

void PwConfigSm::handleLocalStatus(PwFecSessionId const& id) {
   if (!initialized_) return;
   // The FEC session that held the label went.
   if (localStatus_.find(id)) updateLocalPwFecSessionConfig();
}

void PwConfigSm::handleLabelReleaseWaitTimerTask() {
   if (!initialized_ || localStatus_.size() == 0) return;
   labelReleaseWaitOver_ = true;
   updateLocalPwFecSessionConfig();
}

// A configuration that the pseudowire no longer uses loses its label, so
// that the label machines withdraw it, and this machine's membership; it goes
// once the withdraw is done.
void PwConfigSm::retireLocalConfig(PwFecSessionId const& id) {
   auto fc = in_.localPwFecSessionConfigColl->fecSessionConfig(id);
   if (!fc) return;
   LDP_TRACE(th, 5, " retire fecSessionConfig: " << id);
   fc->labelIs(Nolu::MplsLabel::null());
   fc->memberDel(pwMemberConfig_);
}

void PwConfigSm::removeLocalConfig() {
   VEK_ASSERT(!initialized());
   if (hasLocalId_) retireLocalConfig(localId_);
   hasLocalId_ = false;
}

// ---- PwConfigSmManager

PwConfigSmManager::PwConfigSmManager(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.pwLdpConfig);
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.ldpSessionMsgPipeColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.pwConfigColl);
   Vek::validPtr(in_.pwStatusColl);
   Vek::validPtr(in_.pwConfigSmColl);
   pwLdpConfigReactor_.init(this, in_.pwLdpConfig);
   ldpIndexReactor_.init(this, Vek::Ptr<LdpIndex const>(in_.ldpIndex));
   msgPipeReactor_.init(this, in_.ldpSessionMsgPipeColl);
   handleInitialized();
}

void PwConfigSmManager::handleInitialized() {
   LDP_HANDLER(th, "PwConfigSmManager::handleInitialized");
   initialized_ = true;
   for (auto it = in_.ldpIndex->peerToSessionIter(); it; ++it) handlePeerToSession(it.key());
   for (auto it = in_.ldpSessionMsgPipeColl->msgPipeIter(); it; ++it) handleMsgPipe(it.key());
   for (auto it = in_.pwLdpConfig->ldpRequestIter(); it; ++it) handlePwRequest(it.key());
}

void PwConfigSmManager::handlePwRequest(Pseudowire::PseudowireLdpRequestKey const& key) {
   if (!initialized_) return;
   LDP_HANDLER(th, "PwConfigSmManager::handlePwRequest " << key);
   auto& index = *in_.ldpIndex;
   auto req = in_.pwLdpConfig->ldpRequest(key);
   if (req) {
      request_.is(key, this, Vek::Ptr<Pseudowire::PseudowireLdpRequest const>(req), key,
                  &PwConfigSmManager::handleRequestField);
      index.peerToPwRequestIs(key.addr())->requestKeyIs(key, true);
   } else {
      request_.del(key);
      if (auto set = index.peerToPwRequest(key.addr())) {
         set->requestKeyDel(key);
         if (set->requestKeySize() == 0) index.peerToPwRequestDel(key.addr());
      }
   }
   checkCreatePwConfigSm(key);
}

void PwConfigSmManager::handlePeerToSession(Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   auto set = in_.ldpIndex->peerToSession(addr);
   if (set)
      peerToSession_.is(addr, this, Vek::Ptr<LdpSessionIdSet const>(set), addr,
                        &PwConfigSmManager::handlePeer);
   else
      peerToSession_.del(addr);
   handlePeer(addr);
}

void PwConfigSmManager::handlePeer(Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   auto set = in_.ldpIndex->peerToPwRequest(addr);
   if (!set) return;
   // The walk works on a copy: a check can change the set.
   std::vector<Pseudowire::PseudowireLdpRequestKey> keys;
   for (auto it = set->requestKeyIter(); it; ++it) keys.push_back(it.key());
   for (auto const& k : keys) checkCreatePwConfigSm(k);
}

void PwConfigSmManager::handlePwKeyToPwFecSessionInfo(
   Pseudowire::PseudowireLdpRequestKey const& key) {
   if (!initialized_) return;
   if (auto sm = in_.pwConfigSmColl->sm(key))
      sm->pwFecSessionInfoMapIs(in_.ldpIndex->pwKeyToPwFecSessionInfo(key));
}

void PwConfigSmManager::handleMsgPipe(LdpSessionId const& sessionId) {
   if (!initialized_) return;
   auto ss = in_.ldpSessionStatusColl->sessionStatus(sessionId);
   if (auto const* old = sessionAddr_.find(sessionId)) {
      Nolu::IpGenAddr a = *old;
      sessionAddr_.erase(sessionId);
      handlePeer(a);
   }
   if (ss && in_.ldpSessionMsgPipeColl->msgPipe(sessionId)) {
      sessionAddr_.emplace(sessionId, ss->peerIpAddr());
      handlePeer(ss->peerIpAddr());
   }
}

// A session to the request's neighbour that can carry label messages: a
// known peer and a message pipe.
bool PwConfigSmManager::validSession(Nolu::IpGenAddr const& addr, LdpSessionId* id) const {
   auto set = in_.ldpIndex->peerToSession(addr);
   if (!set) return false;
   for (auto it = set->sessionIdIter(); it; ++it) {
      LdpSessionId const& s = it.key();
      if (s.lsrId() == 0 || !in_.ldpSessionMsgPipeColl->msgPipe(s)) continue;
      *id = s;
      return true;
   }
   return false;
}

void PwConfigSmManager::checkCreatePwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key) {
   if (!initialized_) return;
   LdpSessionId newSessId;
   bool valid = validSession(key.addr(), &newSessId);
   auto req = in_.pwLdpConfig->ldpRequest(key);
   auto sm = in_.pwConfigSmColl->sm(key);
   if (req && valid) {
      VEK_ASSERT(newSessId.lsrId() != 0);
      auto config = in_.pwConfigColl->config(key);
      if (sm && config && config->ldpSessionId() != newSessId) {
         LDP_TRACE(th, 5, " pwKey: " << key << ", del pwConfigSm for session change");
         delPwConfigSm(key);
         sm = nullptr;
      } else if (sm && config && config->pwType() != req->pwType()) {
         // The PW type makes the copy: another type is another pseudowire.
         LDP_TRACE(th, 5, " pwKey: " << key << ", del pwConfigSm for PW type change");
         delPwConfigSm(key);
         sm = nullptr;
      }
      if (!sm)
         addPwConfigSm(key, newSessId);
      else
         updatePwConfig(key);
      return;
   }
   if (!sm) return;
   LDP_TRACE(th, 5, " pwKey: " << key << ", del pwConfigSm, validSessionExists=" << valid);
   delPwConfigSm(key);
}

void PwConfigSmManager::addPwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key,
                                      LdpSessionId const& sessId) {
   auto req = in_.pwLdpConfig->ldpRequest(key);
   LDP_TRACE(th, 5, " pwKey: " << key << ", pwConfigSm with sessionId: " << sessId);
   auto config = in_.pwConfigColl->configIs(key, req->pwType());
   config->ldpSessionIdIs(sessId);
   auto status = in_.pwStatusColl->statusIs(key);
   updatePwConfig(key);
   PwConfigSm::Inputs in;
   in.key = key;
   in.pwConfig = config;
   in.pwStatus = status;
   in.localPwFecSessionConfigColl = in_.localPwFecSessionConfigColl;
   in.protoConfig = in_.protoConfig;
   in.pwFecSessionInfoMap = in_.ldpIndex->pwKeyToPwFecSessionInfo(key);
   in.scheduler = in_.scheduler;
   in_.pwConfigSmColl->smIs(key, PwConfigSm::PwConfigSmIs(instId(), in));
}

void PwConfigSmManager::delPwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key) {
   in_.pwConfigSmColl->smDel(key);
   in_.pwConfigColl->configDel(key);
   in_.pwStatusColl->statusDel(key);
}

void PwConfigSmManager::updatePwConfig(Pseudowire::PseudowireLdpRequestKey const& key) {
   auto req = in_.pwLdpConfig->ldpRequest(key);
   auto config = in_.pwConfigColl->config(key);
   if (!req || !config) return;
   config->pwIdIs(key.pwId());
   config->groupIdIs(req->groupId());
   config->localLabelIs(req->localLabel());
   config->mtuIs(req->mtu());
   config->preferControlWordIs(req->preferControlWord());
   config->intfDescriptionIs(req->intfDescription());
   config->pwStatusTlvIs(req->pwStatusTlv());
   config->adminPwStatusIs(req->status());
}

}  // namespace Ldp

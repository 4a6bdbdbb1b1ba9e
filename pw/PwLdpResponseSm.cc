#include "pw/PwLdpResponseSm.h"

#include <cstdio>

namespace Ldp {

namespace {
Vek::TraceHandle th("PwLdpResponse");

std::string hex8(U32 v) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%08x", v);
   return buf;
}
}  // namespace

PwLdpResponseSm::PwLdpResponseSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpIndex);
   Vek::validPtr(in_.pwLdpStatus);
   Vek::validPtr(in_.scheduler);
   ldpIndexReactor_.init(this, in_.ldpIndex);
   handleInitialized();
}

void PwLdpResponseSm::handleInitialized() {
   LDP_HANDLER(th, "PwLdpResponseSm::handleInitialized");
   pwReviewTimerTask_ = Hesk::timerTaskIs(this, &PwLdpResponseSm::handlePwReviewTimerTask,
                                          in_.scheduler, 2, "PwLdpResponse-pwReview");
   initialized_ = true;
   for (auto it = in_.ldpIndex->pwKeyToPwFecSessionInfoIter(); it; ++it)
      handlePwKeyToPwFecSessionInfo(it.key());
   // Responses left by an earlier run are found too.
   for (auto it = in_.pwLdpStatus->responseIter(); it; ++it) pwToReview_.emplace(it.key(), true);
   handlePwReviewTimerTask();
}

// Without LDP in the VRF nothing is signalled, and no answer stands.
void PwLdpResponseSm::handleDelete() {
   initialized_ = false;
   pwFecSessionInfo_.clear();
   in_.pwLdpStatus->responseDelAll();
}

void PwLdpResponseSm::handlePwKeyToPwFecSessionInfo(Key const& key) {
   if (!initialized_) return;
   auto info = in_.ldpIndex->pwKeyToPwFecSessionInfo(key);
   if (!info) {
      pwFecSessionInfo_.erase(key);
      scheduleReview(key);
      return;
   }
   auto [p, fresh] = pwFecSessionInfo_.emplace(key);
   if (!fresh && (*p)->infoMap->notifier() != info) fresh = true;
   if (fresh) {
      *p = std::make_unique<PwInfo>();
      PwInfo& pi = **p;
      pi.infoMap = std::make_unique<InfoMapReactor>(this, info, key);
      for (auto it = info->localConfigIter(); it; ++it) handleInfoRecord(key, 0, it.key());
      for (auto it = info->remoteConfigIter(); it; ++it) handleInfoRecord(key, 1, it.key());
      for (auto it = info->localStatusIter(); it; ++it) handleInfoRecord(key, 2, it.key());
      for (auto it = info->remoteStatusIter(); it; ++it) handleInfoRecord(key, 3, it.key());
   }
   scheduleReview(key);
}

namespace {
// Keeps the reactor of one record in step with the record.
template <class R, class N, class S, class K>
void reactorFor(Vek::ReactorColl<PwFecSessionId, R>& coll, PwFecSessionId const& id,
                Vek::Ptr<N const> const& n, S* sm, K const& key) {
   if (auto* r = coll.find(id)) {
      if (r->notifier() == n) return;
      coll.del(id);
   }
   if (n) coll.is(id, sm, n, key, &S::scheduleReview);
}
}  // namespace

void PwLdpResponseSm::handleInfoRecord(Key const& key, int kind, PwFecSessionId const& id) {
   if (!initialized_) return;
   auto info = in_.ldpIndex->pwKeyToPwFecSessionInfo(key);
   auto* p = pwFecSessionInfo_.find(key);
   if (!info || !p) return;
   PwInfo& pi = **p;
   switch (kind) {
   case 0: reactorFor(pi.localConfig, id, info->localConfig(id), this, key); break;
   case 1: reactorFor(pi.remoteConfig, id, info->remoteConfig(id), this, key); break;
   case 2: reactorFor(pi.localStatus, id, info->localStatus(id), this, key); break;
   case 3: {
      auto rs = info->remoteStatus(id);
      reactorFor(pi.remoteStatus, id, rs, this, key);
      reactorFor(pi.remoteLabelSet, id, rs ? rs->mplsLabelSet() : nullptr, this, key);
      break;
   }
   }
   scheduleReview(key);
}

// Reviews run on the next pass of the scheduler, and many changes to a key
// fold into one.
void PwLdpResponseSm::scheduleReview(Key const& key) {
   if (!initialized_) return;
   pwToReview_.emplace(key, true);
   pwReviewTimerTask_->scheduleTaskDelay(0.0);
}

void PwLdpResponseSm::handlePwReviewTimerTask() {
   if (!initialized_) return;
   pwReviewTimerTask_->stopTimerTask();
   U64 count = 0;
   while (!pwToReview_.empty()) {
      Key key = pwToReview_.begin().key();
      pwToReview_.erase(key);
      computeResponseForPw(key);
      ++count;
   }
   pwReviewTimerTask_->taskWorkCountInc(count);
}

void PwLdpResponseSm::setResponseDefaults(Pseudowire::PseudowireLdpResponse* r) const {
   r->peerLabelIs(Nolu::MplsLabel::null());
   r->remotePwTypeIs(Pseudowire::pwTypeNone_);
   r->controlWordIs(false);
   r->intfDescriptionIs("");
   r->requestedDot1qTagIs(0);
   r->mtuIs(0);
   r->vccvCcTypeIs(0);
   r->vccvCvTypesSupportedIs(Pseudowire::vccvCvNone_);
   r->reassemblySupportedIs(false);
   r->groupIdIs(Pseudowire::GroupId());
}

void PwLdpResponseSm::computeResponseForPw(Key const& key) {
   LDP_HANDLER(th, "PwLdpResponseSm::computeResponseForPw " << key);
   auto& status = *in_.pwLdpStatus;
   auto info = in_.ldpIndex->pwKeyToPwFecSessionInfo(key);
   if (!info) {
      if (status.response(key)) LDP_TRACE(th, 5, "   remove orphaned response for key " << key);
      status.responseDel(key);
      return;
   }
   // The local FEC session that a pseudowire configuration wants.
   PwFecSessionId localId;
   Vek::Ptr<LocalPwFecSessionStatus const> ls;
   for (auto it = info->localConfigIter(); it; ++it) {
      if (!it.value() || !it.value()->memberHas(pwMemberConfig_)) continue;
      ls = info->localStatus(it.key());
      if (!ls) continue;
      localId = it.key();
      break;
   }
   if (!ls) {
      LDP_TRACE(th, 5, "   no local pseudowire for " << key);
      status.responseDel(key);
      return;
   }
   auto r = status.responseIs(key);
   if (!ls->mappingActive()) {
      LDP_TRACE(th, 5, "   no mapping active for " << key);
      setResponseDefaults(r.ptr());
      r->statusIs(Pseudowire::connectorNoLocalMapping);
      return;
   }
   Pseudowire::PseudowireConnectorStatus reason = Pseudowire::connectorNoRemote;
   PwFwdEqvClass const& local = localId.fec();
   for (auto it = info->remoteConfigIter(); it; ++it) {
      PwFwdEqvClass const& remote = it.key().fec();
      LDP_TRACE(th, 6, "   match local  " << local << "\n         remote " << remote);
      if (remote.pwId() != local.pwId()) {
         LDP_TRACE(th, 6, "   pwId mismatch: " << local.pwId() << " " << remote.pwId());
         reason = Pseudowire::connectorNoRemote;
         continue;
      }
      if (remote.pwType() != local.pwType()) {
         LDP_TRACE(th, 6, "   pwType mismatch: " << local.pwType() << " " << remote.pwType());
         reason = Pseudowire::connectorPwTypeMismatch;
         continue;
      }
      if (remote.controlWord() != local.controlWord()) {
         LDP_TRACE(th, 6, "   controlWord mismatch: " << local.controlWord() << " "
                                                     << remote.controlWord());
         reason = Pseudowire::connectorControlWordMismatch;
         continue;
      }
      auto rs = info->remoteStatus(it.key());
      if (!rs) {
         reason = Pseudowire::connectorNoRemote;
         continue;
      }
      LDP_TRACE(th, 6, "   matched remote: " << it.key());
      Nolu::MplsLabel peerLabel;
      if (auto set = rs->mplsLabelSet(); set && set->mplsLabelSize() != 0) {
         peerLabel = set->mplsLabelIter().key();
         VEK_ASSERT(peerLabel.isValid() && "peerLabel.isValid()");
      }
      setResponseDefaults(r.ptr());
      if (!peerLabel.isValid()) {
         LDP_TRACE(th, 5, "   no peer label for " << key);
         r->statusIs(Pseudowire::connectorNoPeerLabel);
         return;
      }
      PwFwdEqvClassParams const& params = it.value()->fecParams();
      r->peerLabelIs(peerLabel);
      r->remotePwTypeIs(remote.pwType());
      r->controlWordIs(remote.controlWord());
      r->intfDescriptionIs(params.intfDescription());
      r->requestedDot1qTagIs(params.requestedVlanId());
      r->mtuIs(params.mtu());
      r->vccvCcTypeIs(params.vccvCcTypes());
      r->vccvCvTypesSupportedIs(params.vccvCvTypes());
      r->reassemblySupportedIs(params.reassemblySupported());
      r->pwStatusFlagsIs(rs->pwStatusFlags());
      r->groupIdIs(remote.groupId());
      if (rs->pwStatusFlags() == Pseudowire::pwStatusForwarding_) {
         LDP_TRACE(th, 5, "   pseudowire is up for " << key << ", label: " << peerLabel
                                                    << ", flags: " << hex8(rs->pwStatusFlags()));
         r->statusIs(Pseudowire::connectorUp);
      } else {
         LDP_TRACE(th, 5, "   remote PW not forwarding for " << key);
         r->statusIs(Pseudowire::connectorRemoteNotForwarding);
      }
      return;
   }
   LDP_TRACE(th, 5, "   no remote end (reason: " << U32(reason) << ") for " << key);
   setResponseDefaults(r.ptr());
   r->statusIs(reason);
}

}  // namespace Ldp

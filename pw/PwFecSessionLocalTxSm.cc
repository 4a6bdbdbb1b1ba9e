#include "pw/PwFecSessionLocalTxSm.h"

#include <cstdio>

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwFecSessionLocal");

std::string hex8(U32 v) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%08x", v);
   return buf;
}
}  // namespace

bool pwFecSessionSend(PwFecSessionSmInputs const& in, Vek::Ptr<Nolu::Pkt> const& pkt) {
   auto pipe = in.ldpSessionMsgPipeColl->msgPipe(in.id.sessionId());
   if (!pipe) return false;
   pipe->txMsgIs(ldpMsgFactory(LdpIdentifier(), pkt, 0));
   return true;
}

bool pwFecSessionReady(LdpSessionStatus const* ss) {
   return ss->sessionState() == stateOperational_ &&
          ss->sessionOpState() == sessionOpAddrExchanged_;
}

void pwMsgCountInc(LocalPwFecSessionStatus* s, bool tx, LdpMsgType type) {
   if (tx)
      s->ldpMsgTxIs(type, s->ldpMsgTx(type) + 1);
   else
      s->ldpMsgRxIs(type, s->ldpMsgRx(type) + 1);
}

void pwMsgCountInc(RemotePwFecSessionStatus* s, bool tx, LdpMsgType type) {
   if (tx)
      s->ldpMsgTxIs(type, s->ldpMsgTx(type) + 1);
   else
      s->ldpMsgRxIs(type, s->ldpMsgRx(type) + 1);
}

PwFecSessionLocalTxSm::PwFecSessionLocalTxSm(U32 instId, PwFecSessionSmInputs const& in,
                                             Vek::Ptr<LocalPwFecSessionStatus> const& ls)
   : LdpSm(instId), in_(in), ls_(Vek::validPtr(ls)) {
   Vek::validPtr(in_.config);
   Vek::validPtr(in_.sessionStatus);
   Vek::validPtr(in_.ldpSessionMsgPipeColl);
   Vek::validPtr(in_.status);
   configReactor_.init(this, in_.config);
   statusReactor_.init(this, Vek::Ptr<LocalPwFecSessionStatus const>(ls_));
   sessionReactor_.init(this, in_.sessionStatus);
   handleInitialized();
}

void PwFecSessionLocalTxSm::handleInitialized() {
   LDP_HANDLER(th, "PwFecSessionLocalTxSm::handleInitialized " << in_.id);
   localLabelStateTimerTask_ =
      Hesk::timerTaskIs(this, &PwFecSessionLocalTxSm::handleLocalLabelStateTimerTask,
                        in_.scheduler, 2, "PwFecSessionLoc-" + in_.id.sessionId().stringValue() + "-Lbl");
   initialized_ = true;
   computeLocalLabelState();
}

bool PwFecSessionLocalTxSm::requestOutstanding() const {
   return ls_->labelRequestMsgId() != ls_->labelRequestMsgIdAcked();
}

PwFwdEqvClassInfo PwFecSessionLocalTxSm::fecInfo() const {
   return PwFwdEqvClassInfo(in_.id.fec(), in_.config->fecParams());
}

// The peer forgets our labels with the session: a session that opens again
// starts with nothing advertised.
void PwFecSessionLocalTxSm::handleSessionState() {
   if (!initialized_) return;
   LDP_HANDLER(th, "PwFecSessionLocalTxSm::handleSessionState " << in_.id);
   ls_->labelMappingSentIs(Nolu::MplsLabel::null());
   ls_->labelWithdrawOutstandingIs(Nolu::MplsLabel::null());
   released_ = false;
   computeLocalLabelState();
}

void PwFecSessionLocalTxSm::computeLocalLabelState() {
   if (!initialized_) return;
   if (computing_) {
      recompute_ = true;
      return;
   }
   computing_ = true;
   do {
      recompute_ = false;
      bool reqOut = requestOutstanding();
      if (reqOut) released_ = false;
      Nolu::MplsLabel release = ls_->labelReleaseLabel();
      Nolu::MplsLabel sent = ls_->labelMappingSent();
      Nolu::MplsLabel withdrawn = ls_->labelWithdrawOutstanding();
      if (!release.isNull()) {
         bool coversWithdraw = !withdrawn.isNull() && (release.isAny() || release == withdrawn);
         bool coversMapping = sent.isValid() && (release.isAny() || release == sent);
         if (coversWithdraw) {
            // The withdraw is complete only when the peer's Release came.
            ls_->labelWithdrawOutstandingIs(Nolu::MplsLabel::null());
            ls_->labelMappingSentIs(Nolu::MplsLabel::null());
         } else if (coversMapping) {
            LDP_TRACE(th, 5, "   Label " << sent << " released by the peer for " << in_.id);
            released_ = true;
            releasedLabel_ = sent;
            ls_->labelMappingSentIs(Nolu::MplsLabel::null());
         }
         sent = ls_->labelMappingSent();
      }
      U32 bits = reqOut ? 1u : 0u;
      if (sent.isValid() && !reqOut) bits |= 8u;
      U32 old = U32(ls_->labelSessionState());
      if (bits != old) {
         LDP_TRACE(th, 6, "   labelSessionState changed from " << hex8(old) << " --> " << hex8(bits));
         ls_->labelSessionStateIs(LdpLocalLabelSessionState(bits));
      }
      Nolu::MplsLabel label = in_.config->label();
      ls_->mappingActiveIs(label.isValid() && label == sent);
      ls_->labelReleaseLabelIs(Nolu::MplsLabel::null());
      updateFecSessionState();
   } while (recompute_);
   computing_ = false;
   handleLocalLabelState();
}

// A burst of changes is judged once: a pseudowire that its configuration
// still wants waits the batching delay, one being given up goes at once.
void PwFecSessionLocalTxSm::handleLocalLabelState() {
   if (!initialized_) return;
   bool wanted = in_.config->memberHas(pwMemberConfig_);
   localLabelStateTimerTask_->scheduleTaskLowestDelay(wanted ? delayLocalLabelStateTimer_ : 0.0);
}

void PwFecSessionLocalTxSm::handleLocalLabelStateTimerTask() {
   if (!initialized_) return;
   LDP_HANDLER(th, "PwFecSessionLocalTxSm::handleLocalLabelStateTimerTask " << in_.id);
   if (in_.sessionStatus->sessionState() != stateOperational_) return;
   char const* reason = "";
   Nolu::MplsLabel sent = ls_->labelMappingSent();
   if (sent.isValid() && computeWithdrawMsgSendReady(sent, &reason)) {
      LDP_TRACE(th, 5, "   Label is to be withdrawn");
      sendWithdrawMessage(sent);
   } else if (computeMappingMsgSendReady(&reason)) {
      LDP_TRACE(th, 5, "   Label is to be advertised");
      sendMappingMessage(in_.config->label());
   } else if (computePwStatusNotificationSendReady(&reason)) {
      LDP_TRACE(th, 5, "   Pseudowire status is to be sent");
      sendPwStatusNotification();
   }
   // The mapping that stands answers the peer's request.
   if (requestOutstanding() && ls_->labelMappingSent().isValid()) {
      ls_->labelRequestMsgIdAckedIs(ls_->labelRequestMsgId());
      computeLocalLabelState();
   }
}

bool PwFecSessionLocalTxSm::computePwWithdrawProcedureActive() const {
   return in_.config->pwStatusMethod() == pwStatusMethodWithdraw_ &&
          in_.config->pwStatusFlags() != Pseudowire::pwStatusForwarding_;
}

bool PwFecSessionLocalTxSm::computeWithdrawMsgSendReadyHelper(bool isMtuChanged,
                                                              bool isPwStatusWithdrawing,
                                                              bool isSameLabel,
                                                              bool isConfigLabel,
                                                              char const** reason) {
   unsigned index = 8 * isMtuChanged + 4 * isPwStatusWithdrawing + 2 * isSameLabel + isConfigLabel;
   switch (index) {
   case 3: *reason = "Mapping stable"; return false;
   case 1:
   case 9: *reason = "Label changed"; return true;
   case 11: *reason = "FEC MTU changed"; return true;
   case 5:
   case 7:
   case 13:
   case 15: *reason = "Pseudowire not forwarding in withdraw mode"; return true;
   default: *reason = "Label no longer configured"; return true;
   }
}

bool PwFecSessionLocalTxSm::computeWithdrawMsgSendReady(Nolu::MplsLabel label,
                                                        char const** reason) const {
   if (!label.isValid() || !ls_->labelMappingSent().isValid()) {
      *reason = "Not sent";
      return false;
   }
   Nolu::MplsLabel configured = in_.config->label();
   bool isMtuChanged = pwFecParamsSent_.mtu() != in_.config->fecParams().mtu();
   bool isPwStatusWithdrawing = computePwWithdrawProcedureActive();
   bool isSameLabel = configured == label;
   bool isConfigLabel = configured.isValid();
   VEK_ASSERT(ls_->labelWithdrawOutstanding() == Nolu::MplsLabel::null() && "Internal Error");
   bool ready = computeWithdrawMsgSendReadyHelper(isMtuChanged, isPwStatusWithdrawing, isSameLabel,
                                                  isConfigLabel, reason);
   LDP_TRACE(th, 6, "   WithdrawMsg readiness for " << in_.id << ": " << *reason);
   return ready;
}

bool PwFecSessionLocalTxSm::computeMappingMsgSendReadyHelper(bool isLabelReleased,
                                                             bool requestOutstanding,
                                                             bool mappedBit, char const** reason) {
   unsigned index = 4 * isLabelReleased + 2 * requestOutstanding + mappedBit;
   switch (index) {
   case 0: *reason = "No mapping sent"; return true;
   case 1:
   case 5: *reason = "Label mapping sent"; return false;
   case 4: *reason = "Label explicitely released"; return false;
   default: *reason = "Label request outstanding"; return true;
   }
}

bool PwFecSessionLocalTxSm::computeMappingMsgSendReady(char const** reason) const {
   Nolu::MplsLabel label = in_.config->label();
   Nolu::MplsLabel sent = ls_->labelMappingSent();
   bool ready = false;
   if (!pwFecSessionReady(in_.sessionStatus.ptr())) {
      *reason = "Session is not ready to exchange labels";
   } else if (!label.isValid()) {
      *reason = "Label not configured";
   } else if (sent.isValid() && sent != label) {
      *reason = "Another mapped label is currently outstanding";
   } else if (!ls_->labelWithdrawOutstanding().isNull() || computePwWithdrawProcedureActive()) {
      *reason = "Withdrawing label";
   } else {
      bool isReleased = released_ && releasedLabel_ == label;
      bool mapped = (U32(ls_->labelSessionState()) & 8u) != 0;
      ready = computeMappingMsgSendReadyHelper(isReleased, requestOutstanding(), mapped, reason);
   }
   LDP_TRACE(th, 6, "   MappingMsg readiness for " << in_.id << ": " << *reason);
   return ready;
}

bool PwFecSessionLocalTxSm::computePwStatusNotificationSendReady(char const** reason) const {
   bool ready = false;
   if (!pwFecSessionReady(in_.sessionStatus.ptr()) ||
       in_.config->pwStatusMethod() != pwStatusMethodTlv_) {
      *reason = "Not using Status TLV method";
   } else if (!ls_->labelMappingSent().isValid()) {
      *reason = "FEC not mapped";
   } else if (pwStatusFlagsSent_ == in_.config->pwStatusFlags()) {
      *reason = "Status unchanged";
   } else {
      *reason = "Status changed";
      ready = true;
   }
   LDP_TRACE(th, 6, "   PW Status Notification readiness: " << *reason);
   return ready;
}

void PwFecSessionLocalTxSm::sendMappingMessage(Nolu::MplsLabel label) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto msgGen = ldpPwMsgGenFactory(pkt);
   PwFecSessionConfig const* c = in_.config.ptr();
   bool ok = msgGen->addLdpMsgHdr(false, LdpLabelMapping_, in_.status->statistics()->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr");
   ok = msgGen->addFecTlvPwId(fecInfo(), true);
   VEK_ASSERT(ok && "msgGen->addFecTlvPwId( pwFecSessionConfig()->fecInfo(), true )");
   ok = msgGen->addGenLabelTlv(false, label);
   VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, label )");
   if (requestOutstanding()) {
      ok = msgGen->addLabelReqMsgIdTlv(ls_->labelRequestMsgId());
      VEK_ASSERT(ok && "msgGen->addLabelReqMsgIdTlv( labelRequestMsgId )");
   }
   bool withStatus = c->pwStatusMethod() == pwStatusMethodTlv_;
   if (withStatus) {
      ok = msgGen->addPwStatusTlv(c->pwStatusFlags());
      VEK_ASSERT(ok && "msgGen->addPwStatusTlv( pwStatusFlags )");
   }
   msgGen->computeHdrLenChecksum();
   if (!pwFecSessionSend(in_, pkt)) return;
   LDP_TRACE(th, 4, "   Sent Label Mapping " << label << " for " << in_.id);
   pwMsgCountInc(ls_.ptr(), true, LdpLabelMapping_);
   pwFecParamsSent_ = c->fecParams();
   if (withStatus) pwStatusFlagsSent_ = c->pwStatusFlags();
   released_ = false;
   ls_->labelMappingSentIs(label);
   computeLocalLabelState();
}

void PwFecSessionLocalTxSm::sendWithdrawMessage(Nolu::MplsLabel label) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto msgGen = ldpPwMsgGenFactory(pkt);
   bool ok = msgGen->addLdpMsgHdr(false, LdpLabelWithdraw_, in_.status->statistics()->messageIdInc(1));
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr");
   ok = msgGen->addFecTlvPwId(fecInfo(), false);
   VEK_ASSERT(ok && "msgGen->addFecTlvPwId( pwFecSessionConfig()->fecInfo(), false )");
   if (label.isValid()) {
      ok = msgGen->addGenLabelTlv(false, label);
      VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, label )");
   } else {
      VEK_ASSERT(label == Nolu::MplsLabel::any() && "Internal Error");
   }
   msgGen->computeHdrLenChecksum();
   if (!pwFecSessionSend(in_, pkt)) return;
   LDP_TRACE(th, 4, "   Sent Label Withdraw " << label << " for " << in_.id);
   pwMsgCountInc(ls_.ptr(), true, LdpLabelWithdraw_);
   ls_->labelWithdrawOutstandingIs(label);
   ls_->labelMappingSentIs(Nolu::MplsLabel::null());
   computeLocalLabelState();
}

void PwFecSessionLocalTxSm::sendPwStatusNotification() {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto msgGen = ldpPwMsgGenFactory(pkt);
   U32 flags = in_.config->pwStatusFlags();
   bool ok = msgGen->addPwNotificationMsg(in_.status->statistics()->messageIdInc(1), flags, fecInfo());
   VEK_ASSERT(ok && "msgGen->addPwNotificationMsg");
   msgGen->computeHdrLenChecksum();
   if (!pwFecSessionSend(in_, pkt)) return;
   LDP_TRACE(th, 4, "   Sent PW Status " << hex8(flags) << " for " << in_.id);
   pwMsgCountInc(ls_.ptr(), true, LdpNotification_);
   pwStatusFlagsSent_ = in_.config->pwStatusFlags();
}

// Active while something remains to do with the peer: a request to answer, a
// label to advertise, a mapping that stands or a withdraw not yet released.
void PwFecSessionLocalTxSm::updateFecSessionState() {
   PwFecSessionStatusState st = pwFecSessionFinished_;
   if (in_.sessionStatus->sessionState() != stateClosed_ &&
       (requestOutstanding() || in_.config->label().isValid() ||
        ls_->labelMappingSent().isValid() || !ls_->labelWithdrawOutstanding().isNull()))
      st = pwFecSessionActive_;
   if (st == ls_->fecSessionState()) return;
   LDP_TRACE(th, 6, (st == pwFecSessionActive_ ? "   Set fecSessionState to Active"
                                               : "   Set fecSessionState to Finished"));
   ls_->fecSessionStateIs(st);
}

}  // namespace Ldp

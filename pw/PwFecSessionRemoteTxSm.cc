#include "pw/PwFecSessionRemoteTxSm.h"

#include <cstdio>
#include <vector>

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwFecSessionRemote");

std::string hex8(U32 v) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%08x", v);
   return buf;
}
}  // namespace

PwFecSessionRemoteTxSm::PwFecSessionRemoteTxSm(U32 instId, PwFecSessionSmInputs const& in,
                                               Vek::Ptr<RemotePwFecSessionStatus> const& rs)
   : LdpSm(instId), in_(in), rs_(Vek::validPtr(rs)) {
   Vek::validPtr(in_.config);
   Vek::validPtr(in_.sessionStatus);
   Vek::validPtr(in_.status);
   statusReactor_.init(this, Vek::Ptr<RemotePwFecSessionStatus const>(rs_));
   labelSetReactor_.init(this, Vek::Ptr<MplsLabelSet const>(Vek::validPtr(rs_->mplsLabelSet())));
   releaseSetReactor_.init(this,
                           Vek::Ptr<MplsLabelSet const>(Vek::validPtr(rs_->mplsReleaseLabelSet())));
   sessionReactor_.init(this, in_.sessionStatus);
   handleInitialized();
}

void PwFecSessionRemoteTxSm::handleInitialized() {
   LDP_HANDLER(th, "PwFecSessionRemoteTxSm::handleInitialized " << in_.id);
   peerLabelStateTimerTask_ =
      Hesk::timerTaskIs(this, &PwFecSessionRemoteTxSm::handlePeerLabelStateTimerTask,
                        in_.scheduler, 2, "PwFecSessionRem-" + in_.id.sessionId().stringValue());
   initialized_ = true;
   computePeerLabelState();
}

void PwFecSessionRemoteTxSm::computePeerLabelState() {
   if (!initialized_) return;
   if (computing_) {
      recompute_ = true;
      return;
   }
   computing_ = true;
   do {
      recompute_ = false;
      U32 bits = 0;
      if (rs_->mplsLabelSet()->mplsLabelSize() != 0) {
         bits |= 4u;
         rs_->labelReleaseMsgIdIs(0);
      }
      if (rs_->labelReleaseMsgId() != 0) bits |= 2u;
      if (rs_->labelWithdrawMsgId() != 0) bits |= 8u;
      if (rs_->mplsReleaseLabelSet()->mplsLabelSize() != 0) bits |= 16u;
      U32 old = U32(rs_->labelSessionState());
      if (bits != old) {
         LDP_TRACE(th, 6, "   peerLabelState changed from " << hex8(old) << " --> " << hex8(bits));
         rs_->labelSessionStateIs(LdpPeerLabelSessionState(bits));
      }
      updateFecSessionState();
   } while (recompute_);
   computing_ = false;
   handlePeerLabelState();
}

void PwFecSessionRemoteTxSm::handlePeerLabelState() {
   if (!initialized_) return;
   peerLabelStateTimerTask_->scheduleTaskLowestDelay(0.0);
}

void PwFecSessionRemoteTxSm::handlePeerLabelStateTimerTask() {
   if (!initialized_) return;
   if (in_.sessionStatus->sessionState() != stateOperational_) return;
   LDP_HANDLER(th, "PwFecSessionRemoteTxSm::handlePeerLabelStateTimerTask " << in_.id);
   computeRequestMsgSendReady();
   computeAbortReqMsgSendReady();
   char const* reason = "";
   if (computeReleaseMsgSendReady(&reason)) sendReleaseMessage();
}

bool PwFecSessionRemoteTxSm::computeReleaseMsgSendReady(char const** reason) {
   if (rs_->labelWithdrawMsgId() == 0) {
      *reason = "No Label Withdraw Message";
      return rs_->mplsReleaseLabelSet()->mplsLabelSize() != 0;
   }
   auto set = rs_->mplsLabelSet();
   auto rel = rs_->mplsReleaseLabelSet();
   Nolu::MplsLabel label = rs_->labelWithdrawLabel();
   if (label.isAny()) {
      for (auto it = set->mplsLabelIter(); it; ++it) rel->mplsLabelIs(it.key(), true);
      set->mplsLabelDelAll();
      *reason = "Label Withdraw Message Received";
   } else if (set->mplsLabelHas(label)) {
      rel->mplsLabelIs(label, true);
      if (rs_->lastMsgTypeWithdraw())
         set->mplsLabelDel(label);
      else
         LDP_TRACE(th, 5, "   Not deleting remote label, " << "since newer mapping message arrived");
      *reason = "Label Withdraw Message with single label Received";
   } else {
      *reason = "Label Withdraw Message with single label Ignored";
   }
   LDP_TRACE(th, 6, "   ReleaseMsg readiness for " << in_.id << ": " << *reason);
   if (rel->mplsLabelSize() != 0) return true;
   // A withdraw of a label that isn't held is still answered, so that the
   // peer's withdraw completes.
   rel->mplsLabelIs(label.isValid() ? label : Nolu::MplsLabel::any(), true);
   return true;
}

void PwFecSessionRemoteTxSm::sendReleaseMessage() {
   auto rel = rs_->mplsReleaseLabelSet();
   VEK_ASSERT(rel->mplsLabelSize() && "remotePwFecSessionStatus()->mplsReleaseLabelSet()->mplsLabels()");
   std::vector<Nolu::MplsLabel> labels;
   for (auto it = rel->mplsLabelIter(); it; ++it) labels.push_back(it.key());
   for (auto const& l : labels) sendSingleReleaseMessage(l);
   rel->mplsLabelDelAll();
   rs_->labelWithdrawLabelIs(Nolu::MplsLabel::null());
   rs_->labelWithdrawMsgIdIs(0);
}

void PwFecSessionRemoteTxSm::sendSingleReleaseMessage(Nolu::MplsLabel label) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto msgGen = ldpPwMsgGenFactory(pkt);
   U32 id = in_.status->statistics()->messageIdInc(1);
   bool ok = msgGen->addLdpMsgHdr(false, LdpLabelRelease_, id);
   VEK_ASSERT(ok && "msgGen->addLdpMsgHdr");
   ok = msgGen->addFecTlvPwId(PwFwdEqvClassInfo(in_.id.fec(), in_.config->fecParams()), false);
   VEK_ASSERT(ok && "msgGen->addFecTlvPwId( fecInfo, false )");
   if (label.isValid()) {
      ok = msgGen->addGenLabelTlv(false, label);
      VEK_ASSERT(ok && "msgGen->addGenLabelTlv( false, mplsLabel )");
   } else {
      VEK_ASSERT(label == Nolu::MplsLabel::any() && "Internal Error");
   }
   msgGen->computeHdrLenChecksum();
   if (!pwFecSessionSend(in_, pkt)) return;
   LDP_TRACE(th, 4, "   Sent Label Release " << label << " for " << in_.id);
   pwMsgCountInc(rs_.ptr(), true, LdpLabelRelease_);
   rs_->labelReleaseMsgIdIs(id);
}

// Active while labels are held, a withdraw waits for its Release or labels
// wait to be released.
void PwFecSessionRemoteTxSm::updateFecSessionState() {
   U32 bits = U32(rs_->labelSessionState());
   PwFecSessionStatusState st = pwFecSessionFinished_;
   if (in_.sessionStatus->sessionState() != stateClosed_ && (bits & (4u | 8u | 16u)) != 0)
      st = pwFecSessionActive_;
   if (st == rs_->fecSessionState()) return;
   LDP_TRACE(th, 6, (st == pwFecSessionActive_ ? "   Set fecSessionState to Active"
                                               : "   Set fecSessionState to Finished"));
   rs_->fecSessionStateIs(st);
}

}  // namespace Ldp

#include "label/LdpFecSessionWorker.h"

#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSessionWorker");
}

bool fecSessionSend(LdpFecSessionWorkerInputs const& in, LdpSessionId const& id,
                    Vek::Ptr<Nolu::Pkt> const& pkt) {
   auto pipe = in.txSessionMsgPipe ? in.txSessionMsgPipe->msgPipe(id) : nullptr;
   if (!pipe) return false;
   pipe->txMsgIs(ldpMsgFactory(LdpIdentifier(), pkt, 0));
   return true;
}

Vek::Ptr<Nolu::Pkt> genLdpNotificationMsg(Statistics* statistics, LdpStatusCode statusCode,
                                          LdpMsgType msgType, U32 msgId) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   bool ok = gen->addLdpMsgHdr(false, LdpNotification_, statistics->messageIdInc(1));
   ok = ok && gen->addStatusTlv(false, false, statusCode, U16(msgType), msgId, false);
   VEK_ASSERT(ok && "Internal Error: a Notification message fits any packet");
   gen->computeHdrLenChecksum();
   return pkt;
}

bool peerLabelWithdrawn(LdpFecSessionStatusColl::FecSessionStatusRef& s, Nolu::MplsLabel label,
                        bool wildcard) {
   if (label != Nolu::MplsLabel::any()) {
      if (wildcard && s->peerLabelState(label) != mappingRcvd_) return false;
      s->peerLabelStateIs(label, withdrawRcvd_);
      return true;
   }
   std::vector<Nolu::MplsLabel> withdrawn;
   for (auto it = s->peerLabelStateIter(); it; ++it)
      if (!wildcard || it.value() == mappingRcvd_) withdrawn.push_back(it.key());
   for (auto const& l : withdrawn) s->peerLabelStateIs(l, withdrawRcvd_);
   if (!withdrawn.empty() || wildcard) return !withdrawn.empty();
   // Still answered by a Release.
   s->peerLabelStateIs(Nolu::MplsLabel::any(), withdrawRcvd_);
   return true;
}

bool localLabelReleased(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id,
                        LdpFecSessionStatusColl::FecSessionStatusRef& s, Nolu::MplsLabel label) {
   bool advertised = false;
   for (auto it = s->localLabelStateIter(); it; ++it)
      if (it.value() == mappingSent_ && (label == Nolu::MplsLabel::any() || it.key() == label))
         advertised = true;
   if (label != Nolu::MplsLabel::any() && !advertised) {
      if (s->localLabelState(label) != withdrawSent_) {
         VEK_TRACE(th, 5, "   Release of a label not advertised: " << label << " " << id);
         return false;
      }
      // The withdraw cycle of the label is complete.
      s->localLabelStateDel(label);
      return true;
   }
   if (s->localLabelStateSize() == 0) return false;
   // The peer gives back a label that is still advertised: it wants none
   // from us until it asks.
   if (advertised) s->localLabelActivelyReleasedIs(true);
   s->localLabelStateDelAll();
   if (advertised) {
      if (auto cfg = in.ldpFecConfigColl->fecConfig(id.fec())) cfg->advertisedToDel(id.sessionId());
   }
   return true;
}

void ldpMsgRxInc(LdpFecSessionStatusColl::FecSessionStatusRef& s, LdpMsgType type) {
   s.ldpMsgRxIs(type, s.ldpMsgRx(type) + 1);
}
void ldpMsgTxInc(LdpFecSessionStatusColl::FecSessionStatusRef& s, LdpMsgType type) {
   s.ldpMsgTxIs(type, s.ldpMsgTx(type) + 1);
}

std::vector<LdpFecSessionId> fecSessionsOfSession(LdpFecSessionWorkerInputs const& in,
                                                  LdpSessionId const& id) {
   std::vector<LdpFecSessionId> out;
   LdpFecSessionStatusColl const* fs = in.ldpFecSessionStatusColl.ptr();
   if (fs->fecSessionStatusSize() == 0) return out;
   for (auto it = in.ldpFecConfigColl->fecConfigIter(); it; ++it) {
      LdpFecSessionId fsid(it.key(), id);
      if (fs->fecSessionStatusHas(fsid)) out.push_back(fsid);
   }
   return out;
}

std::vector<LdpFecSessionId> fecSessionsOfFec(LdpFecSessionWorkerInputs const& in,
                                              Mpls::FwdEqvClass const& fec) {
   std::vector<LdpFecSessionId> out;
   LdpFecSessionStatusColl const* fs = in.ldpFecSessionStatusColl.ptr();
   for (auto it = in.ldpSessionStatusColl->sessionStatusIter(); it; ++it) {
      LdpFecSessionId fsid(fec, it.key());
      if (fs->fecSessionStatusHas(fsid)) out.push_back(fsid);
   }
   return out;
}

// ---- wildcard Withdraws and Releases

void LdpFecWildcardWork::jobIs(LdpSessionId const& id, LdpMsgType type, Nolu::MplsLabel label) {
   auto job = std::make_shared<Job>();
   job->sessionId = id;
   job->type = type;
   job->label = label;
   jobs_.push_back(std::move(job));
}

void LdpFecWildcardWork::sessionDel(LdpSessionId const& id) {
   // A walk that stands on one of them holds it, and sees it gone.
   for (auto& j : jobs_)
      if (j->sessionId == id) j->gone = true;
   std::erase_if(jobs_, [](std::shared_ptr<Job> const& j) { return j->gone; });
}

void LdpFecWildcardWork::settle(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id) {
   if (jobs_.empty()) return;
   bool any = false;
   for (auto const& j : jobs_) any = any || j->sessionId == id.sessionId();
   if (!any) return;
   // A copy: serving the FEC session may end its session and drop the jobs.
   std::vector<std::shared_ptr<Job>> mine;
   for (auto const& j : jobs_)
      if (j->sessionId == id.sessionId()) mine.push_back(j);
   for (auto const& j : mine) {
      if (j->gone || !j->settled.emplace(id.fec(), true).second) continue;
      apply(in, *j, id);
   }
}

void LdpFecWildcardWork::apply(LdpFecSessionWorkerInputs const& in, Job const& job,
                               LdpFecSessionId const& id) {
   bool changed;
   {
      auto s = in.ldpFecSessionStatusColl->fecSessionStatus(id);
      if (!s) return;
      if (job.type == LdpLabelWithdraw_) changed = peerLabelWithdrawn(s, job.label, true);
      else changed = localLabelReleased(in, id, s, job.label);
      if (changed) ldpMsgRxInc(s, job.type);
   }
   if (!changed) return;
   VEK_TRACE(th, 7, "   Wildcard " << ldpMsgTypeStr(job.type) << " applied to " << id);
   if (job.type == LdpLabelWithdraw_) wakeRequestSm(in, id, LdpLabelWithdraw_);
   else wakeMappingSm(in, id);
}

bool LdpFecWildcardWork::walk(LdpFecSessionWorkerInputs const& in, Hesk::TimerTask* task) {
   auto* coll = in.ldpFecConfigColl.ptr();
   U64 count = 0;
   bool stopped = false;
   while (!jobs_.empty() && !stopped) {
      std::shared_ptr<Job> job = jobs_.front();
      auto it = coll->fecConfigIterFrom(job->bookmark);
      job->bookmark.clear();
      while (it && !job->gone) {
         Mpls::FwdEqvClass fec = it.key();
         ++it;
         // The iterator's place survives the writes below as a bookmark.
         Vek::Bookmark<Mpls::FwdEqvClass> next;
         if (it) next = it.bookmark();
         LdpFecSessionId id(fec, job->sessionId);
         if ((job->settled.empty() || !job->settled.contains(fec)) &&
             in.ldpFecSessionStatusColl->fecSessionStatusHas(id))
            apply(in, *job, id);
         ++count;
         if (!next.set) break;
         it = coll->fecConfigIterFrom(next);
         if (task->taskShouldYield()) {
            job->bookmark = next;
            stopped = true;
            break;
         }
      }
      if (stopped && !job->gone) break;
      stopped = false;
      // Done, or dropped with its session.
      VEK_TRACE(th, 7, "   Wildcard " << ldpMsgTypeStr(job->type) << " of " << job->sessionId
                                      << (job->gone ? " dropped" : " done"));
      if (!jobs_.empty() && jobs_.front() == job) jobs_.pop_front();
      if (task->taskShouldYield()) stopped = true;
   }
   task->taskWorkCountInc(count);
   task->taskWorkPendingIs(jobs_.size());
   return !jobs_.empty();
}

}  // namespace Ldp

#include "label/LdpFecSessionWorker.h"

#include "wire/LdpMsgGen.h"

namespace Ldp {

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

}  // namespace Ldp

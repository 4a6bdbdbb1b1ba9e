#include "session/LdpSessionTxSm.h"

#include <algorithm>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionTx");
}

LdpSessionTxSm::LdpSessionTxSm(
   U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
   Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
   Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
   Vek::Ptr<LdpSessionStatistics> const& sessionStatistics, Vek::Ptr<LdpMsgPipe> const& ldpMsgPipe,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSessionSmCommon(instId, id, protoConfig, sessionConfig, sessionCommonConfig, sessionStatus,
                        status, sessionStatistics),
     ldpMsgPipe_(ldpMsgPipe), scheduler_(Vek::validPtr(scheduler)) {
   sessionStatusReactor_.init(this, Vek::Ptr<LdpSessionStatus const>(sessionStatus));
   sessionCommonConfigReactor_.init(this, sessionCommonConfig);
   ldpMsgPipeReactor_.init(this, Vek::Ptr<LdpMsgPipe const>(ldpMsgPipe));
   handleInitialized();
}

void LdpSessionTxSm::handleInitialized() {
   std::string key = "SessionTx-" + ldpSessionId().ldpIdentifier().stringValue();
   txPktTimerTask_ =
      Hesk::timerTaskIs(this, &LdpSessionTxSm::handleTxPktTimerTask, scheduler_, 2, key + "-txPkt");
   txLdpPduTimerTask_ = Hesk::timerTaskIs(this, &LdpSessionTxSm::handleTxLdpPduTimerTask,
                                          scheduler_, 2, key + "-txPdu");
   keepAliveTxTimerTask_ = Hesk::timerTaskIs(this, &LdpSessionTxSm::handleKeepAliveTxTimerTask,
                                             scheduler_, 0, key + "-keepAlive");
   localIntfIpTimerTask_ = Hesk::timerTaskIs(this, &LdpSessionTxSm::handleLocalIntfIpTimerTask,
                                             scheduler_, 2, key + "-intfIp");
   initialized_ = true;
   handleSessionState();
   handleLdpMsgPipe();
}

void LdpSessionTxSm::ldpPduRxPamIs(Vek::Ptr<Nolu::Pam> const& p) {
   if (ldpPduRxPam_ == p) return;
   ldpPduRxPam_ = p;
   ldpPduRxPamReactor_.assign(this, Vek::Ptr<Nolu::Pam const>(p), &LdpSessionTxSm::handlePamReadable);
}

void LdpSessionTxSm::ldpPduTxPamIs(Vek::Ptr<Nolu::Pam> const& p) {
   if (ldpPduTxPam_ == p) return;
   ldpPduTxPam_ = p;
   ldpPduTxPamReactor_.assign(this, Vek::Ptr<Nolu::Pam const>(p), &LdpSessionTxSm::handlePamWritable);
}

void LdpSessionTxSm::handleSessionState() {
   if (!initialized_) return;
   switch (sessionState()) {
   case stateUnknown_:
   case stateNonExistent_:
   case stateClosed_: {
      // Nothing unsent outlives the session: no PDU, no address still to be
      // advertised or withdrawn, no record of what was sent on it.
      txPktCount_ = 0;
      txLdpPduTimerTask_->scheduleTaskDelay(Vek::infinity);
      keepAliveTxTimerTask_->scheduleTaskDelay(Vek::infinity);
      localIntfIpTimerTask_->scheduleTaskDelay(Vek::infinity);
      txLdpPduPktHolder_ = nullptr;
      ldpMsgGenHolder_ = nullptr;
      txPktQueue_.clear();
      localIntfIpAddQueue_.clear();
      localIntfIpDelQueue_.clear();
      LdpSessionStatistics* stats = sessionStatistics().ptr();
      stats->ldpMsgIdFecMappingInfoDelAll();
      stats->pwLocalMsgIdInfoDelAll();
      stats->pwRemoteMsgIdInfoDelAll();
      if (sessionState() == stateClosed_ && !preOperationalMsgs_.empty()) {
         LDP_TRACE(th, 5, "   " << preOperationalMsgs_.size()
                               << " label messages dropped with the session " << ldpSessionId());
         stats->ldpMsgTxRefusedCountInc(preOperationalMsgs_.size());
         preOperationalMsgs_.clear();
      }
      break;
   }
   case stateInitialized_:
   case stateOpenSent_:
   case stateOpenRec_: localIntfIpTimerTask_->scheduleTaskDelay(Vek::infinity); break;
   case stateOperational_: {
      ldpSessionStatus()->addressMsgTsmtIs(false);
      keepAliveTxTimerTask_->scheduleTaskDelay(ldpSessionStatus()->operKeepAliveTxInterval());
      handleLocalIntfIp();
      // What the label machines sent while the session opened goes now,
      // behind the KeepAlive that made it operational.
      std::deque<Vek::Ptr<LdpMsg>> held;
      held.swap(preOperationalMsgs_);
      for (auto const& m : held) {
         if (sessionState() != stateOperational_) break;
         ldpMsgSend(m->pkt(), U16(m->offset()), m->priority());
      }
      break;
   }
   }
}

bool LdpSessionTxSm::txPamWritable() const {
   if (!ldpPduTxPam_) return false;
   // A TCP channel says itself whether the kernel takes more; a plain
   // channel counts the writes it permits.
   if (auto const* tcp = dynamic_cast<Nolu::TcpPduPam const*>(ldpPduTxPam_.ptr()))
      return tcp->enabled() && tcp->writable();
   return ldpPduTxPam_->writableCount() > txPktCount_;
}

void LdpSessionTxSm::countTxMsgs(PktPtr const& pkt) {
   // Every message that reaches the wire is counted here, once, whichever
   // machine made it; a run of one type costs one update.
   LdpSessionStatistics* stats = sessionStatistics().ptr();
   U32 const end = pkt->dataBytes();
   U32 off = LdpProtoParam::pduHeaderLength();
   LdpMsgType run = LdpMsgTypeNone_;
   U64 runCount = 0;
   auto flush = [&] {
      if (runCount) stats->ldpMsgTxCountIs(run, stats->ldpMsgTxCount(run) + runCount);
      runCount = 0;
   };
   while (U64(off) + LdpProtoParam::msgHeaderLength() <= end) {
      auto const* hdr = reinterpret_cast<LdpMsgHdr const*>(pkt->readPtr(off));
      LdpMsgType type = hdr->type();
      if (type != run) {
         flush();
         run = type;
      }
      ++runCount;
      if (type == LdpNotification_) {
         auto n = ldpNotificationMsgParserFactory(pkt, off);
         if (n->statusTlv()) ldpMsgNotificationTxCountInc(stats, n->statusData());
      }
      off += 4 + hdr->length();
   }
   flush();
}

void LdpSessionTxSm::sendPkt(PktPtr const& pkt) {
   if (!txPamWritable()) return;
   LDP_TRACE(th, 9, "   LDP PDU Tx Dump: " << pktHexDump(pkt.ptr()) << " send to: "
                                          << ldpSessionId());
   ldpPduTxPam_->txPktIs(pkt);
   ++txPktCount_;
   sessionStatistics()->ldpPduTxCountInc(1);
   countTxMsgs(pkt);
   if (sessionState() == stateOperational_)
      keepAliveTxTimerTask_->scheduleTaskDelay(ldpSessionStatus()->operKeepAliveTxInterval());
}

void LdpSessionTxSm::ldpPduSend(PktPtr const& pkt, bool tryImmediate) {
   LDP_TRACE(th, 8, "ldpPduSend " << ldpSessionId() << " local "
                                  << ldpSessionStatus()->localLdpIdentifier());
   if (tryImmediate && txPamWritable()) {
      sendPkt(pkt);
      return;
   }
   txPktQueue_.push_back(pkt);
   txPktTimerTask_->scheduleTaskDelay(0.0);
}

void LdpSessionTxSm::handleTxPktTimerTask() {
   if (!initialized_) return;
   ReentrantAssert guard(&txPktTimerTaskRunning_);
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   while (txPamWritable() && !txPktQueue_.empty()) {
      PktPtr pkt = std::move(txPktQueue_.front());
      txPktQueue_.pop_front();
      sendPkt(pkt);
   }
}

void LdpSessionTxSm::handlePamWritable() {
   if (!initialized_) return;
   if (!txPktQueue_.empty()) txPktTimerTask_->scheduleTaskDelay(0.0);
}

void LdpSessionTxSm::handlePamReadable() {
   if (!initialized_ || !ldpPduRxPam_) return;
   PktPtr pkt = ldpPduRxPam_->rxPkt();
   if (pkt) ldpPduSend(pkt, true);
}

void LdpSessionTxSm::handleKeepAliveTxTimerTask() {
   if (!initialized_) return;
   PktPtr pkt = newPkt();
   genLdpKeepAliveMsg(pkt);
   ldpPduSend(pkt, true);
}

void LdpSessionTxSm::handleLdpMsgPipe() {
   if (!initialized_ || !ldpMsgPipe_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   while (Vek::Ptr<LdpMsg> msg = ldpMsgPipe_->rxMsg()) {
      SessionState st = sessionState();
      if (st == stateOperational_) {
         ldpMsgSend(msg->pkt(), U16(msg->offset()), msg->priority());
      } else if (st != stateClosed_ && preOperationalMsgs_.size() < preOperationalMsgMax) {
         // Nothing but the opening goes out before the session is
         // operational; label messages wait for it.
         preOperationalMsgs_.push_back(msg);
      } else {
         LDP_TRACE(th, 3, "   Label message refused in " << sessionStateStr(st) << " for "
                                                          << ldpSessionId());
         sessionStatistics()->ldpMsgTxRefusedCountInc(1);
      }
   }
}

void LdpSessionTxSm::sentMsgRecordsPrune() {
   LdpSessionStatistics* stats = sessionStatistics().ptr();
   std::size_t const max = LdpSessionStatistics::sentMsgRecordMax;
   while (stats->ldpMsgIdFecMappingInfoSize() > max)
      stats->ldpMsgIdFecMappingInfoDel(U32(stats->ldpMsgIdFecMappingInfoIter().key()));
   while (stats->pwLocalMsgIdInfoSize() > max)
      stats->pwLocalMsgIdInfoDel(U32(stats->pwLocalMsgIdInfoIter().key()));
   while (stats->pwRemoteMsgIdInfoSize() > max)
      stats->pwRemoteMsgIdInfoDel(U32(stats->pwRemoteMsgIdInfoIter().key()));
}

void LdpSessionTxSm::recordSentMsg(PktPtr const& pkt, U16 offset, LdpMsgType type) {
   LdpSessionStatistics* stats = sessionStatistics().ptr();
   if (type < LdpLabelMapping_ || type > LdpLabelAbortReq_) return;
   auto parser = ldpMsgParserGet(pkt, offset);
   VEK_ASSERT(parser->validMsg() && "Internal Error");
   LdpFecTlvParser const* fec = parser->ldpFecTlvParser();
   if (!fec || fec->fecElementNum() == 0) return;
   LdpFecElementType et = fec->fecElementType(0);
   if (et == pwIdElement_) {
      PwMsgIdFecMappingInfo info;
      info.fec = fec->pwFwdEqvCls(0).fwdEqvClass();
      info.msgType = type;
      if (pwFecMessagecontextForMsgType(type) == remotePwFecMessage) stats->pwRemoteMsgIdInfoIs(parser->msgId(), info);
      else stats->pwLocalMsgIdInfoIs(parser->msgId(), info);
      return;
   }
   VEK_ASSERT(et < 4 && "Internal Error");
}


void LdpSessionTxSm::ldpMsgSend(PktPtr const& ldpMsgPkt, U16 offset, U8 priority) {
   if (!initialized_) return;
   VEK_ASSERT(ldpMsgPkt->frontBytes() > offset);
   VEK_ASSERT(U32(offset) + LdpProtoParam::msgHeaderLength() <= ldpMsgPkt->frontBytes());
   auto const* hdr = reinterpret_cast<LdpMsgHdr const*>(ldpMsgPkt->readPtr(offset));
   LdpMsgType type = hdr->type();
   recordSentMsg(ldpMsgPkt, offset, type);
   // Records that the label machines wrote are bounded here too.
   sentMsgRecordsPrune();
   U32 msgLen = ldpMsgPkt->frontBytes() - offset;
   if (ldpMsgGenHolder_) {
      U32 pduLen = txLdpPduPktHolder_->frontBytes();
      U32 maxPdu = ldpSessionStatus()->operMaxPduLength();
      if (!maxPdu) maxPdu = LdpProtoParam::defaultMaxPduLength();
      if (msgLen > ldpMsgGenHolder_->availTailRoom() || pduLen + msgLen > maxPdu + 4)
         handleTxLdpPduTimerTask();
   }
   if (!ldpMsgGenHolder_) {
      txLdpPduPktHolder_ = Nolu::globalPktManager()->newPkt(msgLen + 64);
      ldpMsgGenHolder_ = ldpMsgGenFactory(txLdpPduPktHolder_);
      VEK_ASSERT(ldpMsgGenHolder_);
      ldpMsgGenHolder_->addLdpPduHdr(LdpProtoParam::ldpVersion(),
                                     ldpSessionStatus()->localLdpIdentifier());
      txLdpPduTimerTask_->scheduleTaskDelay(txLdpPduHoldTime_);
   }
   ldpMsgGenHolder_->appendLdpMsg(ldpMsgPkt, offset);
   if (priority) txLdpPduTimerTask_->scheduleTaskLowestDelay(txLdpPduHighPriorityHoldTime_);
}

void LdpSessionTxSm::handleTxLdpPduTimerTask() {
   if (!initialized_ || !ldpMsgGenHolder_) return;
   ldpMsgGenHolder_->computeHdrLenChecksum();
   PktPtr pkt = std::move(txLdpPduPktHolder_);
   txLdpPduPktHolder_ = nullptr;
   ldpMsgGenHolder_ = nullptr;
   txLdpPduTimerTask_->scheduleTaskDelay(Vek::infinity);
   ldpPduSend(pkt, false);
}

void LdpSessionTxSm::handleLocalIntfIp(Nolu::IpAddr const& addr) {
   if (!initialized_) return;
   bool const* v = ldpSessionCommonConfig()->localIntfIpFind(addr);
   // Only an operational session keeps queues: it advertises every address
   // when it becomes operational, and forgets the queues when it closes.
   if (sessionState() != stateOperational_) return;
   if (v && *v) {
      localIntfIpAddQueue_.emplace(addr, true);
      localIntfIpDelQueue_.erase(addr);
   } else {
      localIntfIpAddQueue_.erase(addr);
      localIntfIpDelQueue_.emplace(addr, true);
   }
   localIntfIpTimerTask_->scheduleTaskLowestDelay(0.1);
}

void LdpSessionTxSm::handleLocalIntfIp() {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "handleLocalIntfIp" << " list");
   for (auto it = ldpSessionCommonConfig()->localIntfIpIter(); it; ++it) {
      LDP_TRACE(th, 9, "handleLocalIntfIp" << ", addr: " << it.key());
      handleLocalIntfIp(it.key());
   }
}

void LdpSessionTxSm::handleLocalIntfIpTimerTask() {
   if (!initialized_ || sessionState() != stateOperational_) return;
   while (!localIntfIpAddQueue_.empty()) handleLdpAddrMsgGen();
   while (!localIntfIpDelQueue_.empty()) handleLdpAddrWithdrawMsgGen();
}

U32 LdpSessionTxSm::addrPerMsgMax() const {
   // A PDU Length of PDU header (6 after the length field), message header
   // (8), Address List TLV header (4) and family (2), then 4 per address.
   U32 maxPdu = ldpSessionStatus()->operMaxPduLength();
   if (!maxPdu) maxPdu = LdpProtoParam::defaultMaxPduLength();
   U32 fit = maxPdu > 20 ? (maxPdu - 20) / 4 : 1;
   return std::max<U32>(1, std::min<U32>(intfIpEntryMaxNum_, fit));
}

void LdpSessionTxSm::addrListMsgGen(Vek::HashMap<Nolu::IpAddr, bool>* queue, LdpMsgType type) {
   PktPtr tlvPkt = newPkt();
   PktPtr msgPkt = newPkt();
   auto tlv = ldpAddressListTlvGenFactory(tlvPkt);
   tlv->familyIs(1);
   VEK_ASSERT(intfIpEntryMaxNum() && "intfIpEntryMaxNum() can not be 0");
   U32 const most = addrPerMsgMax();
   U32 taken = 0;
   while (!queue->empty() && taken < most) {
      Nolu::IpAddr a = queue->begin().key();
      bool fits = tlv->appendAddress(Nolu::IpGenAddr(a));
      if (!fits && taken) break;
      queue->erase(a);
      if (!fits) continue;
      ++taken;
   }
   auto gen = ldpMsgGenFactory(msgPkt);
   gen->addLdpMsgHdr(false, type, nextMessageId());
   gen->appendLdpTlv(tlvPkt, 0);
   gen->computeHdrLenChecksum();
   ldpMsgSend(msgPkt, 0, 0);
}

void LdpSessionTxSm::handleLdpAddrMsgGen() {
   addrListMsgGen(&localIntfIpAddQueue_, LdpAddress_);
   ldpSessionStatus()->addressMsgTsmtIs(true);
}

void LdpSessionTxSm::handleLdpAddrWithdrawMsgGen() {
   addrListMsgGen(&localIntfIpDelQueue_, LdpAddressWithdraw_);
}

}  // namespace Ldp

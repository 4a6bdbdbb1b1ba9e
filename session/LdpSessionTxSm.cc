#include "session/LdpSessionTxSm.h"

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
   case stateClosed_:
      // Nothing unsent outlives the session.
      txPktCount_ = 0;
      txLdpPduTimerTask_->scheduleTaskDelay(Vek::infinity);
      keepAliveTxTimerTask_->scheduleTaskDelay(Vek::infinity);
      localIntfIpTimerTask_->scheduleTaskDelay(Vek::infinity);
      txLdpPduPktHolder_ = nullptr;
      ldpMsgGenHolder_ = nullptr;
      txPktQueue_.clear();
      break;
   case stateInitialized_:
   case stateOpenSent_:
   case stateOpenRec_: localIntfIpTimerTask_->scheduleTaskDelay(Vek::infinity); break;
   case stateOperational_:
      ldpSessionStatus()->addressMsgTsmtIs(false);
      keepAliveTxTimerTask_->scheduleTaskDelay(ldpSessionStatus()->operKeepAliveTxInterval());
      handleLocalIntfIp();
      break;
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

void LdpSessionTxSm::sendPkt(PktPtr const& pkt) {
   if (!txPamWritable()) return;
   LDP_TRACE(th, 9, "   LDP PDU Tx Dump: " << pktHexDump(pkt.ptr()) << " send to: "
                                          << ldpSessionId());
   ldpPduTxPam_->txPktIs(pkt);
   ++txPktCount_;
   sessionStatistics()->ldpPduTxCountInc(1);
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
   Vek::Ptr<LdpMsg> msg = ldpMsgPipe_->rxMsg();
   if (msg) ldpMsgSend(msg->pkt(), U16(msg->offset()), 0);
}

void LdpSessionTxSm::recordSentMsg(PktPtr const& pkt, U16 offset, LdpMsgType type) {
   LdpSessionStatistics* stats = sessionStatistics().ptr();
   if (type == LdpNotification_) {
      auto parser = ldpNotificationMsgParserFactory(pkt, offset);
      VEK_ASSERT(parser->validMsg() && "Internal Error");
      ldpMsgNotificationTxCountInc(stats, parser->statusData());
      return;
   }
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
   ldpMsgTxCountInc(sessionStatistics().ptr(), type);
   recordSentMsg(ldpMsgPkt, offset, type);
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
   if (v && *v) {
      localIntfIpAddQueue_.emplace(addr, true);
      localIntfIpDelQueue_.erase(addr);
   } else {
      localIntfIpAddQueue_.erase(addr);
      localIntfIpDelQueue_.emplace(addr, true);
   }
   if (sessionState() == stateOperational_) localIntfIpTimerTask_->scheduleTaskLowestDelay(0.1);
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

void LdpSessionTxSm::addrListMsgGen(Vek::HashMap<Nolu::IpAddr, bool>* queue, LdpMsgType type) {
   PktPtr tlvPkt = newPkt();
   PktPtr msgPkt = newPkt();
   auto tlv = ldpAddressListTlvGenFactory(tlvPkt);
   tlv->familyIs(1);
   VEK_ASSERT(intfIpEntryMaxNum() && "intfIpEntryMaxNum() can not be 0");
   U32 taken = 0;
   while (!queue->empty() && taken < intfIpEntryMaxNum_) {
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

#pragma once
// The single exit of a session towards its TCP channel: finished PDUs from the
// other machines, single label messages packed into PDUs, and the messages it
// makes itself (KeepAlive, Address, Address Withdraw). What the channel can't
// take waits in a queue.
#include <deque>

#include "entities/LdpMsgPipe.h"
#include "session/LdpSessionSmCommon.h"
#include "runtime/vek/HashMap.h"

namespace Ldp {

class LdpSessionTxSm : public LdpSessionSmCommon {
 public:
   static Vek::Ptr<LdpSessionTxSm> LdpSessionTxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
      Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
      Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
      Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
      Vek::Ptr<LdpMsgPipe> const& ldpMsgPipe, Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpSessionTxSm>(instId, id, protoConfig, sessionConfig,
                                         sessionCommonConfig, sessionStatus, status,
                                         sessionStatistics, ldpMsgPipe, scheduler);
   }
   LdpSessionTxSm(U32 instId, LdpSessionId const& id,
                  Vek::Ptr<ProtoConfig const> const& protoConfig,
                  Vek::Ptr<LdpSessionConfig const> const& sessionConfig,
                  Vek::Ptr<LdpSessionCommonConfig const> const& sessionCommonConfig,
                  Vek::Ptr<LdpSessionStatus> const& sessionStatus, Vek::Ptr<Status> const& status,
                  Vek::Ptr<LdpSessionStatistics> const& sessionStatistics,
                  Vek::Ptr<LdpMsgPipe> const& ldpMsgPipe,
                  Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   // The transmit pipe: PDUs of the other machines come out here.
   Vek::Ptr<Nolu::Pam> const& ldpPduRxPam() const { return ldpPduRxPam_; }
   void ldpPduRxPamIs(Vek::Ptr<Nolu::Pam> const& p);
   // The TCP channel.
   Vek::Ptr<Nolu::Pam> const& ldpPduTxPam() const { return ldpPduTxPam_; }
   void ldpPduTxPamIs(Vek::Ptr<Nolu::Pam> const& p);
   U64 txPktCount() const { return txPktCount_; }
   std::size_t txPktQueueSize() const { return txPktQueue_.size(); }
   // Label messages sent to the session while it opens wait for the
   // operational state, at most preOperationalMsgMax of them.
   std::size_t preOperationalMsgCount() const { return preOperationalMsgs_.size(); }
   static constexpr std::size_t preOperationalMsgMax = 1024;
   // Addresses in the next Address message, within the negotiated maximum
   // PDU length.
   U32 addrPerMsgMax() const;
   U16 intfIpEntryMaxNum() const { return intfIpEntryMaxNum_; }
   void intfIpEntryMaxNumIs(U16 n) { intfIpEntryMaxNum_ = n; }
   double txLdpPduHoldTime() const { return txLdpPduHoldTime_; }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState();
   void handleLocalIntfIp(Nolu::IpAddr const& addr);
   void handleLocalIntfIp();
   void handleLdpMsgPipe();
   void handlePamReadable();
   void handlePamWritable();
   void handleTxPktTimerTask();
   void handleTxLdpPduTimerTask();
   void handleKeepAliveTxTimerTask();
   void handleLocalIntfIpTimerTask();
   void handleReadableCount() { handleLdpMsgPipe(); }

   void ldpMsgSend(PktPtr const& ldpMsgPkt, U16 offset, U8 priority);
   void ldpPduSend(PktPtr const& pkt, bool tryImmediate);
   void sendPkt(PktPtr const& pkt);
   bool txPamWritable() const;

 private:
   using RxReactor = PamReadableReactor<LdpSessionTxSm, &LdpSessionTxSm::handlePamReadable>;
   using TxReactor = PamWritableReactor<LdpSessionTxSm, &LdpSessionTxSm::handlePamWritable>;
   void handleLdpAddrMsgGen();
   void handleLdpAddrWithdrawMsgGen();
   void addrListMsgGen(Vek::HashMap<Nolu::IpAddr, bool>* queue, LdpMsgType type);
   void recordSentMsg(PktPtr const& pkt, U16 offset, LdpMsgType type);
   void sentMsgRecordsPrune();
   void countTxMsgs(PktPtr const& pkt);

   Vek::Ptr<LdpMsgPipe> ldpMsgPipe_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Nolu::Pam> ldpPduRxPam_;
   Vek::Ptr<Nolu::Pam> ldpPduTxPam_;
   U64 txPktCount_ = 0;
   PktPtr txLdpPduPktHolder_;
   Vek::Ptr<LdpMsgGen> ldpMsgGenHolder_;
   std::deque<PktPtr> txPktQueue_;
   std::deque<Vek::Ptr<LdpMsg>> preOperationalMsgs_;
   double txLdpPduHoldTime_ = 0.5;
   double txLdpPduHighPriorityHoldTime_ = 0.01;
   U16 intfIpEntryMaxNum_ = 1000;
   Vek::HashMap<Nolu::IpAddr, bool> localIntfIpAddQueue_;
   Vek::HashMap<Nolu::IpAddr, bool> localIntfIpDelQueue_;
   bool txPktTimerTaskRunning_ = false;
   Vek::Ptr<Hesk::TimerTask> txPktTimerTask_;
   Vek::Ptr<Hesk::TimerTask> txLdpPduTimerTask_;
   Vek::Ptr<Hesk::TimerTask> keepAliveTxTimerTask_;
   Vek::Ptr<Hesk::TimerTask> localIntfIpTimerTask_;
   Vek::Input<RxReactor> ldpPduRxPamReactor_;
   Vek::Input<TxReactor> ldpPduTxPamReactor_;
   Vek::Input<LdpSessionStatus::Reactor<LdpSessionTxSm>> sessionStatusReactor_;
   Vek::Input<LdpSessionCommonConfig::Reactor<LdpSessionTxSm>> sessionCommonConfigReactor_;
   Vek::Input<LdpMsgPipe::Reactor<LdpSessionTxSm>> ldpMsgPipeReactor_;
};

}  // namespace Ldp

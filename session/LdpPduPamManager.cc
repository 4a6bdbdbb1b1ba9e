#include "session/LdpPduPamManager.h"

#include "session/LdpSessionSmCommon.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPduPamManager");
Vek::TraceHandle ths("LdpSessionPamShutdown");
}  // namespace

// The manager's reactor on one channel, with its identification timer.
class LdpPduPamManager::ChannelReactor : public LdpPduPam::NotifieeConst {
 public:
   ChannelReactor(LdpPduPamManager* sm, Vek::Ptr<LdpPduPam const> const& n, int sd)
      : sm_(sm), sd_(sd) {
      ownerIs(sm);
      notifierBaseIs(n);
      ldpIdTimerTask_ = new Timer(sm, sd, sm->scheduler_, "PduPamIdTimer-" + std::to_string(sd));
      ldpIdTimerTask_->scheduleTaskDelay(10.0);
   }
   ~ChannelReactor() override { ldpIdTimerTask_->stopTimerTask(); }
   void onState() override {
      auto* sm = sm_;
      int sd = sd_;
      Vek::Sm::run(sm, [sm, sd] { sm->handleLdpPduPam(sd); });
   }

 private:
   // The timer's body runs the manager's handler for this channel.
   class Timer : public Hesk::TimerTask {
    public:
      Timer(LdpPduPamManager* sm, int sd, Vek::Ptr<Hesk::TaskScheduler> const& s, std::string n)
         : Hesk::TimerTask(s, 2, std::move(n)), sm_(sm), sd_(sd) {}
      void dead() { sm_ = nullptr; }

    protected:
      void onTaskRun() override {
         auto* sm = sm_;
         int sd = sd_;
         if (sm) Vek::Sm::run(sm, [sm, sd] { sm->handleLdpIdTimer(sd); });
      }

    private:
      LdpPduPamManager* sm_;
      int sd_;
   };
   void partMarkForDeletion() override {
      LdpPduPam::NotifieeConst::partMarkForDeletion();
      ldpIdTimerTask_->stopTimerTask();
      ldpIdTimerTask_->dead();
   }

   LdpPduPamManager* sm_;
   int sd_;
   Vek::Ptr<Timer> ldpIdTimerTask_;
};

LdpPduPamManager::LdpPduPamManager(U32 instId, Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl,
                                   LdpConnectionFilter const& filter,
                                   Vek::Ptr<Acl::Config const> const& aclStatus,
                                   L3::VrfName const& vrfName,
                                   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), ldpPduPamColl_(Vek::validPtr(ldpPduPamColl)), filter_(filter),
     vrfName_(vrfName), scheduler_(Vek::validPtr(scheduler)) {
   pduPamCollReactor_.init(this, Vek::Ptr<LdpPduPamColl const>(ldpPduPamColl_));
   aclStatusReactor_.init(this, aclStatus);
   handleInitialized();
}

void LdpPduPamManager::handleInitialized() {
   ldpPduPamDeleteTimerTask_ =
      Hesk::timerTaskIs(this, &LdpPduPamManager::handleLdpPduPamDeleteTimerTask, scheduler_, 2,
                        "PduPamDeleteTimer");
   initialized_ = true;
   for (auto it = ldpPduPamColl_->pduPamIter(); it; ++it) handlePduPam(it.key());
}

void LdpPduPamManager::handlePduPam(int const& sd) {
   if (!initialized_) return;
   if (auto pam = ldpPduPamColl_->pduPam(sd)) {
      pduPam_.is(sd, this, Vek::Ptr<LdpPduPam const>(pam), sd);
      handleLdpPduPam(sd);
   } else {
      pduPam_.del(sd);
   }
}

void LdpPduPamManager::handleLdpIdTimer(int sd) {
   if (!initialized_) return;
   auto pam = ldpPduPamColl_->pduPam(sd);
   if (!pam || !pam->ldpIdentifier().isEmpty()) return;
   LDP_TRACE(th, 5, "   Timer expired for sd " << sd);
   pam->stateIs(pamDestroy);
}

void LdpPduPamManager::handleLdpPduPam(int const& sd) {
   if (!initialized_) return;
   auto pam = ldpPduPamColl_->pduPam(sd);
   if (!pam || pam->state() != pamDestroy) return;
   LDP_TRACE(th, 7, "   Adding sd " << sd);
   ldpPduPamDeleteQueue_.insert(sd);
   ldpPduPamDeleteTimerTask_->scheduleTaskDelay(0.0);
}

void LdpPduPamManager::handleLdpPduPamDeleteTimerTask() {
   if (!initialized_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   std::set<int> queue;
   queue.swap(ldpPduPamDeleteQueue_);
   for (int sd : queue) {
      Vek::Ptr<LdpPduPam> pam = ldpPduPamColl_->pduPam(sd);
      ldpPduPamColl_->pduPamDel(sd);
      if (pam) pam->cleanup();
      LDP_TRACE(th, 5, " deleting LdpPduPam on sd " << sd);
   }
}

void LdpPduPamManager::handleAclChange() {
   if (!initialized_ || !filter_) return;
   for (auto it = ldpPduPamColl_->pduPamIter(); it; ++it) {
      Vek::Ptr<LdpPduPam> pam = it.value();
      auto const& conn = pam->connSocket();
      if (!conn) continue;
      if (filter_(conn->remoteIpAddr(), conn->localIpAddr(), conn->remotePort(), conn->localPort()))
         continue;
      LDP_TRACE(th, 3, "   Service ACL change terminates sd "
                          << it.key() << " " << "(srcIp=" << conn->remoteIpAddr()
                          << " srcPort=" << conn->remotePort() << " dstIp=" << conn->localIpAddr()
                          << " dstPort=" << conn->localPort() << "), set destroy to true ");
      pam->destroyRequestIs(true);
   }
}

// ---- LdpSessionPamShutdownSm

LdpSessionPamShutdownSm::LdpSessionPamShutdownSm(
   U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<LdpPduPamShutdownColl> const& ldpPduPamShutdownColl, Vek::Ptr<Status> const& status)
   : LdpSm(instId), protoConfig_(Vek::validPtr(protoConfig)),
     ldpPduPamShutdownColl_(Vek::validPtr(ldpPduPamShutdownColl)), status_(Vek::validPtr(status)) {
   shutdownCollReactor_.init(this, Vek::Ptr<LdpPduPamShutdownColl const>(ldpPduPamShutdownColl_));
   handleInitialized();
}

void LdpSessionPamShutdownSm::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpPduPamShutdownColl_->ldpPduPamIter(); it; ++it) handleLdpPduPam(it.key());
}

void LdpSessionPamShutdownSm::handleLdpPduPam(int const& sd) {
   if (!initialized_) return;
   auto pam = ldpPduPamShutdownColl_->ldpPduPam(sd);
   if (!pam) {
      ldpPduPam_.del(sd);
      return;
   }
   if (ldpPduPam_.find(sd)) return;
   ldpPduPam_.is(sd, this, Vek::Ptr<LdpPduPam const>(pam), sd,
                 PamReactor::Handler(&LdpSessionPamShutdownSm::handlePamChange),
                 PamReactor::Handler(&LdpSessionPamShutdownSm::handlePamReadable));
   LDP_TRACE(ths, 5, "LdpPduPam sd: " << sd << " added to shutdownColl");
   // The PDU that decided the channel's fate may still be unread.
   handlePamReadable(sd);
   handlePamChange(sd);
}

void LdpSessionPamShutdownSm::handlePamReadable(int const& sd) {
   if (!initialized_) return;
   Vek::Ptr<LdpPduPam> pam = ldpPduPamShutdownColl_->ldpPduPam(sd);
   if (!pam || pam->state() != pamShutdown) return;
   Vek::Ptr<Nolu::Pkt> pkt = pam->rxPkt();
   if (!pkt) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   LDP_TRACE(ths, 7, "   Received LdpPdu, total Pdu Size: " << pkt->dataBytes());
   LDP_TRACE(ths, 9, "   LDP PDU Dump: " << pktHexDump(pkt.ptr()));
   auto parser = ldpPduParserFactory(pkt, 0);
   LDP_TRACE(ths, 7, parser->stringValue());
   LdpMsgType type = LdpInitialization_;
   U32 id = 0;
   if (parser->validLdpPdu() && parser->msgNum() > 0) {
      type = parser->msgHdr(0)->type();
      id = parser->msgHdr(0)->msgId() & 0xFFFF;
   }
   Vek::Ptr<Nolu::Pkt> out = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(out);
   bool ok = gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), protoConfig_->ldpIdentifier());
   ok = ok && gen->addLdpMsgHdr(false, LdpNotification_, status_->statistics()->messageIdInc(1));
   ok = ok && gen->addStatusTlv(false, false, statusSessionRejectedNoHello_, type, id);
   VEK_ASSERT(ok && "Internal Error: a Notification message fits any packet");
   gen->computeHdrLenChecksum();
   pam->txPktIs(out);
   LDP_TRACE(ths, 5, "LdpPduPam @sd: " << sd << " sent rejectNoHello Notification");
   ldpPduPamShutdownColl_->ldpPduPamDel(sd);
   pam->stateIs(pamDestroy);
}

void LdpSessionPamShutdownSm::handlePamChange(int const& sd) {
   if (!initialized_) return;
   Vek::Ptr<LdpPduPam> pam = ldpPduPamShutdownColl_->ldpPduPam(sd);
   if (!pam || pam->state() != pamShutdown) {
      LDP_TRACE(ths, 8, "Return ldpPduPam state not pamShutdown");
      return;
   }
   LDP_TRACE(ths, 7, "LdpPduPam @sd " << sd << ", ldpId:" << pam->ldpIdentifier()
                                      << ", state: " << pam->state());
   char const* why = nullptr;
   if (pam->rxErrors()) why = "Rx errors found ";
   else if (pam->txErrors()) why = "Tx errors found ";
   else if (pam->destroyRequest()) why = "Destroy request";
   if (!why) return;
   LDP_TRACE(ths, 5, why);
   ldpPduPamShutdownColl_->ldpPduPamDel(sd);
   pam->stateIs(pamDestroy);
}

}  // namespace Ldp

#pragma once
// What the VRF's four FEC-session workers share: their inputs, the bits of
// the two session-state words, and the few steps that all of them take
// (sending on a session's pipe, building a Notification, reading a session).
#include <deque>
#include <memory>

#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSession.h"
#include "entities/LdpSm.h"
#include "runtime/hesk/NumAllocator.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

struct LdpFecSessionWorkerInputs;

// The peers' wildcard Withdraws and Releases, each acted on every FEC session
// of its session: a walk of the FECs (one walk per wildcard, in slices), one
// wildcard after another in the order they came. A FEC session that a worker
// is about to look at (a later message of the peer about it, or a label to
// send it) is served first, ahead of the walk, so that what came after a
// wildcard is never undone by it; the walk then passes it by.
class LdpFecWildcardWork : public Vek::PtrInterface {
 public:
   void jobIs(LdpSessionId const& id, LdpMsgType type, Nolu::MplsLabel label);
   bool empty() const { return jobs_.empty(); }
   std::size_t jobs() const { return jobs_.size(); }
   // Serves the FEC session with every wildcard of its session that has not
   // reached it yet.
   void settle(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id);
   // One slice of the walk; true while work is left.
   bool walk(LdpFecSessionWorkerInputs const& in, Hesk::TimerTask* task);
   // A session that ended takes its wildcards with it.
   void sessionDel(LdpSessionId const& id);

 private:
   struct Job {
      LdpSessionId sessionId;
      LdpMsgType type = LdpMsgTypeNone_;
      Nolu::MplsLabel label;
      Vek::Bookmark<Mpls::FwdEqvClass> bookmark;
      // FECs served ahead of the walk.
      Vek::HashMap<Mpls::FwdEqvClass, bool> settled;
      bool gone = false;
   };
   void apply(LdpFecSessionWorkerInputs const& in, Job const& job, LdpFecSessionId const& id);
   std::deque<std::shared_ptr<Job>> jobs_;
};

struct LdpFecSessionWorkerInputs {
   Vek::Ptr<ProtoConfig const> protoConfig;
   Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
   Vek::Ptr<LdpFecStatusColl> ldpFecStatusColl;
   Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
   Vek::Ptr<LdpFecSessionStatusColl> ldpFecSessionStatusColl;
   // The one pipe of the VRF's FEC sessions, read by the receive worker: a
   // FEC's relay writes its messages there, a session its peer's wildcards.
   Vek::Ptr<LdpMsgPipe> rxMsgPipe;
   Vek::Ptr<LdpFecSessionNotifier const> ldpFecSessionRxNotifier;
   Vek::Ptr<LdpSessionMsgPipeColl const> txSessionMsgPipe;
   Vek::Ptr<LdpFecSessionMappingSmConfig> singletonMappingSmConfig;
   Vek::Ptr<LdpFecSessionRequestSmConfig> singletonRequestSmConfig;
   Vek::Ptr<LdpFecSessionCtrlSmConfig> singletonCtrlSmConfig;
   Vek::Ptr<Statistics> statistics;
   Vek::Ptr<Hesk::TaskScheduler> scheduler;
   // The label allocator's status, whose exhaustion turns a peer's request
   // into No Label Resources; absent where nothing allocates labels.
   Vek::Ptr<Hesk::NumAllocatorStatus const> numAllocatorStatus;
   // The peers' wildcard Withdraws and Releases on their way through the
   // FEC sessions.
   Vek::Ptr<LdpFecWildcardWork> wildcardWork;
};

// Bits of localLabelSessionState.
namespace LocalBit {
constexpr U32 labelRequested = 0x1;
constexpr U32 releaseOutstanding = 0x2;
constexpr U32 localMappingSent = 0x4;
constexpr U32 peerReleased = 0x8;
constexpr U32 attrChanged = 0x10;
constexpr U32 active = 0x80000000u;
}  // namespace LocalBit

// Bits of peerLabelSessionState.
namespace PeerBit {
constexpr U32 requestOutstanding = 0x1;
constexpr U32 releaseSent = 0x2;
constexpr U32 labelReceived = 0x4;
constexpr U32 withdrawn = 0x8;
constexpr U32 toRelease = 0x10;
constexpr U32 noResources = 0x20;
constexpr U32 active = 0x80000000u;
}  // namespace PeerBit

inline bool localBit(LdpFecSessionStatus const& s, U32 bit) {
   return (U32(s.localLabelSessionState()) & bit) != 0;
}
inline bool peerBit(LdpFecSessionStatus const& s, U32 bit) {
   return (U32(s.peerLabelSessionState()) & bit) != 0;
}

// The session can exchange labels: operational, addresses exchanged.
inline bool sessionLabelReady(LdpSessionStatus const* ss) {
   return ss && ss->sessionState() == stateOperational_ &&
          ss->sessionOpState() == sessionOpAddrExchanged_;
}
inline bool sessionUnsolicited(LdpSessionStatus const* ss) {
   return ss->operLabelAdvDspl() != downstreamOnDemandAdvDspl_;
}

// Hands a built message (no PDU header, at offset 0) to the session.
bool fecSessionSend(LdpFecSessionWorkerInputs const& in, LdpSessionId const& id,
                    Vek::Ptr<Nolu::Pkt> const& pkt);

// A Notification about the peer's message of the given type and id, with the
// E bit clear.
Vek::Ptr<Nolu::Pkt> genLdpNotificationMsg(Statistics* statistics, LdpStatusCode statusCode,
                                          LdpMsgType msgType, U32 msgId);

// The peer withdraws a label of a FEC session (any: every label): what it
// names goes to withdrawRcvd_, to be released. A Withdraw of the FEC itself
// that finds no label is still answered, with a Release that names none; a
// wildcard speaks only of labels in force. Returns whether anything changed.
bool peerLabelWithdrawn(LdpFecSessionStatusColl::FecSessionStatusRef& s, Nolu::MplsLabel label,
                        bool wildcard);
// The peer releases a label of ours (any: every label) on a FEC session: a
// withdrawn label's cycle is complete, and a label still advertised is no
// longer, nor will be until the peer asks. Returns whether anything changed.
bool localLabelReleased(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id,
                        LdpFecSessionStatusColl::FecSessionStatusRef& s, Nolu::MplsLabel label);

// Counts a message of a FEC session, received or sent.
void ldpMsgRxInc(LdpFecSessionStatusColl::FecSessionStatusRef& s, LdpMsgType type);
void ldpMsgTxInc(LdpFecSessionStatusColl::FecSessionStatusRef& s, LdpMsgType type);

// The FEC sessions of one session, found through the FEC table, so that a
// session event costs one walk of the FECs.
std::vector<LdpFecSessionId> fecSessionsOfSession(LdpFecSessionWorkerInputs const& in,
                                                  LdpSessionId const& id);
// The FEC sessions of one FEC.
std::vector<LdpFecSessionId> fecSessionsOfFec(LdpFecSessionWorkerInputs const& in,
                                              Mpls::FwdEqvClass const& fec);

// Watches what the label workers need of one session: its state, its
// readiness for labels, its advertisement mode and the peer's Label
// Resources Available count; not the timers that move with every PDU.
template <class S>
class SessionLabelStateReactor : public Vek::CustomReactor<LdpSessionStatus::NotifieeConst, S> {
 public:
   SessionLabelStateReactor(S* sm, Vek::Ptr<LdpSessionStatus const> const& n,
                            LdpSessionId const& id)
      : Vek::CustomReactor<LdpSessionStatus::NotifieeConst, S>(sm, n), id_(id) {}
   void onSessionState() override { fire(); }
   void onSessionOpState() override { fire(); }
   void onOperLabelAdvDspl() override { fire(); }
   void onPeerLabelRescAvailableCount() override { fire(); }

 private:
   void fire() {
      this->fwd([this](S* sm) { sm->handleSessionStatus(id_); });
   }
   LdpSessionId id_;
};

// Keeps one SessionLabelStateReactor per session of the collection.
template <class S>
class SessionStatusCollWatch
   : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, S> {
 public:
   SessionStatusCollWatch(S* sm, Vek::Ptr<LdpSessionStatusColl const> const& n)
      : Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, S>(sm, n), sm_(sm), coll_(n) {
      for (auto it = n->sessionStatusIter(); it; ++it) member(it.key());
   }
   void onSessionStatus(LdpSessionId const& k) override {
      member(k);
      this->fwd([&k](S* sm) { sm->handleSessionStatus(k); });
   }

 private:
   void member(LdpSessionId const& k) {
      auto ss = coll_->sessionStatus(k);
      if (ss) members_.is(k, sm_, Vek::Ptr<LdpSessionStatus const>(ss), k);
      else members_.del(k);
   }
   S* sm_;
   Vek::Ptr<LdpSessionStatusColl const> coll_;
   Vek::ReactorColl<LdpSessionId, SessionLabelStateReactor<S>> members_;
};

// A call of one worker by another through its singleton config.
inline void wakeMappingSm(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id) {
   in.singletonMappingSmConfig->fecSessionIdIs(id);
   in.singletonMappingSmConfig->countInc(1);
}
inline void wakeRequestSm(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id,
                          LdpMsgType type) {
   in.singletonRequestSmConfig->fecSessionIdIs(id);
   in.singletonRequestSmConfig->msgTypeIs(type);
   in.singletonRequestSmConfig->countInc(1);
}
inline void wakeCtrlSm(LdpFecSessionWorkerInputs const& in, LdpFecSessionId const& id) {
   in.singletonCtrlSmConfig->fecSessionIdIs(id);
   in.singletonCtrlSmConfig->countInc(1);
}

}  // namespace Ldp

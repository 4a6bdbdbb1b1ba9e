#include "fuzz/SessionDrive.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "runtime/vek/EventLog.h"
#include "tests/harness/FakePeer.h"
#include "tests/harness/LabelStandIns.h"

namespace SessionDrive {

namespace {

using namespace Ldp;
namespace B = LdpTest::Bytes;
using Nolu::IpAddr;

[[noreturn]] void fail(char const* what) {
   std::fprintf(stderr, "session invariant broken: %s\n", what);
   std::abort();
}
#define DRIVE_CHECK(cond)       \
   do {                         \
      if (!(cond)) fail(#cond); \
   } while (0)

// The input, read front to back; past its end every read is 0.
class Input {
 public:
   Input(std::uint8_t const* p, std::size_t n) : p_(p), n_(n) {}
   bool more() const { return i_ < n_; }
   U8 byte() { return i_ < n_ ? p_[i_++] : 0; }
   U16 u16() { return U16((U16(byte()) << 8) | byte()); }
   U32 u32() { return (U32(u16()) << 16) | u16(); }
   B::Buf bytes(std::size_t k) {
      B::Buf b;
      while (k-- && more()) b.push_back(byte());
      return b;
   }

 private:
   std::uint8_t const* p_;
   std::size_t n_;
   std::size_t i_ = 0;
};

LdpIdentifier const agentId(IpAddr(2, 2, 2, 2), 0);
constexpr std::size_t maxSteps = 48;
constexpr double maxTime = 120.0;

class Drive {
 public:
   Drive(Input& in) : in_(in) {
      U8 mode = in_.byte();
      peerActive_ = mode & 1;
      driverOpens_ = !(mode & 2);
      bundled_ = mode & 4;
      static U16 const maxPdus[] = {4096, 1000, 8000, 255};
      peerMaxPdu_ = maxPdus[(mode >> 3) & 3];
      if (mode & 0x20) agent_.config()->maxPduLengthIs(8000);
      agent_.intfIs("eth1", eth_, Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 2), 24));
      agent_.loopback("2.2.2.2");
      fake_ = std::make_unique<LdpTest::FakePeer>(
         s_, eth_, "fake", peerActive_ ? IpAddr(3, 3, 3, 3) : IpAddr(1, 1, 1, 1));
      agent_.ldp();
      s_.runUntil([&] { return agent_.root() != nullptr; }, 5.0);
      if (!agent_.root()) fail("LDP runs");
      pipes_ = std::make_unique<LdpTest::FecPipes>(
         agent_.status()->ldpFecConfigColl(),
         Vek::Ptr<LdpFecMsgPipeColl>(agent_.root()->ldpFecMsgPipeColl()),
         agent_.agent()->scheduler(), (mode & 0x40) ? 0.2 : 0.0, false);
   }
   ~Drive() {
      pipes_.reset();
      fake_.reset();
   }

   void run() {
      open();
      if (std::getenv("SESSION_DRIVE_TRACE"))
         std::fprintf(stderr, "opened: state %d at %.3f\n", int(state()), s_.now());
      check();
      for (std::size_t step = 0; step < maxSteps && in_.more() && s_.now() < end_; ++step) {
         this->step();
         fake_->drive([] { return false; }, 0.05);
         check();
      }
      fake_->drive([] { return false; }, 1.0);
      check();
   }

 private:
   LdpSessionId sessionId() const { return LdpSessionId(fake_->ldpId()); }
   LdpSessionStatus const* session() {
      auto* st = agent_.status();
      return st ? st->ldpSessionStatusColl()->sessionStatus(sessionId()).ptr() : nullptr;
   }
   SessionState state() {
      auto const* ss = session();
      return ss ? ss->sessionState() : stateUnknown_;
   }

   // Up to the exchange of Initializations, which the driver makes or leaves
   // to the input.
   void open() {
      if (peerActive_) {
         fake_->drive([&] { return state() == stateNonExistent_; }, 30.0);
         fake_->connect(IpAddr(2, 2, 2, 2));
         fake_->drive([&] { return fake_->conn() != nullptr; }, 5.0);
      } else {
         fake_->drive([&] { return fake_->rxCount(LdpInitialization_) > 0; }, 30.0);
      }
      if (!fake_->conn()) return;
      end_ = s_.now() + maxTime;
      if (!driverOpens_) return;
      U16 keepAlive = 30;
      if (bundled_) {
         fake_->send(
            {B::initMsg(nextId_++, agentId, keepAlive, peerMaxPdu_), B::keepAliveMsg(nextId_++)});
      } else {
         fake_->send({B::initMsg(nextId_++, agentId, keepAlive, peerMaxPdu_)});
         fake_->drive([&] { return fake_->rxCount(LdpKeepAlive_) > 0 || state() == stateClosed_; },
                      2.0);
         fake_->send({B::keepAliveMsg(nextId_++)});
      }
      fake_->drive([&] { return state() == stateOperational_ || state() == stateClosed_; }, 2.0);
   }

   IpAddr addr() { return IpAddr(in_.u32()); }
   B::Buf prefix() {
      U8 len = in_.byte() % 33;
      return B::prefixElement(IpAddr(U8(10 + in_.byte() % 4), in_.byte(), in_.byte(), 0), len);
   }
   std::vector<B::Buf> fecElements() {
      std::vector<B::Buf> e;
      U8 k = in_.byte();
      if (k % 11 == 0) {
         e.push_back(B::Buf{1});  // the wildcard
         return e;
      }
      if (k % 7 == 0) {
         e.push_back(B::pwElement(U16(5 + in_.byte() % 2), in_.byte() % 3, in_.byte() % 4));
         return e;
      }
      for (U8 i = 0; i < 1 + k % 3; ++i) e.push_back(prefix());
      return e;
   }
   U32 id() { return in_.byte() & 0x80 ? nextId_++ : in_.u32(); }
   // The id of the last Label Request that the agent sent, or 0.
   U32 lastRequestId() const {
      auto const& rx = fake_->rxMsgs();
      for (auto it = rx.rbegin(); it != rx.rend(); ++it)
         if (it->type == LdpLabelRequest_)
            return Nolu::readU32(it->pkt->readPtr(it->offset + 4));
      return 0;
   }

   // One message of the peer, of a kind and with fields that the input picks.
   B::Buf message() {
      U8 kind = in_.byte();
      switch (kind & 0x0F) {
      case 0: {
         static U16 const times[] = {0, 3, 30, 180};
         return B::initMsg(id(), agentId, times[in_.byte() & 3], in_.u16());
      }
      case 1: return B::initMsg(id(), LdpIdentifier(in_.u32(), in_.u16()));
      case 2: return B::keepAliveMsg(id());
      case 3:
      case 4: {
         if (kind & 0x10) {
            // A VPLS peer's MAC Address Withdraw: an empty address list, the
            // PWid FEC of the instance and a MAC List TLV, whose length the
            // input picks.
            B::Buf empty;
            B::put16(empty, 1);
            B::Buf t = B::tlv(0x0101, empty);
            B::append(t, B::fecTlv({B::pwElement(5, 0, in_.byte() % 4)}));
            B::append(t, B::tlv(0x0404, in_.bytes(in_.byte() % 13), true));
            return B::msg((kind & 0x0F) == 3 ? LdpAddress_ : LdpAddressWithdraw_, id(), t);
         }
         std::vector<IpAddr> a;
         for (U8 i = 0; i < 1 + in_.byte() % 3; ++i) a.push_back(addr());
         return B::msg((kind & 0x0F) == 3 ? LdpAddress_ : LdpAddressWithdraw_, id(),
                       B::addrListTlv(a));
      }
      case 5: {
         if (!(kind & 0x30)) return B::labelMsg(LdpLabelMapping_, id(), fecElements(), 16 + in_.u16());
         // With a Label Request Message ID: the agent's last request, or any.
         B::Buf t = B::fecTlv(fecElements());
         B::append(t, B::labelTlv(16 + in_.u16()));
         B::Buf req;
         B::put32(req, kind & 0x20 ? lastRequestId() : in_.u32());
         B::append(t, B::tlv(0x0600, req));
         return B::msg(LdpLabelMapping_, id(), t);
      }
      case 6: return B::labelMsg(LdpLabelRequest_, id(), fecElements());
      case 7:
         return B::labelMsg(LdpLabelWithdraw_, id(), fecElements(),
                            in_.byte() & 1 ? 16 + in_.u16() : 0);
      case 8:
         return B::labelMsg(LdpLabelRelease_, id(), fecElements(),
                            in_.byte() & 1 ? 16 + in_.u16() : 0);
      case 9: {
         B::Buf t = B::fecTlv(fecElements());
         B::Buf req;
         B::put32(req, in_.u32());
         B::append(t, B::tlv(0x0600, req));
         return B::msg(LdpLabelAbortReq_, id(), t);
      }
      case 10: {
         static U16 const refs[] = {0, LdpLabelMapping_, LdpLabelRequest_, LdpInitialization_};
         U8 f = in_.byte();
         return B::notificationMsg(id(), in_.byte() % 0x30, f & 1,
                                   in_.byte() & 1 ? nextId_ - 1 : in_.u32(), refs[(f >> 1) & 3]);
      }
      case 11: {
         B::Buf v;
         B::put16(v, 15);
         B::put16(v, 0);
         return B::msg(LdpHello_, id(), B::tlv(0x0400, v));
      }
      case 12:
         return B::msg(LdpCapability_, id(),
                       B::tlv(U16(0x0500 + in_.byte()), in_.bytes(in_.byte() % 4), true));
      case 13:
         return B::msg(U16(0x3E00 + in_.byte()), id(), in_.bytes(in_.byte() % 8), in_.byte() & 1);
      default: {
         // Anything at all: a type and bytes behind it.
         U16 type = in_.u16();
         return B::msg(type, id(), in_.bytes(in_.byte() % 40), type & 0x8000);
      }
      }
   }

   // A label message as a label machine of the agent hands it to the session.
   void fromAbove() {
      auto pipe = agent_.root()->ldpSessionMsgPipeColl()->msgPipe(sessionId());
      if (!pipe) return;
      std::vector<B::Buf> e;
      if (in_.byte() & 1)
         e.push_back(B::pwElement(5, 1, 1 + in_.byte() % 3));
      else
         e.push_back(B::prefixElement(IpAddr(30, 0, in_.byte(), 0), 24));
      auto m = ldpMsgFactory(agentId, B::pkt(B::labelMsg(LdpLabelMapping_, nextId_++, e, 100)), 0);
      m->priorityIs(in_.byte() & 1);
      pipe->txMsgIs(m);
   }

   void step() {
      U8 op = in_.byte();
      switch (op % 8) {
      case 0:
      case 1:
      case 2: {
         // A PDU of one to six messages.
         std::vector<B::Buf> msgs;
         for (U8 i = 0; i < 1 + op / 8 % 6; ++i) msgs.push_back(message());
         if (fake_->conn()) fake_->send(B::pdu(fake_->ldpId(), msgs));
         break;
      }
      case 3: {
         // A PDU header that says what the input likes, and bytes behind it.
         U8 f = in_.byte();
         LdpIdentifier sender = f & 1 ? LdpIdentifier(in_.u32(), in_.u16()) : fake_->ldpId();
         B::Buf body = in_.bytes(in_.byte() % 64);
         int length = f & 2 ? int(in_.u16()) : -1;
         B::Buf pdu = B::pduBytes(sender, {body}, length);
         if (f & 4) pdu[1] = in_.byte();  // the version
         if (fake_->conn()) fake_->send(B::pkt(pdu));
         break;
      }
      case 4: fake_->drive([] { return false; }, 0.1 * in_.byte()); break;
      case 5:
         if (in_.byte() & 1) {
            if (auto* l = s_.net().link("r2:lo")) l->connectionsReset();
         } else if (fake_->conn()) {
            fake_->conn()->cleanup();
         }
         break;
      case 6: fromAbove(); break;
      default: {
         U8 c = in_.byte();
         if (c & 1)
            agent_.config()->keepAliveTimeIs(U16(c | 1));
         else
            agent_.config()->maxPduLengthIs(U16(256 + 32 * c));
         break;
      }
      }
   }

   // What must hold whatever the peer did.
   void check() {
      auto* st = agent_.status();
      auto* root = agent_.root();
      DRIVE_CHECK(st && root);
      auto const* sms = root->ldpSessionSmColl();
      DRIVE_CHECK(st->ldpSessionStatusColl()->sessionStatusSize() == sms->sessionCtrlSms());
      for (auto it = st->ldpSessionStatusColl()->sessionStatusIter(); it; ++it) {
         auto const& ss = it.value();
         LdpSessionId const& id = it.key();
         DRIVE_CHECK(ss->sessionState() <= stateClosed_);
         if (ss->sessionState() == stateOperational_) {
            DRIVE_CHECK(ss->operKeepAliveTime() > 0);
            DRIVE_CHECK(ss->operMaxPduLength() > 0);
         }
         auto log = ss->sessionStateLogEntryColl();
         DRIVE_CHECK(!log || log->entrySize() <= LdpSessionStatus::stateLogEntryMax);
         auto rx = sms->sessionRxSm(id);
         auto tx = sms->sessionTxSm(id);
         auto msg = sms->sessionMsgSm(id);
         DRIVE_CHECK(rx && tx && msg);
         DRIVE_CHECK(rx->rxPktQueueSize() <= rx->rxPktQueueMax());
         DRIVE_CHECK(tx->preOperationalMsgCount() <= LdpSessionTxSm::preOperationalMsgMax);
         DRIVE_CHECK(msg->heldFecMsgCount() <= LdpSessionMsgSm::heldFecMsgMax);
         if (ss->sessionState() != stateOperational_) DRIVE_CHECK(msg->heldFecMsgCount() == 0);
         if (auto pam = root->ldpPduPamSessionColl()->ldpPduPam(id))
            DRIVE_CHECK(pam->rxQueueSize() <= pam->rxQueueMax());
         auto stats = st->statistics()->sessionStatisticsColl()->sessionStatistics(id);
         DRIVE_CHECK(stats);
         DRIVE_CHECK(stats->pwRemoteMsgIdInfoSize() <= LdpSessionStatistics::sentMsgRecordMax);
         DRIVE_CHECK(stats->pwLocalMsgIdInfoSize() <= LdpSessionStatistics::sentMsgRecordMax);
         if (ss->sessionState() == stateClosed_) DRIVE_CHECK(stats->pwRemoteMsgIdInfoSize() == 0);
      }
      for (auto it = st->ldpFecSessionStatusColl()->fecSessionStatusIter(); it; ++it) {
         auto const& fs = it.value();
         // At most the Label Request in flight is kept by id, and nothing is
         // outstanding that we never sent.
         DRIVE_CHECK(fs.msgIdReqMsgSize() <= 1);
         if (U32(fs.peerLabelSessionState()) & 0x1) DRIVE_CHECK(fs.localLabelRequestMsgId() != 0);
      }
   }

   Input& in_;
   LdpTest::Scenario s_;
   LdpTest::AgentNode& agent_ = s_.agent("r2");
   Nolu::Sim::Link* eth_ = s_.net().linkIs("fake-r2");
   std::unique_ptr<LdpTest::FakePeer> fake_;
   std::unique_ptr<LdpTest::FecPipes> pipes_;
   bool peerActive_ = false;
   bool driverOpens_ = true;
   bool bundled_ = false;
   U16 peerMaxPdu_ = 4096;
   U32 nextId_ = 100;
   double end_ = 1e300;
};

}  // namespace

void run(std::uint8_t const* data, std::size_t size) {
   static bool quiet = [] {
      Vek::eventLogSinkIs(nullptr);
      return true;
   }();
   (void)quiet;
   Input in(data, size);
   Drive d(in);
   d.run();
   Vek::eventLogRing().clear();
}

}  // namespace SessionDrive

#pragma once
// A router played by a test on the simulated network: link Hellos every 5 s,
// a TCP listener on its transport address (its LSR id, on a loopback), and
// PDUs written and read by hand. It plays the misbehaving or unusual peer
// where a real agent would not.
#include <functional>
#include <vector>

#include "runtime/nolu/TcpClientSm.h"
#include "runtime/nolu/TcpServerSm.h"
#include "tests/harness/PduBytes.h"
#include "tests/harness/Scenario.h"

namespace LdpTest {

class FakePeer {
 public:
   // A host of the given namespace name with the LSR id on its loopback and
   // linkAddr/24 on the link.
   FakePeer(Scenario& s, Nolu::Sim::Link* link, std::string const& name = "fake",
            Nolu::IpAddr lsrId = Nolu::IpAddr(1, 1, 1, 1),
            Nolu::IpAddr linkAddr = Nolu::IpAddr(10, 0, 0, 1));
   ~FakePeer();
   FakePeer(FakePeer const&) = delete;
   FakePeer& operator=(FakePeer const&) = delete;

   Ldp::LdpIdentifier ldpId() const { return Ldp::LdpIdentifier(lsrId_, 0); }
   Nolu::IpAddr lsrId() const { return lsrId_; }

   // The peer's part of a turn: Hellos when due, accepted or connected
   // channels, and the PDUs they received (unless reading is off).
   void poll();
   bool runUntil(std::function<bool()> const& cond, double limit);
   void runFor(double d);
   // The same from event to event rather than in steps of a millisecond:
   // cheaper, for long runs where the peer's timing need not be exact.
   bool drive(std::function<bool()> const& cond, double limit);
   // Connects to the agent's listener from this peer's transport address.
   void connect(Nolu::IpAddr agent);

   // The latest channel to the agent.
   Nolu::TcpPduPam* conn() const { return conns_.empty() ? nullptr : conns_.back().ptr(); }
   std::size_t connCount() const { return conns_.size(); }
   void send(Vek::Ptr<Nolu::Pkt> const& pdu) { conn()->sendPkt(pdu); }
   void send(std::vector<Bytes::Buf> const& msgs) { send(Bytes::pdu(ldpId(), msgs)); }

   // Messages received, in order, with the time they were read.
   struct Rx {
      double time;
      Vek::Ptr<Nolu::Pkt> pkt;
      U32 offset;
      Ldp::LdpMsgType type;
   };
   std::vector<Rx> const& rxMsgs() const { return rxMsgs_; }
   std::vector<Vek::Ptr<Nolu::Pkt>> const& rxPdus() const { return rxPdus_; }
   // Forgets what was received, the room it took included.
   void rxClear() {
      std::vector<Rx>().swap(rxMsgs_);
      std::vector<Vek::Ptr<Nolu::Pkt>>().swap(rxPdus_);
   }
   // Received messages of a type; for Notifications of a status when given.
   std::size_t rxCount(Ldp::LdpMsgType type, Ldp::LdpStatusCode status = Ldp::statusSuccess_) const;
   // The first Notification received of a status, or null.
   Vek::Ptr<Ldp::LdpNotificationMsgParser> notification(Ldp::LdpStatusCode status) const;

   bool hellos = true;
   // Off: what the agent sends stays in the socket, and the agent's window
   // fills; on again, what waited is read.
   void readingIs(bool b);

 private:
   void take(Vek::Ptr<Nolu::TcpConnSocket> const& c);
   Scenario& s_;
   Nolu::IpAddr lsrId_;
   Nolu::IpAddr linkAddr_;
   Nolu::NamespaceName ns_;
   Vek::Ptr<Hesk::TaskScheduler> sched_;
   Vek::Ptr<Nolu::UdpPam> udp_;
   Vek::Ptr<Nolu::TcpServerStatus> sst_;
   Vek::Ptr<Nolu::TcpServerSm> server_;
   Vek::Ptr<Nolu::TcpClientStatus> cst_;
   Vek::Ptr<Nolu::TcpClientSm> client_;
   std::vector<Vek::Ptr<Nolu::TcpPduPam>> conns_;
   std::vector<Rx> rxMsgs_;
   std::vector<Vek::Ptr<Nolu::Pkt>> rxPdus_;
   double nextHello_ = 0.0;
   bool reading_ = true;
};

}  // namespace LdpTest

#include "tests/harness/FakePeer.h"

#include "wire/LdpMsgGen.h"
#include "wire/LdpParser.h"

namespace LdpTest {

FakePeer::FakePeer(Scenario& s, Nolu::Sim::Link* link, std::string const& name, Nolu::IpAddr lsrId,
                   Nolu::IpAddr linkAddr)
    : s_(s), lsrId_(lsrId), linkAddr_(linkAddr), ns_(name) {
   Nolu::Sim::Host* host = s.net().hostIs(name);
   host->intfIs("eth1", link, linkAddr, 24);
   host->intfIs("lo", nullptr, lsrId, 32);
   sched_ = new Hesk::TaskScheduler(name);
   udp_ = new Nolu::UdpPam(ns_);
   udp_->rxIpAddrIs(Nolu::IpAddr(224, 0, 0, 2));
   udp_->rxPortIs(646);
   udp_->txPortIs(646);
   udp_->txDstIpAddrIs(Nolu::IpAddr(224, 0, 0, 2));
   udp_->txSrcIpAddrIs(linkAddr);
   udp_->txIfIndexIs(host->intf("eth1")->ifIndex);
   udp_->modeIs(3);
   sst_ = Nolu::tcpServerStatusFactory();
   auto sc = Nolu::tcpServerConfigFactory(lsrId, 646);
   sc->netnsIs(ns_);
   server_ = Nolu::TcpServerSm::TcpServerSmIs(name, sc, sst_, sched_);
   server_->startListener();
}

FakePeer::~FakePeer() {
   for (auto& c : conns_) c->cleanup();
}

void FakePeer::poll() {
   if (hellos && s_.now() >= nextHello_) {
      auto pkt = Nolu::globalPktManager()->newPkt();
      auto gen = Ldp::ldpMsgGenFactory(pkt);
      gen->addLdpPduHdr(1, ldpId());
      gen->addLdpMsgHdr(false, Ldp::LdpHello_, 1);
      gen->addCommonHelloTlv(false, 15, false, false);
      gen->addIpTransportAddrTlv(false, lsrId_);
      gen->computeHdrLenChecksum();
      udp_->sendPkt(pkt);
      nextHello_ = s_.now() + 5.0;
   }
   while (auto c = sst_->getConnSocket()) take(c);
   if (cst_ && cst_->connectionStatus() == Nolu::connConnected_)
      if (auto c = cst_->resetConnSocket()) take(c);
   if (!reading_) return;
   for (auto& c : conns_) {
      while (auto p = c->rxPkt()) {
         rxPdus_.push_back(p);
         auto pdu = Ldp::ldpPduParserFactory(p, 0);
         for (U32 i = 0; i < pdu->msgNum(); ++i)
            rxMsgs_.push_back(Rx{s_.now(), p, pdu->msgOffset(i), pdu->msgHdr(i)->type()});
      }
   }
}

void FakePeer::readingIs(bool b) {
   reading_ = b;
   if (conn()) conn()->enabledIs(b);
}

void FakePeer::take(Vek::Ptr<Nolu::TcpConnSocket> const& c) {
   Vek::Ptr<Nolu::TcpPduPam> p(new Nolu::TcpPduPam(c));
   p->maxPduLengthIs(65535);
   p->rxQueueMaxIs(1u << 30);
   p->enabledIs(true);
   conns_.push_back(p);
}

bool FakePeer::runUntil(std::function<bool()> const& cond, double limit) {
   double end = s_.now() + limit;
   while (s_.now() < end) {
      poll();
      if (cond()) return true;
      s_.runFor(0.001);
   }
   poll();
   return cond();
}

bool FakePeer::drive(std::function<bool()> const& cond, double limit) {
   return s_.runUntil(
      [&] {
         poll();
         return cond();
      },
      limit);
}

void FakePeer::runFor(double d) {
   runUntil([] { return false; }, d);
}

void FakePeer::connect(Nolu::IpAddr agent) {
   auto cc = Nolu::tcpClientConfigFactory(lsrId_, 646, agent);
   cc->netnsIs(ns_);
   cst_ = Nolu::tcpClientStatusFactory();
   client_ = Nolu::TcpClientSm::TcpClientSmIs(1, cc, cst_, sched_);
   client_->startConnection();
}

std::size_t FakePeer::rxCount(Ldp::LdpMsgType type, Ldp::LdpStatusCode status) const {
   std::size_t n = 0;
   for (auto const& m : rxMsgs_) {
      if (m.type != type) continue;
      if (status == Ldp::statusSuccess_) {
         ++n;
         continue;
      }
      auto p = Ldp::ldpNotificationMsgParserFactory(m.pkt, m.offset);
      if (p->statusTlv() && p->statusData() == status) ++n;
   }
   return n;
}

Vek::Ptr<Ldp::LdpNotificationMsgParser> FakePeer::notification(Ldp::LdpStatusCode status) const {
   for (auto const& m : rxMsgs_) {
      if (m.type != Ldp::LdpNotification_) continue;
      auto p = Ldp::ldpNotificationMsgParserFactory(m.pkt, m.offset);
      if (p->statusTlv() && p->statusData() == status) return p;
   }
   return nullptr;
}

}  // namespace LdpTest

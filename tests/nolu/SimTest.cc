// Channels on the simulated network: framing, multicast, connect and MD5.
#include <gtest/gtest.h>

#include "runtime/nolu/Sim.h"
#include "runtime/nolu/TcpClientSm.h"
#include "runtime/nolu/TcpServerSm.h"

using namespace Nolu;
using Vek::Ptr;

namespace {

Ptr<Pkt> ldpPdu(U16 bodyLen, U8 fill) {
   Ptr<Pkt> p = globalPktManager()->newPkt();
   U8* b = p->newSharedTailData(4 + bodyLen);
   writeU16(b, 1);
   writeU16(b + 2, bodyLen);
   for (U16 i = 0; i < bodyLen; ++i) b[4 + i] = fill;
   return p;
}

struct Pair {
   Ptr<TcpServerStatus> sst = tcpServerStatusFactory();
   Ptr<TcpClientStatus> cst = tcpClientStatusFactory();
   Ptr<TcpServerSm> server;
   Ptr<TcpClientSm> client;
   Ptr<TcpPduPam> a, b;  // client end, server end
};

// Listens on "b" at 10.0.0.2 and connects from "a" at 10.0.0.1.
void connect(Vek::ActivityManager& am, Pair& p, std::string const& keyA,
             std::string const& keyB) {
   auto sc = tcpServerConfigFactory(IpAddr(10, 0, 0, 2), 646);
   sc->netnsIs(NamespaceName("b"));
   if (!keyB.empty()) sc->md5AuthIs(IpAddrWithMask(IpAddr(10, 0, 0, 1), 32), keyB);
   p.server = TcpServerSm::TcpServerSmIs("TcpServerSm", sc, p.sst, nullptr);
   p.server->startListener();
   auto cc = tcpClientConfigFactory(IpAddr(10, 0, 0, 1), 646, IpAddr(10, 0, 0, 2));
   cc->netnsIs(NamespaceName("a"));
   cc->timeoutIs(1.0);
   if (!keyA.empty()) cc->md5AuthIs(IpAddrWithMask(IpAddr(10, 0, 0, 2), 32), keyA);
   p.client = TcpClientSm::TcpClientSmIs(1, cc, p.cst, nullptr);
   p.client->startConnection();
   am.runUntil([&] { return p.cst->connectionStatus() != connConnecting_; }, 5.0);
   if (p.cst->connectionStatus() != connConnected_) return;
   am.runUntil([&] { return p.sst->connSocketsQueued() > 0; }, 1.0);
   p.a = new TcpPduPam(p.cst->resetConnSocket());
   p.b = new TcpPduPam(p.sst->getConnSocket());
   p.a->enabledIs(true);
   p.b->enabledIs(true);
}

struct SimFixture : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Sim::Network net;
   Sim::Link* link = nullptr;
   void SetUp() override {
      Vek::activityManagerIs(&am);
      link = net.linkIs("ab");
      net.hostIs("a")->intfIs("eth1", link, IpAddr(10, 0, 0, 1), 24);
      net.hostIs("b")->intfIs("eth1", link, IpAddr(10, 0, 0, 2), 24);
   }
};

}  // namespace

TEST_F(SimFixture, PduFramingAcrossSegments) {
   link->segmentSizeIs(7);  // every PDU arrives in pieces
   Pair p;
   connect(am, p, "", "");
   ASSERT_TRUE(p.a && p.b);
   EXPECT_EQ(IpAddr(10, 0, 0, 1), p.b->connSocket()->remoteIpAddr());
   EXPECT_EQ(646, p.b->connSocket()->localPort());
   EXPECT_TRUE(p.a->sendPkt(ldpPdu(20, 0xaa)));
   EXPECT_TRUE(p.a->sendPkt(ldpPdu(6, 0xbb)));
   am.runFor(0.1);
   EXPECT_EQ(2u, p.b->readableCount());
   Ptr<Pkt> first = p.b->rxPkt(), second = p.b->rxPkt();
   ASSERT_TRUE(first && second);
   EXPECT_EQ(24u, first->dataBytes());
   EXPECT_EQ(0xaa, *first->readPtr(23));
   EXPECT_EQ(10u, second->dataBytes());
   EXPECT_FALSE(p.b->rxPkt());
   // The segments crossed the link and can be read back.
   EXPECT_GE(link->records().size(), 5u);

   // Several PDUs in one segment give one notification each.
   link->segmentSizeIs(0);
   Ptr<Pkt> two = ldpPdu(2, 1);
   two->appendData(ldpPdu(3, 2)->readPtr(0), 7);
   EXPECT_TRUE(p.b->sendPkt(two));
   am.runFor(0.1);
   EXPECT_EQ(2u, p.a->readableCount());

   // One connection cut finer than the link: only what that end writes.
   link->recordsDelAll();
   EXPECT_TRUE(net.segmentSizeIs(p.a->fileDescriptor(), 3));
   EXPECT_FALSE(net.segmentSizeIs(-1, 3));
   p.a->sendPkt(ldpPdu(5, 3));
   p.b->sendPkt(ldpPdu(5, 4));
   am.runFor(0.1);
   EXPECT_EQ(4u, link->records().size());  // three of 3, 3, 3 bytes and one of 9
   EXPECT_EQ(3u, p.b->readableCount());
   EXPECT_EQ(3u, p.a->readableCount());
   EXPECT_EQ(9u, p.b->rxPkt()->dataBytes());
   EXPECT_TRUE(net.segmentSizeIs(p.a->fileDescriptor(), 0));

   // A length beyond the maximum is not a huge read: the reader gets the
   // header, to answer it, and reading ends there.
   p.a->maxPduLengthIs(100);
   U64 before = p.a->readableCount();
   p.b->sendPkt(ldpPdu(200, 0));
   p.b->sendPkt(ldpPdu(5, 1));
   am.runFor(0.1);
   EXPECT_EQ(0u, p.a->rxErrors());
   EXPECT_TRUE(p.a->rxHalted());
   EXPECT_EQ(before + 1, p.a->readableCount());
   Ptr<Pkt> head;
   while (auto x = p.a->rxPkt()) head = x;
   ASSERT_TRUE(head);
   EXPECT_EQ(4u, head->dataBytes());
   EXPECT_EQ(200u, readU16(head->readPtr(2)));

}

TEST_F(SimFixture, PeerCloseAndLinkReset) {
   Pair p;
   connect(am, p, "", "");
   ASSERT_TRUE(p.a && p.b);
   link->upIs(false);
   p.a->sendPkt(ldpPdu(4, 1));
   am.runFor(1.0);
   EXPECT_EQ(0u, p.b->readableCount());  // held while the link is down
   link->upIs(true);
   am.runFor(0.1);
   EXPECT_EQ(1u, p.b->readableCount());
   link->connectionsReset();
   am.runFor(0.1);
   EXPECT_EQ(1u, p.a->rxErrors());
   EXPECT_EQ(std::string("Connection reset by peer"), p.a->rxErrorReason());

   p = Pair();
   Pair q;
   connect(am, q, "", "");
   q.a->cleanup();
   am.runFor(0.1);
   EXPECT_EQ("Connection closed by peer", q.b->rxErrorReason());
}

TEST_F(SimFixture, RefusalAndMd5) {
   // Nobody listens: refused, then retried with back-off until it gives up.
   auto cst = tcpClientStatusFactory();
   auto cc = tcpClientConfigFactory(IpAddr(10, 0, 0, 1), 646, IpAddr(10, 0, 0, 2));
   cc->netnsIs(NamespaceName("a"));
   cc->exponentialBackoffRetriesIs(2);
   cc->retryIntervalIs(1.0);
   auto client = TcpClientSm::TcpClientSmIs(1, cc, cst, nullptr);
   client->startConnection();
   am.runUntil([&] { return cst->connectionStatus() == connFailed_; }, 10.0);
   EXPECT_EQ(connFailed_, cst->connectionStatus());
   EXPECT_EQ(3u, cst->attempts());
   EXPECT_EQ("connect: Connection refused", cst->reason());

   Pair good;
   connect(am, good, "secret", "secret");
   EXPECT_EQ(connConnected_, good.cst->connectionStatus());
   good = Pair();
   Pair missing;
   connect(am, missing, "", "secret");
   EXPECT_NE(connConnected_, missing.cst->connectionStatus());
   missing = Pair();
   Pair wrong;
   connect(am, wrong, "other", "secret");
   EXPECT_NE(connConnected_, wrong.cst->connectionStatus());
}

TEST_F(SimFixture, MulticastWithReceivingInterface) {
   Sim::Link* other = net.linkIs("ac");
   net.hostIs("c")->intfIs("eth2", other, IpAddr(10, 0, 1, 3), 24);
   net.hostIs("a")->intfIs("eth2", other, IpAddr(10, 0, 1, 1), 24);
   auto open = [](char const* ns) {
      Ptr<UdpPam> u(new UdpPam(NamespaceName(ns)));
      u->rxIpAddrIs(IpAddr(224, 0, 0, 2));
      u->rxPortIs(646);
      u->txPortIs(646);
      u->txDstIpAddrIs(IpAddr(224, 0, 0, 2));
      u->enableIpMulticastLoopIs(false);
      u->modeIs(3);
      return u;
   };
   auto a = open("a"), b = open("b"), c = open("c");
   EXPECT_EQ(0, b->handleV4McastGroup("eth1", IpAddr(224, 0, 0, 2), true));
   EXPECT_EQ(EADDRINUSE, b->handleV4McastGroup("eth1", IpAddr(224, 0, 0, 2), true));
   EXPECT_EQ(0, c->handleV4McastGroup("eth2", IpAddr(224, 0, 0, 2), true));
   EXPECT_EQ(ENODEV, c->handleV4McastGroup("eth9", IpAddr(224, 0, 0, 2), true));
   Sim::Interface* aEth1 = net.hostIs("a")->intf("eth1");
   a->txIfIndexIs(aEth1->ifIndex);
   a->txSrcIpAddrIs(IpAddr(10, 0, 0, 1));
   EXPECT_TRUE(a->sendPkt(ldpPdu(10, 0)));
   am.runFor(0.1);
   EXPECT_EQ(0u, a->readableCount());  // loopback off
   EXPECT_EQ(0u, c->readableCount());  // other link
   ASSERT_EQ(1u, b->readableCount());
   Ptr<Pkt> got = b->rxPkt();
   ASSERT_TRUE(got);
   EXPECT_EQ(14u, got->dataBytes());
   EXPECT_EQ(IpAddr(10, 0, 0, 1), b->rxInfo().srcIpAddr);
   EXPECT_EQ(646, b->rxInfo().srcPort);
   EXPECT_EQ(IpAddr(224, 0, 0, 2), b->rxInfo().dstIpAddr);
   EXPECT_EQ(net.hostIs("b")->intf("eth1")->ifIndex, b->rxInfo().ifIndex);
   EXPECT_EQ(1u, link->records().size());

   // After leaving, nothing arrives; leaving twice says so.
   EXPECT_EQ(0, b->handleV4McastGroup("eth1", IpAddr(224, 0, 0, 2), false));
   EXPECT_EQ(EADDRNOTAVAIL, b->handleV4McastGroup("eth1", IpAddr(224, 0, 0, 2), false));
   a->sendPkt(ldpPdu(10, 0));
   am.runFor(0.1);
   EXPECT_EQ(1u, b->readableCount());
}

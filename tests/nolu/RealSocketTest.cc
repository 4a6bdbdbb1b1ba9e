// Channels on real Linux sockets, driven by the real-time loop: PDU framing
// over loopback TCP, MD5 signatures, and multicast between two network
// namespaces joined by a veth pair.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "runtime/nolu/Netns.h"
#include "runtime/nolu/TcpClientSm.h"
#include "runtime/nolu/TcpServerSm.h"
#include "runtime/nolu/TcpSocketOpts.h"
#include "runtime/vek/Reactor.h"

using namespace Nolu;
using Vek::Ptr;

namespace {

// An LDP-framed PDU: version 1, length, then a 4-byte sequence number and fill.
Ptr<Pkt> ldpPdu(U16 bodyLen, U32 seq, U8 fill = 0x5a) {
   Ptr<Pkt> p = globalPktManager()->newPkt(4u + bodyLen);
   U8* b = p->newSharedTailData(4u + bodyLen);
   writeU16(b, 1);
   writeU16(b + 2, bodyLen);
   for (U16 i = 0; i < bodyLen; ++i) b[4 + i] = fill;
   if (bodyLen >= 4) writeU32(b + 4, seq);
   return p;
}

U32 pduSeq(Pkt const& p) { return p.dataBytes() >= 8 ? readU32(p.readPtr(4)) : ~0u; }

// Test ports, spread by process id so that parallel runs do not collide.
U16 testPort(int k) { return U16(20000 + (getpid() % 1000) * 10 + k); }

int pendingBytes(int fd) {
   int n = -1;
   ::ioctl(fd, FIONREAD, &n);
   return n;
}

struct RealFixture : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::realTime};
   void SetUp() override { Vek::activityManagerIs(&am); }

   // Turns of the loop until cond holds, at most turns of them and 5 seconds.
   bool pump(std::function<bool()> const& cond, int turns = 200) {
      Vek::Seconds end = am.now() + 5.0;
      for (int i = 0; i < turns; ++i) {
         if (cond()) return true;
         am.runTurn();
         if (cond()) return true;
         if (am.now() > end) break;
         am.pollFds(0.05);
      }
      return cond();
   }
};

struct Pair {
   Ptr<TcpServerStatus> sst = tcpServerStatusFactory();
   Ptr<TcpClientStatus> cst = tcpClientStatusFactory();
   Ptr<TcpServerConfig> sc;
   Ptr<TcpClientConfig> cc;
   Ptr<TcpServerSm> server;
   Ptr<TcpClientSm> client;
   Ptr<TcpPduPam> a, b;  // client end, server end
};

Ptr<TcpServerSm> listen(Pair& p, U16 port, std::string const& key) {
   p.sc = tcpServerConfigFactory(IpAddr(127, 0, 0, 1), port);
   p.sc->optionsIs(tcpOptNoDelay | tcpOptKeepAlive);
   p.sc->txDsIs(192);
   if (!key.empty()) p.sc->md5AuthIs(IpAddrWithMask(IpAddr(127, 0, 0, 1), 32), key);
   p.server = TcpServerSm::TcpServerSmIs("TcpServerSm", p.sc, p.sst, nullptr);
   p.server->startListener();
   return p.server;
}

void connect(Pair& p, U16 port, std::string const& key) {
   p.cc = tcpClientConfigFactory(IpAddr(127, 0, 0, 1), port, IpAddr(127, 0, 0, 1));
   p.cc->optionsIs(tcpOptNoDelay);
   p.cc->txDsIs(192);
   if (!key.empty()) p.cc->md5AuthIs(IpAddrWithMask(IpAddr(127, 0, 0, 1), 8), key);
   p.client = TcpClientSm::TcpClientSmIs(1, p.cc, p.cst, nullptr);
   p.client->startConnection();
}

// A blocking client socket connected to the loopback listener.
int rawConnect(U16 port) {
   int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_in a{};
   a.sin_family = AF_INET;
   a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
   a.sin_port = htons(port);
   if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
      ::close(fd);
      return -1;
   }
   return fd;
}

}  // namespace

TEST_F(RealFixture, PduPairOverLoopback) {
   Pair p;
   listen(p, testPort(0), "");
   ASSERT_TRUE(p.sst->listening()) << p.sst->reason();
   connect(p, testPort(0), "");
   ASSERT_TRUE(pump([&] { return p.cst->connectionStatus() == connConnected_ &&
                                 p.sst->connSocketsQueued() > 0; }))
      << p.cst->reason();
   Ptr<TcpConnSocket> cs = p.cst->resetConnSocket(), ss = p.sst->getConnSocket();
   EXPECT_EQ(IpAddr(127, 0, 0, 1), ss->remoteIpAddr());
   EXPECT_EQ(testPort(0), ss->localPort());
   EXPECT_EQ(cs->localPort(), ss->remotePort());
   EXPECT_TRUE(cs->tcpOptErrorReason().empty()) << cs->tcpOptErrorReason();
   p.a = new TcpPduPam(cs);
   p.b = new TcpPduPam(ss);
   p.a->enabledIs(true);
   p.b->enabledIs(true);
   EXPECT_GT(p.a->fileDescriptor(), 0);

   // Both directions, one notification per PDU, in order.
   EXPECT_TRUE(p.a->sendPkt(ldpPdu(20, 1)));
   EXPECT_TRUE(p.a->sendPkt(ldpPdu(100, 2)));
   EXPECT_TRUE(p.b->sendPkt(ldpPdu(8, 3)));
   ASSERT_TRUE(pump([&] { return p.b->readableCount() == 2 && p.a->readableCount() == 1; }));
   Ptr<Pkt> x = p.b->rxPkt(), y = p.b->rxPkt(), z = p.a->rxPkt();
   ASSERT_TRUE(x && y && z);
   EXPECT_EQ(24u, x->dataBytes());
   EXPECT_EQ(1u, pduSeq(*x));
   EXPECT_EQ(104u, y->dataBytes());
   EXPECT_EQ(0x5a, *y->readPtr(103));
   EXPECT_EQ(3u, pduSeq(*z));
   EXPECT_FALSE(p.b->rxPkt());
   EXPECT_FALSE(p.b->readable());

   // PDUs larger than what the channel reads ahead, among small ones.
   p.b->maxPduLengthIs(65535);
   for (U32 i = 0; i < 6; ++i) p.a->sendPkt(ldpPdu(i % 2 ? 40000 : 10, 10 + i, U8(i)));
   ASSERT_TRUE(pump([&] { return p.b->readableCount() == 8; }));
   for (U32 i = 0; i < 6; ++i) {
      Ptr<Pkt> q = p.b->rxPkt();
      ASSERT_TRUE(q);
      EXPECT_EQ(i % 2 ? 40004u : 14u, q->dataBytes());
      EXPECT_EQ(10 + i, pduSeq(*q));
      EXPECT_EQ(U8(i), *q->readPtr(q->dataBytes() - 1));
   }

   // Closing one end is seen by the other as a receive error.
   p.a->cleanup();
   ASSERT_TRUE(pump([&] { return p.b->rxErrors() == 1; }));
   EXPECT_EQ("Connection closed by peer", p.b->rxErrorReason());
   EXPECT_FALSE(p.a->sendPkt(ldpPdu(4, 5)));
   EXPECT_EQ("Channel is closed", p.a->txErrorReason());
}

TEST_F(RealFixture, FramingOfRawWrites) {
   Pair p;
   listen(p, testPort(1), "");
   ASSERT_TRUE(p.sst->listening()) << p.sst->reason();
   int fd = rawConnect(testPort(1));
   ASSERT_GE(fd, 0);
   ASSERT_TRUE(pump([&] { return p.sst->connSocketsQueued() > 0; }));
   Ptr<TcpPduPam> b(new TcpPduPam(p.sst->getConnSocket()));
   b->enabledIs(true);
   int bfd = b->fileDescriptor();

   // One PDU in two writes arrives once, whole.
   Ptr<Pkt> one = ldpPdu(50, 7);
   ASSERT_EQ(10, ::send(fd, one->readPtr(0), 10, 0));
   ASSERT_TRUE(pump([&] { return pendingBytes(bfd) == 0; }));
   for (int i = 0; i < 3; ++i) am.runTurn(), am.pollFds(0.0);
   EXPECT_EQ(0u, b->readableCount());
   ASSERT_EQ(44, ::send(fd, one->readPtr(10), 44, 0));
   ASSERT_TRUE(pump([&] { return b->readableCount() == 1; }));
   Ptr<Pkt> got = b->rxPkt();
   ASSERT_TRUE(got);
   EXPECT_EQ(54u, got->dataBytes());
   EXPECT_EQ(7u, pduSeq(*got));

   // Several PDUs in one write are handed over one by one.
   std::string burst;
   for (U32 i = 0; i < 5; ++i) {
      Ptr<Pkt> q = ldpPdu(U16(4 + i * 3), 100 + i);
      burst.append(reinterpret_cast<char const*>(q->readPtr(0)), q->dataBytes());
   }
   ASSERT_EQ(ssize_t(burst.size()), ::send(fd, burst.data(), burst.size(), 0));
   ASSERT_TRUE(pump([&] { return b->readableCount() == 6; }));
   for (U32 i = 0; i < 5; ++i) {
      Ptr<Pkt> q = b->rxPkt();
      ASSERT_TRUE(q);
      EXPECT_EQ(8u + i * 3, q->dataBytes());
      EXPECT_EQ(100 + i, pduSeq(*q));
   }

   // A close in the middle of a PDU is a receive error with its reason.
   ASSERT_EQ(3, ::send(fd, "\0\1\0", 3, 0));
   ::close(fd);
   ASSERT_TRUE(pump([&] { return b->rxErrors() == 1; }));
   EXPECT_EQ("Connection closed by peer", b->rxErrorReason());
   EXPECT_EQ(6u, b->readableCount());

   // A length beyond what the channel admits is not read: the reader gets
   // the header to answer it, and reading stops.
   int fd2 = rawConnect(testPort(1));
   ASSERT_GE(fd2, 0);
   ASSERT_TRUE(pump([&] { return p.sst->connSocketsQueued() > 0; }));
   Ptr<TcpPduPam> c(new TcpPduPam(p.sst->getConnSocket()));
   c->maxPduLengthIs(200);
   c->enabledIs(true);
   ASSERT_EQ(4, ::send(fd2, "\0\1\1\x2c", 4, 0));
   ASSERT_TRUE(pump([&] { return c->rxHalted(); }));
   EXPECT_EQ("PDU length 300 exceeds the maximum 200", c->rxErrorReason());
   EXPECT_EQ(0u, c->rxErrors());
   EXPECT_EQ(1u, c->readableCount());
   EXPECT_EQ(4u, c->rxPkt()->dataBytes());
   ::close(fd2);
}

namespace {

// Closes its channel from the handler of the first PDU, as a session does on
// a fatal error.
class Closer : public Vek::Sm {
 public:
   explicit Closer(Ptr<TcpPduPam> const& p) : pam_(p) {
      input_.init(this, p);
      initialized_ = true;
   }
   void handleReadableCount() {
      if (!initialized_ || !pam_) return;
      pam_->cleanup();
      pam_ = nullptr;
      ++calls;
   }
   int calls = 0;

 private:
   Ptr<TcpPduPam> pam_;
   Vek::Input<TcpPduPam::Reactor<Closer>> input_;
};

}  // namespace

TEST_F(RealFixture, ClosedFromItsOwnHandler) {
   Pair p;
   listen(p, testPort(8), "");
   int fd = rawConnect(testPort(8));
   ASSERT_GE(fd, 0);
   ASSERT_TRUE(pump([&] { return p.sst->connSocketsQueued() > 0; }));
   Ptr<TcpPduPam> b(new TcpPduPam(p.sst->getConnSocket()));
   b->enabledIs(true);
   // Output waits in the channel, so that the socket is watched for writing...
   for (U32 i = 0; i < 20000 && b->writeLength() == 0; ++i) b->sendPkt(ldpPdu(4092, i));
   ASSERT_GT(b->writeLength(), 0u);
   // ...then becomes writable as the peer drains it, and readable at once.
   Ptr<Pkt> q = ldpPdu(8, 1);
   ASSERT_EQ(12, ::send(fd, q->readPtr(0), 12, 0));
   U8 sink[65536];
   while (::recv(fd, sink, sizeof sink, MSG_DONTWAIT) > 0) {}
   Ptr<Closer> closer = Vek::makeSm<Closer>(b);
   b = nullptr;
   EXPECT_TRUE(pump([&] { return closer->calls == 1; }));
   for (int i = 0; i < 3; ++i) am.runTurn(), am.pollFds(0.0);
   EXPECT_EQ(1, closer->calls);
   ::close(fd);
}

TEST_F(RealFixture, BurstBeyondTheKernelBuffer) {
   Pair p;
   listen(p, testPort(2), "");
   connect(p, testPort(2), "");
   ASSERT_TRUE(pump([&] { return p.cst->connectionStatus() == connConnected_ &&
                                 p.sst->connSocketsQueued() > 0; }));
   p.a = new TcpPduPam(p.cst->resetConnSocket());
   p.b = new TcpPduPam(p.sst->getConnSocket());
   p.a->enabledIs(true);
   p.b->enabledIs(true);

   // Far more than the socket buffers hold: what the kernel refuses waits in
   // the channel and goes out as the reader drains.
   constexpr U32 count = 4000;
   U64 sent = 0;
   for (U32 i = 0; i < count; ++i) {
      Ptr<Pkt> q = ldpPdu(4092, i, U8(i));
      sent += q->dataBytes();
      ASSERT_TRUE(p.a->sendPkt(q));
   }
   EXPECT_GT(p.a->writeLength(), 0u);
   EXPECT_FALSE(p.a->writable());
   U32 next = 0;
   bool inOrder = true;
   auto drain = [&] {
      while (Ptr<Pkt> q = p.b->rxPkt()) {
         inOrder = inOrder && pduSeq(*q) == next && q->dataBytes() == 4096 &&
                   *q->readPtr(4095) == U8(next);
         ++next;
      }
      return next == count;
   };
   ASSERT_TRUE(pump(drain, 2000)) << next << " of " << count;
   EXPECT_TRUE(inOrder);
   EXPECT_EQ(count, p.b->rxPduCount());
   EXPECT_TRUE(pump([&] { return p.a->writeLength() == 0 && p.a->writable(); }));
   EXPECT_EQ(0u, p.a->txErrors());
   EXPECT_EQ(4096u * count, sent);
}

TEST_F(RealFixture, Md5Signatures) {
   // Matching keys connect.
   {
      Pair p;
      listen(p, testPort(3), "secret");
      ASSERT_TRUE(p.sst->listening()) << p.sst->reason();
      if (p.sst->md5Errors()) GTEST_SKIP() << "kernel without TCP MD5: " << p.sst->md5ErrorReason();
      connect(p, testPort(3), "secret");
      EXPECT_TRUE(pump([&] { return p.sst->connSocketsQueued() > 0 &&
                                    p.cst->connectionStatus() == connConnected_; }));
      EXPECT_TRUE(p.cst->connSocket()->tcpOptErrorReason().empty());
   }
   // A missing or a wrong key on either side: the handshake never completes.
   auto fails = [&](int k, std::string const& serverKey, std::string const& clientKey) {
      Pair p;
      listen(p, testPort(k), serverKey);
      connect(p, testPort(k), clientKey);
      pump([&] { return p.cst->connectionStatus() != connConnecting_ ||
                        p.sst->connSocketCount() > 0; }, 10);
      EXPECT_EQ(connConnecting_, p.cst->connectionStatus()) << serverKey << "/" << clientKey;
      EXPECT_EQ(0u, p.sst->connSocketCount()) << serverKey << "/" << clientKey;
   };
   fails(4, "secret", "");
   fails(5, "", "secret");
   fails(6, "secret", "other");

   // Keys of the listener follow its configuration while it listens.
   Pair p;
   listen(p, testPort(7), "");
   p.sc->md5AuthIs(IpAddrWithMask(IpAddr(127, 0, 0, 0), 8), "live");
   EXPECT_EQ(0u, p.sst->md5Errors()) << p.sst->md5ErrorReason();
   Pair plain;
   connect(plain, testPort(7), "");
   Pair keyed;
   connect(keyed, testPort(7), "live");
   EXPECT_TRUE(pump([&] { return keyed.cst->connectionStatus() == connConnected_; }));
   pump([&] { return plain.cst->connectionStatus() != connConnecting_; }, 10);
   EXPECT_EQ(connConnecting_, plain.cst->connectionStatus());
   plain = Pair();

   p.sc->md5AuthDel(IpAddrWithMask(IpAddr(127, 0, 0, 0), 8));
   EXPECT_EQ(0u, p.sst->md5Errors()) << p.sst->md5ErrorReason();
   Pair plain2;
   connect(plain2, testPort(7), "");
   EXPECT_TRUE(pump([&] { return plain2.cst->connectionStatus() == connConnected_; }));
   Pair keyed2;
   connect(keyed2, testPort(7), "live");
   pump([&] { return keyed2.cst->connectionStatus() != connConnecting_; }, 10);
   EXPECT_EQ(connConnecting_, keyed2.cst->connectionStatus());

   // A key the kernel refuses is reported, by the listener on its status and
   // by the connector on the socket and then on the channel.
   std::string tooLong(81, 'k');
   p.sc->md5AuthIs(IpAddrWithMask(IpAddr(127, 0, 0, 2), 32), tooLong);
   EXPECT_EQ(1u, p.sst->md5Errors());
   EXPECT_EQ("TCP_MD5SIG: Invalid argument", p.sst->md5ErrorReason());
   Pair bad;
   connect(bad, testPort(7), tooLong);
   ASSERT_TRUE(pump([&] { return bad.cst->connectionStatus() == connConnected_; }));
   Ptr<TcpPduPam> pam(new TcpPduPam(bad.cst->resetConnSocket()));
   pam->enabledIs(true);
   EXPECT_EQ(1u, pam->tcpOptErrors());
   EXPECT_EQ("TCP_MD5SIG: Invalid argument", pam->tcpOptErrorReason());
}

// ----- Multicast between two namespaces -----

namespace {

int sh(std::string const& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

U32 ifIndexIn(std::string const& ns, std::string const& dev) {
   std::string cmd = "ip -n " + ns + " -o link show dev " + dev;
   FILE* f = ::popen(cmd.c_str(), "r");
   if (!f) return 0;
   unsigned idx = 0;
   if (std::fscanf(f, "%u:", &idx) != 1) idx = 0;
   ::pclose(f);
   return idx;
}

}  // namespace

struct NetnsFixture : RealFixture {
   std::string nsA, nsB, devA, devB;
   bool made = false;

   void SetUp() override {
      RealFixture::SetUp();
      if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
      if (sh("ip -V") != 0) GTEST_SKIP() << "needs the ip tool to create network namespaces";
      std::string id = std::to_string(getpid());
      nsA = "nolu-a-" + id;
      nsB = "nolu-b-" + id;
      devA = "nla" + id;
      devB = "nlb" + id;
      made = true;
      for (std::string const& c :
           {"ip netns add " + nsA, "ip netns add " + nsB,
            "ip link add " + devA + " type veth peer name " + devB,
            "ip link set " + devA + " netns " + nsA, "ip link set " + devB + " netns " + nsB,
            "ip -n " + nsA + " addr add 10.77.0.1/24 dev " + devA,
            "ip -n " + nsB + " addr add 10.77.0.2/24 dev " + devB,
            "ip -n " + nsA + " link set " + devA + " up",
            "ip -n " + nsB + " link set " + devB + " up",
            "ip -n " + nsA + " link set lo up", "ip -n " + nsB + " link set lo up"})
         ASSERT_EQ(0, sh(c)) << c;
   }
   void TearDown() override {
      if (!made) return;
      sh("ip netns del " + nsA);
      sh("ip netns del " + nsB);
      sh("ip link del " + devA);
   }

   Ptr<UdpPam> open(std::string const& ns, IpAddr src) {
      Ptr<UdpPam> u(new UdpPam(NamespaceName(ns)));
      u->rxIpAddrIs(IpAddr(224, 0, 0, 2));
      u->enableIpMulticastLoopIs(false);
      u->rxPortIs(646);
      u->txSrcIpAddrIs(src);
      u->txDstIpAddrIs(IpAddr(224, 0, 0, 2));
      u->txPortIs(646);
      u->modeIs(3);
      // Set after the socket is open: it still applies to what is sent.
      u->txTosIs(192);
      return u;
   }
};

TEST_F(NetnsFixture, MulticastAcrossVeth) {
   U32 idxA = ifIndexIn(nsA, devA), idxB = ifIndexIn(nsB, devB);
   ASSERT_TRUE(idxA && idxB);
   Ptr<UdpPam> a = open(nsA, IpAddr(10, 77, 0, 1)), b = open(nsB, IpAddr(10, 77, 0, 2));
   ASSERT_EQ(3, a->mode()) << a->openErrorReason();
   ASSERT_EQ(3, b->mode()) << b->openErrorReason();
   IpAddr group(224, 0, 0, 2);
   EXPECT_EQ(0, a->handleV4McastGroup(devA, group, true));
   EXPECT_EQ(0, b->handleV4McastGroup(devB, group, true));
   EXPECT_EQ(EADDRINUSE, b->handleV4McastGroup(devB, group, true));
   EXPECT_EQ(ENODEV, b->handleV4McastGroup("nosuchdev0", group, true));
   EXPECT_EQ(ENODEV, b->handleV4McastGroup(devA, group, true));  // not in b's namespace

   // A plain socket beside b sees the header fields of what arrives.
   int err = 0;
   std::string reason;
   int raw = netnsSocket(NamespaceName(nsB), AF_INET, SOCK_DGRAM, &err, &reason);
   ASSERT_GE(raw, 0) << reason;
   int one = 1;
   ::setsockopt(raw, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
   ::setsockopt(raw, IPPROTO_IP, IP_RECVTOS, &one, sizeof one);
   ::setsockopt(raw, IPPROTO_IP, IP_RECVTTL, &one, sizeof one);
   sockaddr_in ba{};
   ba.sin_family = AF_INET;
   ba.sin_addr.s_addr = htonl(group.value());
   ba.sin_port = htons(646);
   ASSERT_EQ(0, ::bind(raw, reinterpret_cast<sockaddr*>(&ba), sizeof ba));
   ip_mreqn m{};
   m.imr_multiaddr.s_addr = htonl(group.value());
   m.imr_ifindex = int(idxB);
   ASSERT_EQ(0, ::setsockopt(raw, IPPROTO_IP, IP_ADD_MEMBERSHIP, &m, sizeof m));

   a->txIfIndexIs(idxA);
   EXPECT_TRUE(a->sendPkt(ldpPdu(10, 42)));
   ASSERT_TRUE(pump([&] { return b->readableCount() == 1; }));
   Ptr<Pkt> got = b->rxPkt();
   ASSERT_TRUE(got);
   EXPECT_EQ(14u, got->dataBytes());
   EXPECT_EQ(42u, pduSeq(*got));
   EXPECT_EQ(IpAddr(10, 77, 0, 1), b->rxInfo().srcIpAddr);
   EXPECT_EQ(646, b->rxInfo().srcPort);
   EXPECT_EQ(group, b->rxInfo().dstIpAddr);
   EXPECT_EQ(idxB, b->rxInfo().ifIndex);
   EXPECT_EQ(1u, a->txPktCount());

   U8 buf[64];
   alignas(cmsghdr) char ctl[128];
   iovec iov{buf, sizeof buf};
   msghdr msg{};
   msg.msg_iov = &iov;
   msg.msg_iovlen = 1;
   msg.msg_control = ctl;
   msg.msg_controllen = sizeof ctl;
   ASSERT_EQ(14, ::recvmsg(raw, &msg, MSG_DONTWAIT));
   int tos = -1, ttl = -1;
   for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != IPPROTO_IP) continue;
      if (c->cmsg_type == IP_TOS) tos = *CMSG_DATA(c);
      if (c->cmsg_type == IP_TTL) memcpy(&ttl, CMSG_DATA(c), sizeof ttl);
   }
   ::close(raw);
   EXPECT_EQ(0xC0, tos);
   EXPECT_EQ(1, ttl);

   // And back; loopback is off, so nobody hears himself.
   b->txIfIndexIs(idxB);
   EXPECT_TRUE(b->sendPkt(ldpPdu(6, 43)));
   ASSERT_TRUE(pump([&] { return a->readableCount() == 1; }));
   ASSERT_TRUE((got = a->rxPkt()));
   EXPECT_EQ(43u, pduSeq(*got));
   EXPECT_EQ(IpAddr(10, 77, 0, 2), a->rxInfo().srcIpAddr);
   EXPECT_EQ(idxA, a->rxInfo().ifIndex);
   EXPECT_EQ(1u, b->readableCount());

   // After leaving, nothing more arrives; leaving twice says so.
   EXPECT_EQ(0, b->handleV4McastGroup(devB, group, false));
   EXPECT_EQ(EADDRNOTAVAIL, b->handleV4McastGroup(devB, group, false));

   // A unicast socket in b, closed and opened again on the same port.
   Ptr<UdpPam> u(new UdpPam(NamespaceName(nsB)));
   u->rxIpAddrIs(IpAddr(10, 77, 0, 2));
   u->rxPortIs(testPort(0));
   u->modeIs(3);
   u->modeIs(0);
   u->modeIs(3);
   ASSERT_EQ(3, u->mode()) << u->openErrorReason();
   a->txDstIpAddrIs(IpAddr(10, 77, 0, 2));
   a->txPortIs(testPort(0));
   a->txIfIndexIs(0);
   EXPECT_TRUE(a->sendPkt(ldpPdu(4, 44)));
   EXPECT_TRUE(a->sendPkt(ldpPdu(4, 45)));
   a->txDstIpAddrIs(group);
   a->txPortIs(646);
   a->txIfIndexIs(idxA);
   EXPECT_TRUE(a->sendPkt(ldpPdu(4, 46)));
   ASSERT_TRUE(pump([&] { return u->readableCount() == 2; }));
   EXPECT_EQ(44u, pduSeq(*u->rxPkt()));
   EXPECT_EQ(IpAddr(10, 77, 0, 2), u->rxInfo().dstIpAddr);
   EXPECT_EQ(idxB, u->rxInfo().ifIndex);
   EXPECT_EQ(45u, pduSeq(*u->rxPkt()));
   // The group datagram went out after the unicast ones, and b has left.
   for (int i = 0; i < 5; ++i) am.runTurn(), am.pollFds(0.01);
   EXPECT_EQ(1u, b->readableCount());

   // A namespace that does not exist is a failure to open, with a reason.
   Ptr<UdpPam> bad(new UdpPam(NamespaceName(nsA + "-gone")));
   bad->modeIs(3);
   EXPECT_EQ(0, bad->mode());
   EXPECT_NE(std::string::npos, bad->openErrorReason().find("No such file"))
      << bad->openErrorReason();
}

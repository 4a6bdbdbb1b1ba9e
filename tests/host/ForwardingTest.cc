// The host's forwarding consumer without a kernel: the mapping from a FEC's
// bindings and next hops to kernel routes, the rtnetlink messages against
// bytes worked out by hand from the kernel's headers, and the event log
// file's rotation.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "host/HostAgent.h"
#include "host/MplsForwarding.h"

using namespace Host;
using Nolu::IpAddr;
using Nolu::Prefix;

namespace {

FecForwardingView view(std::vector<U32> local, std::vector<FecForwardingView::Hop> hops) {
   FecForwardingView v;
   v.prefix = Prefix(IpAddr(10, 9, 9, 9), 32);
   v.localLabels = std::move(local);
   v.hops = std::move(hops);
   return v;
}
FecForwardingView::Hop hop(U8 last, U32 ifIndex, std::optional<U32> label) {
   return {IpAddr(10, 0, 0, last), ifIndex, "eth" + std::to_string(ifIndex), label};
}

}  // namespace

TEST(Forwarding, BindingsToKernelRoutes) {
   // Transit: swap the local label for the peer's, towards its next hop.
   auto r = kernelRoutesOf(view({100016}, {hop(2, 3, 200)}));
   ASSERT_TRUE(r.mpls);
   EXPECT_EQ((KernelMplsRoute{100016, {200}, IpAddr(10, 0, 0, 2), 3, "eth3"}), *r.mpls);
   // Ingress: the route gets the peer's label.
   ASSERT_TRUE(r.ingress);
   EXPECT_EQ((KernelIngressRoute{Prefix(IpAddr(10, 9, 9, 9), 32), {200}, IpAddr(10, 0, 0, 2), 3,
                                 "eth3"}),
             *r.ingress);

   // Penultimate hop: Implicit Null pops, and the route needs no label.
   r = kernelRoutesOf(view({100016}, {hop(2, 3, 3)}));
   ASSERT_TRUE(r.mpls);
   EXPECT_TRUE(r.mpls->outLabels.empty());
   EXPECT_FALSE(r.ingress);

   // Explicit Null is swapped in like any label.
   r = kernelRoutesOf(view({100016}, {hop(2, 3, 0)}));
   EXPECT_EQ(std::vector<U32>{0}, r.mpls->outLabels);

   // No peer label on any next hop: nothing. A next hop without a label is
   // passed over for one that has it; among several, the lowest address.
   EXPECT_EQ(FecKernelRoutes(), kernelRoutesOf(view({100016}, {hop(2, 3, std::nullopt)})));
   r = kernelRoutesOf(view({100016}, {hop(9, 4, 300), hop(2, 3, std::nullopt), hop(5, 2, 400)}));
   EXPECT_EQ(IpAddr(10, 0, 0, 5), r.mpls->via);
   EXPECT_EQ(std::vector<U32>{400}, r.mpls->outLabels);

   // No usable local label (none, or a reserved one): ingress only.
   r = kernelRoutesOf(view({}, {hop(2, 3, 200)}));
   EXPECT_FALSE(r.mpls);
   EXPECT_TRUE(r.ingress);
   r = kernelRoutesOf(view({3}, {hop(2, 3, 200)}));
   EXPECT_FALSE(r.mpls);

   // A directly connected route has no next hop to encapsulate towards; an
   // unknown interface can't be programmed at all.
   FecForwardingView::Hop connected{IpAddr(), 3, "eth3", 200};
   r = kernelRoutesOf(view({100016}, {connected}));
   EXPECT_TRUE(r.mpls);
   EXPECT_FALSE(r.ingress);
   EXPECT_EQ(FecKernelRoutes(), kernelRoutesOf(view({100016}, {hop(2, 0, 200)})));
}

TEST(Forwarding, NetlinkMessagesMatchTheKernelsLayout) {
   // An incoming label swapped (linux/rtnetlink.h, linux/mpls.h): rtmsg of
   // AF_MPLS (28) with a 20-bit destination, RTA_DST and RTA_NEWDST label
   // entries (label << 12, bottom of stack 0x100, network order), RTA_VIA
   // (struct rtvia: family AF_INET, then the address), RTA_OIF.
   std::vector<U8> swap = {
      64, 0, 0, 0, 24, 0, 0x05, 0x05, 7, 0, 0, 0, 0, 0, 0, 0,  // nlmsghdr: NEWROUTE,
                                                              // REQUEST|ACK|REPLACE|CREATE
      28, 20, 0, 0, 254, 0x4c, 0, 1, 0, 0, 0, 0,              // rtmsg: main, unicast
      8, 0, 1, 0, 0x00, 0x06, 0x41, 0x00,                     // RTA_DST 100
      8, 0, 19, 0, 0x00, 0x0c, 0x81, 0x00,                    // RTA_NEWDST 200
      10, 0, 18, 0, 2, 0, 10, 0, 0, 2, 0, 0,                  // RTA_VIA inet 10.0.0.2
      8, 0, 4, 0, 3, 0, 0, 0,                                 // RTA_OIF 3
   };
   KernelMplsRoute r{100, {200}, IpAddr(10, 0, 0, 2), 3, "eth3"};
   EXPECT_EQ(swap, mplsRouteMsg(true, 7, r));

   // A pop has no RTA_NEWDST.
   auto pop = mplsRouteMsg(true, 7, KernelMplsRoute{100, {}, IpAddr(10, 0, 0, 2), 3, "eth3"});
   EXPECT_EQ(56u, pop.size());
   EXPECT_EQ(56, pop[0]);
   EXPECT_EQ(18, pop[38]);  // RTA_VIA straight after RTA_DST

   // Removal names the label alone, and is a unicast route of universe
   // scope like the one it removes: the kernel refuses any other.
   std::vector<U8> del = {
      36, 0, 0, 0, 25, 0, 0x05, 0, 8, 0, 0, 0, 0, 0, 0, 0,  // DELROUTE, REQUEST|ACK
      28, 20, 0, 0, 254, 0, 0, 1, 0, 0, 0, 0,               // scope universe, unicast
      8, 0, 1, 0, 0x00, 0x06, 0x41, 0x00,
   };
   EXPECT_EQ(del, mplsRouteMsg(false, 8, r));

   // Ingress (linux/lwtunnel.h, linux/mpls_iptunnel.h): the IPv4 route with
   // RTA_ENCAP_TYPE LWTUNNEL_ENCAP_MPLS (1) and RTA_ENCAP (nested) holding
   // MPLS_IPTUNNEL_DST.
   std::vector<U8> ingress = {
      72, 0, 0, 0, 24, 0, 0x05, 0x05, 9, 0, 0, 0, 0, 0, 0, 0,
      2, 32, 0, 0, 254, 0x4c, 0, 1, 0, 0, 0, 0,
      8, 0, 1, 0, 10, 9, 9, 9,          // RTA_DST
      8, 0, 5, 0, 10, 0, 0, 2,          // RTA_GATEWAY
      8, 0, 4, 0, 3, 0, 0, 0,           // RTA_OIF
      6, 0, 21, 0, 1, 0, 0, 0,          // RTA_ENCAP_TYPE, padded
      12, 0, 22, 0x80,                  // RTA_ENCAP | NLA_F_NESTED
      8, 0, 1, 0, 0x00, 0x0c, 0x81, 0x00,  // MPLS_IPTUNNEL_DST 200
   };
   KernelIngressRoute in{Prefix(IpAddr(10, 9, 9, 9), 32), {200}, IpAddr(10, 0, 0, 2), 3, "eth3"};
   EXPECT_EQ(ingress, ingressRouteMsg(true, true, 9, in));
   // Given back: the same route replaced without encapsulation, as a boot
   // route, and only if it is still there (REPLACE without CREATE).
   auto back = ingressRouteMsg(false, false, 10, in);
   EXPECT_EQ(52u, back.size());
   EXPECT_EQ(3, back[21]);  // RTPROT_BOOT
   EXPECT_EQ(0x01, back[7]);  // NLM_F_REPLACE, no NLM_F_CREATE
   EXPECT_EQ(0x05, back[6]);  // NLM_F_REQUEST | NLM_F_ACK
}

TEST(Forwarding, EventLogFileRotatesBySize) {
   char dir[] = "/tmp/ldp-evlog-XXXXXX";
   ASSERT_TRUE(mkdtemp(dir));
   std::string path = std::string(dir) + "/events";
   {
      RotatingFile f(path, 1024);
      std::string reason;
      ASSERT_TRUE(f.open(&reason)) << reason;
      std::string line(99, 'x');  // 100 bytes with its line feed
      for (int i = 0; i < 25; ++i) f.line(line);
   }
   struct stat a, b;
   ASSERT_EQ(0, ::stat(path.c_str(), &a));
   ASSERT_EQ(0, ::stat((path + ".1").c_str(), &b));
   EXPECT_LE(a.st_size, 1024);
   EXPECT_LE(b.st_size, 1024);
   EXPECT_EQ(1000, b.st_size);
   EXPECT_EQ(500, a.st_size);
   std::remove((path + ".1").c_str());
   std::remove(path.c_str());
   ::rmdir(dir);
}

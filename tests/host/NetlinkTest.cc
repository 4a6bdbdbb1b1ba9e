// Kernel messages as bytes: the parser reads links, addresses and routes,
// skips what it doesn't want and never reads past a bad length; the writer
// turns them into the interfaces, addresses and routes the agent reads.
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <string.h>

#include "host/KernelState.h"

using namespace Host;
using Nolu::IntfId;
using Nolu::IpAddr;
using Vek::Ptr;

namespace {

// Builds netlink messages the way the kernel lays them out.
class Msg {
 public:
   Msg(U16 type, void const* fixed, std::size_t n) {
      b_.resize(NLMSG_HDRLEN);
      nlmsghdr h{};
      h.nlmsg_type = type;
      memcpy(b_.data(), &h, sizeof(h));
      put(fixed, n);
   }
   Msg& attr(U16 type, void const* d, std::size_t n) {
      rtattr a{};
      a.rta_type = type;
      a.rta_len = U16(RTA_LENGTH(n));
      put(&a, sizeof(a));
      put(d, n, false);
      return *this;
   }
   Msg& attrStr(U16 type, std::string const& s) { return attr(type, s.c_str(), s.size() + 1); }
   Msg& attrIp(U16 type, IpAddr a) {
      U8 b[4];
      a.bytesAre(b);
      return attr(type, b, 4);
   }
   Msg& attrU32(U16 type, U32 v) { return attr(type, &v, 4); }
   // The bytes with the header's length filled in.
   std::vector<U8> bytes() const {
      std::vector<U8> b = b_;
      U32 len = U32(b.size());
      memcpy(b.data(), &len, 4);
      return b;
   }

 private:
   void put(void const* d, std::size_t n, bool align = true) {
      auto const* p = static_cast<U8 const*>(d);
      b_.insert(b_.end(), p, p + n);
      (void)align;
      while (b_.size() % 4) b_.push_back(0);
   }
   std::vector<U8> b_;
};

std::vector<U8> link(U16 type, int index, std::string const& name, U32 flags,
                     std::string const& kind = "") {
   ifinfomsg ifi{};
   ifi.ifi_index = index;
   ifi.ifi_flags = flags;
   Msg m(type, &ifi, sizeof(ifi));
   m.attrStr(IFLA_IFNAME, name).attrU32(IFLA_MTU, 1500);
   if (!kind.empty()) {
      // A nested attribute: IFLA_LINKINFO holding IFLA_INFO_KIND.
      std::vector<U8> inner(RTA_LENGTH(kind.size() + 1), 0);
      rtattr a{};
      a.rta_type = IFLA_INFO_KIND;
      a.rta_len = U16(RTA_LENGTH(kind.size() + 1));
      memcpy(inner.data(), &a, sizeof(a));
      memcpy(inner.data() + RTA_LENGTH(0), kind.c_str(), kind.size() + 1);
      m.attr(IFLA_LINKINFO, inner.data(), inner.size());
   }
   return m.bytes();
}

std::vector<U8> addr(U16 type, int index, IpAddr a, U8 len, bool secondary = false) {
   ifaddrmsg ifa{};
   ifa.ifa_family = AF_INET;
   ifa.ifa_prefixlen = len;
   ifa.ifa_index = U32(index);
   ifa.ifa_flags = secondary ? IFA_F_SECONDARY : 0;
   Msg m(type, &ifa, sizeof(ifa));
   m.attrIp(IFA_ADDRESS, a).attrIp(IFA_LOCAL, a);
   return m.bytes();
}

std::vector<U8> route(U16 type, IpAddr dst, U8 len, U8 table, U8 rtype, U8 scope,
                      std::vector<NextHop> const& hops) {
   rtmsg r{};
   r.rtm_family = AF_INET;
   r.rtm_dst_len = len;
   r.rtm_table = table;
   r.rtm_type = rtype;
   r.rtm_scope = scope;
   r.rtm_protocol = RTPROT_STATIC;
   Msg m(type, &r, sizeof(r));
   m.attrIp(RTA_DST, dst);
   if (hops.size() == 1) {
      if (!hops[0].gateway.isZero()) m.attrIp(RTA_GATEWAY, hops[0].gateway);
      m.attrU32(RTA_OIF, hops[0].ifIndex);
   } else {
      std::vector<U8> mp;
      for (auto const& h : hops) {
         rtnexthop nh{};
         nh.rtnh_ifindex = int(h.ifIndex);
         nh.rtnh_len = U16(sizeof(rtnexthop) + RTA_LENGTH(4));
         std::size_t at = mp.size();
         mp.resize(at + nh.rtnh_len);
         memcpy(mp.data() + at, &nh, sizeof(nh));
         rtattr a{};
         a.rta_type = RTA_GATEWAY;
         a.rta_len = U16(RTA_LENGTH(4));
         memcpy(mp.data() + at + sizeof(nh), &a, sizeof(a));
         h.gateway.bytesAre(mp.data() + at + sizeof(nh) + RTA_LENGTH(0));
      }
      m.attr(RTA_MULTIPATH, mp.data(), mp.size());
   }
   return m.bytes();
}

std::vector<NetlinkEvent> parse(std::vector<U8> const& b, unsigned* bad = nullptr) {
   return parseNetlinkBuffer(b.data(), b.size(), bad);
}

std::vector<U8> concat(std::initializer_list<std::vector<U8>> parts) {
   std::vector<U8> out;
   for (auto const& p : parts) out.insert(out.end(), p.begin(), p.end());
   return out;
}

}  // namespace

TEST(Netlink, ParsesLinksAddressesAndRoutes) {
   auto buf =
      concat({link(RTM_NEWLINK, 3, "dummy0", IFF_UP | IFF_RUNNING, "dummy"),
              addr(RTM_NEWADDR, 3, IpAddr(1, 1, 1, 1), 32),
              route(RTM_NEWROUTE, IpAddr(2, 2, 2, 2), 32, RT_TABLE_MAIN, RTN_UNICAST,
                    RT_SCOPE_UNIVERSE, {{IpAddr(10, 0, 0, 2), 4}, {IpAddr(10, 0, 1, 2), 5}})});
   unsigned bad = 0;
   auto ev = parse(buf, &bad);
   EXPECT_EQ(0u, bad);
   ASSERT_EQ(3u, ev.size());
   auto const& l = std::get<LinkInfo>(ev[0]);
   EXPECT_EQ(3u, l.ifIndex);
   EXPECT_EQ("dummy0", l.name);
   EXPECT_EQ("dummy", l.kind);
   EXPECT_EQ(1500u, l.mtu);
   auto const& a = std::get<AddrInfo>(ev[1]);
   EXPECT_EQ(IpAddr(1, 1, 1, 1), a.addr);
   EXPECT_EQ(32, a.prefixLen);
   auto const& r = std::get<RouteInfo>(ev[2]);
   EXPECT_EQ(Nolu::Prefix(IpAddr(2, 2, 2, 2), 32), r.prefix);
   ASSERT_EQ(2u, r.nextHops.size());
   EXPECT_EQ(IpAddr(10, 0, 1, 2), r.nextHops[1].gateway);
   EXPECT_EQ(5u, r.nextHops[1].ifIndex);
}

TEST(Netlink, MalformedMessagesAreSkippedNotReadPast) {
   auto good = addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 1), 24);
   // An attribute claiming more bytes than its message holds.
   auto badAttr = addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 9), 24);
   rtattr a;
   std::size_t at = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifaddrmsg));
   memcpy(&a, badAttr.data() + at, sizeof(a));
   a.rta_len = 200;
   memcpy(badAttr.data() + at, &a, sizeof(a));
   // A prefix length beyond 32.
   auto badLen = addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 7), 40);
   unsigned bad = 0;
   auto ev = parse(concat({badAttr, badLen, good}), &bad);
   EXPECT_EQ(2u, bad);
   ASSERT_EQ(1u, ev.size());
   EXPECT_EQ(IpAddr(10, 0, 0, 1), std::get<AddrInfo>(ev[0]).addr);

   // A message header longer than the buffer ends the walk; a truncated
   // buffer reads nothing beyond its end.
   auto cut = good;
   cut.resize(cut.size() - 3);
   bad = 0;
   EXPECT_TRUE(parse(cut, &bad).empty());
   EXPECT_EQ(1u, bad);
   for (std::size_t n = 0; n < good.size(); ++n) {
      std::vector<U8> part(good.begin(), good.begin() + long(n));
      parseNetlinkBuffer(part.data(), part.size(), nullptr);
   }
   // IPv6 addresses are not asked for and are left out without complaint.
   ifaddrmsg v6{};
   v6.ifa_family = AF_INET6;
   bad = 0;
   EXPECT_TRUE(parse(Msg(RTM_NEWADDR, &v6, sizeof(v6)).bytes(), &bad).empty());
   EXPECT_EQ(0u, bad);
}

TEST(KernelState, WritesWhatTheAgentReads) {
   Ldp::entityTypesRegister();
   KernelTargets t;
   t.kni = new KernelNetInfo::Status;
   t.ipStatus = new Ip::Status;
   t.routeStatus = new Tesh::Fib::RouteStatus;
   t.forwardingStatus = new Tesh::Fib::ForwardingStatus;
   KernelStateWriter w("default", t);
   ASSERT_TRUE(t.ipStatus->vrfIpIntfStatus("default"));
   auto feed = [&](std::vector<U8> const& b) {
      for (auto const& e : parse(b)) w.apply(e);
   };
   feed(concat({link(RTM_NEWLINK, 1, "lo", IFF_UP | IFF_RUNNING | IFF_LOOPBACK),
                addr(RTM_NEWADDR, 1, IpAddr(127, 0, 0, 1), 8),
                addr(RTM_NEWADDR, 1, IpAddr(1, 1, 1, 1), 32),
                link(RTM_NEWLINK, 2, "eth1", IFF_UP),  // no carrier
                addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 1), 24),
                addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 5), 24, true),
                route(RTM_NEWROUTE, IpAddr(10, 0, 0, 0), 24, RT_TABLE_MAIN, RTN_UNICAST,
                      RT_SCOPE_LINK, {{IpAddr(), 2}}),
                route(RTM_NEWROUTE, IpAddr(2, 2, 2, 2), 32, RT_TABLE_MAIN, RTN_UNICAST,
                      RT_SCOPE_UNIVERSE, {{IpAddr(10, 0, 0, 2), 2}}),
                route(RTM_NEWROUTE, IpAddr(1, 1, 1, 1), 32, RT_TABLE_LOCAL, RTN_LOCAL,
                      RT_SCOPE_HOST, {{IpAddr(), 1}}),
                route(RTM_NEWROUTE, IpAddr(127, 0, 0, 1), 32, RT_TABLE_LOCAL, RTN_LOCAL,
                      RT_SCOPE_HOST, {{IpAddr(), 1}}),
                route(RTM_NEWROUTE, IpAddr(10, 0, 0, 255), 32, RT_TABLE_LOCAL, RTN_BROADCAST,
                      RT_SCOPE_LINK, {{IpAddr(), 2}})}));

   auto lo = t.kni->intf(1);
   ASSERT_TRUE(lo);
   EXPECT_TRUE(lo->loopback());
   EXPECT_EQ(Interface::intfOperUp_, lo->operStatus());
   EXPECT_EQ(Interface::intfOperDown_, t.kni->intf(2)->operStatus());
   auto vrf = t.ipStatus->vrfIpIntfStatus("default");
   EXPECT_EQ(Nolu::IpAddrWithMask(IpAddr(1, 1, 1, 1), 32),
             vrf->ipIntfStatus(IntfId("lo"))->activeAddrWithMask());
   auto eth = vrf->ipIntfStatus(IntfId("eth1"));
   EXPECT_EQ(Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 1), 24), eth->activeAddrWithMask());
   EXPECT_TRUE(eth->secondaryAddrWithMaskHas(Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 5), 24)));

   // Routes: the connected segment, the remote host route and the host's own
   // loopback address; nothing of 127/8 and no broadcast entries.
   EXPECT_EQ(3u, t.routeStatus->routeSize());
   auto remote = t.routeStatus->route(Nolu::IpGenPrefix(Nolu::Prefix(IpAddr(2, 2, 2, 2), 32)));
   ASSERT_TRUE(remote);
   EXPECT_EQ(routeTypeRemote_, remote->routeType());
   auto fec = t.forwardingStatus->fec(remote->fecId());
   ASSERT_TRUE(fec);
   EXPECT_TRUE(fec->viaHas(Ldp::Via(Nolu::IpGenAddr(IpAddr(10, 0, 0, 2)), IntfId("eth1"))));
   auto own = t.routeStatus->route(Nolu::IpGenPrefix(Nolu::Prefix(IpAddr(1, 1, 1, 1), 32)));
   EXPECT_EQ(routeTypeReceive_, own->routeType());
   auto seg = t.routeStatus->route(Nolu::IpGenPrefix(Nolu::Prefix(IpAddr(10, 0, 0, 0), 24)));
   EXPECT_EQ(routeTypeConnected_, seg->routeType());

   // The primary address goes: the secondary takes over. The route goes: so
   // does its forwarding entry. The link goes: so does all of it.
   feed(addr(RTM_DELADDR, 2, IpAddr(10, 0, 0, 1), 24));
   EXPECT_EQ(Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 5), 24), eth->activeAddrWithMask());
   U64 fecId = remote->fecId();
   feed(route(RTM_DELROUTE, IpAddr(2, 2, 2, 2), 32, RT_TABLE_MAIN, RTN_UNICAST, RT_SCOPE_UNIVERSE,
              {{IpAddr(10, 0, 0, 2), 2}}));
   EXPECT_FALSE(t.forwardingStatus->fec(fecId));
   EXPECT_EQ(2u, t.routeStatus->routeSize());
   feed(link(RTM_DELLINK, 2, "eth1", 0));
   EXPECT_FALSE(t.kni->intf(2));
   EXPECT_FALSE(vrf->ipIntfStatus(IntfId("eth1")));

   // A VRF's interfaces carry the VRF in their names and keep clear of the
   // default namespace's kernel indexes.
   KernelStateWriter red("red", t, 1u << 24);
   red.apply(std::get<LinkInfo>(parse(link(RTM_NEWLINK, 1, "lo", IFF_UP | IFF_LOOPBACK))[0]));
   red.apply(std::get<AddrInfo>(parse(addr(RTM_NEWADDR, 1, IpAddr(9, 9, 9, 9), 32))[0]));
   EXPECT_EQ(IntfId("red:lo"), t.kni->intf((1u << 24) + 1)->intfId());
   EXPECT_TRUE(t.ipStatus->vrfIpIntfStatus("red")->ipIntfStatus(IntfId("red:lo")));
   red.clear();
   EXPECT_FALSE(t.ipStatus->vrfIpIntfStatus("red"));
   EXPECT_FALSE(t.kni->intf((1u << 24) + 1));
   EXPECT_TRUE(t.kni->intf(1));
}

TEST(KernelState, RoutesShareForwardingEntriesAndAResyncDropsLostDeletions) {
   KernelTargets t;
   t.kni = new KernelNetInfo::Status;
   t.ipStatus = new Ip::Status;
   t.routeStatus = new Tesh::Fib::RouteStatus;
   t.forwardingStatus = new Tesh::Fib::ForwardingStatus;
   KernelStateWriter w("default", t);
   auto feed = [&](std::vector<U8> const& b) {
      for (auto const& e : parse(b)) w.apply(e);
   };
   auto host = [&](U8 d, U16 cmd, IpAddr gw) {
      return route(cmd, IpAddr(2, 2, 2, d), 32, RT_TABLE_MAIN, RTN_UNICAST, RT_SCOPE_UNIVERSE,
                   {{gw, 2}});
   };
   feed(link(RTM_NEWLINK, 2, "eth1", IFF_UP | IFF_RUNNING));
   for (U8 d = 1; d <= 100; ++d) feed(host(d, RTM_NEWROUTE, IpAddr(10, 0, 0, 2)));
   feed(host(200, RTM_NEWROUTE, IpAddr(10, 0, 0, 3)));
   EXPECT_EQ(101u, w.routeCount());
   EXPECT_EQ(2u, w.forwardingEntryCount());
   EXPECT_EQ(2u, t.forwardingStatus->fecSize());
   // A route that moves to the other next hop moves to its entry; the last
   // route of an entry takes the entry with it.
   feed(host(200, RTM_NEWROUTE, IpAddr(10, 0, 0, 2)));
   EXPECT_EQ(1u, t.forwardingStatus->fecSize());

   // Notifications were lost and all routes are read again: the routes the
   // read does not bring are gone.
   w.apply(RouteDumpStart{});
   for (U8 d = 1; d <= 50; ++d) feed(host(d, RTM_NEWROUTE, IpAddr(10, 0, 0, 2)));
   w.apply(RouteDumpEnd{});
   EXPECT_EQ(50u, w.routeCount());
   EXPECT_TRUE(t.routeStatus->routeHas(Nolu::IpGenPrefix(Nolu::Prefix(IpAddr(2, 2, 2, 50), 32))));
   EXPECT_FALSE(t.routeStatus->routeHas(Nolu::IpGenPrefix(Nolu::Prefix(IpAddr(2, 2, 2, 51), 32))));
   EXPECT_EQ(1u, w.forwardingEntryCount());

   // The kernel drops routes untold when a link is taken down or goes, or
   // an address goes; not when a link loses its carrier (the routes stay,
   // marked linkdown) nor when it changes otherwise.
   EXPECT_FALSE(w.takeRoutesDroppedUnseen());
   feed(link(RTM_NEWLINK, 2, "eth1", IFF_UP));
   feed(link(RTM_NEWLINK, 2, "eth1", IFF_UP | IFF_RUNNING));
   EXPECT_FALSE(w.takeRoutesDroppedUnseen());
   feed(link(RTM_NEWLINK, 2, "eth1", 0));
   EXPECT_TRUE(w.takeRoutesDroppedUnseen());
   EXPECT_FALSE(w.takeRoutesDroppedUnseen());
   feed(link(RTM_NEWLINK, 2, "eth1", 0));
   EXPECT_FALSE(w.takeRoutesDroppedUnseen());
   feed(addr(RTM_NEWADDR, 2, IpAddr(10, 0, 0, 1), 24));
   EXPECT_FALSE(w.takeRoutesDroppedUnseen());
   feed(addr(RTM_DELADDR, 2, IpAddr(10, 0, 0, 1), 24));
   EXPECT_TRUE(w.takeRoutesDroppedUnseen());
   feed(link(RTM_DELLINK, 2, "eth1", 0));
   EXPECT_TRUE(w.takeRoutesDroppedUnseen());
}

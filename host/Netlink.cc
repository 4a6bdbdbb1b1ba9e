#include "host/Netlink.h"

#include <errno.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "runtime/nolu/Netns.h"

namespace Host {

namespace {

template <class T>
bool readStruct(U8 const* p, std::size_t avail, T* out) {
   if (avail < sizeof(T)) return false;
   memcpy(out, p, sizeof(T));
   return true;
}

// Walks the attributes in [p, p+len), calling f(type, data, dataLen) for each
// well-formed one; false if one ran past the end.
template <class F>
bool forEachAttr(U8 const* p, std::size_t len, F&& f) {
   while (len >= sizeof(rtattr)) {
      rtattr a;
      memcpy(&a, p, sizeof(a));
      if (a.rta_len < sizeof(rtattr) || a.rta_len > len) return false;
      f(U16(a.rta_type & NLA_TYPE_MASK), p + RTA_LENGTH(0), std::size_t(a.rta_len - RTA_LENGTH(0)));
      std::size_t step = RTA_ALIGN(a.rta_len);
      if (step >= len) return true;
      p += step;
      len -= step;
   }
   return true;
}

std::string attrString(U8 const* d, std::size_t n) {
   std::size_t k = 0;
   while (k < n && d[k]) ++k;
   return std::string(reinterpret_cast<char const*>(d), k);
}

bool attrU32(U8 const* d, std::size_t n, U32* v) {
   if (n < 4) return false;
   memcpy(v, d, 4);
   return true;
}

bool attrIp4(U8 const* d, std::size_t n, Nolu::IpAddr* a) {
   if (n != 4) return false;
   *a = Nolu::IpAddr::fromBytes(d);
   return true;
}

bool parseLink(U16 type, U8 const* p, std::size_t len, LinkInfo* out) {
   ifinfomsg ifi;
   if (!readStruct(p, len, &ifi)) return false;
   out->deleted = type == RTM_DELLINK;
   out->ifIndex = U32(ifi.ifi_index);
   out->flags = ifi.ifi_flags;
   std::size_t off = NLMSG_ALIGN(sizeof(ifi));
   if (off > len) return false;
   return forEachAttr(p + off, len - off, [&](U16 t, U8 const* d, std::size_t n) {
      if (t == IFLA_IFNAME)
         out->name = attrString(d, n);
      else if (t == IFLA_MTU)
         attrU32(d, n, &out->mtu);
      else if (t == IFLA_LINKINFO) {
         forEachAttr(d, n, [&](U16 t2, U8 const* d2, std::size_t n2) {
            if (t2 == IFLA_INFO_KIND) out->kind = attrString(d2, n2);
         });
      }
   });
}

// Family other than IPv4: *skip.
bool parseAddr(U16 type, U8 const* p, std::size_t len, AddrInfo* out, bool* skip) {
   ifaddrmsg ifa;
   if (!readStruct(p, len, &ifa)) return false;
   if (ifa.ifa_family != AF_INET) {
      *skip = true;
      return true;
   }
   out->deleted = type == RTM_DELADDR;
   out->ifIndex = ifa.ifa_index;
   out->prefixLen = ifa.ifa_prefixlen;
   U32 flags = ifa.ifa_flags;
   bool haveLocal = false, haveAddr = false;
   Nolu::IpAddr local, address;
   std::size_t off = NLMSG_ALIGN(sizeof(ifa));
   if (off > len || ifa.ifa_prefixlen > 32) return false;
   bool ok = forEachAttr(p + off, len - off, [&](U16 t, U8 const* d, std::size_t n) {
      if (t == IFA_LOCAL)
         haveLocal = attrIp4(d, n, &local);
      else if (t == IFA_ADDRESS)
         haveAddr = attrIp4(d, n, &address);
      else if (t == IFA_FLAGS)
         attrU32(d, n, &flags);
   });
   if (!ok || (!haveLocal && !haveAddr)) return false;
   out->addr = haveLocal ? local : address;
   out->secondary = flags & IFA_F_SECONDARY;
   return true;
}

bool parseRoute(U16 type, U8 const* p, std::size_t len, RouteInfo* out, bool* skip) {
   rtmsg rtm;
   if (!readStruct(p, len, &rtm)) return false;
   if (rtm.rtm_family != AF_INET || (rtm.rtm_flags & RTM_F_CLONED)) {
      *skip = true;
      return true;
   }
   if (rtm.rtm_dst_len > 32) return false;
   out->deleted = type == RTM_DELROUTE;
   out->table = rtm.rtm_table;
   out->protocol = rtm.rtm_protocol;
   out->scope = rtm.rtm_scope;
   out->type = rtm.rtm_type;
   Nolu::IpAddr dst;
   NextHop single;
   bool haveSingle = false;
   U32 table = rtm.rtm_table;
   bool bad = false;
   std::size_t off = NLMSG_ALIGN(sizeof(rtm));
   if (off > len) return false;
   bool ok = forEachAttr(p + off, len - off, [&](U16 t, U8 const* d, std::size_t n) {
      if (t == RTA_DST)
         bad |= !attrIp4(d, n, &dst);
      else if (t == RTA_TABLE)
         attrU32(d, n, &table);
      else if (t == RTA_GATEWAY)
         haveSingle |= attrIp4(d, n, &single.gateway);
      else if (t == RTA_OIF)
         haveSingle |= attrU32(d, n, &single.ifIndex);
      else if (t == RTA_MULTIPATH) {
         // A list of rtnexthop, each followed by its own attributes.
         while (n >= sizeof(rtnexthop)) {
            rtnexthop nh;
            memcpy(&nh, d, sizeof(nh));
            if (nh.rtnh_len < sizeof(rtnexthop) || nh.rtnh_len > n) {
               bad = true;
               return;
            }
            NextHop hop;
            hop.ifIndex = U32(nh.rtnh_ifindex);
            std::size_t hl = RTNH_ALIGN(sizeof(rtnexthop));
            if (hl < nh.rtnh_len) {
               forEachAttr(d + hl, nh.rtnh_len - hl, [&](U16 t2, U8 const* d2, std::size_t n2) {
                  if (t2 == RTA_GATEWAY) attrIp4(d2, n2, &hop.gateway);
               });
            }
            out->nextHops.push_back(hop);
            std::size_t step = RTNH_ALIGN(nh.rtnh_len);
            if (step >= n) break;
            d += step;
            n -= step;
         }
      }
   });
   if (!ok || bad) return false;
   out->table = U8(table > 255 ? 0 : table);
   if (table > 255) {
      *skip = true;
      return true;
   }
   out->prefix = Nolu::Prefix(dst, rtm.rtm_dst_len);
   if (haveSingle) out->nextHops.insert(out->nextHops.begin(), single);
   return true;
}

}  // namespace

std::vector<NetlinkEvent> parseNetlinkBuffer(U8 const* buf, std::size_t len, unsigned* malformed) {
   std::vector<NetlinkEvent> out;
   auto bad = [&] {
      if (malformed) ++*malformed;
   };
   while (len >= sizeof(nlmsghdr)) {
      nlmsghdr h;
      memcpy(&h, buf, sizeof(h));
      if (h.nlmsg_len < sizeof(nlmsghdr) || h.nlmsg_len > len) {
         bad();
         break;
      }
      U8 const* body = buf + NLMSG_HDRLEN;
      std::size_t blen = h.nlmsg_len - std::min<std::size_t>(h.nlmsg_len, NLMSG_HDRLEN);
      bool skip = false;
      switch (h.nlmsg_type) {
         case NLMSG_DONE:
            out.push_back(DumpDone{h.nlmsg_seq, 0});
            break;
         case NLMSG_ERROR: {
            nlmsgerr e;
            if (readStruct(body, blen, &e))
               out.push_back(DumpDone{h.nlmsg_seq, e.error});
            else
               bad();
            break;
         }
         case RTM_NEWLINK:
         case RTM_DELLINK: {
            LinkInfo l;
            if (parseLink(h.nlmsg_type, body, blen, &l))
               out.push_back(l);
            else
               bad();
            break;
         }
         case RTM_NEWADDR:
         case RTM_DELADDR: {
            AddrInfo a;
            if (!parseAddr(h.nlmsg_type, body, blen, &a, &skip))
               bad();
            else if (!skip)
               out.push_back(a);
            break;
         }
         case RTM_NEWROUTE:
         case RTM_DELROUTE: {
            RouteInfo r;
            if (!parseRoute(h.nlmsg_type, body, blen, &r, &skip))
               bad();
            else if (!skip)
               out.push_back(r);
            break;
         }
         default:
            break;
      }
      std::size_t step = NLMSG_ALIGN(h.nlmsg_len);
      if (step >= len) break;
      buf += step;
      len -= step;
   }
   return out;
}

NetlinkSocket::~NetlinkSocket() {
   if (fd_ >= 0) ::close(fd_);
}

bool NetlinkSocket::open(Nolu::NamespaceName const& ns, std::string* reason) {
   int err = 0;
   // Protocol 0 of a netlink socket is the routing family.
   fd_ = Nolu::netnsSocket(ns, AF_NETLINK, SOCK_RAW, &err, reason);
   if (fd_ < 0) return false;
   int size = 4 << 20;
   if (setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
      setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
   sockaddr_nl sa{};
   sa.nl_family = AF_NETLINK;
   sa.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
   if (::bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0) {
      *reason = std::string("bind netlink: ") + strerror(errno);
      ::close(fd_);
      fd_ = -1;
      return false;
   }
   return true;
}

void NetlinkSocket::requestFullDump() {
   for (U16 t : {U16(RTM_GETLINK), U16(RTM_GETADDR), U16(RTM_GETROUTE)}) dumpQueue_.push_back(t);
   if (pendingSeq_ == 0) sendNextDump();
}

bool NetlinkSocket::requestRouteDump() {
   if (std::find(dumpQueue_.begin(), dumpQueue_.end(), U16(RTM_GETROUTE)) != dumpQueue_.end())
      return false;
   dumpQueue_.push_back(RTM_GETROUTE);
   if (pendingSeq_ != 0) return false;
   sendNextDump();
   return pendingType_ == RTM_GETROUTE;
}

void NetlinkSocket::sendNextDump() {
   pendingSeq_ = 0;
   pendingType_ = 0;
   if (dumpQueue_.empty() || fd_ < 0) return;
   U16 type = dumpQueue_.front();
   dumpQueue_.erase(dumpQueue_.begin());
   struct {
      nlmsghdr h;
      union {
         ifinfomsg link;
         ifaddrmsg addr;
         rtmsg route;
      } u;
   } req{};
   req.h.nlmsg_type = type;
   req.h.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   req.h.nlmsg_seq = ++seq_;
   if (type == RTM_GETLINK) {
      req.h.nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
      req.u.link.ifi_family = AF_UNSPEC;
   } else if (type == RTM_GETADDR) {
      req.h.nlmsg_len = NLMSG_LENGTH(sizeof(ifaddrmsg));
      req.u.addr.ifa_family = AF_INET;
   } else {
      req.h.nlmsg_len = NLMSG_LENGTH(sizeof(rtmsg));
      req.u.route.rtm_family = AF_INET;
   }
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   if (::sendto(fd_, &req, req.h.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                sizeof(kernel)) >= 0) {
      pendingSeq_ = seq_;
      pendingType_ = type;
   }
}

bool NetlinkSocket::readAvailable(std::function<void(NetlinkEvent const&)> const& sink) {
   alignas(nlmsghdr) static U8 buf[1 << 16];
   for (;;) {
      ssize_t n = ::recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
      if (n < 0) {
         if (errno == EINTR) continue;
         if (errno == EAGAIN || errno == EWOULDBLOCK) return true;
         if (errno == ENOBUFS) {
            // Notifications were lost: read the whole state again.
            ++resyncs_;
            requestFullDump();
            continue;
         }
         return false;
      }
      if (n == 0) return true;
      for (auto const& ev : parseNetlinkBuffer(buf, std::size_t(n), &malformed_)) {
         sink(ev);
         auto const* d = std::get_if<DumpDone>(&ev);
         if (!d || d->seq != pendingSeq_) continue;
         if (pendingType_ == RTM_GETROUTE) sink(RouteDumpEnd{});
         sendNextDump();
         // A routes' dump sent after another one starts here.
         if (pendingType_ == RTM_GETROUTE) sink(RouteDumpStart{});
      }
   }
}

}  // namespace Host

#include "host/KernelState.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <net/if.h>
#include <poll.h>
#include <sys/epoll.h>

namespace Host {

namespace {

constexpr U8 kTableMain = RT_TABLE_MAIN;
constexpr U8 kTableLocal = RT_TABLE_LOCAL;
// The carrier flag of the kernel's link flags, which net/if.h doesn't name.
constexpr U32 kIffLowerUp = 0x10000;

// Host-internal addresses never reach the agent: 127.0.0.0/8.
bool internalAddr(Nolu::IpAddr a) { return a.isLoopback(); }

}  // namespace

KernelStateWriter::KernelStateWriter(L3::VrfName vrf, KernelTargets targets, U32 indexBase)
   : vrf_(std::move(vrf)),
     t_(std::move(targets)),
     indexBase_(indexBase),
     nextFecId_(indexBase + 1) {
   // The VRF's IP status exists as soon as the VRF is watched, addresses or
   // not: the agent runs LDP only in a VRF that has one.
   if (t_.ipStatus) t_.ipStatus->vrfIpIntfStatusIs(vrf_);
}

KernelStateWriter::~KernelStateWriter() = default;

Nolu::IntfId KernelStateWriter::nameToIntfId(std::string const& name) const {
   if (vrf_ == L3::defaultVrfName()) return Nolu::IntfId(name);
   return Nolu::IntfId(vrf_ + ":" + name);
}

Nolu::IntfId KernelStateWriter::intfIdOf(U32 ifIndex) const {
   auto it = links_.find(ifIndex);
   return it == links_.end() ? Nolu::IntfId() : it->second.intfId;
}

void KernelStateWriter::apply(NetlinkEvent const& ev) {
   if (auto const* l = std::get_if<LinkInfo>(&ev))
      applyLink(*l);
   else if (auto const* a = std::get_if<AddrInfo>(&ev))
      applyAddr(*a);
   else if (auto const* r = std::get_if<RouteInfo>(&ev))
      applyRoute(*r);
   else if (std::holds_alternative<RouteDumpStart>(ev))
      ++generation_;
   else if (std::holds_alternative<RouteDumpEnd>(ev))
      sweepRoutes();
}

void KernelStateWriter::applyLink(LinkInfo const& l) {
   if (l.ifIndex == 0) return;
   U32 key = l.ifIndex + indexBase_;
   if (l.deleted) {
      auto it = links_.find(l.ifIndex);
      if (it != links_.end()) {
         unpublishAddrs(it->second.intfId);
         links_.erase(it);
         routesDroppedUnseen_ = true;
      }
      addrs_.erase(l.ifIndex);
      if (t_.kni) t_.kni->intfDel(key);
      publishAllVias();
      return;
   }
   if (l.name.empty()) return;
   Nolu::IntfId id = nameToIntfId(l.name);
   auto& link = links_[l.ifIndex];
   bool renamed = link.intfId != id;
   if (renamed && !link.intfId.isEmpty()) unpublishAddrs(link.intfId);
   link.name = l.name;
   link.intfId = id;
   // A link taken down loses its IPv4 routes, and the kernel tells of none.
   bool adminUp = l.flags & IFF_UP;
   if (link.adminUp && !adminUp) routesDroppedUnseen_ = true;
   link.adminUp = adminUp;
   if (t_.kni) {
      auto k = t_.kni->intfIs(key);
      bool up = (l.flags & IFF_UP) && (l.flags & (IFF_RUNNING | kIffLowerUp));
      k->operStatusIs(up ? Interface::intfOperUp_ : Interface::intfOperDown_);
      k->mtuIs(l.mtu);
      // The kernel's loopback and dummy devices are the router's loopbacks.
      k->loopbackIs((l.flags & IFF_LOOPBACK) || l.kind == "dummy");
      // The identity last: the interface manager publishes the interface
      // once it has a name, with the values above.
      k->intfIdIs(id);
      k->nameIs(l.name);
   }
   if (renamed) {
      publishAddrs(l.ifIndex);
      publishAllVias();
   }
}

void KernelStateWriter::applyAddr(AddrInfo const& a) {
   // The routes through the address's segment, or from it, go with it
   // untold.
   if (a.deleted) routesDroppedUnseen_ = true;
   if (internalAddr(a.addr)) return;
   auto& list = addrs_[a.ifIndex];
   Nolu::IpAddrWithMask am(a.addr, a.prefixLen);
   auto it = std::find_if(list.begin(), list.end(), [&](Addr const& x) { return x.addr == am; });
   if (a.deleted) {
      if (it == list.end()) return;
      list.erase(it);
   } else if (it != list.end()) {
      it->secondary = a.secondary;
   } else {
      list.push_back(Addr{am, a.secondary});
   }
   if (list.empty()) addrs_.erase(a.ifIndex);
   publishAddrs(a.ifIndex);
}

void KernelStateWriter::unpublishAddrs(Nolu::IntfId const& intf) {
   if (!t_.ipStatus || intf.isEmpty()) return;
   if (auto v = t_.ipStatus->vrfIpIntfStatus(vrf_)) v->ipIntfStatusDel(intf);
   for (auto it = addrPublishedAs_.begin(); it != addrPublishedAs_.end();) {
      if (it->second == intf)
         it = addrPublishedAs_.erase(it);
      else
         ++it;
   }
}

void KernelStateWriter::publishAddrs(U32 ifIndex) {
   if (!t_.ipStatus) return;
   Nolu::IntfId id = intfIdOf(ifIndex);
   if (id.isEmpty()) return;  // published when the link is known
   auto vrf = t_.ipStatus->vrfIpIntfStatusIs(vrf_);
   auto ait = addrs_.find(ifIndex);
   if (ait == addrs_.end() || ait->second.empty()) {
      vrf->ipIntfStatusDel(id);
      addrPublishedAs_.erase(ifIndex);
      return;
   }
   auto const& list = ait->second;
   // The primary address is the first that the kernel doesn't mark as
   // secondary; the others are the secondaries.
   auto primary =
      std::find_if(list.begin(), list.end(), [](Addr const& x) { return !x.secondary; });
   if (primary == list.end()) primary = list.begin();
   auto st = vrf->ipIntfStatusIs(id);
   for (auto it = st->secondaryAddrWithMaskIter(); it; ++it) {
      Nolu::IpAddrWithMask k = it.key();
      bool keep = std::any_of(list.begin(), list.end(),
                              [&](Addr const& x) { return &x != &*primary && x.addr == k; });
      if (!keep) st->secondaryAddrWithMaskDel(k);
   }
   for (auto const& x : list) {
      if (&x != &*primary) st->secondaryAddrWithMaskIs(x.addr, true);
   }
   st->activeAddrWithMaskIs(primary->addr);
   addrPublishedAs_[ifIndex] = id;
}

void KernelStateWriter::applyRoute(RouteInfo const& r) {
   // The main table's unicast routes, and the local table's addresses of
   // this host; nothing of 127.0.0.0/8.
   bool main = r.table == kTableMain && r.type == RTN_UNICAST;
   bool local = r.table == kTableLocal && r.type == RTN_LOCAL && r.prefix.len() == 32;
   if (!(main || local) || internalAddr(r.prefix.addr()) || !t_.routeStatus) return;
   auto const* cur = t_.routeStatus->routeFind(Nolu::IpGenPrefix(r.prefix));
   // What the table holds for the prefix comes from the main table unless it
   // is an address of this host.
   bool curMain = cur && cur->routeType() != routeTypeReceive_;
   if (local) {
      if (r.deleted) {
         localRoutes_.erase(r.prefix);
         if (cur && !curMain) unpublishRoute(r.prefix);
         return;
      }
      localRoutes_[r.prefix] = r;
      if (!curMain) publishRoute(r.prefix, r);
      return;
   }
   if (!r.deleted) {
      publishRoute(r.prefix, r);
      return;
   }
   if (!curMain) return;
   if (auto l = localRoutes_.find(r.prefix); l != localRoutes_.end()) publishRoute(r.prefix, l->second);
   else unpublishRoute(r.prefix);
}

bool KernelStateWriter::NextHopsLess::operator()(NextHops const& a, NextHops const& b) const {
   return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(), [](NextHop const& x, NextHop const& y) {
         return x.ifIndex < y.ifIndex || (x.ifIndex == y.ifIndex && x.gateway < y.gateway);
      });
}

// The forwarding entry of a set of next hops, made for its first route.
U32 KernelStateWriter::fwdRef(NextHops const& nh) {
   auto [it, fresh] = fwd_.try_emplace(nh);
   if (fresh) {
      it->second.fecId = nextFecId_++;
      fwdNextHops_[it->second.fecId] = nh;
      publishVias(it->second.fecId, nh);
   }
   ++it->second.routes;
   return it->second.fecId;
}

void KernelStateWriter::fwdUnref(U32 fecId) {
   auto nh = fwdNextHops_.find(fecId);
   if (nh == fwdNextHops_.end()) return;
   auto it = fwd_.find(nh->second);
   if (--it->second.routes) return;
   fwd_.erase(it);
   fwdNextHops_.erase(nh);
   t_.forwardingStatus->fecDel(fecId);
}

void KernelStateWriter::publishVias(U32 fecId, NextHops const& nh) {
   if (!t_.forwardingStatus) return;
   std::set<Ldp::Via> vias;
   for (auto const& h : nh) {
      Nolu::IntfId intf = intfIdOf(h.ifIndex);
      if (intf.isEmpty()) continue;
      vias.insert(Ldp::Via(Nolu::IpGenAddr(h.gateway), intf));
   }
   auto fec = t_.forwardingStatus->fecIs(fecId);
   std::vector<Ldp::Via> gone;
   for (auto it = fec->viaIter(); it; ++it)
      if (!vias.count(it.key())) gone.push_back(it.key());
   for (auto const& v : gone) fec->viaDel(v);
   for (auto const& v : vias) fec->viaIs(v, true);
}

void KernelStateWriter::publishRoute(Nolu::Prefix const& prefix, RouteInfo const& r) {
   if (!t_.routeStatus || !t_.forwardingStatus) return;
   NextHops nh = r.nextHops;
   std::sort(nh.begin(), nh.end(), [](NextHop const& x, NextHop const& y) {
      return x.ifIndex < y.ifIndex || (x.ifIndex == y.ifIndex && x.gateway < y.gateway);
   });
   Nolu::IpGenPrefix gp(prefix);
   auto const* cur = t_.routeStatus->routeFind(gp);
   U32 old = cur ? cur->fecId() : 0;
   // The forwarding entry first, so that the route never points at a missing one.
   U32 fecId = fwdRef(nh);
   U8 type = routeTypeRemote_;
   if (r.type == RTN_LOCAL)
      type = routeTypeReceive_;
   else if (r.scope == RT_SCOPE_LINK)
      type = routeTypeConnected_;
   auto route = t_.routeStatus->routeIs(gp);
   route->generationIs(generation_);
   route->routeTypeIs(type);
   route->fecIdIs(fecId);
   if (old) fwdUnref(old);
}

void KernelStateWriter::unpublishRoute(Nolu::Prefix const& prefix) {
   Nolu::IpGenPrefix gp(prefix);
   auto const* cur = t_.routeStatus->routeFind(gp);
   if (!cur) return;
   U32 fecId = cur->fecId();
   t_.routeStatus->routeDel(gp);
   fwdUnref(fecId);
}

// Interfaces came or went: the vias of every forwarding entry are worked out
// again; the routes keep their entries.
void KernelStateWriter::publishAllVias() {
   for (auto const& [fecId, nh] : fwdNextHops_) publishVias(fecId, nh);
}

// A full read of the routes ended: routes that it did not bring went while
// notifications were lost.
void KernelStateWriter::sweepRoutes() {
   if (!t_.routeStatus) return;
   std::vector<Nolu::Prefix> stale;
   for (auto it = t_.routeStatus->routeIter(); it; ++it)
      if (it.value().generation() != generation_) stale.push_back(it.key().v4Prefix());
   for (auto const& p : stale) {
      localRoutes_.erase(p);
      unpublishRoute(p);
   }
}

void KernelStateWriter::clear() {
   localRoutes_.clear();
   if (t_.routeStatus) {
      std::vector<Nolu::Prefix> all;
      for (auto it = t_.routeStatus->routeIter(); it; ++it) all.push_back(it.key().v4Prefix());
      for (auto const& p : all) unpublishRoute(p);
   }
   for (auto const& [ifIndex, link] : links_) {
      unpublishAddrs(link.intfId);
      if (t_.kni) t_.kni->intfDel(ifIndex + indexBase_);
   }
   links_.clear();
   addrs_.clear();
   addrPublishedAs_.clear();
   if (t_.ipStatus) t_.ipStatus->vrfIpIntfStatusDel(vrf_);
}

KernelWatcher::KernelWatcher(Nolu::NamespaceName ns, std::unique_ptr<KernelStateWriter> writer)
   : ns_(std::move(ns)), writer_(std::move(writer)) {}

KernelWatcher::~KernelWatcher() {
   if (sock_.fd() >= 0) Vek::activityManager()->fdDel(sock_.fd());
}

bool KernelWatcher::start(std::string* reason) {
   if (!sock_.open(ns_, reason)) return false;
   Vek::activityManager()->fdIs(sock_.fd(), this, true, false);
   sock_.requestFullDump();
   return true;
}

void KernelWatcher::syncInitial(Vek::Seconds timeout) {
   int waitedMs = 0;
   while (!failed_ && sock_.dumping() && waitedMs < timeout * 1000) {
      pollfd p{sock_.fd(), POLLIN, 0};
      if (::poll(&p, 1, 50) > 0) onFdEvent(EPOLLIN);
      waitedMs += 50;
   }
}

void KernelWatcher::onFdEvent(U32 events) {
   if (failed_) return;
   bool ok = sock_.readAvailable([this](NetlinkEvent const& ev) {
      writer_->apply(ev);
      // Routes went untold: read them all again, and drop those the read
      // doesn't bring.
      if (writer_->takeRoutesDroppedUnseen() && sock_.requestRouteDump())
         writer_->apply(RouteDumpStart{});
   });
   if (!ok || (events & EPOLLERR)) {
      // The namespace's socket is gone for good; stop watching it.
      failed_ = true;
      Vek::activityManager()->fdDel(sock_.fd());
   }
}

}  // namespace Host

#include "host/MplsForwarding.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/lwtunnel.h>
#include <linux/mpls.h>
#include <linux/mpls_iptunnel.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>

#include "runtime/vek/EventLog.h"

namespace Host {

namespace {

Vek::TraceHandle th("MplsForwarding");

constexpr char platformLabelsPath[] = "/proc/sys/net/mpls/platform_labels";

bool usableLocal(U32 l) { return l >= Nolu::MplsLabel::specialLabelLimit && l <= Nolu::MplsLabel::max; }

// A message under construction: the header, the family header, attributes.
class MsgBuilder {
 public:
   MsgBuilder(U16 type, U16 flags, U32 seq) {
      nlmsghdr h{};
      h.nlmsg_type = type;
      h.nlmsg_flags = flags;
      h.nlmsg_seq = seq;
      put(&h, sizeof h);
   }
   void put(void const* p, std::size_t n) {
      auto const* b = static_cast<U8 const*>(p);
      buf_.insert(buf_.end(), b, b + n);
      buf_.resize(NLMSG_ALIGN(buf_.size()), 0);
   }
   void attr(U16 type, void const* p, std::size_t n) {
      rtattr a{};
      a.rta_len = U16(RTA_LENGTH(n));
      a.rta_type = type;
      std::size_t at = buf_.size();
      buf_.insert(buf_.end(), reinterpret_cast<U8 const*>(&a), reinterpret_cast<U8 const*>(&a) + sizeof a);
      buf_.insert(buf_.end(), static_cast<U8 const*>(p), static_cast<U8 const*>(p) + n);
      buf_.resize(at + RTA_ALIGN(RTA_LENGTH(n)), 0);
   }
   template <class T>
   void attr(U16 type, T const& v) {
      attr(type, &v, sizeof v);
   }
   std::size_t nestStart(U16 type) {
      std::size_t at = buf_.size();
      attr(type, nullptr, 0);
      return at;
   }
   void nestEnd(std::size_t at) {
      auto* a = reinterpret_cast<rtattr*>(buf_.data() + at);
      a->rta_len = U16(buf_.size() - at);
   }
   std::vector<U8> done() {
      reinterpret_cast<nlmsghdr*>(buf_.data())->nlmsg_len = U32(buf_.size());
      return std::move(buf_);
   }

 private:
   std::vector<U8> buf_;
};

// A label stack as the kernel takes it: network order, the last entry with
// the bottom-of-stack bit.
std::vector<U32> labelStack(std::vector<U32> const& labels) {
   std::vector<U32> out;
   for (std::size_t i = 0; i < labels.size(); ++i) {
      U32 e = labels[i] << MPLS_LS_LABEL_SHIFT;
      if (i + 1 == labels.size()) e |= 1u << MPLS_LS_S_SHIFT;
      out.push_back(htonl(e));
   }
   return out;
}

rtmsg routeHeader(U8 family, U8 dstLen, bool add) {
   rtmsg r{};
   r.rtm_family = family;
   r.rtm_dst_len = dstLen;
   r.rtm_table = RT_TABLE_MAIN;
   r.rtm_protocol = add ? ldpRouteProtocol : RTPROT_UNSPEC;
   r.rtm_scope = add ? RT_SCOPE_UNIVERSE : RT_SCOPE_NOWHERE;
   r.rtm_type = add ? RTN_UNICAST : RTN_UNSPEC;
   // The kernel takes an MPLS route, to add or to delete, only as a unicast
   // route of universe scope; it refuses any other with EINVAL.
   if (family == AF_MPLS) {
      r.rtm_scope = RT_SCOPE_UNIVERSE;
      r.rtm_type = RTN_UNICAST;
   }
   return r;
}

U16 requestFlags(bool add) {
   return U16(NLM_F_REQUEST | NLM_F_ACK | (add ? NLM_F_CREATE | NLM_F_REPLACE : 0));
}

}  // namespace

FecKernelRoutes kernelRoutesOf(FecForwardingView const& fec) {
   FecKernelRoutes out;
   std::vector<FecForwardingView::Hop const*> hops;
   for (auto const& h : fec.hops)
      if (h.peerLabel && *h.peerLabel <= Nolu::MplsLabel::max && h.ifIndex) hops.push_back(&h);
   if (hops.empty()) return out;
   std::sort(hops.begin(), hops.end(), [](auto const* a, auto const* b) {
      return a->gateway < b->gateway || (a->gateway == b->gateway && a->ifIndex < b->ifIndex);
   });
   auto const& hop = *hops.front();
   bool pop = *hop.peerLabel == Nolu::MplsLabel::implicitNullValue;
   std::vector<U32> outLabels;
   if (!pop) outLabels.push_back(*hop.peerLabel);
   std::optional<U32> local;
   for (U32 l : fec.localLabels)
      if (usableLocal(l) && (!local || l < *local)) local = l;
   if (local) out.mpls = KernelMplsRoute{*local, outLabels, hop.gateway, hop.ifIndex, hop.dev};
   if (!pop && !hop.gateway.isZero())
      out.ingress = KernelIngressRoute{fec.prefix, outLabels, hop.gateway, hop.ifIndex, hop.dev};
   return out;
}

std::vector<U8> mplsRouteMsg(bool add, U32 seq, KernelMplsRoute const& r) {
   MsgBuilder m(add ? RTM_NEWROUTE : RTM_DELROUTE, requestFlags(add), seq);
   rtmsg h = routeHeader(AF_MPLS, 20, add);
   m.put(&h, sizeof h);
   auto dst = labelStack({r.inLabel});
   m.attr(RTA_DST, dst.data(), dst.size() * 4);
   if (add) {
      if (!r.outLabels.empty()) {
         auto out = labelStack(r.outLabels);
         m.attr(RTA_NEWDST, out.data(), out.size() * 4);
      }
      U8 via[2 + 4];
      U16 family = AF_INET;
      memcpy(via, &family, 2);
      U32 addr = htonl(r.via.value());
      memcpy(via + 2, &addr, 4);
      m.attr(RTA_VIA, via, sizeof via);
      m.attr(RTA_OIF, U32(r.ifIndex));
   }
   return m.done();
}

std::vector<U8> ingressRouteMsg(bool add, bool encap, U32 seq, KernelIngressRoute const& r) {
   // Giving the route back replaces it as well: it stays, without labels.
   // Only a route that is still there is given back: one that the operator
   // or a daemon deleted stays deleted (the kernel answers ENOENT).
   bool replace = add || !encap;
   U16 flags = requestFlags(replace);
   if (!add) flags = U16(flags & ~NLM_F_CREATE);
   MsgBuilder m(RTM_NEWROUTE, flags, seq);
   rtmsg h = routeHeader(AF_INET, r.prefix.len(), true);
   if (!encap) h.rtm_protocol = RTPROT_BOOT;
   m.put(&h, sizeof h);
   U32 dst = htonl(r.prefix.addr().value());
   m.attr(RTA_DST, dst);
   U32 gw = htonl(r.via.value());
   m.attr(RTA_GATEWAY, gw);
   m.attr(RTA_OIF, U32(r.ifIndex));
   if (encap) {
      m.attr(RTA_ENCAP_TYPE, U16(LWTUNNEL_ENCAP_MPLS));
      std::size_t nest = m.nestStart(RTA_ENCAP | NLA_F_NESTED);
      auto out = labelStack(r.outLabels);
      m.attr(MPLS_IPTUNNEL_DST, out.data(), out.size() * 4);
      m.nestEnd(nest);
   }
   return m.done();
}

// ---- The kernel ----

MplsKernel::~MplsKernel() {
   if (fd_ >= 0) ::close(fd_);
}

bool MplsKernel::open(std::string* reason) {
   if (::access(platformLabelsPath, F_OK) != 0) {
      *reason = "the kernel has no MPLS forwarding (no " + std::string(platformLabelsPath) +
                "; load mpls_router and mpls_iptunnel)";
      return false;
   }
   int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
   if (fd < 0) {
      *reason = std::string("can't open a routing netlink socket: ") + strerror(errno);
      return false;
   }
   sockaddr_nl sa{};
   sa.nl_family = AF_NETLINK;
   if (::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
      *reason = std::string("can't bind the routing netlink socket: ") + strerror(errno);
      ::close(fd);
      return false;
   }
   fd_ = fd;
   return true;
}

int MplsKernel::request(std::vector<U8> const& msg) {
   if (fd_ < 0) return -ENODEV;
   sockaddr_nl sa{};
   sa.nl_family = AF_NETLINK;
   if (::sendto(fd_, msg.data(), msg.size(), 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa) < 0)
      return -errno;
   U32 seq = reinterpret_cast<nlmsghdr const*>(msg.data())->nlmsg_seq;
   // rtnetlink answers within the send; an answer not there yet is taken as
   // accepted, and a late one is read and dropped with the next.
   for (;;) {
      alignas(nlmsghdr) U8 buf[8192];
      ssize_t n = ::recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
      if (n <= 0) return 0;
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf); NLMSG_OK(h, U32(n)); h = NLMSG_NEXT(h, n)) {
         if (h->nlmsg_type != NLMSG_ERROR || h->nlmsg_seq != seq) continue;
         if (h->nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) return -EBADMSG;
         return static_cast<nlmsgerr const*>(NLMSG_DATA(h))->error;
      }
   }
}

U32 MplsKernel::platformLabels() const {
   std::ifstream in(platformLabelsPath);
   U32 n = 0;
   in >> n;
   return n;
}

bool MplsKernel::platformLabelsIs(U32 n, std::string* reason) {
   std::ofstream out(platformLabelsPath);
   out << n << "\n";
   out.flush();
   if (!out) {
      *reason = "can't set " + std::string(platformLabelsPath);
      return false;
   }
   return true;
}

bool MplsKernel::inputIs(std::string const& dev, std::string* reason) {
   std::string path = "/proc/sys/net/mpls/conf/" + dev + "/input";
   std::ofstream out(path);
   out << "1\n";
   out.flush();
   if (!out) {
      *reason = "can't set " + path;
      return false;
   }
   return true;
}

// ---- The consumer ----

class MplsForwardingSm::TableReactor
   : public Vek::CustomReactor<Ldp::LdpTesh::LdpLabelBindingTable::NotifieeConst, MplsForwardingSm> {
 public:
   using CustomReactor::CustomReactor;
   void onLocalLbtLabel(Ldp::LdpTesh::LbtLabelKey const& k) override {
      fwd([&k](auto* sm) { sm->dirtyIs(k.fec()); });
   }
   void onPeerLbtLabel(Ldp::LdpTesh::PeerLbtLabelKey const& k) override {
      fwd([&k](auto* sm) { sm->dirtyIs(k.fec()); });
   }
};
class MplsForwardingSm::RouteReactor
   : public Vek::CustomReactor<Tesh::Fib::RouteStatus::NotifieeConst, MplsForwardingSm> {
 public:
   using CustomReactor::CustomReactor;
   void onRoute(Nolu::IpGenPrefix const& k) override { fire(k); }
   void onRouteFecId(Nolu::IpGenPrefix const& k) override { fire(k); }

 private:
   void fire(Nolu::IpGenPrefix const& k) {
      fwd([&k](auto* sm) { sm->dirtyIs(Mpls::FwdEqvClass(k)); });
   }
};
class MplsForwardingSm::FwdReactor
   : public Vek::CustomReactor<Tesh::Fib::ForwardingStatus::NotifieeConst, MplsForwardingSm> {
 public:
   using CustomReactor::CustomReactor;
   void onFec(U32 const&) override { fwd([](auto* sm) { sm->allDirty(); }); }
   void onFecVia(U32 const&, Ldp::Via const&) override { fwd([](auto* sm) { sm->allDirty(); }); }
};
class MplsForwardingSm::MappingReactor
   : public Vek::CustomReactor<Ldp::LdpIdIntfIpMappingTable::NotifieeConst, MplsForwardingSm> {
 public:
   using CustomReactor::CustomReactor;
   void onIntfIpToLdpId(Nolu::IpGenAddr const&) override { fwd([](auto* sm) { sm->allDirty(); }); }
};
class MplsForwardingSm::StatusCollReactor
   : public Vek::CustomReactor<Ldp::LdpStatusColl::NotifieeConst, MplsForwardingSm> {
 public:
   using CustomReactor::CustomReactor;
   void onStatus(L3::VrfName const&) override { fwd([](auto* sm) { sm->allDirty(); }); }
};

MplsForwardingSm::MplsForwardingSm(Vek::Ptr<Ombra::Store> const& store, Ldp::Agent const* agent)
   : store_(store), agent_(agent) {
   initialized_ = true;
   timer_ = Hesk::timerTaskIs(this, &MplsForwardingSm::handleTimer, agent_->scheduler(), 2,
                              "MplsForwarding");
   if (!kernel_.open(&reason_)) {
      // Once, and the agent goes on without label forwarding until the
      // kernel's MPLS modules are loaded, which it looks for now and then.
      std::cerr << "ldp-agent: " << reason_ << "; label forwarding is not programmed\n";
      retry_ = Hesk::timerTaskIs(this, &MplsForwardingSm::handleRetry, agent_->scheduler(), 2,
                                 "MplsForwarding-retry");
      retry_->scheduleTaskDelay(retryInterval);
   } else {
      reason_ = "programmed";
   }
   routeReactor_.reset(new RouteReactor(this, agent_->routeStatus()));
   fwdReactor_.reset(new FwdReactor(this, agent_->forwardingStatus()));
   statusCollReactor_.reset(new StatusCollReactor(this, agent_->ldpStatusColl()));
   allDirty();
}

MplsForwardingSm::~MplsForwardingSm() { initialized_ = false; }

void MplsForwardingSm::dirtyIs(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   dirty_[fec] = true;
   timer_->scheduleTaskDelay(0.0);
}

void MplsForwardingSm::allDirty() {
   if (!initialized_) return;
   allDirty_ = true;
   timer_->scheduleTaskDelay(0.0);
}

// The table and the address mapping are looked up again: LDP going off in
// the default VRF takes them away, and on makes new ones.
void MplsForwardingSm::relook() {
   auto table = store_->get<Ldp::LdpTesh::LdpLabelBindingTable const>("mpls/ldp/ldpBindingTables");
   if (table != table_) {
      table_ = table;
      tableReactor_.reset(table_ ? new TableReactor(this, table_) : nullptr);
   }
   auto st = agent_->ldpStatusColl()->status(L3::defaultVrfName());
   auto mapping = st ? Vek::Ptr<Ldp::LdpIdIntfIpMappingTable const>(st->ldpIdIntfIpMappingTable())
                     : nullptr;
   if (mapping != mapping_) {
      mapping_ = mapping;
      mappingReactor_.reset(mapping_ ? new MappingReactor(this, mapping_) : nullptr);
   }
}

// The label range in the kernel, and MPLS input on the LDP links.
void MplsForwardingSm::inputs() {
   if (!kernel_.available()) return;
   std::string why;
   if (auto block = agent_->mplsAgentStatus()->labelBlockAllocation("ldp")) {
      U32 need = block->base() + block->size();
      if (kernel_.platformLabels() < need && !kernel_.platformLabelsIs(need, &why))
         std::cerr << "ldp-agent: " << why << "\n";
   }
   auto st = agent_->ldpStatusColl()->status(L3::defaultVrfName());
   if (!st || !st->ldpLinkConfigColl()) return;
   for (auto it = st->ldpLinkConfigColl()->adjLinkConfigIter(); it; ++it) {
      auto is = agent_->allIntfStatusDir()->intfStatus(it.key());
      if (!is || is->deviceName().empty()) continue;
      if (std::find(inputDevs_.begin(), inputDevs_.end(), is->deviceName()) != inputDevs_.end())
         continue;
      if (kernel_.inputIs(is->deviceName(), &why)) inputDevs_.push_back(is->deviceName());
      else std::cerr << "ldp-agent: " << why << "\n";
   }
}

FecForwardingView MplsForwardingSm::viewOf(Mpls::FwdEqvClass const& fec) const {
   FecForwardingView v;
   if (fec.prefix().af() != Nolu::ipv4_) return v;
   v.prefix = fec.prefix().v4Prefix();
   if (!table_) return v;
   for (auto it = table_->localLbtLabelIterFrom(
           Ldp::LdpTesh::LbtLabelKey(fec, Nolu::MplsLabel(0)));
        it && it.key().fec() == fec; ++it)
      v.localLabels.push_back(it.key().label().value());
   Tesh::Fib::Route const* route = agent_->routeStatus()->route(fec.prefix());
   Tesh::Fib::Fec const* f = route ? agent_->forwardingStatus()->fec(route->fecId()) : nullptr;
   if (!f) return v;
   for (auto it = f->viaIter(); it; ++it) {
      Ldp::Via const& via = it.key();
      FecForwardingView::Hop h;
      h.gateway = via.addr().v4Addr();
      if (auto is = agent_->allIntfStatusDir()->intfStatus(via.intfId())) {
         h.ifIndex = is->ifIndex();
         h.dev = is->deviceName();
      }
      if (mapping_ && !h.gateway.isZero()) {
         if (auto const* id = mapping_->intfIpToLdpIdFind(via.addr())) {
            Mpls::RouterId peer(*id);
            auto first = Ldp::LdpTesh::PeerLbtLabelKey::first(peer, fec);
            auto l = table_->peerLbtLabelIterFrom(first);
            if (l && l.key().peer() == peer && l.key().fec() == fec)
               h.peerLabel = l.key().label().value();
         }
      }
      v.hops.push_back(h);
   }
   return v;
}

void MplsForwardingSm::apply(Mpls::FwdEqvClass const& fec, FecKernelRoutes const& want) {
   auto it = entries_.find(fec);
   FecKernelRoutes have = it == entries_.end() ? FecKernelRoutes() : it->second.routes;
   if (have == want && it != entries_.end()) return;
   Entry e;
   e.routes = want;
   if (kernel_.available()) {
      if (have.mpls && (!want.mpls || want.mpls->inLabel != have.mpls->inLabel))
         refused(fec, "removing label route",
                 kernel_.request(mplsRouteMsg(false, kernel_.nextSeq(), *have.mpls)));
      if (want.mpls) e.mplsError = kernel_.request(mplsRouteMsg(true, kernel_.nextSeq(), *want.mpls));
      if (have.ingress && !want.ingress)
         refused(fec, "giving the route back without labels",
                 kernel_.request(ingressRouteMsg(false, false, kernel_.nextSeq(), *have.ingress)));
      if (want.ingress)
         e.ingressError =
            kernel_.request(ingressRouteMsg(true, true, kernel_.nextSeq(), *want.ingress));
      VEK_TRACE(th, 5, "FEC " << fec << ": mpls " << e.mplsError << ", ingress " << e.ingressError);
   }
   if (!want.mpls && !want.ingress) entries_.erase(fec);
   else entries_[fec] = e;
}

void MplsForwardingSm::handleRetry() {
   if (!initialized_ || kernel_.available()) return;
   std::string why;
   if (!kernel_.open(&why)) {
      retry_->scheduleTaskDelay(retryInterval);
      return;
   }
   std::cerr << "ldp-agent: the kernel has MPLS forwarding now; label forwarding is programmed\n";
   reason_ = "programmed";
   // What was worked out meanwhile never reached the kernel.
   entries_.clear();
   allDirty();
}

// A removal the kernel refused leaves state behind: the log says which.
void MplsForwardingSm::refused(Mpls::FwdEqvClass const& fec, char const* what, int error) {
   if (error == 0 || error == -ESRCH || error == -ENOENT) return;
   std::cerr << "ldp-agent: " << what << " of " << fec << ": " << strerror(-error) << "\n";
}

void MplsForwardingSm::handleTimer() {
   if (!initialized_) return;
   relook();
   inputs();
   if (allDirty_) {
      allDirty_ = false;
      dirty_.clear();
      std::vector<Mpls::FwdEqvClass> fecs;
      for (auto const& [fec, e] : entries_) fecs.push_back(fec);
      if (table_) {
         for (auto it = table_->localLbtLabelIter(); it; ++it)
            if (fecs.empty() || fecs.back() != it.key().fec()) fecs.push_back(it.key().fec());
         for (auto it = table_->peerLbtLabelIter(); it; ++it) fecs.push_back(it.key().fec());
      }
      std::sort(fecs.begin(), fecs.end());
      fecs.erase(std::unique(fecs.begin(), fecs.end()), fecs.end());
      for (auto const& fec : fecs) apply(fec, kernelRoutesOf(viewOf(fec)));
      return;
   }
   auto dirty = std::move(dirty_);
   dirty_.clear();
   for (auto const& [fec, b] : dirty) apply(fec, kernelRoutesOf(viewOf(fec)));
}

void MplsForwardingSm::removeAll() {
   initialized_ = false;
   if (!kernel_.available()) return;
   for (auto const& [fec, e] : entries_) {
      if (e.routes.mpls)
         refused(fec, "removing label route",
                 kernel_.request(mplsRouteMsg(false, kernel_.nextSeq(), *e.routes.mpls)));
      if (e.routes.ingress)
         refused(fec, "giving the route back without labels",
                 kernel_.request(ingressRouteMsg(false, false, kernel_.nextSeq(), *e.routes.ingress)));
   }
   entries_.clear();
}

}  // namespace Host

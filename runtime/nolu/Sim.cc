#include "runtime/nolu/Sim.h"

#include <errno.h>

#include <algorithm>
#include <cstring>
#include <deque>

#include "runtime/vek/Activity.h"

namespace Nolu::Sim {

namespace {
std::map<NamespaceName, Host*>& registry() {
   static std::map<NamespaceName, Host*> r;
   return r;
}
}  // namespace

class Event : public Vek::Timed {
 public:
   Event(Network* net, std::function<void()> f) : net_(net), f_(std::move(f)) {}

 protected:
   void timedRun() override {
      net_->events_.erase(this);
      std::function<void()> f = std::move(f_);
      delete this;
      f();
   }

 private:
   Network* net_;
   std::function<void()> f_;
};

Network::Network() = default;

Network::~Network() {
   for (Event* e : events_) delete e;
   for (auto& [ns, h] : hosts_) registry().erase(ns);
}

Host* Network::hostIs(NamespaceName const& ns) {
   auto& h = hosts_[ns];
   if (!h) {
      h = std::make_unique<Host>(this, ns);
      registry()[ns] = h.get();
   }
   return h.get();
}

Link* Network::linkIs(std::string const& name) {
   auto& l = links_[name];
   if (!l) l = std::make_unique<Link>(this, name);
   return l.get();
}

Link* Network::link(std::string const& name) const {
   auto it = links_.find(name);
   return it == links_.end() ? nullptr : it->second.get();
}

Host* Network::hostOf(NamespaceName const& ns) {
   auto it = registry().find(ns);
   return it == registry().end() ? nullptr : it->second;
}

void Network::later(std::function<void()> f, Vek::Seconds delay) {
   Event* e = new Event(this, std::move(f));
   events_.insert(e);
   Vek::ActivityManager* am = Vek::activityManager();
   am->timerArm(e, am->now() + (delay < 0 ? latency_ : delay));
}

Host* Network::ownerOf(IpAddr a) const {
   for (auto& [ns, h] : hosts_)
      if (h->intfOwning(a)) return h.get();
   return nullptr;
}

Interface* Host::intfIs(std::string const& name, Link* link, IpAddr addr, U8 len) {
   Interface* i = intf(name);
   if (!i) {
      intfs_.push_back(std::make_unique<Interface>());
      i = intfs_.back().get();
      i->name = name;
      i->ifIndex = net_->nextIfIndex();
      i->host = this;
   }
   if (link) i->link = link;
   if (!addr.isZero()) i->addrs.push_back(IpAddrWithMask(addr, len));
   return i;
}

Interface* Host::intf(std::string const& name) const {
   for (auto& i : intfs_)
      if (i->name == name) return i.get();
   return nullptr;
}

Interface* Host::intfByIndex(U32 ifIndex) const {
   for (auto& i : intfs_)
      if (i->ifIndex == ifIndex) return i.get();
   return nullptr;
}

Interface* Host::intfOwning(IpAddr a) const {
   for (auto& i : intfs_)
      for (auto const& m : i->addrs)
         if (m.addr() == a) return i.get();
   return nullptr;
}

namespace {

// The link a packet from one interface to another crosses: the one they share,
// else the sender's.
Link* pathLink(Interface* from, Interface* to) {
   if (from && to && from->link && from->link == to->link) return from->link;
   if (from && from->link) return from->link;
   return to ? to->link : nullptr;
}

void record(Link* l, U8 proto, IpAddr src, U16 sp, IpAddr dst, U16 dp, U8 const* p,
            std::size_t n, U8 tos = 0, U8 ttl = 0) {
   if (!l) return;
   Record r;
   r.tos = tos;
   r.ttl = ttl;
   r.time = Vek::activityManager()->now();
   r.protocol = proto;
   r.srcIpAddr = src;
   r.srcPort = sp;
   r.dstIpAddr = dst;
   r.dstPort = dp;
   r.bytes.assign(p, p + n);
   l->recordIs(std::move(r));
}

}  // namespace

// ----- UDP -----

class UdpSock : public UdpBackend {
 public:
   UdpSock(Host* h, IpAddr bindAddr, U16 port, bool loop, Sink* sink)
      : host_(h), bindAddr_(bindAddr), port_(port), loop_(loop), sink_(sink) {
      h->udp_.push_back(this);
   }
   ~UdpSock() override {
      auto& v = host_->udp_;
      v.erase(std::remove(v.begin(), v.end(), this), v.end());
      for (Interface* i : joined_) i->groups.erase(IpAddr(224, 0, 0, 2));
   }

   int mcastGroup(std::string const& dev, IpAddr group, bool join) override {
      Interface* i = host_->intf(dev);
      if (!i) return ENODEV;
      auto key = std::make_pair(i, group.value());
      if (join) {
         if (!groups_.insert(key).second) return EADDRINUSE;
         i->groups.insert(group);
      } else {
         if (!groups_.erase(key)) return EADDRNOTAVAIL;
         i->groups.erase(group);
      }
      return 0;
   }

   bool joinedOn(Interface* i, IpAddr group) const {
      return groups_.count(std::make_pair(i, group.value())) != 0;
   }

   // Whether a datagram to dst on this socket's port is for it.
   bool accepts(IpAddr dst, U16 port) const {
      if (port != port_) return false;
      if (bindAddr_.isZero()) return true;
      return bindAddr_ == dst;
   }

   int send(U8 const* data, std::size_t n, UdpTxInfo const& tx) override {
      Network* net = host_->net_;
      Interface* out = tx.ifIndex ? host_->intfByIndex(tx.ifIndex) : nullptr;
      if (!out && !tx.srcIpAddr.isZero()) out = host_->intfOwning(tx.srcIpAddr);
      IpAddr src = tx.srcIpAddr;
      if (src.isZero() && out && !out->addrs.empty()) src = out->addrs.front().addr();
      std::vector<U8> bytes(data, data + n);
      U16 sport = port_;
      if (tx.dstIpAddr.isMulticast()) {
         if (!out) return ENETUNREACH;
         Link* l = out->link;
         if (!l) return ENETUNREACH;
         if (!l->up()) return 0;
         record(l, 17, src, sport, tx.dstIpAddr, tx.dstPort, data, n, tx.tos, tx.ttl ? tx.ttl : 1);
         IpAddr group = tx.dstIpAddr;
         U16 dport = tx.dstPort;
         Host* self = host_;
         bool loop = loop_;
         net->later([net, l, self, loop, group, dport, src, sport, bytes]() {
            std::vector<std::pair<Interface*, Host*>> targets;
            for (auto& [ns, h] : net->hosts_) {
               for (auto& i : h->intfs_) {
                  if (i->link != l) continue;
                  if (h.get() == self && !loop) continue;
                  targets.emplace_back(i.get(), h.get());
               }
            }
            for (auto [i, h] : targets) {
               if (!l->up()) return;
               std::vector<UdpSock*> socks = h->udp_;
               for (UdpSock* s : socks) {
                  // A socket may close while an earlier one is served.
                  auto& live = h->udp_;
                  if (std::find(live.begin(), live.end(), s) == live.end()) continue;
                  if (s->port_ != dport || !s->joinedOn(i, group)) continue;
                  if (!s->bindAddr_.isZero() && s->bindAddr_ != group) continue;
                  UdpRxInfo info{src, sport, group, i->ifIndex};
                  s->sink_->onDatagram(bytes.data(), bytes.size(), info);
               }
            }
         });
         return 0;
      }
      Host* dstHost = tx.dstIpAddr.isLoopback() ? host_ : net->ownerOf(tx.dstIpAddr);
      if (!dstHost) return 0;  // no route: lost silently, as UDP is
      Interface* in = dstHost->intfOwning(tx.dstIpAddr);
      Link* l = pathLink(out, in);
      if (l && !l->up()) return 0;
      record(l, 17, src, sport, tx.dstIpAddr, tx.dstPort, data, n, tx.tos, tx.ttl ? tx.ttl : 64);
      if (in && out && out->link) {
         // Arrival is on the receiver's interface on the sender's link.
         for (auto& i : dstHost->intfs_)
            if (i->link == out->link) in = i.get();
      }
      U32 ifIndex = in ? in->ifIndex : 0;
      IpAddr dst = tx.dstIpAddr;
      U16 dport = tx.dstPort;
      net->later([dstHost, l, dst, dport, src, sport, ifIndex, bytes]() {
         if (l && !l->up()) return;
         std::vector<UdpSock*> socks = dstHost->udp_;
         for (UdpSock* s : socks) {
            auto& live = dstHost->udp_;
            if (std::find(live.begin(), live.end(), s) == live.end()) continue;
            if (!s->accepts(dst, dport)) continue;
            s->sink_->onDatagram(bytes.data(), bytes.size(), UdpRxInfo{src, sport, dst, ifIndex});
            return;
         }
      });
      return 0;
   }

 private:
   Host* host_;
   IpAddr bindAddr_;
   U16 port_;
   bool loop_;
   Sink* sink_;
   std::set<std::pair<Interface*, U32>> groups_;
   std::vector<Interface*> joined_;
};

std::unique_ptr<UdpBackend> Host::udpOpen(IpAddr bindAddr, U16 port, bool loop,
                                          UdpBackend::Sink* sink, int* err) {
   if (!bindAddr.isZero() && !bindAddr.isMulticast() && !owns(bindAddr)) {
      *err = EADDRNOTAVAIL;
      return nullptr;
   }
   *err = 0;
   return std::make_unique<UdpSock>(this, bindAddr, port, loop, sink);
}

// ----- TCP -----

struct Conn {
   struct Side {
      Host* host = nullptr;
      IpAddr addr;
      U16 port = 0;
      std::deque<U8> rx;
      std::size_t inflight = 0;  // written by this end, not yet arrived
      bool blocked = false;      // a write met a full window
      bool fin = false;     // the peer has closed
      int err = 0;          // reset
      bool open = true;     // this end still exists
      U32 segmentSize = 0;  // of what this end writes; 0: the link's
      StreamBackend::Sink* sink = nullptr;
   };
   Side side[2];
   Link* link = nullptr;
   Network* net = nullptr;
};

class Stream : public StreamBackend {
 public:
   Stream(std::shared_ptr<Conn> c, int me) : c_(std::move(c)), me_(me), fd_(c_->net->nextFd()) {
      c_->net->streams_[fd_] = this;
   }
   ~Stream() override {
      c_->net->streams_.erase(fd_);
      Conn::Side& s = c_->side[me_];
      s.open = false;
      s.sink = nullptr;
      if (s.err) return;
      std::shared_ptr<Conn> c = c_;
      int peer = 1 - me_;
      deliver(c, peer, [c, peer]() {
         c->side[peer].fin = true;
         notify(c, peer);
      });
   }
   void sinkIs(Sink* s) override { c_->side[me_].sink = s; }
   long read(U8* p, std::size_t n) override {
      Conn::Side& s = c_->side[me_];
      if (!s.rx.empty()) {
         std::size_t k = std::min(n, s.rx.size());
         std::copy(s.rx.begin(), s.rx.begin() + long(k), p);
         s.rx.erase(s.rx.begin(), s.rx.begin() + long(k));
         windowOpened(c_, 1 - me_);
         return long(k);
      }
      if (s.err) return -s.err;
      if (s.fin) return 0;
      return -EAGAIN;
   }
   long write(U8 const* p, std::size_t n) override {
      Conn::Side& s = c_->side[me_];
      if (s.err) return -s.err;
      if (s.fin) return -EPIPE;
      std::shared_ptr<Conn> c = c_;
      int me = me_;
      int peer = 1 - me_;
      // Flow control: no more than the window in flight and unread.
      std::size_t room = windowRoom(c, me);
      if (room < n) {
         s.blocked = true;
         if (room == 0) return -EAGAIN;
         n = room;
      }
      std::size_t seg = s.segmentSize                                ? s.segmentSize
                        : c_->link && c_->link->segmentSize() ? c_->link->segmentSize()
                                                              : n;
      for (std::size_t off = 0; off < n; off += seg) {
         std::size_t k = std::min(seg, n - off);
         record(c->link, 6, s.addr, s.port, c->side[peer].addr, c->side[peer].port, p + off, k);
         std::vector<U8> bytes(p + off, p + off + k);
         s.inflight += k;
         deliver(c, peer, [c, me, peer, bytes]() {
            c->side[me].inflight -= bytes.size();
            Conn::Side& d = c->side[peer];
            if (!d.open || d.err) {
               windowOpened(c, me);
               return;
            }
            d.rx.insert(d.rx.end(), bytes.begin(), bytes.end());
            notify(c, peer);
         });
      }
      return long(n);
   }
   // What the end `who` may still write.
   static std::size_t windowRoom(std::shared_ptr<Conn> const& c, int who) {
      std::size_t used = c->side[who].inflight + c->side[1 - who].rx.size();
      std::size_t w = c->net->tcpWindow();
      return used >= w ? 0 : w - used;
   }
   // The receiver took bytes: a writer that met the full window hears of the
   // room a latency later, as it would from the acknowledgement.
   static void windowOpened(std::shared_ptr<Conn> const& c, int writer) {
      Conn::Side& w = c->side[writer];
      if (!w.blocked || windowRoom(c, writer) == 0) return;
      w.blocked = false;
      deliver(c, writer, [c, writer]() {
         Conn::Side& d = c->side[writer];
         if (d.open && !d.err && d.sink) d.sink->onStreamWritable();
      });
   }
   void writeInterestIs(bool) override {}
   int fd() const override { return fd_; }
   void segmentSizeIs(U32 n) { c_->side[me_].segmentSize = n; }

   static void notify(std::shared_ptr<Conn> const& c, int who) {
      Conn::Side& d = c->side[who];
      if (d.open && d.sink) d.sink->onStreamReadable();
   }
   // Crosses the link after the latency; a down link holds it until it is up.
   static void deliver(std::shared_ptr<Conn> const& c, int, std::function<void()> f) {
      c->net->later(crossing(c->link, std::move(f)));
   }
   static std::function<void()> crossing(Link* l, std::function<void()> f) {
      return [l, f]() {
         if (l && !l->up()) {
            l->held_.push_back(crossing(l, f));
            return;
         }
         f();
      };
   }

 private:
   std::shared_ptr<Conn> c_;
   int me_;
   int fd_;
};

bool Network::segmentSizeIs(int fd, U32 n) {
   auto it = streams_.find(fd);
   if (it == streams_.end()) return false;
   it->second->segmentSizeIs(n);
   return true;
}

void Link::upIs(bool up) {
   if (up_ == up) return;
   up_ = up;
   if (!up) return;
   std::vector<std::function<void()>> held = std::move(held_);
   held_.clear();
   for (auto& f : held) net_->later(f);
}

void Link::connectionsReset() {
   std::vector<std::weak_ptr<Conn>> conns = std::move(conns_);
   conns_.clear();
   for (auto& w : conns) {
      std::shared_ptr<Conn> c = w.lock();
      if (!c) continue;
      for (int i = 0; i < 2; ++i) {
         if (!c->side[i].open || c->side[i].err) continue;
         c->side[i].err = ECONNRESET;
         Stream::notify(c, i);
      }
   }
}

class ListenerImpl : public Host::Listener {
 public:
   ListenerImpl(Host* h, IpAddr addr, U16 port, Host::Acceptor* a)
      : host_(h), addr_(addr), port_(port), acceptor_(a) {
      h->listeners_[{addr.value(), port}] = this;
   }
   ~ListenerImpl() override { host_->listeners_.erase({addr_.value(), port_}); }
   void md5AuthIs(IpAddrWithMask const& p, std::string const& key) override { keys_[p] = key; }
   void md5AuthDel(IpAddrWithMask const& p) override { keys_.erase(p); }
   // The key for a peer: the one of the longest matching prefix.
   std::string keyFor(IpAddr a) const {
      std::string k;
      int best = -1;
      for (auto const& [m, key] : keys_) {
         if (m.contains(a) && int(m.len()) > best) {
            best = m.len();
            k = key;
         }
      }
      return k;
   }
   Host* host_;
   IpAddr addr_;
   U16 port_;
   Host::Acceptor* acceptor_;
   std::map<IpAddrWithMask, std::string> keys_;
};

std::unique_ptr<Host::Listener> Host::tcpListen(IpAddr addr, U16 port, Acceptor* a, int* err) {
   if (!addr.isZero() && !owns(addr)) {
      *err = EADDRNOTAVAIL;
      return nullptr;
   }
   if (listeners_.count({addr.value(), port})) {
      *err = EADDRINUSE;
      return nullptr;
   }
   *err = 0;
   return std::make_unique<ListenerImpl>(this, addr, port, a);
}

std::shared_ptr<void> Host::tcpConnect(IpAddr local, IpAddr peer, U16 port, std::string key,
                                       ConnectDone done) {
   auto alive = std::make_shared<bool>(true);
   std::weak_ptr<bool> weak = alive;
   Network* net = net_;
   Host* self = this;
   if (!local.isZero() && !owns(local)) {
      net->later([weak, done]() {
         if (weak.lock()) done(EADDRNOTAVAIL, nullptr, IpAddr(), 0);
      }, 0.0);
      return alive;
   }
   Interface* out = local.isZero() ? nullptr : intfOwning(local);
   Host* dst = peer.isLoopback() ? this : net->ownerOf(peer);
   Interface* in = dst ? dst->intfOwning(peer) : nullptr;
   Link* l = pathLink(out, in);
   U16 lport = nextPort_++;
   if (nextPort_ < 40000) nextPort_ = 40000;
   if (local.isZero() && out == nullptr && !intfs_.empty() && !intfs_.front()->addrs.empty())
      local = intfs_.front()->addrs.front().addr();
   // The SYN: without a route, over a down link, or with a key that the
   // listener does not share, it is lost and the connector times out.
   net->later([=]() {
      if (!dst || (l && !l->up())) return;
      auto it = dst->listeners_.find({peer.value(), port});
      if (it == dst->listeners_.end()) it = dst->listeners_.find({0, port});
      if (it == dst->listeners_.end()) {
         net->later([weak, done]() {
            if (weak.lock()) done(ECONNREFUSED, nullptr, IpAddr(), 0);
         });
         return;
      }
      ListenerImpl* li = it->second;
      if (li->keyFor(local) != key) return;
      auto c = std::make_shared<Conn>();
      c->net = net;
      c->link = l;
      c->side[0].host = self;
      c->side[0].addr = local;
      c->side[0].port = lport;
      c->side[1].host = dst;
      c->side[1].addr = peer;
      c->side[1].port = port;
      if (l) {
         auto& v = l->conns_;
         v.erase(std::remove_if(v.begin(), v.end(), [](auto const& w) { return w.expired(); }),
                 v.end());
         v.push_back(c);
      }
      li->acceptor_->onAccept(std::make_unique<Stream>(c, 1), peer, port, local, lport);
      net->later([c, weak, done, local, lport]() {
         if (weak.lock()) done(0, std::make_unique<Stream>(c, 0), local, lport);
         else {
            // The connector gave up: the accepted end sees a close.
            Stream gone(c, 0);
         }
      });
   });
   return alive;
}

}  // namespace Nolu::Sim

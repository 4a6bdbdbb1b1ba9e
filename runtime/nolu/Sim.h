#pragma once
// A simulated IPv4 network on virtual time. Hosts are registered under
// network namespace names; a channel opened in a namespace that a simulated
// network owns runs here instead of on real sockets, so several agents in one
// process share one network. Every delivery is a timer on the runtime's loop,
// a fixed latency after the send.
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "runtime/nolu/PamBackend.h"
#include "runtime/nolu/Types.h"
#include "runtime/vek/Types.h"

namespace Nolu::Sim {

class Host;
class Link;
class Network;
struct Conn;

// What crossed a link: a datagram (protocol 17) or a TCP segment (6).
struct Record {
   Vek::Seconds time = 0.0;
   U8 protocol = 0;
   IpAddr srcIpAddr;
   U16 srcPort = 0;
   IpAddr dstIpAddr;
   U16 dstPort = 0;
   // IP header fields of a datagram; 0 on TCP segments.
   U8 tos = 0;
   U8 ttl = 0;
   std::vector<U8> bytes;
};

struct Interface {
   std::string name;
   U32 ifIndex = 0;
   Host* host = nullptr;
   Link* link = nullptr;
   std::vector<IpAddrWithMask> addrs;
   std::set<IpAddr> groups;
};

class Link {
 public:
   explicit Link(Network* net, std::string name) : net_(net), name_(std::move(name)) {}
   std::string const& name() const { return name_; }
   bool up() const { return up_; }
   // Down drops datagrams and holds TCP segments, as a peer that keeps
   // retransmitting would; up delivers the held segments.
   void upIs(bool up);
   // 0: each write crosses as one segment; otherwise segments of at most n bytes.
   U32 segmentSize() const { return segmentSize_; }
   void segmentSizeIs(U32 n) { segmentSize_ = n; }
   std::vector<Record> const& records() const { return records_; }
   void recordsDelAll() { records_.clear(); }
   void recordIs(Record r) {
      if (recording_) records_.push_back(std::move(r));
   }
   // Off: what crosses the link is not kept (long runs, benchmarks).
   void recordingIs(bool b) { recording_ = b; }
   // Breaks every TCP connection over this link: both ends see a reset.
   void connectionsReset();

 private:
   friend class Network;
   friend class Host;
   friend struct Conn;
   friend class Stream;
   Network* net_;
   std::string name_;
   bool up_ = true;
   bool recording_ = true;
   U32 segmentSize_ = 0;
   std::vector<Record> records_;
   std::vector<std::function<void()>> held_;
   std::vector<std::weak_ptr<Conn>> conns_;
};

class Host {
 public:
   Host(Network* net, NamespaceName ns) : net_(net), ns_(std::move(ns)) {}
   NamespaceName const& netns() const { return ns_; }
   Network* network() const { return net_; }
   // Adds an interface, or an address to it; link may be null (a loopback).
   Interface* intfIs(std::string const& name, Link* link, IpAddr addr, U8 len = 32);
   Interface* intf(std::string const& name) const;
   Interface* intfByIndex(U32 ifIndex) const;
   Interface* intfOwning(IpAddr a) const;
   bool owns(IpAddr a) const { return a.isLoopback() || intfOwning(a) != nullptr; }

   // The back ends of the channels.
   std::unique_ptr<UdpBackend> udpOpen(IpAddr bindAddr, U16 port, bool mcastLoop,
                                       UdpBackend::Sink* sink, int* err);
   class Acceptor {
    public:
      virtual ~Acceptor() = default;
      // A connection arrived; the listener takes it.
      virtual void onAccept(std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort,
                            IpAddr remote, U16 remotePort) = 0;
   };
   class Listener {
    public:
      virtual ~Listener() = default;
      virtual void md5AuthIs(IpAddrWithMask const& peer, std::string const& key) = 0;
      virtual void md5AuthDel(IpAddrWithMask const& peer) = 0;
   };
   std::unique_ptr<Listener> tcpListen(IpAddr addr, U16 port, Acceptor* acceptor, int* err);
   using ConnectDone =
      std::function<void(int err, std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort)>;
   // Starts a connection; done runs later, with 0 or an errno. Dropping the
   // returned handle cancels the attempt.
   std::shared_ptr<void> tcpConnect(IpAddr local, IpAddr peer, U16 port, std::string md5Key,
                                    ConnectDone done);

 private:
   friend class Network;
   friend class UdpSock;
   friend class ListenerImpl;
   Network* net_;
   NamespaceName ns_;
   std::vector<std::unique_ptr<Interface>> intfs_;
   std::vector<class UdpSock*> udp_;
   std::map<std::pair<U32, U16>, class ListenerImpl*> listeners_;
   U16 nextPort_ = 40000;
};

class Network {
 public:
   Network();
   ~Network();
   Network(Network const&) = delete;
   Network& operator=(Network const&) = delete;

   // The host of a namespace, made on first use; it is registered so that
   // channels opened in that namespace run on this network.
   Host* hostIs(NamespaceName const& ns);
   Host* hostIs(std::string const& ns) { return hostIs(NamespaceName(ns)); }
   Link* linkIs(std::string const& name);
   Link* link(std::string const& name) const;
   // The simulated host of a namespace, or null when real sockets serve it.
   static Host* hostOf(NamespaceName const& ns);

   Vek::Seconds latency() const { return latency_; }
   void latencyIs(Vek::Seconds s) { latency_ = s; }
   // The receive window of every TCP end: bytes that a writer may have in
   // flight or unread at the receiver. A writer that meets a full window is
   // told when it opens again, a latency after the receiver read.
   U32 tcpWindow() const { return tcpWindow_; }
   void tcpWindowIs(U32 n) { tcpWindow_ = n ? n : 1; }

   // Segments of at most n bytes for what the TCP end with descriptor fd
   // writes (a channel's fileDescriptor()); 0 goes back to the link's size.
   // False when no such end exists.
   bool segmentSizeIs(int fd, U32 n);

   // Runs f after the latency on the runtime's loop, unless the network is gone.
   void later(std::function<void()> f, Vek::Seconds delay = -1.0);
   Host* ownerOf(IpAddr a) const;
   U32 nextIfIndex() { return ++ifIndex_; }
   int nextFd() { return ++fd_; }

 private:
   friend class Event;
   friend class UdpSock;
   friend class Stream;
   std::map<NamespaceName, std::unique_ptr<Host>> hosts_;
   std::map<int, class Stream*> streams_;
   std::map<std::string, std::unique_ptr<Link>> links_;
   std::set<class Event*> events_;
   Vek::Seconds latency_ = 0.001;
   U32 tcpWindow_ = 256 * 1024;
   U32 ifIndex_ = 1;
   int fd_ = 100000;
};

}  // namespace Nolu::Sim

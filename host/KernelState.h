#pragma once
// The host's state as the agent reads it, written from the kernel: the
// interfaces of a network namespace (KernelNetInfo::Status, which the agent's
// interface status manager turns into its interface directories), their IPv4
// addresses (the VRF's Ip::VrfIpIntfStatus) and the IPv4 routes with their next
// hops (Tesh::Fib::RouteStatus and ForwardingStatus, one forwarding entry per
// set of next hops, shared by the routes that use it). The writer keeps no copy
// of the routes of its own beyond the host's own addresses: the route table is
// the copy. KernelStateWriter applies netlink records; KernelWatcher feeds it
// from a netlink socket on the event loop.
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "entities/EntityTypes.h"
#include "host/Netlink.h"
#include "runtime/vek/Activity.h"

namespace Host {

// Route types as the agent reads them.
enum HostRouteType : U8 {
   routeTypeReceive_ = 1,     // an address of this host
   routeTypeRemote_ = 2,      // through a next hop
   routeTypeConnected_ = 11,  // a directly connected segment
};

struct KernelTargets {
   Vek::Ptr<KernelNetInfo::Status> kni;
   Vek::Ptr<Ip::Status> ipStatus;
   Vek::Ptr<Tesh::Fib::RouteStatus> routeStatus;
   Vek::Ptr<Tesh::Fib::ForwardingStatus> forwardingStatus;
};

class KernelStateWriter {
 public:
   // The interfaces of a VRF other than the default one are named
   // "<vrf>:<device>" and keyed in the kernel status by their index plus
   // indexBase, so that they never meet those of the default namespace.
   KernelStateWriter(L3::VrfName vrf, KernelTargets targets, U32 indexBase = 0);
   ~KernelStateWriter();
   KernelStateWriter(KernelStateWriter const&) = delete;
   KernelStateWriter& operator=(KernelStateWriter const&) = delete;

   void apply(NetlinkEvent const& ev);
   // The kernel dropped routes without a notification since the last call:
   // a link went down or away, or an address went, taking the routes through
   // it. Only a read of all routes tells which.
   bool takeRoutesDroppedUnseen() {
      bool d = routesDroppedUnseen_;
      routesDroppedUnseen_ = false;
      return d;
   }
   // Takes back everything written, as when the namespace goes away.
   void clear();

   L3::VrfName const& vrf() const { return vrf_; }
   Nolu::IntfId intfIdOf(U32 ifIndex) const;
   std::size_t linkCount() const { return links_.size(); }
   std::size_t routeCount() const { return t_.routeStatus ? t_.routeStatus->routeSize() : 0; }
   std::size_t forwardingEntryCount() const { return fwd_.size(); }

 private:
   struct Link {
      std::string name;
      Nolu::IntfId intfId;
      bool adminUp = false;
   };
   struct Addr {
      Nolu::IpAddrWithMask addr;
      bool secondary = false;
   };
   // The next hops of a route as the kernel gives them, in order.
   using NextHops = std::vector<NextHop>;
   struct NextHopsLess {
      bool operator()(NextHops const& a, NextHops const& b) const;
   };
   // A forwarding entry and the routes that use it.
   struct Fwd {
      U32 fecId = 0;
      U32 routes = 0;
   };

   void applyLink(LinkInfo const& l);
   void applyAddr(AddrInfo const& a);
   void applyRoute(RouteInfo const& r);
   void publishAddrs(U32 ifIndex);
   void unpublishAddrs(Nolu::IntfId const& intf);
   void publishRoute(Nolu::Prefix const& prefix, RouteInfo const& r);
   void unpublishRoute(Nolu::Prefix const& prefix);
   U32 fwdRef(NextHops const& nh);
   void fwdUnref(U32 fecId);
   void publishVias(U32 fecId, NextHops const& nh);
   void publishAllVias();
   void sweepRoutes();
   Nolu::IntfId nameToIntfId(std::string const& name) const;

   L3::VrfName vrf_;
   KernelTargets t_;
   U32 indexBase_;
   std::map<U32, Link> links_;
   std::map<U32, std::vector<Addr>> addrs_;
   std::map<U32, Nolu::IntfId> addrPublishedAs_;
   // The host's own addresses of the local table: a route of the main table
   // for the same prefix wins over them.
   std::map<Nolu::Prefix, RouteInfo> localRoutes_;
   std::map<NextHops, Fwd, NextHopsLess> fwd_;
   std::map<U32, NextHops> fwdNextHops_;
   U32 nextFecId_;
   // Routes written since the present read of all routes began.
   U8 generation_ = 0;
   bool routesDroppedUnseen_ = false;
};

// A netlink socket of one namespace on the event loop, feeding a writer.
class KernelWatcher : public Vek::FdHandler {
 public:
   KernelWatcher(Nolu::NamespaceName ns, std::unique_ptr<KernelStateWriter> writer);
   ~KernelWatcher() override;
   // Opens the socket, asks for the whole state and watches for changes.
   bool start(std::string* reason);
   // Waits, at most timeout seconds, until the first full dump is in: so
   // that the agent starts with what the kernel has.
   void syncInitial(Vek::Seconds timeout);
   void onFdEvent(U32 events) override;
   KernelStateWriter* writer() const { return writer_.get(); }
   bool failed() const { return failed_; }

 private:
   Nolu::NamespaceName ns_;
   std::unique_ptr<KernelStateWriter> writer_;
   NetlinkSocket sock_;
   bool failed_ = false;
};

}  // namespace Host

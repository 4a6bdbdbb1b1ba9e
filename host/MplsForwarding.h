#pragma once
// The host's forwarding side of the published label bindings: it reads the
// binding table at mpls/ldp/ldpBindingTables, matches each FEC's peer labels
// with the next hops of the FEC's route, and programs the kernel's MPLS
// forwarding over rtnetlink - an incoming label to the next hop with the
// peer's label swapped in (or popped, for Implicit Null), and the IPv4
// route's MPLS encapsulation for ingress. Where the kernel has no MPLS it
// says so once and programs nothing; show tells why.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/LdpAgent.h"

namespace Host {

// What one FEC needs to be forwarded: its local labels and, per next hop of
// its route, the peer's label if the LSR behind the next hop gave one.
struct FecForwardingView {
   struct Hop {
      Nolu::IpAddr gateway;  // 0.0.0.0 for a directly connected route
      U32 ifIndex = 0;
      std::string dev;
      std::optional<U32> peerLabel;
   };
   Nolu::Prefix prefix;
   std::vector<U32> localLabels;
   std::vector<Hop> hops;
};

// An incoming label and where it goes: outLabels empty pops the label.
struct KernelMplsRoute {
   U32 inLabel = 0;
   std::vector<U32> outLabels;
   Nolu::IpAddr via;
   U32 ifIndex = 0;
   std::string dev;
   bool operator==(KernelMplsRoute const&) const = default;
};

// An IPv4 route of the main table given an MPLS encapsulation.
struct KernelIngressRoute {
   Nolu::Prefix prefix;
   std::vector<U32> outLabels;
   Nolu::IpAddr via;
   U32 ifIndex = 0;
   std::string dev;
   bool operator==(KernelIngressRoute const&) const = default;
};

struct FecKernelRoutes {
   std::optional<KernelMplsRoute> mpls;
   std::optional<KernelIngressRoute> ingress;
   bool operator==(FecKernelRoutes const&) const = default;
};

// The kernel routes of one FEC. One next hop is used: the first, in the order
// of gateway and interface, whose LSR gave a label; the kernel gets no
// multipath. A FEC without a usable local label gets no incoming-label route;
// a next hop whose label is Implicit Null (the next hop is the egress) needs
// no encapsulation.
FecKernelRoutes kernelRoutesOf(FecForwardingView const& fec);

// The rtnetlink messages: RTM_NEWROUTE (replace) or RTM_DELROUTE.
constexpr U8 ldpRouteProtocol = 0x4c;  // the routes' rtm_protocol, "L"
std::vector<U8> mplsRouteMsg(bool add, U32 seq, KernelMplsRoute const& r);
// With encap false, the route is given back without its encapsulation.
std::vector<U8> ingressRouteMsg(bool add, bool encap, U32 seq, KernelIngressRoute const& r);

// Programs the kernel. Requests are answered synchronously by rtnetlink; the
// answer is read without waiting.
class MplsKernel {
 public:
   MplsKernel() = default;
   ~MplsKernel();
   MplsKernel(MplsKernel const&) = delete;
   MplsKernel& operator=(MplsKernel const&) = delete;
   // False with a reason where the kernel has no MPLS forwarding.
   bool open(std::string* reason);
   bool available() const { return fd_ >= 0; }
   // 0, or the kernel's negative errno.
   int request(std::vector<U8> const& msg);
   U32 nextSeq() { return ++seq_; }
   U32 platformLabels() const;
   bool platformLabelsIs(U32 n, std::string* reason);
   bool inputIs(std::string const& dev, std::string* reason);

 private:
   int fd_ = -1;
   U32 seq_ = 0;
};

// The consumer: a machine on the agent's loop.
class MplsForwardingSm : public Vek::Sm {
 public:
   struct Entry {
      FecKernelRoutes routes;
      int mplsError = 0;     // the kernel's answer, 0 when accepted
      int ingressError = 0;
   };
   MplsForwardingSm(Vek::Ptr<Ombra::Store> const& store, Ldp::Agent const* agent);
   ~MplsForwardingSm() override;

   bool programmed() const { return kernel_.available(); }
   std::string const& reason() const { return reason_; }
   std::map<Mpls::FwdEqvClass, Entry> const& entries() const { return entries_; }
   U32 platformLabels() const { return kernel_.available() ? kernel_.platformLabels() : 0; }
   std::vector<std::string> const& inputDevs() const { return inputDevs_; }
   // Takes every programmed route out of the kernel: the agent stops.
   void removeAll();

   void handleTimer();
   // Without MPLS in the kernel, looks again every retryInterval.
   void handleRetry();
   static constexpr Vek::Seconds retryInterval = 5.0;
   void dirtyIs(Mpls::FwdEqvClass const& fec);
   void allDirty();

 private:
   class TableReactor;
   class RouteReactor;
   class FwdReactor;
   class MappingReactor;
   class StatusCollReactor;
   FecForwardingView viewOf(Mpls::FwdEqvClass const& fec) const;
   void apply(Mpls::FwdEqvClass const& fec, FecKernelRoutes const& want);
   void refused(Mpls::FwdEqvClass const& fec, char const* what, int error);
   void relook();
   void inputs();

   Vek::Ptr<Ombra::Store> store_;
   Ldp::Agent const* agent_;
   MplsKernel kernel_;
   std::string reason_;
   Vek::Ptr<Ldp::LdpTesh::LdpLabelBindingTable const> table_;
   Vek::Ptr<Ldp::LdpIdIntfIpMappingTable const> mapping_;
   std::map<Mpls::FwdEqvClass, Entry> entries_;
   std::map<Mpls::FwdEqvClass, bool> dirty_;
   bool allDirty_ = true;
   std::vector<std::string> inputDevs_;
   Vek::Ptr<Hesk::TimerTask> timer_;
   Vek::Ptr<Hesk::TimerTask> retry_;
   std::unique_ptr<TableReactor> tableReactor_;
   std::unique_ptr<RouteReactor> routeReactor_;
   std::unique_ptr<FwdReactor> fwdReactor_;
   std::unique_ptr<MappingReactor> mappingReactor_;
   std::unique_ptr<StatusCollReactor> statusCollReactor_;
};

}  // namespace Host

#pragma once
// The kernel's routing netlink: a socket opened in a network namespace that
// dumps links, IPv4 addresses and IPv4 routes and then follows the kernel's
// notifications of them, and a parser that turns the messages into plain
// records. The parser checks every length against the buffer: a malformed
// message is skipped, never read past.
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "runtime/nolu/Types.h"

namespace Host {

// A network device.
struct LinkInfo {
   bool deleted = false;
   U32 ifIndex = 0;
   std::string name;
   U32 flags = 0;  // IFF_* bits
   U32 mtu = 0;
   std::string kind;  // "dummy", "veth", ...; empty when the kernel gives none
   bool operator==(LinkInfo const&) const = default;
};

// An IPv4 address of a device.
struct AddrInfo {
   bool deleted = false;
   U32 ifIndex = 0;
   Nolu::IpAddr addr;
   U8 prefixLen = 0;
   bool secondary = false;
   bool operator==(AddrInfo const&) const = default;
};

struct NextHop {
   Nolu::IpAddr gateway;
   U32 ifIndex = 0;
   bool operator==(NextHop const&) const = default;
};

// An IPv4 route of the main or local table.
struct RouteInfo {
   bool deleted = false;
   Nolu::Prefix prefix;
   U8 table = 0;
   U8 protocol = 0;
   U8 scope = 0;
   U8 type = 0;  // RTN_*
   std::vector<NextHop> nextHops;
   bool operator==(RouteInfo const&) const = default;
};

// The end of a dump, or an error answer to a request.
struct DumpDone {
   U32 seq = 0;
   int error = 0;  // 0, or a negative errno
};

// The routes' dump starts, and ends: a reader that keeps routes drops, at the
// end, those that the dump did not bring (their deletions were lost).
struct RouteDumpStart {};
struct RouteDumpEnd {};

using NetlinkEvent =
   std::variant<LinkInfo, AddrInfo, RouteInfo, DumpDone, RouteDumpStart, RouteDumpEnd>;

// Parses a buffer of netlink messages as read from the socket. Messages of
// other kinds, and malformed ones, are left out; *malformed counts the latter.
std::vector<NetlinkEvent> parseNetlinkBuffer(U8 const* buf, std::size_t len,
                                             unsigned* malformed = nullptr);

// A routing netlink socket of one namespace.
class NetlinkSocket {
 public:
   NetlinkSocket() = default;
   ~NetlinkSocket();
   NetlinkSocket(NetlinkSocket const&) = delete;
   NetlinkSocket& operator=(NetlinkSocket const&) = delete;

   // Opens the socket in the namespace (the empty name: the process's own)
   // and joins the groups of links, IPv4 addresses and IPv4 routes. False
   // with a reason on failure.
   bool open(Nolu::NamespaceName const& ns, std::string* reason);
   int fd() const { return fd_; }
   // Asks for the links, then the addresses, then the routes; the dumps run
   // one after the other as each one ends.
   void requestFullDump();
   // Asks for the routes alone, as when the kernel dropped routes without
   // telling (a link went down, an address went). A routes' dump already
   // waiting its turn covers it. True when the dump was sent at once: its
   // routes start a new read, which the caller marks with RouteDumpStart
   // (a dump sent after another one is marked as that one ends).
   bool requestRouteDump();
   // Reads all that is waiting and hands each record over. False when the
   // socket failed for good; a lost notification (the kernel's buffer ran
   // over) asks for a full dump again.
   bool readAvailable(std::function<void(NetlinkEvent const&)> const& sink);
   // A dump is asked for or under way.
   bool dumping() const { return pendingSeq_ != 0 || !dumpQueue_.empty(); }
   unsigned malformedCount() const { return malformed_; }
   unsigned resyncCount() const { return resyncs_; }

 private:
   void sendNextDump();
   int fd_ = -1;
   U32 seq_ = 0;
   U32 pendingSeq_ = 0;
   U16 pendingType_ = 0;
   std::vector<U16> dumpQueue_;
   unsigned malformed_ = 0;
   unsigned resyncs_ = 0;
};

}  // namespace Host

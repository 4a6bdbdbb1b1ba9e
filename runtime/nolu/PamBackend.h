#pragma once
// What a packet channel needs from the socket under it. Two back ends provide
// it: real Linux sockets on the runtime's epoll loop, and the simulated
// network on virtual time. The channels above cannot tell which one runs.
#include <cstddef>
#include <memory>
#include <string>

#include "runtime/nolu/Types.h"
#include "runtime/vek/Types.h"

namespace Nolu {

// Where a received datagram came from and how it arrived.
struct UdpRxInfo {
   IpAddr srcIpAddr;
   U16 srcPort = 0;
   IpAddr dstIpAddr;
   U32 ifIndex = 0;
};

// How a datagram is to be sent.
struct UdpTxInfo {
   IpAddr dstIpAddr;
   U16 dstPort = 0;
   IpAddr srcIpAddr;
   U32 ifIndex = 0;
   U8 tos = 0;
   U8 ttl = 0;
};

// An open datagram socket.
class UdpBackend {
 public:
   class Sink {
    public:
      virtual ~Sink() = default;
      virtual void onDatagram(U8 const* data, std::size_t n, UdpRxInfo const& info) = 0;
   };
   virtual ~UdpBackend() = default;
   // 0 or an errno.
   virtual int mcastGroup(std::string const& deviceName, IpAddr group, bool join) = 0;
   virtual int send(U8 const* data, std::size_t n, UdpTxInfo const& tx) = 0;
};

// A connected stream socket.
class StreamBackend {
 public:
   class Sink {
    public:
      virtual ~Sink() = default;
      virtual void onStreamReadable() = 0;
      virtual void onStreamWritable() = 0;
   };
   virtual ~StreamBackend() = default;
   // Registers for readiness; null unregisters.
   virtual void sinkIs(Sink* s) = 0;
   // Bytes read, 0 when the peer has closed, or -errno (-EAGAIN: nothing now).
   virtual long read(U8* p, std::size_t n) = 0;
   // Bytes accepted, or -errno (-EAGAIN: buffer full).
   virtual long write(U8 const* p, std::size_t n) = 0;
   virtual void writeInterestIs(bool b) = 0;
   // Whether readiness to read is wanted; a reader that stops reading clears
   // it so that the loop does not wake for data it leaves in the socket.
   virtual void readInterestIs(bool b) {}
   // A descriptor, unique in the process while the socket lives.
   virtual int fd() const = 0;
};

}  // namespace Nolu

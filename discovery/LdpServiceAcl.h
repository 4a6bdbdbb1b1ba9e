#pragma once
// What the discovery channels ask of the service ACL: whether a datagram's
// connection is allowed. The agent gives its service ACL filter behind this;
// without one, everything is allowed.
#include "entities/Ids.h"
#include "runtime/vek/Ptr.h"

namespace Ldp {

class LdpServiceAclFilter : public Vek::PtrInterface {
 public:
   // protocol 6 TCP, 17 UDP.
   virtual bool matchesConnection(L3::VrfName const& vrf, Nolu::IpGenAddr const& srcIp,
                                  Nolu::IpGenAddr const& dstIp, U16 srcPort, U16 dstPort,
                                  U8 protocol, bool flag) const = 0;
};

}  // namespace Ldp

#pragma once
// A message travelling through a pipe: the sender's LDP identifier, the packet
// and a byte offset into it. The packet is shared, never copied.
#include "entities/Identifiers.h"
#include "runtime/nolu/Pkt.h"
#include "runtime/vek/Ptr.h"

namespace Ldp {

class LdpMsg : public Vek::PtrInterface {
 public:
   LdpMsg(LdpIdentifier const& id, Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset)
      : ldpIdentifier_(id), pkt_(pkt), offset_(offset) {}
   LdpIdentifier const& ldpIdentifier() const { return ldpIdentifier_; }
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   U32 offset() const { return offset_; }
   // The source address of the datagram that carried a received message.
   Nolu::IpGenAddr const& srcIpAddr() const { return srcIpAddr_; }
   void srcIpAddrIs(Nolu::IpGenAddr const& a) { srcIpAddr_ = a; }

 private:
   LdpIdentifier ldpIdentifier_;
   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 offset_;
   Nolu::IpGenAddr srcIpAddr_;
};

inline Vek::Ptr<LdpMsg> ldpMsgFactory(LdpIdentifier const& id, Vek::Ptr<Nolu::Pkt> const& pkt,
                                      U32 offset) {
   return Vek::Ptr<LdpMsg>(new LdpMsg(id, Vek::validPtr(pkt), offset));
}

}  // namespace Ldp

#pragma once
// A message travelling through a pipe: the sender's LDP identifier, the packet
// and a byte offset into it, with what the receive side has already decoded,
// so that a reader never parses the message again. The packet is shared,
// never copied. One is made per message (and per FEC for label messages), so
// it stays small.
#include "entities/Identifiers.h"
#include "runtime/nolu/Pkt.h"
#include "runtime/vek/Ptr.h"
#include "wire/LdpParser.h"

namespace Ldp {

class LdpMsg : public Vek::PtrInterface {
 public:
   LdpMsg(LdpIdentifier const& id, Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset)
      : ldpIdentifier_(id), offset_(offset), pkt_(pkt) {
      if (U64(offset) + sizeof(LdpMsgHdr) <= pkt->dataBytes())
         msgType_ = reinterpret_cast<LdpMsgHdr const*>(pkt->readPtr(offset))->type();
   }
   // The sender: the peer for a received message, this LSR for one to send.
   LdpIdentifier const& ldpIdentifier() const { return ldpIdentifier_; }
   // The packet that holds the message, shared with every other reader.
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   // Where the message starts in the packet.
   U32 offset() const { return offset_; }
   // The type from the message header; LdpMsgTypeNone_ when the packet is too short.
   LdpMsgType msgType() const { return msgType_; }
   // Of a label message handed on per FEC: the FEC element that this delivery is about.
   U16 fecElementIndex() const { return fecElementIndex_; }
   void fecElementIndexIs(U16 i) { fecElementIndex_ = i; }
   // Of a message to send: 0 waits for the PDU under assembly to fill; any other value
   // closes that PDU within the short hold time.
   U8 priority() const { return priority_; }
   void priorityIs(U8 p) { priority_ = p; }
   // The receive side's parse of the message (its TLVs, FEC elements and label), made
   // once; null on messages that nobody has parsed.
   Vek::Ptr<LdpMsgParser const> const& parser() const { return parser_; }
   void parserIs(Vek::Ptr<LdpMsgParser const> const& p) { parser_ = p; }
   // The source address of the datagram that carried a received message.
   Nolu::IpGenAddr const& srcIpAddr() const { return srcIpAddr_; }
   void srcIpAddrIs(Nolu::IpGenAddr const& a) { srcIpAddr_ = a; }

   // One is made for every message received, so released ones are kept for
   // reuse rather than given back to the heap.
   static void* operator new(std::size_t size);
   static void operator delete(void* p, std::size_t size);

 private:
   LdpIdentifier ldpIdentifier_;
   LdpMsgType msgType_ = LdpMsgTypeNone_;
   U16 fecElementIndex_ = 0;
   U8 priority_ = 0;
   U32 offset_;
   Vek::Ptr<Nolu::Pkt> pkt_;
   Vek::Ptr<LdpMsgParser const> parser_;
   Nolu::IpGenAddr srcIpAddr_;
};

inline Vek::Ptr<LdpMsg> ldpMsgFactory(LdpIdentifier const& id, Vek::Ptr<Nolu::Pkt> const& pkt,
                                      U32 offset) {
   return Vek::Ptr<LdpMsg>(new LdpMsg(id, Vek::validPtr(pkt), offset));
}

}  // namespace Ldp

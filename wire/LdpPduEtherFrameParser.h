#pragma once
// Finds the Ethernet, IP, UDP and LDP headers of a whole Ethernet frame that
// holds a link Hello. The parse runs once, at construction; a frame that fails
// a test leaves validLdpFrame() false with the reason, and the packet as it
// was.
#include "runtime/nolu/Hdr.h"
#include "runtime/nolu/Pkt.h"
#include "runtime/vek/Ptr.h"
#include "wire/LdpTlv.h"

namespace Ldp {

class LdpPduEtherFrameParser : public Vek::PtrInterface {
 public:
   explicit LdpPduEtherFrameParser(Vek::Ptr<Nolu::Pkt> const& pkt);

   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   bool validLdpFrame() const { return validLdpFrame_; }
   // The text of the first failed test; empty for a valid frame.
   Vek::String const& reason() const { return reason_; }
   // How far the parse got in the packet.
   U32 offset() const { return offset_; }

   Nolu::EthHdr const* ethHeader() const { return ethHeader_; }
   U16 ethHeaderOffset() const { return ethHeaderOffset_; }
   U16 ethHeaderLength() const { return ethHeaderLength_; }
   Nolu::IpHdr const* ipHeader() const { return ipHeader_; }
   U16 ipHeaderOffset() const { return ipHeaderOffset_; }
   U16 ipHeaderLength() const { return ipHeaderLength_; }
   Nolu::UdpHdr const* udpHeader() const { return udpHeader_; }
   U16 udpHeaderOffset() const { return udpHeaderOffset_; }
   U16 udpHeaderLength() const { return udpHeaderLength_; }
   LdpPduHdr const* ldpPduHeader() const { return ldpPduHeader_; }
   U16 ldpPduHeaderOffset() const { return ldpPduHeaderOffset_; }

 private:
   void handleInitialized();
   void fail(Vek::String reason);

   Vek::Ptr<Nolu::Pkt> pkt_;
   bool validLdpFrame_ = false;
   Vek::String reason_;
   U32 offset_ = 0;
   Nolu::EthHdr const* ethHeader_ = nullptr;
   U16 ethHeaderOffset_ = 0;
   U16 ethHeaderLength_ = 0;
   Nolu::IpHdr const* ipHeader_ = nullptr;
   U16 ipHeaderOffset_ = 0;
   U16 ipHeaderLength_ = 0;
   Nolu::UdpHdr const* udpHeader_ = nullptr;
   U16 udpHeaderOffset_ = 0;
   U16 udpHeaderLength_ = 0;
   LdpPduHdr const* ldpPduHeader_ = nullptr;
   U16 ldpPduHeaderOffset_ = 0;
};

Vek::Ptr<LdpPduEtherFrameParser> ldpPduEtherFrameParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt);

}  // namespace Ldp

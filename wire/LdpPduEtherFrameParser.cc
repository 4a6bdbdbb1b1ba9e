#include "wire/LdpPduEtherFrameParser.h"

#include "runtime/vek/Trace.h"

namespace Ldp {

namespace {

Vek::TraceHandle& frameTrace() {
   static Vek::TraceHandle handle("LdpPduEtherFrameParser");
   return handle;
}

Vek::String tooSmall(U32 size) { return "Packet too small @ size: " + std::to_string(size); }

}  // namespace

LdpPduEtherFrameParser::LdpPduEtherFrameParser(Vek::Ptr<Nolu::Pkt> const& pkt)
   : pkt_(Vek::validPtr(pkt)) {
   handleInitialized();
}

void LdpPduEtherFrameParser::fail(Vek::String reason) {
   validLdpFrame_ = false;
   reason_ = std::move(reason);
}

void LdpPduEtherFrameParser::handleInitialized() {
   U32 size = pkt_->frontBytes();
   U8 const* base = pkt_->readPtr(0);
   // Room for a tagged Ethernet header.
   if (size <= 17) return fail(tooSmall(size));
   ethHeaderOffset_ = 0;
   ethHeaderLength_ = sizeof(Nolu::EthHdr);
   ethHeader_ = reinterpret_cast<Nolu::EthHdr const*>(base);
   Nolu::EthAddr group = Nolu::ipMcastMacAddr(Nolu::IpAddr(LdpProtoParam::allRoutersGroup()));
   if (ethHeader_->dst() != group) return fail("Invalid DstMac:" + ethHeader_->dst().stringValue());
   U16 etherType = ethHeader_->etherType();
   if (etherType == Nolu::etherTypeDot1q) {
      auto const* tag = reinterpret_cast<Nolu::Dot1qTag const*>(base + sizeof(Nolu::EthHdr));
      ethHeaderLength_ = sizeof(Nolu::EthHdr) + sizeof(Nolu::Dot1qTag);
      if (tag->innerEtherType() != Nolu::etherTypeIp) {
         return fail("Invalid .1q EthType: " + std::to_string(tag->innerEtherType()));
      }
   } else if (etherType != Nolu::etherTypeIp) {
      return fail("Invalid EtherType: " + std::to_string(etherType));
   }
   offset_ = ipHeaderOffset_ = U16(ethHeaderOffset_ + ethHeaderLength_);
   if (size - offset_ < sizeof(Nolu::IpHdr)) return fail(tooSmall(size));
   ipHeader_ = reinterpret_cast<Nolu::IpHdr const*>(base + ipHeaderOffset_);
   ipHeaderLength_ = ipHeader_->headerBytes();
   if (ipHeaderLength_ < sizeof(Nolu::IpHdr) || size - offset_ < ipHeaderLength_) {
      return fail(tooSmall(size));
   }
   if (ipHeader_->dst().value() != LdpProtoParam::allRoutersGroup()) {
      return fail("Invalid IP DstAddr: " + ipHeader_->dst().stringValue());
   }
   if (ipHeader_->protocol() != Nolu::ipProtoUdp) {
      return fail("Invalid IP protocol: " + std::to_string(ipHeader_->protocol()));
   }
   offset_ = udpHeaderOffset_ = U16(ipHeaderOffset_ + ipHeaderLength_);
   udpHeaderLength_ = sizeof(Nolu::UdpHdr);
   if (size - offset_ < sizeof(Nolu::UdpHdr)) return fail(tooSmall(size));
   udpHeader_ = reinterpret_cast<Nolu::UdpHdr const*>(base + udpHeaderOffset_);
   if (udpHeader_->srcPort() != LdpProtoParam::ldpPort()) {
      return fail("Invalid UDP src port: " + std::to_string(udpHeader_->srcPort()));
   }
   if (udpHeader_->dstPort() != LdpProtoParam::ldpPort()) {
      return fail("Invalid UDP dst port: " + std::to_string(udpHeader_->dstPort()));
   }
   offset_ = ldpPduHeaderOffset_ = U16(udpHeaderOffset_ + udpHeaderLength_);
   if (size - offset_ < sizeof(LdpPduHdr)) return fail(tooSmall(size));
   ldpPduHeader_ = reinterpret_cast<LdpPduHdr const*>(base + ldpPduHeaderOffset_);
   validLdpFrame_ = true;
   VEK_TRACE(frameTrace(), 5, "   Received LDP: " << ldpPduHeader_->ldpIdentifier());
}

Vek::Ptr<LdpPduEtherFrameParser> ldpPduEtherFrameParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt) {
   return Vek::Ptr<LdpPduEtherFrameParser>(new LdpPduEtherFrameParser(pkt));
}

}  // namespace Ldp

#include "session/LdpPduPam.h"

#include "runtime/vek/Trace.h"
#include "session/LdpSessionColls.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPduPam");
}

char const* ldpPduPamStateStr(LdpPduPamState s) {
   switch (s) {
   case pamNone: return "pamNone";
   case pamReady: return "pamReady";
   case pamOperational: return "pamOperational";
   case pamShutdown: return "pamShutdown";
   case pamDestroy: return "pamDestroy";
   }
   return "unknown";
}

std::ostream& operator<<(std::ostream& os, LdpPduPamState s) { return os << ldpPduPamStateStr(s); }

void LdpPduPam::destroyRequestIs(bool b) {
   if (destroyRequest_ == b) return;
   destroyRequest_ = b;
   notifyLdp([](NotifieeConst* n) { n->onDestroyRequest(); });
}

void LdpPduPam::peerIpAddrIs(Nolu::IpAddr a) {
   if (peerIpAddr_ == a) return;
   peerIpAddr_ = a;
   notifyLdp([](NotifieeConst* n) { n->onPeerIpAddr(); });
}

void LdpPduPam::ldpIdentifierIs(LdpIdentifier const& id) {
   if (ldpIdentifier_ == id) return;
   ldpIdentifier_ = id;
   notifyLdp([](NotifieeConst* n) { n->onLdpIdentifier(); });
}

void LdpPduPam::stateIs(LdpPduPamState s) {
   if (state_ == s) return;
   state_ = s;
   notifyLdp([](NotifieeConst* n) { n->onState(); });
}

U32 LdpPduPam::getPduSize(Nolu::Pkt const* pkt) {
   VEK_ASSERT(pkt);
   U32 have = pkt->dataBytes();
   U32 const hdr = LdpProtoParam::pduHeaderLength();
   if (have < hdr) return hdr;
   U8 const* p = pkt->readPtr(0);
   U32 size = std::max<U32>(((U32(p[2]) << 8) | p[3]) + 4, hdr);
   if (ldpIdentifier_.isEmpty() && have == size) {
      // The first whole PDU is in: its header names the peer.
      LdpIdentifier id((U32(p[4]) << 24) | (U32(p[5]) << 16) | (U32(p[6]) << 8) | p[7],
                       U16((U16(p[8]) << 8) | p[9]));
      VEK_TRACE(th, 5, "LdpPduPam sd: " << fileDescriptor() << " connected to " << id);
      ldpIdentifierIs(id);
   }
   return size;
}

// ---- the one-packet pipe between a session's machines

Vek::Ptr<Nolu::Pkt> LdpPduPamPipe::doGetRxPkt() {
   Vek::Ptr<Nolu::Pkt> p = std::move(rxPktHolderShadow_);
   rxPktHolderShadow_ = nullptr;
   // The reader has read the parse before the packet; the pipe keeps neither.
   rxPduParser_ = nullptr;
   return p;
}


void LdpPduPamPipe::txPktIs(Vek::Ptr<Nolu::Pkt> const& pkt) {
   txMsgUnitIs(pkt, nullptr, 0);
}

void LdpPduPamPipe::txMsgUnitIs(Vek::Ptr<Nolu::Pkt> const& pkt,
                                Vek::Ptr<LdpPduParser const> const& pdu, U32 index) {
   VEK_ASSERT(!rxPktHolderShadow() && "Internal Error: the last packet was not taken");
   rxPduParser_ = pdu;
   rxMsgIndex_ = index;
   rxPktHolderShadow_ = pkt;
   readableCountInc(1);
}

Vek::Ptr<LdpPduPamPipe> ldpPduPamPipeFactory(std::string const& name) {
   Vek::Ptr<LdpPduPamPipe> p(new LdpPduPamPipe());
   p->nameIs(name);
   p->writableCountInc(1);
   return p;
}

}  // namespace Ldp

#pragma once
// Fixtures of the pseudowire scenarios: requests written as the pseudowire
// agent writes them, the responses read back, and the PWid FEC messages of a
// peer played by the test.
#include "tests/sim/SessionFixtures.h"

namespace LdpTest::Pw {

using namespace LdpTest::Sessions;
using Pseudowire::PseudowireLdpRequestKey;
using Pseudowire::PseudowireId;

struct PwRequest {
   U32 pwId = 10;
   U32 label = 0;
   Pseudowire::PseudowireType type = Pseudowire::pwTypeEthernet_;
   U32 mtu = 1500;
   bool controlWord = false;
   bool statusTlv = true;
   bool up = true;
};

inline Ptr<Pseudowire::PseudowireLdpConfig> pwConfig(LdpTest::AgentNode& n) {
   return Vek::ptr_const_cast<Pseudowire::PseudowireLdpConfig>(n.agent()->pwLdpConfig());
}

inline PseudowireLdpRequestKey pwKey(char const* peer, U32 pwId) {
   return PseudowireLdpRequestKey(Nolu::IpGenAddr(*IpAddr::fromString(peer)), PseudowireId(pwId));
}

// Writes (or rewrites) a request to the peer.
inline void pwRequestIs(LdpTest::AgentNode& n, char const* peer, PwRequest const& r) {
   auto req = pwConfig(n)->ldpRequestIs(pwKey(peer, r.pwId));
   req->pwTypeIs(r.type);
   req->mtuIs(r.mtu);
   req->preferControlWordIs(r.controlWord);
   req->pwStatusTlvIs(r.statusTlv);
   req->statusIs(r.up ? Pseudowire::connectorUp : Pseudowire::connectorAdminDown);
   req->localLabelIs(r.label ? Nolu::MplsLabel(r.label) : Nolu::MplsLabel::null());
}

inline Pseudowire::PseudowireLdpResponse const* pwResponse(LdpTest::AgentNode& n, char const* peer,
                                                           U32 pwId) {
   return n.agent()->pwLdpStatus()->response(pwKey(peer, pwId)).ptr();
}

inline int pwStatus(LdpTest::AgentNode& n, char const* peer, U32 pwId) {
   auto const* r = pwResponse(n, peer, pwId);
   return r ? int(r->status()) : -1;
}

// A PWid FEC element with the MTU interface parameter (none for mtu 0).
inline B::Buf pwElement(U32 pwId, U32 mtu = 1500, U16 wireType = 5, bool cw = false,
                        U32 group = 0) {
   B::Buf b;
   B::put8(b, 0x80);
   B::put16(b, (cw ? 0x8000 : 0) | (wireType & 0x7FFF));
   B::put8(b, mtu ? 8 : 4);
   B::put32(b, group);
   B::put32(b, pwId);
   if (mtu) {
      B::put8(b, 1);
      B::put8(b, 4);
      B::put16(b, mtu);
   }
   return b;
}

inline B::Buf pwStatusTlv(U32 flags) {
   B::Buf v;
   B::put32(v, flags);
   return B::tlv(0x096A, v, true);
}

// A label message of a pseudowire; status < 0 leaves the PW Status TLV out.
inline B::Buf pwLabelMsg(U16 type, U32 id, B::Buf const& element, U32 label, long status = -1) {
   B::Buf t = B::fecTlv({element});
   if (label) B::append(t, B::labelTlv(label));
   if (status >= 0) B::append(t, pwStatusTlv(U32(status)));
   return B::msg(type, id, t);
}

inline B::Buf pwStatusNotification(U32 id, B::Buf const& element, U32 flags) {
   B::Buf t = B::statusTlv(statusPwStatus_, false, 0, 0);
   B::append(t, pwStatusTlv(flags));
   B::append(t, B::fecTlv({element}));
   return B::msg(LdpNotification_, id, t);
}

}  // namespace LdpTest::Pw

#pragma once
// LDP PDUs written byte by byte, for peers played by tests and the session
// fuzzer: any message, well formed or not, in any order and bundling.
#include <initializer_list>
#include <vector>

#include "entities/Enums.h"
#include "entities/Identifiers.h"
#include "runtime/nolu/Pkt.h"

namespace LdpTest::Bytes {

using Buf = std::vector<U8>;

inline void put8(Buf& b, U32 v) { b.push_back(U8(v)); }
inline void put16(Buf& b, U32 v) {
   b.push_back(U8(v >> 8));
   b.push_back(U8(v));
}
inline void put32(Buf& b, U32 v) {
   put16(b, v >> 16);
   put16(b, v);
}
inline void append(Buf& b, Buf const& x) { b.insert(b.end(), x.begin(), x.end()); }

inline Buf tlv(U16 type, Buf const& value, bool uBit = false, bool fBit = false) {
   Buf b;
   put16(b, (uBit ? 0x8000 : 0) | (fBit ? 0x4000 : 0) | (type & 0x3FFF));
   put16(b, U32(value.size()));
   append(b, value);
   return b;
}

inline Buf msg(U16 type, U32 id, Buf const& tlvs = {}, bool uBit = false) {
   Buf b;
   put16(b, (uBit ? 0x8000 : 0) | (type & 0x7FFF));
   put16(b, U32(4 + tlvs.size()));
   put32(b, id);
   append(b, tlvs);
   return b;
}

// A prefix FEC element of an IPv4 prefix.
inline Buf prefixElement(Nolu::IpAddr addr, U8 len) {
   Buf b;
   put8(b, 2);
   put16(b, 1);
   put8(b, len);
   U8 bytes[4];
   addr.bytesAre(bytes);
   for (U8 i = 0; i < (len + 7) / 8; ++i) put8(b, bytes[i]);
   return b;
}

// A PWid FEC element with its PW id and no interface parameters.
inline Buf pwElement(U16 pwType, U32 groupId, U32 pwId) {
   Buf b;
   put8(b, 0x80);
   put16(b, pwType & 0x7FFF);
   put8(b, 4);
   put32(b, groupId);
   put32(b, pwId);
   return b;
}

// The Wildcard FEC element: every FEC, in a Withdraw or a Release.
inline Buf wildcardElement() { return Buf{1}; }

inline Buf fecTlv(std::vector<Buf> const& elements) {
   Buf v;
   for (auto const& e : elements) append(v, e);
   return tlv(0x0100, v);
}

inline Buf labelTlv(U32 label) {
   Buf v;
   put32(v, label);
   return tlv(0x0200, v);
}

inline Buf labelReqMsgIdTlv(U32 id) {
   Buf v;
   put32(v, id);
   return tlv(0x0600, v);
}

inline Buf statusTlv(U32 code, bool eBit, U32 refId, U16 refType) {
   Buf v;
   put32(v, (eBit ? 0x80000000u : 0) | (code & 0x3FFFFFFFu));
   put32(v, refId);
   put16(v, refType);
   return tlv(0x0300, v);
}

// onDemand sets the A bit: downstream on demand proposed.
inline Buf commonSessionTlv(U16 keepAlive, U16 maxPdu, Ldp::LdpIdentifier const& receiver,
                            bool onDemand = false) {
   Buf v;
   put16(v, 1);
   put16(v, keepAlive);
   put8(v, onDemand ? 0x80 : 0);
   put8(v, 0);
   put16(v, maxPdu);
   put32(v, receiver.lsrId());
   put16(v, receiver.lblSpace());
   return tlv(0x0500, v);
}

inline Buf addrListTlv(std::vector<Nolu::IpAddr> const& addrs) {
   Buf v;
   put16(v, 1);
   for (auto a : addrs) put32(v, a.value());
   return tlv(0x0101, v);
}

// The messages that tests use most.
inline Buf initMsg(U32 id, Ldp::LdpIdentifier const& receiver, U16 keepAlive = 30,
                   U16 maxPdu = 4096, bool onDemand = false) {
   return msg(Ldp::LdpInitialization_, id,
              commonSessionTlv(keepAlive, maxPdu, receiver, onDemand));
}
inline Buf keepAliveMsg(U32 id) { return msg(Ldp::LdpKeepAlive_, id); }
inline Buf addressMsg(U32 id, std::vector<Nolu::IpAddr> const& addrs) {
   return msg(Ldp::LdpAddress_, id, addrListTlv(addrs));
}
inline Buf notificationMsg(U32 id, U32 code, bool eBit, U32 refId = 0, U16 refType = 0) {
   return msg(Ldp::LdpNotification_, id, statusTlv(code, eBit, refId, refType));
}
// Optional TLVs (extra) follow the label.
inline Buf labelMsg(U16 type, U32 id, std::vector<Buf> const& elements, U32 label = 0,
                    Buf const& extra = {}) {
   Buf t = fecTlv(elements);
   if (label) append(t, labelTlv(label));
   append(t, extra);
   return msg(type, id, t);
}

// A PDU of the sender holding the messages in order; the PDU Length says what
// the bytes hold unless pduLength is given.
inline Buf pduBytes(Ldp::LdpIdentifier const& sender, std::vector<Buf> const& msgs,
                    int pduLength = -1) {
   Buf body;
   for (auto const& m : msgs) append(body, m);
   Buf b;
   put16(b, 1);
   put16(b, pduLength >= 0 ? U32(pduLength) : U32(6 + body.size()));
   put32(b, sender.lsrId());
   put16(b, sender.lblSpace());
   append(b, body);
   return b;
}

inline Vek::Ptr<Nolu::Pkt> pkt(Buf const& b) {
   auto p = Nolu::globalPktManager()->newPkt(U32(b.size()));
   p->appendData(b.data(), U32(b.size()));
   return p;
}

inline Vek::Ptr<Nolu::Pkt> pdu(Ldp::LdpIdentifier const& sender, std::vector<Buf> const& msgs) {
   return pkt(pduBytes(sender, msgs));
}

}  // namespace LdpTest::Bytes

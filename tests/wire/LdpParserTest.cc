// The parsers: what they read from messages of every kind, the edge cases of
// framing, and the refusals with the status codes of RFC 5036 and RFC 4447.
#include "wire/LdpParser.h"

#include "tests/wire/WireTestUtil.h"
#include "wire/LdpMsgGen.h"

using namespace Ldp;
using namespace WireTest;

namespace {

Bytes const fec24Tlv{0x01, 0x00, 0x00, 0x07, 0x02, 0x00, 0x01, 0x18, 0x0a, 0x01, 0x02};
Bytes const label100Tlv{0x02, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x64};

// The status of the one message of a PDU, parsed by type.
LdpStatusCode msgStatus(Bytes const& msg) {
   auto pkt = pktOf(pduOf(msg));
   auto pdu = ldpPduParserFactory(pkt, 0);
   EXPECT_TRUE(pdu->validLdpPdu()) << pdu->reason();
   auto p = ldpMsgParserGet(pkt, 10);
   return p->statusCode();
}

Bytes mapping(Bytes const& fecTlv) { return msgOf(0x0400, 1, cat({fecTlv, label100Tlv})); }

}  // namespace

TEST(LdpParser, PduFraming) {
   Bytes msg = msgOf(0x0201, 1, {});
   auto pkt = pktOf(pduOf(cat({msg, msg})));
   auto pdu = ldpPduParserFactory(pkt, 0);
   ASSERT_TRUE(pdu->validLdpPdu()) << pdu->reason();
   EXPECT_EQ(pdu->msgNum(), 2u);
   EXPECT_EQ(pdu->msgOffset(1), 18u);
   EXPECT_EQ(pdu->msgHdr(1)->type(), LdpKeepAlive_);
   EXPECT_EQ(pdu->ldpIdentifier(), LdpIdentifier(Nolu::IpAddr(10, 0, 0, 1), 0));

   auto refused = [](Bytes const& b) {
      auto p = ldpPduParserFactory(pktOf(b), 0);
      EXPECT_FALSE(p->validLdpPdu());
      EXPECT_FALSE(p->reason().empty());
      return p->statusCode();
   };
   // The PDU length one over and one under the bytes.
   Bytes over = pduOf(msg);
   over[3] += 1;
   EXPECT_EQ(refused(over), statusBadPduLength_);
   Bytes under = pduOf(msg);
   under[3] -= 1;
   EXPECT_EQ(refused(under), statusBadPduLength_);
   // A message one byte longer or shorter than its PDU leaves.
   Bytes msgOver = pduOf(cat({msg, msg}));
   msgOver[21] += 1;
   EXPECT_EQ(refused(msgOver), statusBadMsgLength_);
   EXPECT_EQ(refused(pduOf(cat({msg, {0x00}}))), statusBadPduLength_);
   Bytes version = pduOf(msg);
   version[1] = 2;
   EXPECT_EQ(refused(version), statusBadProtocolVersion_);
   Bytes noLsr = pduOf(msg);
   noLsr[4] = noLsr[5] = noLsr[6] = noLsr[7] = 0;
   EXPECT_EQ(refused(noLsr), statusBadLdpIdentifier_);
   EXPECT_EQ(refused(pduOf({})), statusBadPduLength_);
   EXPECT_EQ(refused(Bytes{0x00, 0x01, 0x00}), statusBadPduLength_);
   EXPECT_EQ(refused(pduOf({0x02, 0x01, 0x00, 0x02, 0x00, 0x00})), statusBadMsgLength_);

   // Every truncation of a valid PDU is refused, and nothing reads beyond it.
   Bytes full = pduOf(cat({mapping(fec24Tlv), msg}));
   for (std::size_t n = 0; n < full.size(); ++n) {
      Bytes cut(full.begin(), full.begin() + long(n));
      EXPECT_FALSE(ldpPduParserFactory(pktOf(cut), 0)->validLdpPdu()) << n;
      if (n < 10 + 27) {
         EXPECT_FALSE(ldpMsgParserGet(pktOf(cut), 10)->validMsg()) << n;
      }
   }
}

TEST(LdpParser, HelloAndSessionMessages) {
   auto hello = ldpHelloMsgParserFactory(
      pktOf(pduOf(msgOf(0x0100, 7,
                        {0x04, 0x00, 0x00, 0x04, 0x00, 0x2d, 0xc0, 0x00, 0x04, 0x01, 0x00, 0x04,
                         0x0a, 0x00, 0x00, 0x09, 0x04, 0x02, 0x00, 0x04, 0x00, 0x00, 0x00, 0x05}))),
      10);
   ASSERT_TRUE(hello->validMsg()) << hello->reason();
   EXPECT_EQ(hello->msgId(), 7u);
   EXPECT_EQ(hello->holdTime(), 45);
   EXPECT_TRUE(hello->targeted());
   EXPECT_TRUE(hello->requestTargeted());
   EXPECT_EQ(hello->transportAddr(), Nolu::IpGenAddr(Nolu::IpAddr(10, 0, 0, 9)));
   EXPECT_EQ(hello->configSeqNum(), 5u);
   EXPECT_EQ(msgStatus(msgOf(0x0100, 7, {0x04, 0x01, 0x00, 0x04, 0x0a, 0x00, 0x00, 0x09})),
             statusMissingMsgParams_);

   // Initialization with a capability TLV (S bit set) behind the session
   // parameters, and a KeepAlive.
   Bytes init = msgOf(0x0200, 3,
                      {0x05, 0x00, 0x00, 0x0e, 0x00, 0x01, 0x00, 0x00, 0x80, 0x04, 0x00, 0xff,
                       0x0a, 0x00, 0x00, 0x02, 0x00, 0x01, 0x85, 0x06, 0x00, 0x01, 0x80});
   auto pkt = pktOf(pduOf(cat({init, msgOf(0x0201, 4, {})})));
   auto ip = ldpInitMsgParserFactory(pkt, 10);
   ASSERT_TRUE(ip->validMsg()) << ip->reason();
   EXPECT_EQ(ip->keepAliveTime(), 0);
   EXPECT_EQ(ip->labelAdvDspl(), downstreamOnDemandAdvDspl_);
   EXPECT_FALSE(ip->loopDetection());
   EXPECT_EQ(ip->pathVectorLimit(), 4);
   EXPECT_EQ(ip->maxPduLength(), 255);
   EXPECT_EQ(ip->receiverLdpId(), LdpIdentifier(Nolu::IpAddr(10, 0, 0, 2), 1));
   ASSERT_EQ(ip->capabilityTlvNum(), 1u);
   EXPECT_EQ(ip->capabilityType(0), 0x0506);
   EXPECT_TRUE(ip->capabilityAnnounced(0));
   Vek::Ptr<LdpCapabilityParser> asCapabilities = ip;
   EXPECT_EQ(asCapabilities->capabilityTlvNum(), 1u);
   EXPECT_TRUE(ldpMsgParserGet(pkt, 41)->validMsg());

   Bytes badVersion = init;
   badVersion[13] = 2;
   EXPECT_EQ(msgStatus(badVersion), statusBadProtocolVersion_);
   EXPECT_EQ(msgStatus(msgOf(0x0202, 4, {})), statusMissingMsgParams_);
   EXPECT_EQ(msgStatus(msgOf(0x0202, 4, {0x85, 0x06, 0x00, 0x00})), statusBadTlvLength_);
   EXPECT_EQ(msgStatus(msgOf(0x0202, 4, {0x85, 0x06, 0x00, 0x01, 0x00})), statusSuccess_);

   // Notification: the status word, the message it refers to, E and F.
   auto note = ldpNotificationMsgParserFactory(
      pktOf(pduOf(msgOf(0x0001, 9,
                        {0x03, 0x00, 0x00, 0x0a, 0xc0, 0x00, 0x00, 0x0a, 0x00, 0x00, 0x00, 0x03,
                         0x02, 0x00, 0x03, 0x01, 0x00, 0x04, 0x00, 0x00, 0x00, 0x01}))),
      10);
   ASSERT_TRUE(note->validMsg()) << note->reason();
   EXPECT_EQ(note->statusData(), statusShutdown_);
   EXPECT_TRUE(note->statusEBit());
   EXPECT_TRUE(note->statusFBit());
   EXPECT_EQ(note->refMsgId(), 3u);
   EXPECT_EQ(note->refMsgType(), LdpInitialization_);
   EXPECT_EQ(msgStatus(msgOf(0x0001, 9, {})), statusMissingMsgParams_);
   // A PW Status Notification needs its PW Status and FEC TLVs.
   Bytes pwStatus{0x03, 0x00, 0x00, 0x0a, 0x00, 0x00, 0x00, 0x28, 0, 0, 0, 0, 0, 0};
   Bytes pwFlags{0x89, 0x6a, 0x00, 0x04, 0x00, 0x00, 0x00, 0x01};
   Bytes pwFec{0x01, 0x00, 0x00, 0x08, 0x80, 0x00, 0x05, 0x00, 0, 0, 0, 7};
   EXPECT_EQ(msgStatus(msgOf(0x0001, 9, cat({pwStatus, pwFlags}))), statusMissingMsgParams_);
   EXPECT_EQ(msgStatus(msgOf(0x0001, 9, cat({pwStatus, pwFec}))), statusMissingMsgParams_);
   EXPECT_EQ(msgStatus(msgOf(0x0001, 9, cat({pwStatus, pwFlags, pwFec}))), statusSuccess_);
   EXPECT_EQ(msgStatus(msgOf(0x0001, 9, {0x03, 0x00, 0x00, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0})),
             statusBadTlvLength_);
}

TEST(LdpParser, AddressMessages) {
   Bytes list{0x01, 0x01, 0x00, 0x0e, 0x00, 0x01, 0x0a, 0x00, 0x00, 0x01,
              0xc0, 0xa8, 0x01, 0x01, 0x0a, 0x00, 0x00, 0x03};
   auto a = ldpAddressMsgParserFactory(pktOf(pduOf(msgOf(0x0300, 2, list))), 10);
   ASSERT_TRUE(a->validMsg()) << a->reason();
   ASSERT_EQ(a->numAddress(), 3u);
   EXPECT_EQ(a->addrListTlv()->length(), 2 + 4 * 3);
   EXPECT_EQ(a->address(1), Nolu::IpGenAddr(Nolu::IpAddr(192, 168, 1, 1)));
   auto w = ldpAddressWithdrawMsgParserFactory(pktOf(pduOf(msgOf(0x0301, 2, list))), 10);
   EXPECT_TRUE(w->validMsg());
   EXPECT_EQ(w->address(2), Nolu::IpGenAddr(Nolu::IpAddr(10, 0, 0, 3)));

   Bytes v6{0x01, 0x01, 0x00, 0x12, 0x00, 0x02, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0,
            0, 0, 1};
   auto a6 = ldpAddressMsgParserFactory(pktOf(pduOf(msgOf(0x0300, 2, v6))), 10);
   ASSERT_TRUE(a6->validMsg()) << a6->reason();
   EXPECT_EQ(a6->address(0).stringValue(), "2001:db8::1");

   // A VPLS peer's MAC Address Withdraw: an empty list, the PWid FEC (taken
   // unread) and a MAC List TLV with the U bit (skipped as unknown).
   auto mac = ldpAddressWithdrawMsgParserFactory(
      pktOf(pduOf(msgOf(0x0301, 2,
                        {0x01, 0x01, 0x00, 0x02, 0x00, 0x01, 0x01, 0x00, 0x00, 0x0c, 0x80, 0x00,
                         0x05, 0x04, 0, 0, 0, 0, 0, 0, 0, 7, 0x84, 0x04, 0x00, 0x00}))),
      10);
   ASSERT_TRUE(mac->validMsg()) << mac->reason();
   EXPECT_EQ(mac->numAddress(), 0u);
   EXPECT_EQ(mac->skippedTlvNum(), 1u);
   EXPECT_EQ(mac->unknownTlvNum(), 1u);
   EXPECT_EQ(msgStatus(msgOf(0x0300, 2, {0x01, 0x01, 0x00, 0x05, 0x00, 0x01, 1, 2, 3})),
             statusBadTlvLength_);
   EXPECT_EQ(msgStatus(msgOf(0x0300, 2, {0x01, 0x01, 0x00, 0x06, 0x00, 0x07, 1, 2, 3, 4})),
             statusUnsupportedAddrFamily_);
   EXPECT_EQ(msgStatus(msgOf(0x0300, 2, {})), statusMissingMsgParams_);
}

TEST(LdpParser, LabelMessagesAndFecElements) {
   Bytes hop{0x01, 0x03, 0x00, 0x01, 0x07};
   Bytes path{0x01, 0x04, 0x00, 0x08, 0x01, 0x01, 0x01, 0x01, 0x02, 0x02, 0x02, 0x02};
   Bytes reqId{0x06, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x0b};
   auto m = ldpLabelMappingMsgParserFactory(
      pktOf(pduOf(msgOf(0x0400, 10, cat({fec24Tlv, label100Tlv, reqId, hop, path})))), 10);
   ASSERT_TRUE(m->validMsg()) << m->reason();
   ASSERT_EQ(m->fecElementNum(), 1u);
   EXPECT_EQ(m->ldpFecTlvParser()->fecElementType(0), prefixElement_);
   EXPECT_EQ(m->ldpFecTlvParser()->fwdEqvCls(0),
             Mpls::FwdEqvClass(*Nolu::Prefix::fromString("10.1.2.0/24")));
   EXPECT_EQ(m->label(), Nolu::MplsLabel(100));
   EXPECT_EQ(m->labelReqMsgId(), 11u);
   EXPECT_EQ(m->hopCount(), 7);
   EXPECT_EQ(m->pathVectorTlv()->lsrIdNum(), 2u);
   EXPECT_EQ(m->pathVectorTlv()->lsrIdPosition(Nolu::IpAddr(2, 2, 2, 2)), 2u);
   EXPECT_EQ(m->pathVectorTlv()->lsrIdPosition(Nolu::IpAddr(3, 3, 3, 3)), 0u);

   // Several elements in one TLV: /0 without prefix bytes, /9 with two, a
   // host address, and an IPv6 prefix; host bits beyond the length are
   // cleared.
   Bytes multi{0x01, 0x00, 0x00, 0x1c, 0x02, 0x00, 0x01, 0x00, 0x02, 0x00, 0x01, 0x09, 0x0a, 0xff,
               0x03, 0x00, 0x01, 0x04, 0x0a, 0x00, 0x00, 0x05, 0x02, 0x00, 0x02, 0x30, 0x20, 0x01,
               0x0d, 0xb8, 0x00, 0x01};
   auto r = ldpLabelRequestMsgParserFactory(pktOf(pduOf(msgOf(0x0401, 11, multi))), 10);
   ASSERT_TRUE(r->validMsg()) << r->reason();
   ASSERT_EQ(r->fecElementNum(), 4u);
   auto const* f = r->ldpFecTlvParser();
   EXPECT_EQ(f->fwdEqvCls(0).stringValue(), "0.0.0.0/0");
   EXPECT_EQ(f->fwdEqvCls(1).stringValue(), "10.128.0.0/9");
   EXPECT_EQ(f->fecElementType(2), hostAddrElement_);
   EXPECT_EQ(f->fwdEqvCls(2).stringValue(), "10.0.0.5/32");
   EXPECT_EQ(f->fwdEqvCls(3).stringValue(), "2001:db8:1::/48");

   auto wc = ldpLabelWithdrawMsgParserFactory(
      pktOf(pduOf(msgOf(0x0402, 12, {0x01, 0x00, 0x00, 0x01, 0x01}))), 10);
   ASSERT_TRUE(wc->validMsg()) << wc->reason();
   EXPECT_TRUE(wc->ldpFecTlvParser()->hasWildcard());
   EXPECT_TRUE(wc->label().isNull());

   // Refusals.
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, fec24Tlv)), statusMissingMsgParams_);
   EXPECT_EQ(msgStatus(msgOf(0x0404, 1, fec24Tlv)), statusMissingMsgParams_);
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, cat({fec24Tlv, {0x02, 0x00, 0x00, 0x03, 0, 0, 1}}))),
             statusBadTlvLength_);
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, cat({fec24Tlv, {0x02, 0x00, 0x00, 0x04, 0, 0x10, 0, 0}}))),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x00})), statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x02, 0x01, 0x01})), statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x05, 0x02, 0x00, 0x01, 0x18, 0x0a})),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x04, 0x02, 0x00, 0x01, 0x21})),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x04, 0x02, 0x00, 0x03, 0x00})),
             statusUnsupportedAddrFamily_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x01, 0x05})), statusUnknownFec_);
   EXPECT_EQ(msgStatus(msgOf(0x0401, 1, {0x01, 0x04, 0x00, 0x06, 1, 1, 1, 1, 2, 2})),
             statusBadTlvLength_);
}

TEST(LdpParser, PseudowireElements) {
   Bytes pwFec{0x01, 0x00, 0x00, 0x24, 0x80, 0x80, 0x04, 0x1c, 0x00, 0x00, 0x00, 0x07,
               0x00, 0x00, 0x00, 0x2a, 0x01, 0x04, 0x05, 0xdc, 0x03, 0x06, 'e',  't',
               'h',  '1',  0x06, 0x04, 0x00, 0x64, 0x0c, 0x04, 0x01, 0x02, 0x09, 0x02,
               0x7f, 0x04, 0x00, 0x00};
   Bytes status{0x89, 0x6a, 0x00, 0x04, 0x00, 0x00, 0x00, 0x03};
   auto m = ldpLabelMappingMsgParserFactory(
      pktOf(pduOf(msgOf(0x0400, 1, cat({pwFec, label100Tlv, status})))), 10);
   ASSERT_TRUE(m->validMsg()) << m->reason();
   PwFwdEqvClassInfo info = m->ldpFecTlvParser()->pwFwdEqvCls(0);
   EXPECT_EQ(info.fwdEqvClass(), PwFwdEqvClass(Pseudowire::PseudowireId(42),
                                               Pseudowire::pwTypeEthernetTagged_,
                                               Pseudowire::GroupId(7), true));
   EXPECT_EQ(info.fwdEqvClassParams().mtu(), 1500u);
   EXPECT_EQ(info.fwdEqvClassParams().intfDescription(), "eth1");
   EXPECT_EQ(info.fwdEqvClassParams().requestedVlanId(), 100);
   EXPECT_EQ(info.fwdEqvClassParams().vccvCcTypes(), 1);
   EXPECT_EQ(info.fwdEqvClassParams().vccvCvTypes(), Pseudowire::vccvCvLspPing_);
   EXPECT_TRUE(info.fwdEqvClassParams().reassemblySupported());
   EXPECT_EQ(m->pwStatusFlags(), 3u);

   // A PW FEC with id 0 has no id and no sub-TLV: the group.
   auto g = ldpLabelWithdrawMsgParserFactory(
      pktOf(pduOf(msgOf(0x0402, 2, {0x01, 0x00, 0x00, 0x08, 0x80, 0x00, 0x05, 0x00, 0, 0, 0, 7}))),
      10);
   ASSERT_TRUE(g->validMsg()) << g->reason();
   EXPECT_EQ(g->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().pwId().value(), 0u);
   EXPECT_EQ(g->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass().groupId().value(), 7u);
   EXPECT_EQ(g->ldpFecTlvParser()->fwdEqvCls(0), Mpls::FwdEqvClass());

   auto pwMapping = [&](Bytes const& element) {
      U8 len = U8(element.size());
      return msgOf(0x0400, 1, cat({{0x01, 0x00, 0x00, len}, element, label100Tlv}));
   };
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x02, 0, 0, 0, 7, 0, 0})),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x08, 0, 0, 0, 7, 0, 0, 0, 1})),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x07, 0, 0, 0, 7, 0, 0, 0, 1, 0x01, 0x03, 5})),
             statusMalformedTlvValue_);
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x06, 0, 0, 0, 7, 0, 0, 0, 1, 0x01, 0x01})),
             statusMalformedTlvValue_);

   // With the strict switch only prefix and wildcard elements are taken.
   LdpProtoParam::fecTlvStrictPrefixWildcardOnlyElementIs(true);
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x00, 0, 0, 0, 7})), statusUnknownFec_);
   EXPECT_EQ(msgStatus(mapping({0x01, 0x00, 0x00, 0x08, 0x03, 0x00, 0x01, 0x04, 10, 0, 0, 5})),
             statusUnknownFec_);
   EXPECT_EQ(msgStatus(mapping(fec24Tlv)), statusSuccess_);
   LdpProtoParam::fecTlvStrictPrefixWildcardOnlyElementIs(false);
   EXPECT_EQ(msgStatus(pwMapping({0x80, 0x00, 0x05, 0x00, 0, 0, 0, 7})), statusSuccess_);
}

TEST(LdpParser, UnknownMessagesAndTlvs) {
   // Unknown type, U clear: Unknown Message Type, naming its own type and id.
   auto pkt = pktOf(pduOf(msgOf(0x3e01, 77, {})));
   auto u = ldpMsgParserGet(pkt, 10);
   EXPECT_FALSE(u->validMsg());
   EXPECT_EQ(u->statusCode(), statusUnknownMsgType_);
   EXPECT_EQ(u->msgType(), 0x3e01);
   EXPECT_EQ(u->msgId(), 77u);
   // U set: dropped without a Notification.
   auto s = ldpMsgParserGet(pktOf(pduOf(msgOf(0xbe01, 78, {}))), 10);
   EXPECT_EQ(s->statusCode(), localRxDropSilent);
   EXPECT_TRUE(s->uBit());
   // A typed factory given another type refuses it.
   EXPECT_EQ(ldpLabelMappingMsgParserFactory(pktOf(pduOf(msgOf(0x0201, 1, {}))), 10)->statusCode(),
             statusUnknownMsgType_);

   // Unknown TLV: U clear refuses the message, U set is skipped.
   Bytes unknownU0{0x3e, 0x05, 0x00, 0x02, 0xaa, 0xbb};
   Bytes unknownU1{0xbe, 0x05, 0x00, 0x02, 0xaa, 0xbb};
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, cat({fec24Tlv, unknownU0, label100Tlv}))),
             statusUnknownTlv_);
   auto m = ldpMsgParserGet(pktOf(pduOf(msgOf(0x0400, 1, cat({fec24Tlv, unknownU1, label100Tlv})))),
                            10);
   ASSERT_TRUE(m->validMsg()) << m->reason();
   EXPECT_EQ(m->unknownTlvNum(), 1u);
   EXPECT_EQ(m->genLabelTlv()->label(), Nolu::MplsLabel(100));
   // A known TLV where the type doesn't take it counts as unknown.
   EXPECT_EQ(msgStatus(msgOf(0x0201, 1, {0x04, 0x00, 0x00, 0x04, 0, 15, 0, 0})), statusUnknownTlv_);
   // TLV framing inside the message.
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, cat({fec24Tlv, label100Tlv, {0x00, 0x00}}))),
             statusBadTlvLength_);
   EXPECT_EQ(msgStatus(msgOf(0x0400, 1, cat({fec24Tlv, {0x02, 0x00, 0x00, 0x09, 0, 0, 0, 1}}))),
             statusBadTlvLength_);
   // The E bits of the codes the parsers give.
   EXPECT_TRUE(statusCodeEBitForStatusCode(statusBadTlvLength_));
   EXPECT_TRUE(statusCodeEBitForStatusCode(statusMalformedTlvValue_));
   EXPECT_FALSE(statusCodeEBitForStatusCode(statusUnknownTlv_));
   EXPECT_FALSE(statusCodeEBitForStatusCode(statusUnknownFec_));
   EXPECT_FALSE(statusCodeEBitForStatusCode(statusMissingMsgParams_));
   EXPECT_FALSE(statusCodeEBitForStatusCode(localRxDropSilent));
}

TEST(LdpParser, RoundTripOfGeneratedMessages) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   LdpIdentifier self(Nolu::IpAddr(1, 1, 1, 1), 0);
   ASSERT_TRUE(gen->addLdpPduHdr(1, self));
   std::vector<Mpls::FwdEqvClass> fecs;
   for (U32 i = 0; i < 50; ++i) {
      fecs.emplace_back(Nolu::Prefix(Nolu::IpAddr(0x0a000000 + (i << 8)), U8(8 + i % 25)));
      ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 100 + i));
      ASSERT_TRUE(gen->addFecTlvPrefix(fecs.back()));
      ASSERT_TRUE(gen->addGenLabelTlv(false, Nolu::MplsLabel(1000 + i)));
   }
   auto pdu = ldpPduParserFactory(pkt, 0);
   ASSERT_TRUE(pdu->validLdpPdu()) << pdu->reason();
   ASSERT_EQ(pdu->msgNum(), 50u);
   EXPECT_EQ(pdu->ldpIdentifier(), self);
   for (U32 i = 0; i < 50; ++i) {
      auto m = ldpLabelMappingMsgParserFactory(pkt, pdu->msgOffset(i));
      ASSERT_TRUE(m->validMsg()) << m->reason();
      EXPECT_EQ(m->msgId(), 100 + i);
      EXPECT_EQ(m->ldpFecTlvParser()->fwdEqvCls(0), fecs[i]);
      EXPECT_EQ(m->label().value(), 1000 + i);
   }
   EXPECT_NE(ldpMsgParserGet(pkt, 10)->stringValue().find("label 1000"), std::string::npos);
}

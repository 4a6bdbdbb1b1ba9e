// The generator against bytes written out by hand from the RFC 5036 and RFC
// 4447 layouts, and its room checks.
#include "wire/LdpMsgGen.h"

#include "tests/wire/WireTestUtil.h"
#include "wire/LdpParser.h"

using namespace Ldp;
using namespace WireTest;

namespace {

LdpIdentifier const self(Nolu::IpAddr(10, 0, 0, 1), 0);
LdpIdentifier const peer(Nolu::IpAddr(10, 0, 0, 2), 0);
Mpls::FwdEqvClass const fec24(*Nolu::Prefix::fromString("10.1.2.0/24"));

Vek::Ptr<LdpPwMsgGen> newPdu(Vek::Ptr<Nolu::Pkt>& pkt) {
   pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpPwMsgGenFactory(pkt);
   EXPECT_TRUE(gen->addLdpPduHdr(1, self));
   return gen;
}

PwFwdEqvClassInfo pwInfo(U32 id, U32 mtu = 1500) {
   PwFwdEqvClassParams params;
   params.mtuIs(mtu);
   return PwFwdEqvClassInfo(PwFwdEqvClass(Pseudowire::PseudowireId(id), Pseudowire::pwTypeEthernet_,
                                          Pseudowire::GroupId(7), true),
                            params);
}

Bytes const fec24Tlv{0x01, 0x00, 0x00, 0x07, 0x02, 0x00, 0x01, 0x18, 0x0a, 0x01, 0x02};
Bytes const label100Tlv{0x02, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x64};

}  // namespace

TEST(LdpMsgGen, HelloGoldenBytes) {
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpHello_, 1));
   ASSERT_TRUE(gen->addCommonHelloTlv(false, 15, false, false));
   ASSERT_TRUE(gen->addIpTransportAddrTlv(false, Nolu::IpAddr(10, 0, 0, 1)));
   ASSERT_TRUE(gen->addConfigSeqNumTlv(false, 3));
   gen->computeHdrLenChecksum();
   EXPECT_EQ(bytesOf(pkt), pduOf(msgOf(0x0100, 1,
                                       {0x04, 0x00, 0x00, 0x04, 0x00, 0x0f, 0x00, 0x00,    //
                                        0x04, 0x01, 0x00, 0x04, 0x0a, 0x00, 0x00, 0x01,    //
                                        0x04, 0x02, 0x00, 0x04, 0x00, 0x00, 0x00, 0x03})));
   EXPECT_EQ(pkt->frontBytes(), 42u);

   // A fresh id for each transmission patches only the id.
   gen->messageIdIs(0x01020304);
   EXPECT_EQ(gen->messageId(), 0x01020304u);
   EXPECT_EQ(bytesOf(pkt)[14], 0x01);
   EXPECT_EQ(bytesOf(pkt)[17], 0x04);

   auto tpkt = Nolu::globalPktManager()->newPkt();
   auto tgen = ldpMsgGenFactory(tpkt);
   tgen->addLdpPduHdr(1, self);
   tgen->addLdpMsgHdr(false, LdpHello_, 2);
   tgen->addCommonHelloTlv(false, 45, true, true);
   EXPECT_EQ(bytesOf(tpkt),
             pduOf(msgOf(0x0100, 2, {0x04, 0x00, 0x00, 0x04, 0x00, 0x2d, 0xc0, 0x00})));
}

TEST(LdpMsgGen, SessionMessagesGoldenBytes) {
   // Initialization and KeepAlive in one PDU.
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpInitialization_, 3));
   ASSERT_TRUE(gen->addLdpCommonSessionParamTlv(false, 1, 180, true, true, 0, 4096, peer));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpKeepAlive_, 4));
   gen->computeHdrLenChecksum();
   EXPECT_EQ(bytesOf(pkt),
             pduOf(cat({msgOf(0x0200, 3,
                              {0x05, 0x00, 0x00, 0x0e, 0x00, 0x01, 0x00, 0xb4, 0xc0, 0x00, 0x10,
                               0x00, 0x0a, 0x00, 0x00, 0x02, 0x00, 0x00}),
                        msgOf(0x0201, 4, {})})));

   // Notification: Shutdown is fatal, so the E bit is set; F follows fBit.
   gen = newPdu(pkt);
   ASSERT_TRUE(gen->addNotificationMsg(false, 5, statusShutdown_, LdpInitialization_, 3));
   EXPECT_EQ(bytesOf(pkt), pduOf(msgOf(0x0001, 5,
                                       {0x03, 0x00, 0x00, 0x0a, 0x80, 0x00, 0x00, 0x0a, 0x00, 0x00,
                                        0x00, 0x03, 0x02, 0x00})));
   gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(true, LdpNotification_, 6));
   ASSERT_TRUE(gen->addStatusTlv(false, true, statusUnknownFec_, LdpLabelMapping_, 9));
   EXPECT_EQ(bytesOf(pkt), pduOf(msgOf(0x8001, 6,
                                       {0x43, 0x00, 0x00, 0x0a, 0x40, 0x00, 0x00, 0x0c, 0x00, 0x00,
                                        0x00, 0x09, 0x04, 0x00})));

   // Address and Address Withdraw from one Address List TLV packet.
   auto tlvPkt = Nolu::globalPktManager()->newPkt();
   auto list = ldpAddressListTlvGenFactory(tlvPkt);
   list->familyIs(1);
   ASSERT_TRUE(list->appendAddress(Nolu::IpAddr(10, 0, 0, 1)));
   ASSERT_TRUE(list->appendAddress(Nolu::IpAddr(192, 168, 1, 1)));
   EXPECT_EQ(list->msgLen(), 2 + 4 * 2);
   gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpAddress_, 7));
   gen->appendLdpTlv(tlvPkt, 0);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpAddressWithdraw_, 8));
   gen->appendLdpTlv(tlvPkt, 0);
   Bytes addrTlv{0x01, 0x01, 0x00, 0x0a, 0x00, 0x01, 0x0a,
                 0x00, 0x00, 0x01, 0xc0, 0xa8, 0x01, 0x01};
   EXPECT_EQ(bytesOf(pkt), pduOf(cat({msgOf(0x0300, 7, addrTlv), msgOf(0x0301, 8, addrTlv)})));
}

TEST(LdpMsgGen, LabelMessagesGoldenBytes) {
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 10));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addGenLabelTlv(false, Nolu::MplsLabel(100)));
   ASSERT_TRUE(gen->addLabelReqMsgIdTlv(11));
   ASSERT_TRUE(gen->addLdpHopCountTlv(2));
   auto pvPkt = Nolu::globalPktManager()->newPkt();
   auto pv = ldpPathVectorTlvGenFactory(pvPkt);
   ASSERT_TRUE(pv->appendLsrId(Nolu::IpAddr(1, 1, 1, 1)));
   ASSERT_TRUE(pv->appendLsrId(Nolu::IpAddr(2, 2, 2, 2)));
   gen->appendLdpTlv(pvPkt, 0);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelRequest_, 12));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelWithdraw_, 13));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addGenLabelTlv(false, Nolu::MplsLabel(100)));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelRelease_, 14));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelAbortReq_, 15));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addLabelReqMsgIdTlv(12));
   gen->computeHdrLenChecksum();
   Bytes reqId11{0x06, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x0b};
   Bytes reqId12{0x06, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x0c};
   Bytes hop{0x01, 0x03, 0x00, 0x01, 0x02};
   Bytes path{0x01, 0x04, 0x00, 0x08, 0x01, 0x01, 0x01, 0x01, 0x02, 0x02, 0x02, 0x02};
   EXPECT_EQ(bytesOf(pkt),
             pduOf(cat({msgOf(0x0400, 10, cat({fec24Tlv, label100Tlv, reqId11, hop, path})),
                        msgOf(0x0401, 12, fec24Tlv),
                        msgOf(0x0402, 13, cat({fec24Tlv, label100Tlv})),
                        msgOf(0x0403, 14, fec24Tlv),
                        msgOf(0x0404, 15, cat({fec24Tlv, reqId12}))})));

   // Prefix FEC sizes: /24 has 3 prefix bytes, /0 none, /9 two; an IPv6
   // prefix carries family 2.
   auto sizeOf = [](char const* prefix) {
      auto p = Nolu::globalPktManager()->newPkt();
      auto g = ldpMsgGenFactory(p);
      g->addLdpMsgHdr(false, LdpLabelRequest_, 1);
      EXPECT_TRUE(g->addFecTlvPrefix(Mpls::FwdEqvClass(*Nolu::IpGenPrefix::fromString(prefix))));
      return bytesOf(p, 8);
   };
   EXPECT_EQ(sizeOf("10.1.2.0/24").size(), 11u);
   EXPECT_EQ(sizeOf("0.0.0.0/0"), (Bytes{0x01, 0x00, 0x00, 0x04, 0x02, 0x00, 0x01, 0x00}));
   EXPECT_EQ(sizeOf("10.128.0.0/9"),
             (Bytes{0x01, 0x00, 0x00, 0x06, 0x02, 0x00, 0x01, 0x09, 0x0a, 0x80}));
   EXPECT_EQ(sizeOf("2001:db8::/32"), (Bytes{0x01, 0x00, 0x00, 0x08, 0x02, 0x00, 0x02, 0x20, 0x20,
                                             0x01, 0x0d, 0xb8}));
}

TEST(LdpMsgGen, PseudowireGoldenBytes) {
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 20));
   ASSERT_TRUE(gen->addFecTlvPwId(pwInfo(42), true));
   ASSERT_TRUE(gen->addGenLabelTlv(false, Nolu::MplsLabel(200)));
   ASSERT_TRUE(gen->addPwStatusTlv(Pseudowire::pwStatusNotForwarding_));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelWithdraw_, 21));
   ASSERT_TRUE(gen->addFecTlvPwId(pwInfo(0), true));
   gen->computeHdrLenChecksum();
   Bytes pwFec{0x01, 0x00, 0x00, 0x10, 0x80, 0x80, 0x05, 0x08, 0x00, 0x00, 0x00, 0x07,
               0x00, 0x00, 0x00, 0x2a, 0x01, 0x04, 0x05, 0xdc};
   Bytes groupFec{0x01, 0x00, 0x00, 0x08, 0x80, 0x80, 0x05, 0x00, 0x00, 0x00, 0x00, 0x07};
   EXPECT_EQ(bytesOf(pkt),
             pduOf(cat({msgOf(0x0400, 20,
                              cat({pwFec,
                                   {0x02, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0xc8},
                                   {0x89, 0x6a, 0x00, 0x04, 0x00, 0x00, 0x00, 0x01}})),
                        msgOf(0x0402, 21, groupFec)})));

   // PW status Notification: status 40 without E bit, PW Status, FEC without
   // interface parameters.
   gen = newPdu(pkt);
   ASSERT_TRUE(gen->addPwNotificationMsg(22, 0x10, pwInfo(42)));
   EXPECT_EQ(bytesOf(pkt),
             pduOf(msgOf(0x0001, 22,
                         cat({{0x03, 0x00, 0x00, 0x0a, 0x00, 0x00, 0x00, 0x28, 0x00, 0x00, 0x00,
                               0x00, 0x00, 0x00},
                              {0x89, 0x6a, 0x00, 0x04, 0x00, 0x00, 0x00, 0x10},
                              {0x01, 0x00, 0x00, 0x0c, 0x80, 0x80, 0x05, 0x04, 0x00, 0x00, 0x00,
                               0x07, 0x00, 0x00, 0x00, 0x2a}}))));
   auto parser = ldpNotificationMsgParserFactory(pkt, 10);
   ASSERT_TRUE(parser->validMsg()) << parser->reason();
   EXPECT_EQ(parser->statusData(), statusPwStatus_);
   EXPECT_EQ(parser->pwStatusTlv()->flags(), 0x10u);
   EXPECT_EQ(parser->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass(), pwInfo(42).fwdEqvClass());

   EXPECT_EQ(assertionText([&] {
                gen->addLdpMsgHdr(false, LdpLabelMapping_, 23);
                gen->addFecTlvPwId(PwFwdEqvClassInfo(), false);
             }),
             "fwdEqvCls.fwdEqvClass().pwType() != Pseudowire::PseudowireType::pwTypeNone_");
}

TEST(LdpMsgGen, EthernetIpUdpHeadersAndChecksums) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   gen->addEtherHdr(Nolu::ipMcastMacAddr(Nolu::IpAddr(224, 0, 0, 2)),
                    Nolu::EthAddr(0, 1, 2, 3, 4, 5), Nolu::etherTypeIp);
   gen->addIpHdr(Nolu::IpAddr(10, 0, 0, 1), Nolu::IpAddr(224, 0, 0, 2), 1, Nolu::ipProtoUdp);
   gen->addUdpHdr(646, 646);
   ASSERT_TRUE(gen->addLdpPduHdr(1, self));
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpHello_, 1));
   ASSERT_TRUE(gen->addCommonHelloTlv(false, 15, false, false));
   Bytes b = bytesOf(pkt);
   ASSERT_EQ(b.size(), 14u + 20 + 8 + 26);
   EXPECT_EQ(Bytes(b.begin(), b.begin() + 14),
             (Bytes{0x01, 0x00, 0x5e, 0x00, 0x00, 0x02, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x08,
                    0x00}));
   EXPECT_EQ(Bytes(b.begin() + 14, b.begin() + 24),
             (Bytes{0x45, 0xc0, 0x00, 54, 0x00, 0x00, 0x00, 0x00, 0x01, 0x11}));
   EXPECT_EQ(Bytes(b.begin() + 34, b.begin() + 40), (Bytes{0x02, 0x86, 0x02, 0x86, 0x00, 34}));
   // One's complement sums written out here: the IP header sums to 0xffff
   // with its checksum, and so does the UDP datagram with its pseudo header.
   auto sum16 = [](Bytes const& v, std::size_t from, std::size_t n, U32 sum) {
      for (std::size_t i = 0; i < n; i += 2) {
         sum += U32(v[from + i]) << 8 | (i + 1 < n ? v[from + i + 1] : 0);
      }
      while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
      return sum;
   };
   EXPECT_EQ(sum16(b, 14, 20, 0), 0xffffu);
   U32 pseudo = 0x0a00 + 0x0001 + 0xe000 + 0x0002 + 17 + 34;
   EXPECT_EQ(sum16(b, 34, 34, pseudo), 0xffffu);
}

TEST(LdpMsgGen, RoomChecksLeaveThePduAsItWas) {
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 1));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   ASSERT_TRUE(gen->addGenLabelTlv(false, Nolu::MplsLabel(16)));
   Bytes closed = bytesOf(pkt);

   // A message header with 7 bytes left: false, and only the close of the
   // message before it shows.
   gen->availTailRoomDec(gen->availTailRoom() - 7);
   EXPECT_FALSE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 2));
   EXPECT_EQ(bytesOf(pkt), closed);
   EXPECT_EQ(gen->currLdpMsgLength(), 0);
   EXPECT_EQ(gen->ldpPduLength(), 8 + 11 + 8);
   EXPECT_EQ(gen->availTailRoom(), 7u);

   // A label TLV that doesn't fit; the message is reverted and the PDU
   // length is back at the closed messages.
   gen->availTailRoomInc(8 + 11);
   ASSERT_TRUE(gen->addLdpMsgHdr(false, LdpLabelMapping_, 2));
   ASSERT_TRUE(gen->addFecTlvPrefix(fec24));
   EXPECT_EQ(gen->availTailRoom(), 7u);
   EXPECT_FALSE(gen->addGenLabelTlv(false, Nolu::MplsLabel(17)));
   gen->revertLdpMsg();
   EXPECT_EQ(bytesOf(pkt), closed);
   EXPECT_EQ(gen->availTailRoom(), 26u);
   EXPECT_EQ(gen->currLdpMsgHeader(), nullptr);

   // A Notification that doesn't fit leaves nothing either.
   gen->availTailRoomDec(gen->availTailRoom() - 20);
   EXPECT_FALSE(gen->addNotificationMsg(false, 3, statusNoRoute_, LdpLabelRequest_, 1));
   EXPECT_EQ(bytesOf(pkt), closed);
   EXPECT_TRUE(ldpPduParserFactory(pkt, 0)->validLdpPdu());

   // Appending whole messages into a PDU of its own.
   auto out = Nolu::globalPktManager()->newPkt();
   auto outGen = ldpMsgGenFactory(out);
   ASSERT_TRUE(outGen->addLdpPduHdr(1, self));
   outGen->appendLdpMsg(pkt, 10);
   outGen->appendLdpMsg(pkt, 10);
   auto pdu = ldpPduParserFactory(out, 0);
   ASSERT_TRUE(pdu->validLdpPdu()) << pdu->reason();
   EXPECT_EQ(pdu->msgNum(), 2u);
   EXPECT_EQ(outGen->ldpPduLength(), 2 * 27);
}

TEST(LdpMsgGen, MisuseIsAFault) {
   Vek::Ptr<Nolu::Pkt> pkt;
   auto gen = newPdu(pkt);
   gen->addLdpMsgHdr(false, LdpKeepAlive_, 1);
   EXPECT_EQ(assertionText([&] { gen->addLdpMsgHdr(false, LdpKeepAlive_, 2); }),
             "currLdpMsgLength() == 0 || currLdpMsgLength() > sizeof( LdpMsgHdr )");
   EXPECT_EQ(assertionText([&] { gen->addLdpPduHdr(1, self); }), "ldpPduHeader_ == __null");

   auto bare = Nolu::globalPktManager()->newPkt();
   auto bareGen = ldpMsgGenFactory(bare);
   EXPECT_EQ(assertionText([&] { bareGen->addGenLabelTlv(false, Nolu::MplsLabel(3)); }),
             "currLdpMsgHeader_");
   EXPECT_EQ(assertionText([&] { bareGen->revertLdpMsg(); }), "currLdpMsgHeader_ != __null");
   EXPECT_EQ(assertionText([&] { bareGen->messageIdIs(3); }), "currLdpMsgHeader_ != __null");
   bareGen->addIpHdr(Nolu::IpAddr(1, 1, 1, 1), Nolu::IpAddr(2, 2, 2, 2), 1, 17);
   bareGen->availTailRoomDec(1);
   EXPECT_EQ(assertionText([&] { bareGen->addEtherHdr({}, {}, 0x0800); }),
             "totalTailRoom() == availTailRoom()");
   bareGen->addUdpHdr(646, 646);
   EXPECT_EQ(assertionText([&] { bareGen->addIpHdr({}, {}, 1, 17); }), "udpHeader_ == __null");

   auto small = Nolu::globalPktManager()->newPkt();
   small->newSharedTailData(small->totalTailRoom() - 4095);
   EXPECT_EQ(assertionText([&] { ldpMsgGenFactory(small); }),
             "totalTailRoom() >= LdpProtoParam::defaultMaxPduLength()");

   auto listPkt = Nolu::globalPktManager()->newPkt();
   auto list = ldpAddressListTlvGenFactory(listPkt);
   list->familyIs(1);
   EXPECT_EQ(assertionText([&] { list->appendAddress(*Nolu::IpGenAddr::fromString("::1")); }),
             "ipGenAddr.af() == family()");
}

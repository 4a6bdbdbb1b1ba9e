// Value types that key collections, and packets.
#include <map>
#include <set>
#include <unordered_set>

#include "entities/Enums.h"
#include "entities/Identifiers.h"
#include "runtime/nolu/Pkt.h"
#include "runtime/nolu/Types.h"
#include "tests/wire/WireTestUtil.h"

using namespace Nolu;

TEST(ValueTypes, AddressesAndPrefixes) {
   EXPECT_EQ(IpAddr::fromString("10.0.0.1"), IpAddr(10, 0, 0, 1));
   for (char const* bad : {"10.0.0", "10.0.0.256", "10.0.0.1.2", "a.b.c.d", "", "10..0.1"}) {
      EXPECT_FALSE(IpAddr::fromString(bad)) << bad;
   }
   EXPECT_LT(IpAddr(9, 255, 255, 255), IpAddr(10, 0, 0, 0));
   EXPECT_EQ(IpAddr(192, 168, 1, 2).stringValue(), "192.168.1.2");
   EXPECT_TRUE(IpAddr::ipAddrZero().isZero());

   // Family first, then the address; the unspecified value is its own.
   IpGenAddr v4(IpAddr(10, 0, 0, 1));
   IpGenAddr v6 = *IpGenAddr::fromString("2001:db8::1");
   EXPECT_LT(IpGenAddr(), v4);
   EXPECT_LT(v4, v6);
   EXPECT_NE(v4, IpGenAddr(IpAddr(10, 0, 0, 2)));
   EXPECT_EQ(v6.stringValue(), "2001:db8::1");
   EXPECT_EQ(v4.af(), ipv4_);
   EXPECT_THROW(v6.v6Addr().u8(16), Vek::RangeException);
   try {
      v6.v6Addr().u8(99);
   } catch (Vek::RangeException const& e) {
      EXPECT_STREQ(e.what(), "Ip6Addr::u8: index out of range");
   }

   // Prefixes clear their host bits, so equal prefixes are equal keys.
   EXPECT_EQ(Prefix(IpAddr(10, 1, 2, 3), 24), *Prefix::fromString("10.1.2.0/24"));
   EXPECT_EQ(IpGenPrefix(IpAddr(10, 1, 2, 3), 24).hash(),
             IpGenPrefix(IpAddr(10, 1, 2, 99), 24).hash());
   EXPECT_EQ(IpGenPrefix::fromString("2001:db8:ffff::/32")->stringValue(), "2001:db8::/32");
   EXPECT_LT(*Prefix::fromString("10.0.0.0/8"), *Prefix::fromString("10.0.0.0/9"));
   EXPECT_THROW(Prefix(IpAddr(10, 0, 0, 0), 33), Vek::RangeException);
   EXPECT_THROW(IpGenPrefix(IpGenAddr(), 0), Vek::RangeException);
   EXPECT_FALSE(Prefix::fromString("10.0.0.0/33"));
   EXPECT_TRUE(IpAddrWithMask(IpAddr(10, 1, 2, 3), 24).contains(IpAddr(10, 1, 2, 200)));
   EXPECT_EQ(IpAddrWithMask(IpAddr(10, 1, 2, 3), 24).stringValue(), "10.1.2.3/24");

   EXPECT_EQ(ipMcastMacAddr(IpAddr(224, 0, 0, 2)).stringValue(), "01:00:5e:00:00:02");
   EXPECT_EQ(ipMcastMacAddr(IpAddr(239, 129, 1, 1)), *EthAddr::fromString("01:00:5E:01:01:01"));
   EXPECT_FALSE(EthAddr::fromString("01:00:5e:00:00"));
}

TEST(ValueTypes, LabelsNamesAndKeys) {
   EXPECT_TRUE(MplsLabel().isNull());
   EXPECT_EQ(MplsLabel::null().value(), 0x100000u);
   EXPECT_EQ(MplsLabel::any().value(), 0x100001u);
   EXPECT_EQ(MplsLabel::implicitNull().value(), 3u);
   EXPECT_TRUE(MplsLabel(14).isSpecialLabel());
   EXPECT_FALSE(MplsLabel(15).isSpecialLabel());
   EXPECT_TRUE(MplsLabel(0xFFFFF).isValid());
   EXPECT_FALSE(MplsLabel::any().isValid());
   EXPECT_NO_THROW(MplsLabel(0x800000));
   try {
      MplsLabel(0x800001);
      ADD_FAILURE();
   } catch (Vek::RangeException const& e) {
      EXPECT_STREQ(e.what(),
                   "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
   }
   EXPECT_EQ(NamespaceName(std::string(150, 'n')).name().size(), 150u);
   try {
      NamespaceName(std::string(151, 'n'));
      ADD_FAILURE();
   } catch (Vek::RangeException const& e) {
      EXPECT_STREQ(e.what(), "NamespaceName::bytes > 150 not allowed");
   }

   // Two peers that differ in label space only are two sessions.
   Ldp::LdpIdentifier a(IpAddr(1, 1, 1, 1), 0), b(IpAddr(1, 1, 1, 1), 1);
   EXPECT_NE(a, b);
   EXPECT_LT(a, b);
   EXPECT_NE(a.hash(), b.hash());
   std::unordered_set<Ldp::LdpSessionId> sessions{Ldp::LdpSessionId(a), Ldp::LdpSessionId(b),
                                                  Ldp::LdpSessionId(a)};
   EXPECT_EQ(sessions.size(), 2u);
   EXPECT_EQ(a.stringValue(), "1.1.1.1:0");
   EXPECT_EQ(Ldp::LdpIdentifier::fromString("1.1.1.1:1"), b);
   EXPECT_FALSE(Ldp::LdpIdentifier::fromString("1.1.1.1:65536"));
   Ldp::LdpIdentifier c;
   EXPECT_TRUE(c.isEmpty());
   c.tmpLsrIdIs(0x01010101);
   c.tmpLblSpaceIs(1);
   EXPECT_EQ(c, b);

   // Hashes are fixed functions of the value, the same from run to run.
   EXPECT_EQ(IpAddr(10, 0, 0, 1).hash(), std::size_t(Vek::hashMix(0x0a000001)));
   EXPECT_EQ(std::hash<IntfId>()(IntfId("Ethernet1")), IntfId("Ethernet1").hash());
   EXPECT_LT(IntfId("Ethernet1"), IntfId("Ethernet2"));

   // FECs: the empty one sorts first; PW FECs compare on every field.
   std::set<Mpls::FwdEqvClass> fecs{Mpls::FwdEqvClass(*Prefix::fromString("10.0.0.0/8")),
                                    Mpls::FwdEqvClass()};
   EXPECT_TRUE(fecs.begin()->isEmpty());
   Ldp::PwFwdEqvClass pw(Pseudowire::PseudowireId(1), Pseudowire::pwTypeEthernet_,
                         Pseudowire::GroupId(2), false);
   Ldp::PwFwdEqvClass cw = pw;
   cw.controlWordIs(true);
   EXPECT_NE(pw, cw);
   EXPECT_TRUE(pw < cw || cw < pw);
   EXPECT_EQ(Pseudowire::pseudowireTypeForWirePwType(
                Pseudowire::wirePwTypeForPseudowireType(Pseudowire::pwTypeEthernetTagged_)),
             Pseudowire::pwTypeEthernetTagged_);
}

TEST(ValueTypes, StatusCodesAndEnumNames) {
   using namespace Ldp;
   for (LdpStatusCode c : {statusBadLdpIdentifier_, statusBadProtocolVersion_, statusBadPduLength_,
                           statusBadMsgLength_, statusBadTlvLength_, statusMalformedTlvValue_,
                           statusHoldTimerExpired_, statusShutdown_, statusSessionRejectedNoHello_,
                           statusKeepAliveTimerExpired_, statusInternalError_}) {
      EXPECT_TRUE(statusCodeEBitForStatusCode(c)) << c;
   }
   for (LdpStatusCode c : {statusUnknownMsgType_, statusLoopDetected_, statusNoRoute_,
                           statusLabelRequestAborted_, statusPwStatus_, localAddrChange}) {
      EXPECT_FALSE(statusCodeEBitForStatusCode(c)) << c;
   }
   for (U32 c : {0x80000042u, 0x80000100u, 0x80000101u, 0x80000103u, 0x80000104u}) {
      EXPECT_FALSE(sessionStateStrForStatusCode(LdpStatusCode(c)).empty());
      EXPECT_TRUE(isLocalStatusCode(LdpStatusCode(c)));
   }
   EXPECT_EQ(sessionStateStrForStatusCode(statusKeepAliveTimerExpired_), "KeepAlive Timer Expired");
   EXPECT_EQ(sessionStateStrForStatusCode(LdpStatusCode(0x1234)), "Status code 0x00001234");
   std::ostringstream os;
   os << LdpLabelMapping_ << " " << LdpMsgType(0x3e00) << " " << pwIdElement_ << " "
      << downstreamOnDemandAdvDspl_;
   EXPECT_EQ(os.str(), "LdpLabelMapping 0x3e00 pwIdElement downstreamOnDemandAdvDspl");
   EXPECT_EQ(LdpProtoParam::defaultMaxPduLength(), 4096u);
}

TEST(Pkt, RoomHeadDataAndFreeList) {
   PktManager manager;
   auto pkt = manager.newPkt();
   EXPECT_GE(pkt->totalTailRoom(), 4096u);
   EXPECT_EQ(pkt->headRoom(), PktManager::defaultHeadRoom);
   U8* tail = pkt->newSharedTailData(4);
   std::memcpy(tail, "abcd", 4);
   pkt->delSharedTailData(1);
   EXPECT_EQ(pkt->frontBytes(), 3u);

   // Head data within the head room, then beyond it: the data moves to a
   // larger buffer and stays whole.
   std::memcpy(pkt->newSharedHeadData(2), "xy", 2);
   U32 before = pkt->bufferSize();
   std::memcpy(pkt->newSharedHeadData(100), std::string(100, 'h').data(), 100);
   EXPECT_EQ(pkt->bufferSize(), before + 100);
   EXPECT_EQ(std::string(reinterpret_cast<char const*>(pkt->readPtr(100)), 5), "xyabc");
   pkt->delSharedHeadData(102);
   EXPECT_EQ(std::string(reinterpret_cast<char const*>(pkt->readPtr(0)), 3), "abc");
   EXPECT_FALSE(pkt->appendData("z", pkt->totalTailRoom() + 1));

   // Released packets come back from the free list, empty.
   auto small = manager.newPkt();
   small->newSharedTailData(10);
   Nolu::Pkt const* raw = small.ptr();
   small = nullptr;
   EXPECT_EQ(manager.freePktCount(), 1u);
   auto again = manager.newPkt();
   EXPECT_EQ(again.ptr(), raw);
   EXPECT_EQ(again->frontBytes(), 0u);

   // The default size can be raised, never below one PDU of 4096 bytes.
   manager.defaultBufferSizeIs(9600);
   EXPECT_GE(manager.newPkt()->totalTailRoom(), 9600u);
   manager.defaultBufferSizeIs(100);
   EXPECT_GE(manager.newPkt()->totalTailRoom(), 4096u);
   EXPECT_GE(manager.newPkt(20000)->totalTailRoom(), 20000u);

   EXPECT_NE(WireTest::assertionText([&] { pkt->delSharedTailData(pkt->frontBytes() + 1); }), "");
   EXPECT_NE(WireTest::assertionText([&] { pkt->newSharedTailData(pkt->totalTailRoom() + 1); }),
             "");
}

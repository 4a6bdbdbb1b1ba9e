// The Ethernet frame parser, test by test.
#include "wire/LdpPduEtherFrameParser.h"

#include "tests/wire/WireTestUtil.h"
#include "wire/LdpMsgGen.h"

using namespace Ldp;
using namespace WireTest;

namespace {

// A link Hello frame, optionally with an 802.1Q tag.
Bytes helloFrame(bool tagged) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   gen->addEtherHdr(Nolu::ipMcastMacAddr(Nolu::IpAddr(224, 0, 0, 2)),
                    Nolu::EthAddr(0, 1, 2, 3, 4, 5), Nolu::etherTypeIp);
   gen->addIpHdr(Nolu::IpAddr(10, 0, 0, 1), Nolu::IpAddr(224, 0, 0, 2), 1, Nolu::ipProtoUdp);
   gen->addUdpHdr(646, 646);
   gen->addLdpPduHdr(1, LdpIdentifier(Nolu::IpAddr(10, 0, 0, 1), 0));
   gen->addLdpMsgHdr(false, LdpHello_, 1);
   gen->addCommonHelloTlv(false, 15, false, false);
   Bytes b = bytesOf(pkt);
   if (tagged) {
      Bytes tag{0x81, 0x00, 0x00, 0x64};
      b.insert(b.begin() + 12, tag.begin(), tag.end());
   }
   return b;
}

Vek::Ptr<LdpPduEtherFrameParser> parse(Bytes const& b) {
   return ldpPduEtherFrameParserFactory(pktOf(b));
}

}  // namespace

TEST(LdpPduEtherFrameParser, ValidFramesAndOffsets) {
   auto p = parse(helloFrame(false));
   ASSERT_TRUE(p->validLdpFrame()) << p->reason();
   EXPECT_EQ(p->reason(), "");
   EXPECT_EQ(p->ethHeaderLength(), 14);
   EXPECT_EQ(p->ipHeaderOffset(), 14);
   EXPECT_EQ(p->ipHeaderLength(), 20);
   EXPECT_EQ(p->udpHeaderOffset(), 34);
   EXPECT_EQ(p->udpHeaderLength(), 8);
   EXPECT_EQ(p->ldpPduHeaderOffset(), 42);
   EXPECT_EQ(p->ldpPduHeader()->ldpIdentifier().stringValue(), "10.0.0.1:0");

   auto t = parse(helloFrame(true));
   ASSERT_TRUE(t->validLdpFrame()) << t->reason();
   EXPECT_EQ(t->ethHeaderLength(), 18);
   EXPECT_EQ(t->ipHeaderOffset(), 18);
   EXPECT_EQ(t->ldpPduHeaderOffset(), 46);
}

TEST(LdpPduEtherFrameParser, EachTestWithItsReason) {
   Bytes good = helloFrame(false);
   auto reason = [](Bytes const& b) {
      auto p = parse(b);
      EXPECT_FALSE(p->validLdpFrame());
      return p->reason();
   };
   EXPECT_EQ(reason(Bytes(good.begin(), good.begin() + 17)), "Packet too small @ size: 17");
   // 18 bytes pass the first test and fail at the IP header.
   EXPECT_EQ(reason(Bytes(good.begin(), good.begin() + 18)), "Packet too small @ size: 18");
   Bytes mac = good;
   mac[5] = 0x05;
   EXPECT_EQ(reason(mac), "Invalid DstMac:01:00:5e:00:00:05");
   Bytes ethType = good;
   ethType[12] = 0x86;
   ethType[13] = 0xdd;
   EXPECT_EQ(reason(ethType), "Invalid EtherType: 34525");
   Bytes inner = helloFrame(true);
   inner[16] = 0x08;
   inner[17] = 0x06;
   EXPECT_EQ(reason(inner), "Invalid .1q EthType: 2054");
   Bytes dst = good;
   dst[33] = 5;
   EXPECT_EQ(reason(dst), "Invalid IP DstAddr: 224.0.0.5");
   Bytes proto = good;
   proto[23] = 6;
   EXPECT_EQ(reason(proto), "Invalid IP protocol: 6");
   Bytes ihl = good;
   ihl[14] = 0x4f;
   EXPECT_EQ(reason(ihl), "Packet too small @ size: 68");
   EXPECT_EQ(reason(Bytes(good.begin(), good.begin() + 40)), "Packet too small @ size: 40");
   Bytes src = good;
   src[35] = 0x87;
   EXPECT_EQ(reason(src), "Invalid UDP src port: 647");
   // Source port 646 but not the destination: the destination's text.
   Bytes dport = good;
   dport[37] = 0x87;
   EXPECT_EQ(reason(dport), "Invalid UDP dst port: 647");
   EXPECT_EQ(reason(Bytes(good.begin(), good.begin() + 51)), "Packet too small @ size: 51");
}

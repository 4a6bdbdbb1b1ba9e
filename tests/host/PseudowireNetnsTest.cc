// Pseudowires between real processes in network namespaces: against FRR's
// ldpd as a black box (an l2vpn pseudowire each way: labels known to both,
// FRR's not-forwarding status, an MTU mismatch, our admin down seen by FRR),
// and between two of our agents, with tshark decoding the PWid FEC and the
// PW Status TLV of what crossed the wire. Skipped, with the reason, where
// FRR, tshark or namespaces are missing.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/host/FrrHarness.h"

using namespace HostTest;

namespace {

std::string pwUnavailable() {
   std::string why = realHostUnavailable();
   if (!why.empty()) return why;
   if (sh("which tshark") != 0) return "needs tshark";
   return "";
}

Json const& pseudowire(Json const& j, std::string const& name) {
   static Json const none;
   for (auto const& p : j["pseudowires"].a)
      if (p["name"].str() == name) return p;
   return none;
}

// Our agent's view of one pseudowire.
Json ourPw(AgentProc& a, std::string const& name) {
   Json j = a.show({"mpls", "ldp", "pseudowires"});
   return pseudowire(j, name);
}

// Two namespaces on a veth pair, each with its loopback routed over it.
struct Pair {
   Netns ours;
   Netns theirs;
   Pair(std::string const& tag, std::string const& ourLo, std::string const& theirLo)
      : ours("ldpp" + std::to_string(getpid()) + "o" + tag),
        theirs("ldpp" + std::to_string(getpid()) + "f" + tag) {
      ok = ours.ok() && theirs.ok() &&
           ours.ip("link add va type veth peer name vb netns " + theirs.name()) &&
           ours.ip("addr add " + ourLo + "/32 dev lo") &&
           theirs.ip("addr add " + theirLo + "/32 dev lo") &&
           ours.ip("addr add 10.0.0.1/24 dev va") && theirs.ip("addr add 10.0.0.2/24 dev vb") &&
           ours.ip("link set va up") && theirs.ip("link set vb up") &&
           ours.ip("route add " + theirLo + "/32 via 10.0.0.2") &&
           theirs.ip("route add " + ourLo + "/32 via 10.0.0.1");
   }
   bool ok = false;
};

// FRR's l2vpn with one pseudowire towards our LSR id, its attachment
// circuit and pseudowire interfaces veth ends in a bridge.
std::string frrConfig(std::string const& ourLo, std::string const& mtuLine) {
   return "hostname frr\nmpls ldp\n router-id 2.2.2.2\n address-family ipv4\n"
          "  discovery transport-address 2.2.2.2\n  interface vb\n  !\n exit-address-family\n !\n!\n"
          "l2vpn ENAME type vpls\n bridge br0\n" + mtuLine +
          " member interface ac0\n member pseudowire mpw0\n  neighbor lsr-id " + ourLo +
          "\n  pw-id 100\n !\n!\n";
}

void frrCase(std::string const& ourLo) {
   TempDir dir;
   sh("chmod 755 " + dir.path());
   static int n = 0;
   Pair p(std::to_string(++n), ourLo, "2.2.2.2");
   ASSERT_TRUE(p.ok);
   for (char const* l : {"link add br0 type bridge", "link add ac0 type veth peer name ac0p",
                         "link add mpw0 type veth peer name mpw0p", "link set br0 up",
                         "link set ac0 up", "link set ac0p up", "link set mpw0 up",
                         "link set mpw0p up"})
      ASSERT_TRUE(p.theirs.ip(l)) << l;
   Capture cap(p.ours.name(), "va", dir.path() + "/ldp.pcap");
   ASSERT_TRUE(cap.ok());
   FrrRouter frr(p.theirs.name(), dir.path() + "/frr");
   ASSERT_TRUE(frr.start(frrConfig(ourLo, "")));
   AgentProc a(p.ours.name(), dir.path(), "ours");
   a.configIs("mpls ldp\n   router-id interface lo\n!\npseudowire mpw0\n"
              "   neighbor 2.2.2.2 pw-id 100\n!\n");
   ASSERT_TRUE(a.start()) << a.log();

   auto frrBinding = [&] { return frr.show("show l2vpn atom binding json")[ourLo + ": 100"]; };
   // Each side's label known to the other; FRR, without a pseudowire data
   // path, tells us that it doesn't forward.
   EXPECT_TRUE(waitFor(
      [&] {
         Json pw = ourPw(a, "mpw0");
         Json b = frrBinding();
         return !pw["remoteLabel"].isNull() && b["localLabel"].n == pw["remoteLabel"].n &&
                b["remoteLabel"].n == pw["localLabel"].n &&
                pw["status"].n == 14 && (unsigned(pw["remoteStatusFlags"].n) & 1u) != 0;
      },
      60.0))
      << a.ctl({"show", "mpls", "ldp", "pseudowires"}).out
      << run({"vtysh", "--vty_socket", dir.path() + "/frr", "-c", "show l2vpn atom binding"},
             dir.path()).out;
   EXPECT_EQ("remote not forwarding", ourPw(a, "mpw0")["statusText"].str());
   EXPECT_EQ(1500, ourPw(a, "mpw0")["remoteMtu"].n);

   // Our MTU changes: our label goes out again with it (Withdraw, Release,
   // Mapping), FRR takes its own back and maps it again, and both sides see
   // the mismatch.
   ASSERT_EQ(0, a.ctl({"config", "pseudowire mpw0", "mtu 9000"}).code);
   EXPECT_TRUE(waitFor(
      [&] {
         Json pw = ourPw(a, "mpw0");
         return pw["mtuMismatch"].b &&
                pw["reason"].str().find("MTU mismatch: ours 9000, the peer's 1500") !=
                   std::string::npos &&
                pw["statusText"].str() != "MTU mismatch" &&
                pw["remoteMtu"].n == 1500 &&
                frrBinding()["lastFailureReason"].str().find("mtu") != std::string::npos &&
                frrBinding()["remoteIfMtu"].n == 9000;
      },
      20.0))
      << a.ctl({"show", "mpls", "ldp", "pseudowires"}).out << frrBinding()["lastFailureReason"].str();
   ASSERT_EQ(0, a.ctl({"config", "pseudowire mpw0", "no mtu"}).code);
   EXPECT_TRUE(waitFor([&] { return frrBinding()["remoteIfMtu"].n == 1500; }, 20.0));

   // Our admin down: FRR sees the remote side not forwarding.
   ASSERT_EQ(0, a.ctl({"config", "pseudowire mpw0", "shutdown"}).code);
   EXPECT_TRUE(waitFor(
      [&] { return frrBinding()["lastFailureReason"].str() == "remote not forwarding"; }, 20.0))
      << frrBinding()["lastFailureReason"].str();
   EXPECT_EQ("ac-rx-fault,ac-tx-fault", ourPw(a, "mpw0")["localStatusFlagsText"].str());
   ASSERT_EQ(0, a.ctl({"config", "pseudowire mpw0", "no shutdown"}).code);
   EXPECT_TRUE(waitFor(
      [&] { return frrBinding()["lastFailureReason"].str() != "remote not forwarding"; }, 20.0));

   EXPECT_EQ(0, a.stop(SIGTERM));
   frr.stop();
   cap.stop();
   // What we sent decodes cleanly: the PWid FEC with its MTU, the PW Status.
   std::string ours = "ip.src==" + ourLo;
   EXPECT_EQ("", cap.fields("_ws.malformed || _ws.expert.severity >= 6291456",
                            {"frame.number"}, dir.path()));
   std::string maps = cap.fields(ours + " && ldp.msg.tlv.fec.pw.pwid == 100",
                                 {"ldp.msg.tlv.fec.vc.intparam.mtu", "ldp.msg.tlv.pwstatus.code"},
                                 dir.path());
   EXPECT_NE(std::string::npos, maps.find("1500\t0x00000000")) << maps;
   EXPECT_NE(std::string::npos, maps.find("9000")) << maps;
   EXPECT_NE(std::string::npos, maps.find("0x00000006")) << maps;
}

}  // namespace

TEST(PseudowireFrr, LabelsStatusMtuMismatchAndAdminDownOurAgentPassive) {
   std::string why = frrUnavailable();
   if (why.empty()) why = pwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   frrCase("1.1.1.1");
}

TEST(PseudowireFrr, LabelsKnownBothWaysOurAgentActive) {
   std::string why = frrUnavailable();
   if (why.empty()) why = pwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   frrCase("3.3.3.3");
}

TEST(PseudowireNetns, TwoAgentsUpStatusAndLabelChangeOnTheWire) {
   std::string why = pwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   TempDir dir;
   Pair p("a", "1.1.1.1", "2.2.2.2");
   ASSERT_TRUE(p.ok);
   Capture cap(p.ours.name(), "va", dir.path() + "/ldp.pcap");
   ASSERT_TRUE(cap.ok());
   AgentProc a(p.ours.name(), dir.path(), "r1");
   AgentProc b(p.theirs.name(), dir.path(), "r2");
   a.configIs("mpls ldp\n   router-id interface lo\n!\npseudowire pw1\n"
              "   neighbor 2.2.2.2 pw-id 7\n!\n");
   b.configIs("mpls ldp\n   router-id interface lo\n!\npseudowire pw1\n"
              "   neighbor 1.1.1.1 pw-id 7\n!\n");
   ASSERT_TRUE(a.start()) << a.log();
   ASSERT_TRUE(b.start()) << b.log();
   auto up = [&](AgentProc& x) { return ourPw(x, "pw1")["status"].n == 26; };
   ASSERT_TRUE(waitFor([&] { return up(a) && up(b); }, 60.0))
      << a.ctl({"show", "mpls", "ldp", "pseudowires"}).out
      << b.ctl({"show", "mpls", "ldp", "pseudowires"}).out;
   EXPECT_EQ(ourPw(a, "pw1")["localLabel"].n, ourPw(b, "pw1")["remoteLabel"].n);
   EXPECT_EQ(ourPw(b, "pw1")["localLabel"].n, ourPw(a, "pw1")["remoteLabel"].n);

   // Admin down on one side: the other sees it not forwarding, by the PW
   // Status TLV; then up again.
   ASSERT_EQ(0, b.ctl({"config", "pseudowire pw1", "shutdown"}).code);
   EXPECT_TRUE(waitFor([&] { return ourPw(a, "pw1")["status"].n == 14; }, 20.0));
   EXPECT_EQ("ac-rx-fault,ac-tx-fault", ourPw(a, "pw1")["remoteStatusFlagsText"].str());
   ASSERT_EQ(0, b.ctl({"config", "pseudowire pw1", "no shutdown"}).code);
   EXPECT_TRUE(waitFor([&] { return up(a); }, 20.0));

   // A new label: the range moves, the pseudowire's label with it; the peer
   // follows through Withdraw, Release and Mapping.
   double old = ourPw(a, "pw1")["localLabel"].n;
   ASSERT_EQ(0, a.ctl({"config", "mpls label range 200000 16384"}).code);
   double now = ourPw(a, "pw1")["localLabel"].n;
   EXPECT_NE(old, now);
   EXPECT_TRUE(waitFor([&] { return up(b) && ourPw(b, "pw1")["remoteLabel"].n == now; }, 20.0))
      << b.ctl({"show", "mpls", "ldp", "pseudowires"}).out;

   EXPECT_EQ(0, a.stop(SIGTERM));
   EXPECT_EQ(0, b.stop(SIGTERM));
   cap.stop();
   EXPECT_EQ("", cap.fields("_ws.malformed || _ws.expert.severity >= 6291456",
                            {"frame.number"}, dir.path()));
   // From 1.1.1.1: Mapping of the old label, its Withdraw, the new Mapping;
   // from 2.2.2.2: the Release, and the PW Status Notifications.
   std::string fromA = cap.fields("ip.src==1.1.1.1 && ldp.msg.tlv.fec.pw.pwid == 7",
                                  {"ldp.msg.type", "ldp.msg.tlv.generic.label"}, dir.path());
   // A PDU lists the types and labels of all its messages, prefix FECs' among
   // them; each of these messages carries one label, so they pair up.
   std::string pairs;
   {
      std::istringstream lines(fromA);
      for (std::string line; std::getline(lines, line);) {
         auto tab = line.find('\t');
         if (tab == std::string::npos) continue;
         std::istringstream types(line.substr(0, tab)), labels(line.substr(tab + 1));
         for (std::string t, l; std::getline(types, t, ',') && std::getline(labels, l, ',');)
            pairs += t + " " + l + ";";
      }
   }
   std::string oldL = std::to_string(long(old)), newL = std::to_string(long(now));
   auto mapOld = pairs.find("0x0400 " + oldL + ";");
   auto wdOld = pairs.find("0x0402 " + oldL + ";");
   auto mapNew = pairs.find("0x0400 " + newL + ";");
   EXPECT_TRUE(mapOld != std::string::npos && wdOld != std::string::npos &&
               mapNew != std::string::npos && mapOld < wdOld && wdOld < mapNew)
      << fromA << "\n" << pairs;
   std::string fromB = cap.fields("ip.src==2.2.2.2 && ldp.msg.tlv.fec.pw.pwid == 7",
                                  {"ldp.msg.type", "ldp.msg.tlv.generic.label",
                                   "ldp.msg.tlv.pwstatus.code"},
                                  dir.path());
   EXPECT_NE(std::string::npos, fromB.find("0x0403\t" + oldL)) << fromB;
   EXPECT_NE(std::string::npos, fromB.find("0x0001\t\t0x00000006")) << fromB;
}

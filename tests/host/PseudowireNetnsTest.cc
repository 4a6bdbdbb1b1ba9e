// Pseudowires between real processes in network namespaces: against FRR's
// ldpd as a black box (an l2vpn pseudowire each way: labels known to both,
// FRR's not-forwarding status, an MTU mismatch, our admin down seen by FRR;
// the MAC Address Withdraws of FRR's VPLS; the control word and the PW type
// changed at both ends), and between two of our agents, with tshark decoding
// the PWid FEC and the PW Status TLV of what crossed the wire. Skipped, with
// the reason, where FRR, tshark or namespaces are missing.
#include <gtest/gtest.h>

#include <algorithm>
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
Json ourPw(AgentProc const& a, std::string const& name) {
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
// l2vpnLines go into the l2vpn, pwLines into its pseudowire.
std::string frrConfig(std::string const& ourLo, std::string const& l2vpnLines,
                      std::string const& pwLines = "") {
   return "hostname frr\nmpls ldp\n router-id 2.2.2.2\n address-family ipv4\n"
          "  discovery transport-address 2.2.2.2\n  interface vb\n  !\n exit-address-family\n !\n!\n"
          "l2vpn ENAME type vpls\n bridge br0\n" + l2vpnLines +
          " member interface ac0\n member pseudowire mpw0\n  neighbor lsr-id " + ourLo +
          "\n  pw-id 100\n" + pwLines + " !\n!\n";
}

// FRR's attachment circuit (ac0) and pseudowire interface (mpw0): veth ends
// in a bridge, in FRR's namespace.
bool frrInterfaces(Netns const& ns) {
   for (char const* l : {"link add br0 type bridge", "link add ac0 type veth peer name ac0p",
                         "link add mpw0 type veth peer name mpw0p", "link set br0 up",
                         "link set ac0 up", "link set ac0p up", "link set mpw0 up",
                         "link set mpw0p up"})
      if (!ns.ip(l)) return false;
   return true;
}

void frrCase(std::string const& ourLo) {
   TempDir dir;
   sh("chmod 755 " + dir.path());
   static int n = 0;
   Pair p(std::to_string(++n), ourLo, "2.2.2.2");
   ASSERT_TRUE(p.ok);
   ASSERT_TRUE(frrInterfaces(p.theirs));
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
   // The capture writes what it saw a little later, on a loaded machine
   // later still: the new mapping is in the file before it stops.
   EXPECT_TRUE(waitFor(
      [&] {
         return cap.fields("ip.src==1.1.1.1 && ldp.msg.tlv.fec.pw.pwid == 7",
                           {"ldp.msg.tlv.generic.label"}, dir.path())
                   .find(std::to_string(long(now))) != std::string::npos;
      },
      15.0));

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

namespace {

// FRR's VPLS with one pseudowire (pw-id 100) towards our agent (1.1.1.1)
// and our pseudowire mpw0 back, with a capture of our end of the link.
// frrPwLines go under FRR's "member pseudowire", ourPwLines under ours.
struct FrrPseudowire {
   TempDir dir;
   Pair p;
   Capture cap;
   FrrRouter frr;
   AgentProc a;
   bool ok = false;

   FrrPseudowire(std::string const& tag, std::string const& frrPwLines,
                 std::string const& ourPwLines)
      : p(tag, "1.1.1.1", "2.2.2.2"),
        cap(p.ours.name(), "va", dir.path() + "/ldp.pcap"),
        frr(p.theirs.name(), dir.path() + "/frr"),
        a(p.ours.name(), dir.path(), "ours") {
      // FRR's daemons drop to the frr user, which must reach the directory.
      sh("chmod 755 " + dir.path());
      a.configIs("mpls ldp\n   router-id interface lo\n!\npseudowire mpw0\n"
                 "   neighbor 2.2.2.2 pw-id 100\n" + ourPwLines + "!\n");
      ok = p.ok && frrInterfaces(p.theirs) && cap.ok() &&
           frr.start(frrConfig("1.1.1.1", "", frrPwLines)) && a.start();
   }

   Json ours() const { return ourPw(a, "mpw0"); }
   Json binding() const { return frr.show("show l2vpn atom binding json")["1.1.1.1: 100"]; }
   Json frrNeighbor() const { return frr.show("show mpls ldp neighbor detail json")["1.1.1.1"]; }
   // FRR's count of one message type (as "labelMapping") that it sent us or
   // received from us ("sentMessages", "receivedMessages").
   int frrCount(std::string const& way, std::string const& type) const {
      Json n = frrNeighbor();
      for (auto const& m : n[way].a)
         if (!m[type].isNull()) return int(m[type].n);
      return -1;
   }
   // The MAC Address Withdraws from FRR captured so far.
   int macWithdraws() const {
      std::string f = cap.fields("ip.src==2.2.2.2 && ldp.msg.type == 0x0301", {"frame.number"},
                                 dir.path());
      return int(std::count(f.begin(), f.end(), '\n'));
   }
   // The TCP connection of FRR's session with us: a new session has others.
   std::string frrConnection() const {
      Json n = frrNeighbor();
      if (n["state"].str() != "OPERATIONAL") return "";
      return std::to_string(long(n["tcpLocalPort"].n)) + "-" +
             std::to_string(long(n["tcpRemotePort"].n));
   }
   int sessionDowns() const {
      std::string log = a.log();
      int n = 0;
      for (auto at = log.find("LDP_SESSION_DOWN"); at != std::string::npos;
           at = log.find("LDP_SESSION_DOWN", at + 1))
         ++n;
      return n;
   }
   // Both sides hold each other's label for the same FEC, with the control
   // word and PW type ("ethernet" or "ethernet-vlan") given, and neither
   // tells a mismatch. FRR's binding shows what it received from us and its
   // configured control word (not the one it settled on: our view has that).
   // FRR, without a pseudowire data path where the kernel has no MPLS, may
   // say that it doesn't forward: our status is then 14 with FRR's
   // not-forwarding alone.
   bool signalled(bool cw, std::string const& type) const {
      Json pw = ours();
      Json b = binding();
      std::string frrType = type == "ethernet" ? "Ethernet" : "Eth Tagged";
      bool frrUp = frr.show("show l2vpn atom vc json")["mpw0"]["status"].str() == "up" ||
                   (access("/proc/sys/net/mpls/platform_labels", R_OK) != 0 &&
                    b["lastFailureReason"].str() == "local not forwarding");
      bool oursUp = pw["status"].n == 26 ||
                    (pw["status"].n == 14 && pw["remoteStatusFlags"].n == 1);
      return oursUp && frrUp && !pw["remoteLabel"].isNull() &&
             b["localLabel"].n == pw["remoteLabel"].n && b["remoteLabel"].n == pw["localLabel"].n &&
             pw["controlWord"].b == cw && pw["remoteControlWord"].b == cw &&
             b["remoteControlWord"].n == double(cw) && pw["pwType"].str() == type &&
             pw["remotePwType"].str() == type && b["localVcType"].str() == frrType &&
             b["remoteVcType"].str() == frrType;
   }
   // Our mapping of the FEC with this PW type and control word stands.
   bool advertised(std::string const& type, bool cw) const {
      Json pw = ours();
      for (auto const& f : pw["fecSessions"].a)
         if (f["side"].str() == "local" && f["pwType"].str() == type &&
             f["controlWord"].b == cw && f["state"].str() == "advertised")
            return true;
      return false;
   }
   // None of our FEC sessions of the pseudowire waits for a Release.
   bool noWithdrawPending() const {
      Json pw = ours();
      for (auto const& f : pw["fecSessions"].a)
         if (f["state"].str() == "withdrawn, release awaited") return false;
      return true;
   }
   // Both views and the pseudowire's messages on the wire, for a failure.
   std::string state() const {
      return a.ctl({"show", "mpls", "ldp", "pseudowires"}).out +
             run({"vtysh", "--vty_socket", dir.path() + "/frr", "-c", "show l2vpn atom binding"},
                 dir.path())
                .out +
             "\nsource, types, C bits, PW types, labels, status codes, PW status:\n" +
             cap.fields("ldp.msg.tlv.fec.pw.pwid == 100 || ldp.msg.tlv.status.ebit == 1",
                        {"ip.src", "ldp.msg.type", "ldp.msg.tlv.fec.pw.controlword",
                         "ldp.msg.tlv.fec.pw.pwtype", "ldp.msg.tlv.generic.label",
                         "ldp.msg.tlv.status.data", "ldp.msg.tlv.pwstatus.code"},
                        dir.path());
   }
};

std::string frrPwUnavailable() {
   std::string why = frrUnavailable();
   return why.empty() ? pwUnavailable() : why;
}

}  // namespace

// FRR's VPLS tells every change of its attachment circuit with a MAC Address
// Withdraw: an Address Withdraw with an empty address list, the PWid FEC and
// a MAC List TLV. Our session survives them with its labels, and answers
// none with a fatal Notification.
TEST(PseudowireFrr, VplsAttachmentCircuitFlapsKeepTheSessionAndTheLabels) {
   std::string why = frrPwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   FrrPseudowire t("v", "", "");
   ASSERT_TRUE(t.ok) << t.a.log();
   ASSERT_TRUE(waitFor([&] { return t.signalled(false, "ethernet"); }, 60.0)) << t.state();
   std::string connection = t.frrConnection();
   int downs = t.sessionDowns();
   double ourLabel = t.ours()["localLabel"].n, theirLabel = t.ours()["remoteLabel"].n;

   for (int i = 0; i < 3; ++i) {
      for (char const* state : {"down", "up"}) {
         int sent = t.macWithdraws();
         ASSERT_TRUE(t.p.theirs.ip(std::string("link set ac0 ") + state));
         // FRR tells each change at once (in the capture as it grows).
         waitFor([&] { return t.macWithdraws() > sent; }, 5.0);
      }
   }
   // Our answer to the last one has had time to arrive.
   waitFor([&] { return t.sessionDowns() > downs || t.frrConnection() != connection; }, 2.0);

   EXPECT_EQ(downs, t.sessionDowns()) << t.a.log();
   EXPECT_EQ(connection, t.frrConnection());
   EXPECT_TRUE(t.signalled(false, "ethernet")) << t.state();
   EXPECT_EQ(ourLabel, t.ours()["localLabel"].n);
   EXPECT_EQ(theirLabel, t.ours()["remoteLabel"].n);
   EXPECT_EQ(ourLabel, t.binding()["remoteLabel"].n);
   EXPECT_EQ(theirLabel, t.binding()["localLabel"].n);

   t.cap.stop();
   std::string withdraws = t.cap.fields("ip.src==2.2.2.2 && ldp.msg.type == 0x0301",
                                        {"ldp.msg.tlv.addrl.addr_family", "ldp.msg.tlv.mac",
                                         "ldp.msg.tlv.fec.pw.pwid"},
                                        t.dir.path());
   // One for each change: an empty IPv4 address list, a MAC and the PWid FEC.
   std::istringstream lines(withdraws);
   int count = 0;
   for (std::string line; std::getline(lines, line);)
      if (line.find("1\t") == 0 && line.find(":") != std::string::npos &&
          line.find("\t100") != std::string::npos)
         ++count;
   EXPECT_GE(count, 6) << withdraws;
   EXPECT_EQ("", t.cap.fields("ldp.msg.tlv.status.ebit == 1",
                              {"frame.number", "ip.src", "ldp.msg.tlv.status.data",
                               "ldp.msg.tlv.status.msg.type"},
                              t.dir.path()))
      << "fatal Notifications";
}

// The control word changed at both ends, in either order, brings the
// pseudowire back within 5 s. FRR resets its session when a pseudowire's
// control word changes in its configuration; when it changes first, it
// answers our Withdraw of the old FEC with a Release that names the FEC
// with its own new C bit, which is the C bit of our new mapping.
TEST(PseudowireFrr, ControlWordChangedAtBothEndsIsBackWithinFiveSeconds) {
   std::string why = frrPwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   FrrPseudowire t("c", "  control-word include\n", "   control-word\n");
   ASSERT_TRUE(t.ok) << t.a.log();
   ASSERT_TRUE(waitFor([&] { return t.signalled(true, "ethernet"); }, 60.0)) << t.state();
   auto frrPw = [&](std::string const& line) {
      return t.frr.configure({"l2vpn ENAME type vpls", "member pseudowire mpw0", line});
   };
   auto mappingsAtFrr = [&] { return t.frrCount("receivedMessages", "labelMapping"); };

   // FRR first (a new session, where FRR maps the FEC without the control
   // word and ignores ours with it), then ours.
   int mappings = mappingsAtFrr();
   ASSERT_TRUE(frrPw("control-word exclude"));
   ASSERT_TRUE(waitFor(
      [&] {
         Json pw = t.ours();
         return pw["sessionState"].str() == "operational" &&
                pw["remoteControlWord"].kind == Json::boolean_ && !pw["remoteControlWord"].b &&
                t.advertised("ethernet", true) && mappingsAtFrr() > mappings;
      },
      30.0))
      << t.state();
   ASSERT_EQ(0, t.a.ctl({"config", "pseudowire mpw0", "no control-word"}).code);
   EXPECT_TRUE(waitFor([&] { return t.signalled(false, "ethernet") && t.noWithdrawPending(); },
                       5.0))
      << t.state();

   // Ours first, then FRR's, once our new mapping has reached FRR.
   mappings = mappingsAtFrr();
   ASSERT_EQ(0, t.a.ctl({"config", "pseudowire mpw0", "control-word"}).code);
   EXPECT_TRUE(waitFor([&] { return mappingsAtFrr() > mappings; }, 5.0)) << t.state();
   ASSERT_TRUE(frrPw("control-word include"));
   EXPECT_TRUE(waitFor([&] { return t.signalled(true, "ethernet") && t.noWithdrawPending(); },
                       5.0))
      << t.state();
}

// The PW type changed at both ends, in either order, brings the pseudowire
// back within 5 s, with no Withdraw of ours left waiting for its Release.
// FRR changes its PW type without a new session: it withdraws its label and
// maps one for the new type. When it changes first, it sends no Release for
// our Withdraw of the old type's FEC.
TEST(PseudowireFrr, PwTypeChangedAtBothEndsIsBackWithinFiveSeconds) {
   std::string why = frrPwUnavailable();
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   FrrPseudowire t("t", "  control-word exclude\n", "");
   ASSERT_TRUE(t.ok) << t.a.log();
   ASSERT_TRUE(waitFor([&] { return t.signalled(false, "ethernet"); }, 60.0)) << t.state();
   auto frrType = [&](std::string const& type) {
      return t.frr.configure({"l2vpn ENAME type vpls", "vc type " + type});
   };

   // Ours first, then FRR's, once our new mapping has reached FRR.
   int mappings = t.frrCount("receivedMessages", "labelMapping");
   ASSERT_EQ(0, t.a.ctl({"config", "pseudowire mpw0", "pw-type ethernet-vlan"}).code);
   ASSERT_TRUE(waitFor([&] { return t.frrCount("receivedMessages", "labelMapping") > mappings; },
                       5.0))
      << t.state();
   ASSERT_TRUE(frrType("ethernet-tagged"));
   EXPECT_TRUE(
      waitFor([&] { return t.signalled(false, "ethernet-vlan") && t.noWithdrawPending(); }, 5.0))
      << t.state();

   // FRR first, then ours.
   ASSERT_TRUE(frrType("ethernet"));
   ASSERT_TRUE(waitFor([&] { return t.ours()["remotePwType"].str() == "ethernet"; }, 5.0))
      << t.state();
   ASSERT_EQ(0, t.a.ctl({"config", "pseudowire mpw0", "pw-type ethernet"}).code);
   EXPECT_TRUE(waitFor([&] { return t.signalled(false, "ethernet") && t.noWithdrawPending(); },
                       5.0))
      << t.state();
}

// The daemon for real: ldp-agent processes in network namespaces that the test
// makes, with veth pairs, addresses and loopbacks, driven and read through
// ldpctl. Skipped, with the reason, where namespaces can't be made.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "tests/host/HostHarness.h"

using namespace HostTest;

namespace {

std::string uniq(char const* tag) { return std::string("ldpt") + std::to_string(getpid()) + tag; }

#define SKIP_UNLESS_REAL_HOST()                                            \
   do {                                                                    \
      std::string why = realHostUnavailable();                             \
      if (!why.empty()) GTEST_SKIP() << "real-host test skipped: " << why; \
   } while (0)

// The interface of a show interfaces answer, by name.
Json const& intfNamed(Json const& j, std::string const& name) {
   static Json const none;
   for (auto const& i : j["interfaces"].a)
      if (i["name"].str() == name) return i;
   return none;
}

Json const& vrf(Json const& j) { return j["vrfs"]["default"]; }

bool operational(AgentProc& a, std::string const& peer) {
   Json j = a.show({"mpls", "ldp", "neighbor"});
   for (auto const& n : vrf(j)["neighbors"].a)
      if (n["peerLdpId"].str() == peer && n["state"].str() == "operational") return true;
   return false;
}

std::vector<std::string> adjacencyTypes(AgentProc& a) {
   std::vector<std::string> t;
   Json j = a.show({"mpls", "ldp", "discovery"});
   for (auto const& x : vrf(j)["adjacencies"].a) t.push_back(x["type"].str());
   return t;
}

}  // namespace

TEST(RealHost, OneAgentLearnsTheKernelAndTakesLiveConfiguration) {
   SKIP_UNLESS_REAL_HOST();
   TempDir dir;
   Netns ns(uniq("a"));
   ASSERT_TRUE(ns.ok());
   ASSERT_TRUE(ns.ip("addr add 1.1.1.1/32 dev lo"));
   ASSERT_TRUE(ns.ip("link add va type veth peer name vb"));
   ASSERT_TRUE(ns.ip("addr add 10.0.0.1/24 dev va"));
   ASSERT_TRUE(ns.ip("link set va up") && ns.ip("link set vb up"));

   // A bad file: the agent refuses to start and names the line.
   AgentProc a(ns.name(), dir.path(), "a");
   a.configIs("mpls ldp\n   router-id interface lo\n   discovery hello hold-time 99999\n");
   EXPECT_FALSE(a.start());
   EXPECT_EQ(2, a.stop());
   EXPECT_NE(std::string::npos, a.log().find("line 3: 'discovery hello hold-time 99999'"))
      << a.log();

   a.configIs("mpls ldp\n   router-id interface lo\n");
   ASSERT_TRUE(a.start()) << a.log();
   ASSERT_TRUE(waitFor(
      [&] {
         return vrf(a.show({"mpls", "ldp"}))["runningState"].str() == "running";
      },
      15.0))
      << a.ctl({"show", "mpls", "ldp"}).out;
   Json p = a.show({"mpls", "ldp"});
   EXPECT_EQ("1.1.1.1", vrf(p)["routerId"].str());
   EXPECT_EQ("1.1.1.1:0", vrf(p)["ldpId"].str());
   EXPECT_EQ("1.1.1.1", vrf(p)["transportAddress"].str());
   EXPECT_EQ("Enabled", vrf(p)["reason"].str());
   EXPECT_EQ(1, p["numStartups"].n);

   // What the kernel has, as the agent sees it: the loopback with its /32
   // and never 127.0.0.1; the veth with its address and Hellos wanted.
   Json i = a.show({"interfaces"});
   EXPECT_TRUE(intfNamed(i, "lo")["loopback"].b);
   EXPECT_EQ("1.1.1.1/32", intfNamed(i, "lo")["address"].str());
   EXPECT_EQ(std::string::npos, a.ctl({"show", "interfaces", "--json"}).out.find("127.0.0.1"));
   EXPECT_EQ("10.0.0.1/24", intfNamed(i, "va")["address"].str());
   EXPECT_EQ("up", intfNamed(i, "va")["operStatus"].str());
   EXPECT_TRUE(intfNamed(i, "va")["ldpHellos"].b);
   // The kernel changes; the agent follows.
   ASSERT_TRUE(ns.ip("addr add 10.9.9.9/24 dev vb"));
   EXPECT_TRUE(waitFor(
      [&] { return intfNamed(a.show({"interfaces"}), "vb")["address"].str() == "10.9.9.9/24"; },
      5.0));
   ASSERT_TRUE(ns.ip("link set va down"));
   EXPECT_TRUE(waitFor(
      [&] { return intfNamed(a.show({"interfaces"}), "va")["operStatus"].str() == "down"; }, 5.0));
   ASSERT_TRUE(ns.ip("link set va up"));

   // Live configuration: a targeted neighbour, a password, MPLS off on an
   // interface.
   auto r = a.ctl({"config", "mpls ldp", "neighbor 2.2.2.2 targeted", "password s3cret"});
   EXPECT_EQ(0, r.code) << r.err;
   p = a.show({"mpls", "ldp"});
   ASSERT_EQ(1u, vrf(p)["targetedNeighbors"].a.size());
   EXPECT_EQ("2.2.2.2", vrf(p)["targetedNeighbors"][0].str());
   EXPECT_TRUE(vrf(p)["passwordSet"].b);
   EXPECT_TRUE(waitFor(
      [&] {
         auto t = vrf(a.show({"mpls", "ldp", "discovery"}))["targets"];
         return t.a.size() == 1 && t[0]["address"].str() == "2.2.2.2";
      },
      5.0));
   EXPECT_EQ(0, a.ctl({"config", "interface va", "no mpls ip"}).code);
   i = a.show({"interfaces"});
   EXPECT_FALSE(intfNamed(i, "va")["mplsEnabled"].b);
   EXPECT_FALSE(intfNamed(i, "va")["ldpHellos"].b);
   EXPECT_NE(std::string::npos,
             a.ctl({"show", "running-config"}).out.find("interface va\n   no mpls ip"));

   // Bad input gets a clear error and changes nothing.
   std::string before = a.ctl({"show", "running-config"}).out;
   r = a.ctl({"config", "mpls ldp", "router-id 300.1.1.1"});
   EXPECT_EQ(1, r.code);
   EXPECT_NE(std::string::npos,
             r.err.find("line 2: 'router-id 300.1.1.1': '300.1.1.1' is not an IPv4 address"))
      << r.err;
   EXPECT_EQ(before, a.ctl({"show", "running-config"}).out);
   r = a.ctl({"show", "mpls", "ldp", "bogus"});
   EXPECT_EQ(1, r.code);
   EXPECT_NE(std::string::npos, r.err.find("unknown show command"));
   EXPECT_EQ(2, a.ctl({"frobnicate"}).code);
   EXPECT_EQ(2, a.ctl({"apply", dir.path() + "/no-such-file"}).code);
   EXPECT_EQ(1, a.ctl({"clear", "neighbor", "not-an-address"}).code);
   RunResult nobody = run({ctlBin(), "--socket", dir.path() + "/nobody.sock", "ping"}, dir.path());
   EXPECT_EQ(3, nobody.code);
   EXPECT_NE(std::string::npos, nobody.err.find("can't reach the agent"));

   // A changed file applied whole; a force of the router id; the agent command.
   a.configIs("mpls ldp\n   router-id interface lo\n   session keepalive 60\n");
   EXPECT_EQ(0, a.ctl({"apply", a.configPath()}).code);
   EXPECT_EQ(60, vrf(a.show({"mpls", "ldp"}))["keepAliveTime"].n);
   EXPECT_TRUE(vrf(a.show({"mpls", "ldp"}))["targetedNeighbors"].a.empty());
   EXPECT_EQ(0, a.ctl({"clear", "router-id"}).code);
   r = a.ctl({"DUMP_SCHEDSTATS", "detail"});
   EXPECT_EQ(0, r.code);
   EXPECT_NE(std::string::npos, r.out.find("Scheduler"));

   // A clean exit on SIGTERM; a restart counts itself and runs again.
   EXPECT_EQ(0, a.stop(SIGTERM));
   ASSERT_TRUE(a.start()) << a.log();
   EXPECT_EQ(2, a.show({"mpls", "ldp"})["numStartups"].n);
   EXPECT_TRUE(waitFor(
      [&] {
         return vrf(a.show({"mpls", "ldp"}))["runningState"].str() == "running";
      },
      15.0));
   EXPECT_EQ(0, a.stop(SIGTERM));
}

TEST(RealHost, TwoAgentsBecomeNeighboursOverLinkAndTargetedAdjacencies) {
   SKIP_UNLESS_REAL_HOST();
   TempDir dir;
   Netns na(uniq("a")), nb(uniq("b"));
   ASSERT_TRUE(na.ok() && nb.ok());
   ASSERT_TRUE(na.ip("link add va type veth peer name vb netns " + nb.name()));
   ASSERT_TRUE(na.ip("addr add 1.1.1.1/32 dev lo") && nb.ip("addr add 2.2.2.2/32 dev lo"));
   ASSERT_TRUE(na.ip("addr add 10.0.0.1/24 dev va") && nb.ip("addr add 10.0.0.2/24 dev vb"));
   ASSERT_TRUE(na.ip("link set va up") && nb.ip("link set vb up"));
   ASSERT_TRUE(na.ip("route add 2.2.2.2/32 via 10.0.0.2") &&
               nb.ip("route add 1.1.1.1/32 via 10.0.0.1"));

   AgentProc a(na.name(), dir.path(), "a"), b(nb.name(), dir.path(), "b");
   a.configIs("mpls ldp\n   router-id interface lo\n");
   b.configIs("mpls ldp\n   router-id interface lo\n");
   std::string eventLog = dir.path() + "/a.events";
   a.extraArgs = {"--event-log", eventLog};
   ASSERT_TRUE(a.start()) << a.log();
   ASSERT_TRUE(b.start()) << b.log();

   // Over the link adjacency.
   ASSERT_TRUE(
      waitFor([&] { return operational(a, "2.2.2.2:0") && operational(b, "1.1.1.1:0"); }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "neighbor"}).out << a.log();

   // The link is ready for the routing protocols once its session is up.
   EXPECT_TRUE(waitFor(
      [&] {
         Json j = a.show({"mpls", "ldp", "igp-sync"});
         auto const& i = vrf(j)["interfaces"][0];
         return i["interface"].str() == "va" && i["ready"].b;
      },
      10.0))
      << a.ctl({"show", "mpls", "ldp", "igp-sync"}).out;
   // The event monitor's lines, in show and in the file.
   auto events = a.ctl({"show", "mpls", "ldp", "events", "--last", "500"});
   EXPECT_EQ(0, events.code);
   EXPECT_NE(std::string::npos, events.out.find("Session: 2.2.2.2:0, State: stateOperational_"))
      << events.out;
   std::string last3 = a.ctl({"show", "mpls", "ldp", "events", "--last", "3"}).out;
   EXPECT_EQ(3, std::count(last3.begin(), last3.end(), '\n')) << last3;
   EXPECT_NE(std::string::npos, slurp(eventLog).find("Link: va enabled"));
   // Forwarding: programmed where the kernel has MPLS, otherwise said why.
   Json fwd = a.show({"mpls", "ldp", "forwarding"});
   if (access("/proc/sys/net/mpls/platform_labels", F_OK) != 0) {
      EXPECT_FALSE(fwd["programmed"].b);
      EXPECT_NE(std::string::npos, fwd["reason"].str().find("no MPLS")) << fwd["reason"].str();
      EXPECT_NE(std::string::npos, a.log().find("label forwarding is not programmed"));
   } else {
      EXPECT_TRUE(fwd["programmed"].b) << fwd["reason"].str();
   }
   // Operational comes before the address exchange ends.
   ASSERT_TRUE(waitFor(
      [&] {
         Json j = a.show({"mpls", "ldp", "neighbor"});
         return vrf(j)["neighbors"][0]["addressesExchanged"].b;
      },
      10.0));
   Json all = a.show({"mpls", "ldp", "neighbor"});
   Json n = vrf(all)["neighbors"][0];
   // The higher transport address is the active side.
   EXPECT_EQ("passive", n["role"].str());
   Json bn = b.show({"mpls", "ldp", "neighbor"});
   EXPECT_EQ("active", vrf(bn)["neighbors"][0]["role"].str());
   EXPECT_EQ("2.2.2.2", n["peerAddress"].str());
   EXPECT_GE(n["counters"]["pduRx"].n, 2);
   EXPECT_FALSE(n["history"].a.empty());
   bool hasAddr = false;
   for (auto const& x : n["addresses"].a) hasAddr |= x.str() == "10.0.0.2";
   EXPECT_TRUE(hasAddr);
   EXPECT_EQ((std::vector<std::string>{"link"}), adjacencyTypes(a));
   EXPECT_NE(std::string::npos, a.log().find("LDP_SESSION_UP"));

   // Over a targeted adjacency alone: each targets the other, then MPLS goes
   // off on the link; the session stays.
   EXPECT_EQ(0, a.ctl({"config", "mpls ldp", "neighbor 2.2.2.2 targeted"}).code);
   EXPECT_EQ(0, b.ctl({"config", "mpls ldp", "neighbor 1.1.1.1 targeted"}).code);
   ASSERT_TRUE(
      waitFor([&] { return adjacencyTypes(a).size() == 2 && adjacencyTypes(b).size() == 2; }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "discovery"}).out;
   EXPECT_EQ(0, a.ctl({"config", "interface va", "no mpls ip"}).code);
   EXPECT_EQ(0, b.ctl({"config", "interface vb", "no mpls ip"}).code);
   EXPECT_TRUE(
      waitFor([&] { return adjacencyTypes(a) == std::vector<std::string>{"targeted"}; }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "discovery"}).out;
   EXPECT_TRUE(
      waitFor([&] { return operational(a, "2.2.2.2:0") && operational(b, "1.1.1.1:0"); }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "neighbor"}).out << a.log() << b.log();

   // A password on both: the session comes back signed.
   EXPECT_EQ(0, a.ctl({"config", "mpls ldp", "password s3cret"}).code);
   EXPECT_EQ(0, b.ctl({"config", "mpls ldp", "password s3cret"}).code);
   EXPECT_EQ(0, a.ctl({"clear", "neighbor", "2.2.2.2"}).code);
   EXPECT_TRUE(
      waitFor([&] { return operational(a, "2.2.2.2:0") && operational(b, "1.1.1.1:0"); }, 60.0))
      << a.ctl({"show", "mpls", "ldp", "neighbor"}).out;

   // A peer killed outright doesn't disturb the agent; the peer restarted,
   // with the configuration it saved, comes back with its session.
   EXPECT_EQ(0, b.ctl({"write"}).code);
   EXPECT_NE(std::string::npos, slurp(b.configPath()).find("password s3cret"));
   b.kill(SIGKILL);
   EXPECT_TRUE(waitFor([&] { return !operational(a, "2.2.2.2:0"); }, 60.0));
   EXPECT_EQ(0, a.ctl({"ping"}).code);
   ASSERT_TRUE(b.start()) << b.log();
   EXPECT_EQ(2, b.show({"mpls", "ldp"})["numStartups"].n);
   EXPECT_TRUE(
      waitFor([&] { return operational(a, "2.2.2.2:0") && operational(b, "1.1.1.1:0"); }, 60.0))
      << b.ctl({"show", "mpls", "ldp", "neighbor"}).out << b.log();
   EXPECT_EQ(0, a.stop(SIGTERM));
   EXPECT_EQ(0, b.stop(SIGTERM));
}

namespace {

// The FEC of a show mpls ldp fec answer, by prefix.
Json const& fecNamed(Json const& j, std::string const& prefix) {
   static Json const none;
   for (auto const& f : vrf(j).a)
      if (f["prefix"].str() == prefix) return f;
   return none;
}

double localLabel(AgentProc& a, std::string const& prefix) {
   Json j = a.show({"mpls", "ldp", "fec"});
   Json const& f = fecNamed(j, prefix);
   return f["localLabels"].a.size() == 1 ? f["localLabels"][0].n : -1;
}

}  // namespace

TEST(RealHost, KernelRoutesBecomeFecsWithLabels) {
   SKIP_UNLESS_REAL_HOST();
   TempDir dir;
   Netns ns(uniq("f"));
   ASSERT_TRUE(ns.ok());
   ASSERT_TRUE(ns.ip("addr add 1.1.1.1/32 dev lo"));
   ASSERT_TRUE(ns.ip("link add va type veth peer name vb"));
   ASSERT_TRUE(ns.ip("addr add 10.0.0.1/24 dev va"));
   ASSERT_TRUE(ns.ip("link set va up") && ns.ip("link set vb up"));
   ASSERT_TRUE(ns.ip("route add 2.2.2.2/32 via 10.0.0.2"));
   ASSERT_TRUE(ns.ip("route add 3.3.3.3/32 via 10.0.0.2"));
   ASSERT_TRUE(ns.ip("route add 20.0.0.0/24 via 10.0.0.2"));

   AgentProc a(ns.name(), dir.path(), "a");
   a.configIs("mpls label range 200000 1000\nmpls ldp\n   router-id interface lo\n"
              "   label binding 3.3.3.3/32 local 5000\n");
   ASSERT_TRUE(a.start()) << a.log();
   // Our loopback is delivered here (Implicit Null), a remote host route gets
   // a label of the block, a configured binding its own label; a /24 is no
   // FEC by default.
   ASSERT_TRUE(waitFor([&] { return localLabel(a, "2.2.2.2/32") >= 200000; }, 15.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   Json f = a.show({"mpls", "ldp", "fec"});
   EXPECT_EQ(3, localLabel(a, "1.1.1.1/32"));
   EXPECT_EQ("local", fecNamed(f, "1.1.1.1/32")["deliveryType"].str());
   Json const& two = fecNamed(f, "2.2.2.2/32");
   EXPECT_EQ("remote", two["deliveryType"].str());
   ASSERT_EQ(1u, two["vias"].a.size());
   EXPECT_EQ("va", two["vias"][0]["interface"].str());
   EXPECT_EQ("10.0.0.2", two["vias"][0]["nextHop"].str());
   EXPECT_EQ("unfiltered", two["filteredState"].str());
   EXPECT_EQ(5000, localLabel(a, "3.3.3.3/32"));
   EXPECT_TRUE(fecNamed(f, "20.0.0.0/24")["prefix"].str().empty());
   // One prefix alone, and a bad one refused.
   EXPECT_EQ(1u, vrf(a.show({"mpls", "ldp", "fec", "2.2.2.2/32"})).a.size());
   EXPECT_EQ(1, a.ctl({"show", "mpls", "ldp", "fec", "2.2.2.300/32"}).code);

   // Live: shorter prefixes admitted, a connected one delivered here; the
   // static binding removed falls back to an allocated label.
   auto r = a.ctl({"config", "mpls ldp", "label allocation all-prefixes",
                   "no label binding 3.3.3.3/32"});
   ASSERT_EQ(0, r.code) << r.err;
   ASSERT_TRUE(waitFor([&] { return localLabel(a, "20.0.0.0/24") >= 200000; }, 5.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   EXPECT_TRUE(waitFor([&] { return localLabel(a, "10.0.0.0/24") == 3; }, 5.0));
   EXPECT_TRUE(waitFor([&] { return localLabel(a, "3.3.3.3/32") >= 200000; }, 5.0));
   EXPECT_EQ(1, a.ctl({"config", "mpls ldp", "label binding 3.3.3.3/32 local 7"}).code);
   Json la = a.show({"mpls", "ldp", "label-allocation"});
   EXPECT_EQ("ready", la["phase"].str());
   EXPECT_EQ(200000, la["block"]["base"].n);
   EXPECT_EQ(3, la["inUse"].n);
   EXPECT_FALSE(la["exhausted"].b);

   // A restart on the same state directory keeps every label given out. The
   // route added last sorts first in the kernel's dump, so labels drawn
   // afresh in dump order would differ from those it had.
   ASSERT_TRUE(ns.ip("route add 1.2.3.4/32 via 10.0.0.2"));
   ASSERT_TRUE(waitFor([&] { return localLabel(a, "1.2.3.4/32") >= 200000; }, 5.0));
   std::map<std::string, double> before;
   Json all = a.show({"mpls", "ldp", "fec"});
   for (auto const& f2 : vrf(all).a)
      before[f2["prefix"].str()] = f2["localLabels"].a.size() == 1 ? f2["localLabels"][0].n : -1;
   EXPECT_GT(before["1.2.3.4/32"], before["2.2.2.2/32"]);
   ASSERT_EQ(0, a.ctl({"write"}).code);
   EXPECT_EQ(0, a.stop());
   ASSERT_TRUE(a.start()) << a.log();
   ASSERT_TRUE(waitFor(
      [&] {
         Json now = a.show({"mpls", "ldp", "fec"});
         return vrf(now).a.size() == before.size();
      },
      15.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   for (auto const& [prefix, label] : before) EXPECT_EQ(label, localLabel(a, prefix)) << prefix;
   EXPECT_EQ(2, a.show({"mpls", "ldp"})["numStartups"].n);

   // The route of the FEC with the lowest label goes while the agent is
   // stopped: the FEC goes, and every other FEC keeps the label it had.
   auto lowest = std::min_element(before.begin(), before.end(), [](auto const& x, auto const& y) {
      return (x.second < 16 ? 1e9 : x.second) < (y.second < 16 ? 1e9 : y.second);
   });
   ASSERT_EQ(200000, lowest->second);
   std::string gone = lowest->first;
   before.erase(lowest);
   ASSERT_EQ(0, a.ctl({"write"}).code);
   EXPECT_EQ(0, a.stop());
   ASSERT_TRUE(ns.ip("route del " + gone));
   ASSERT_TRUE(a.start()) << a.log();
   ASSERT_TRUE(waitFor(
      [&] {
         Json now = a.show({"mpls", "ldp", "fec"});
         return vrf(now).a.size() == before.size() && fecNamed(now, gone)["prefix"].str().empty() &&
                a.show({"mpls", "ldp", "label-allocation"})["phase"].str() == "ready";
      },
      15.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   for (auto const& [prefix, label] : before) EXPECT_EQ(label, localLabel(a, prefix)) << prefix;
}

// The kernel drops the IPv4 routes through a link taken down, and those
// through an address removed, without a word: the agent drops their FECs and
// labels all the same, whoever made the routes, and keeps the others. The
// kernel's table is the reference.
TEST(RealHost, RoutesTheKernelDropsUntoldLoseTheirFecs) {
   SKIP_UNLESS_REAL_HOST();
   TempDir dir;
   Netns ns(uniq("d"));
   ASSERT_TRUE(ns.ok());
   ASSERT_TRUE(ns.ip("addr add 1.1.1.1/32 dev lo"));
   ASSERT_TRUE(ns.ip("link add va type veth peer name vb"));
   ASSERT_TRUE(ns.ip("link add vc type veth peer name vd"));
   ASSERT_TRUE(ns.ip("addr add 10.0.0.1/24 dev va") && ns.ip("addr add 10.0.1.1/24 dev vc"));
   for (char const* l : {"va", "vb", "vc", "vd"}) ASSERT_TRUE(ns.ip(std::string("link set ") + l + " up"));
   ASSERT_TRUE(ns.ip("route add 2.2.2.2/32 via 10.0.0.2"));
   // A route of another daemon (protocol 188) and one through the other link.
   ASSERT_TRUE(ns.ip("route add 5.5.5.5/32 via 10.0.0.2 proto 188"));
   ASSERT_TRUE(ns.ip("route add 6.6.6.6/32 via 10.0.1.2"));

   AgentProc a(ns.name(), dir.path(), "a");
   a.configIs("mpls label range 200000 1000\nmpls ldp\n   router-id interface lo\n"
              "   label allocation all-prefixes\n");
   ASSERT_TRUE(a.start()) << a.log();
   std::vector<std::string> const prefixes = {"2.2.2.2/32", "5.5.5.5/32", "6.6.6.6/32",
                                              "10.0.0.0/24", "10.0.1.0/24"};
   auto inKernel = [&](std::string const& p) {
      return !run({"ip", "-n", ns.name(), "route", "show", "exact", p}, dir.path()).out.empty();
   };
   // Every prefix is a FEC with a label exactly when the kernel routes it.
   auto agentAgrees = [&] {
      Json f = a.show({"mpls", "ldp", "fec"});
      for (auto const& p : prefixes)
         if (inKernel(p) != (fecNamed(f, p)["localLabels"].a.size() == 1)) return false;
      return true;
   };
   ASSERT_TRUE(waitFor([&] { return localLabel(a, "6.6.6.6/32") >= 200000 && agentAgrees(); }, 15.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   double six = localLabel(a, "6.6.6.6/32");

   // The link goes down: its routes go, the operator's and the other
   // daemon's alike; the other link's route keeps its label.
   ASSERT_TRUE(ns.ip("link set va down"));
   ASSERT_FALSE(inKernel("2.2.2.2/32") || inKernel("5.5.5.5/32") || inKernel("10.0.0.0/24"));
   EXPECT_TRUE(waitFor([&] { return fecNamed(a.show({"mpls", "ldp", "fec"}), "2.2.2.2/32")
                                       ["prefix"].str().empty() && agentAgrees(); }, 5.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   EXPECT_EQ(six, localLabel(a, "6.6.6.6/32"));

   // Up again: the kernel brings the connected segment back, not the static
   // routes, and neither does the agent.
   ASSERT_TRUE(ns.ip("link set va up"));
   EXPECT_TRUE(waitFor([&] { return localLabel(a, "10.0.0.0/24") == 3; }, 5.0));
   EXPECT_TRUE(agentAgrees()) << a.ctl({"show", "mpls", "ldp", "fec"}).out;

   // The address goes: the routes through its segment go with it.
   ASSERT_TRUE(ns.ip("route add 2.2.2.2/32 via 10.0.0.2"));
   ASSERT_TRUE(waitFor([&] { return localLabel(a, "2.2.2.2/32") >= 200000; }, 5.0));
   ASSERT_TRUE(ns.ip("addr del 10.0.0.1/24 dev va"));
   ASSERT_FALSE(inKernel("2.2.2.2/32"));
   EXPECT_TRUE(waitFor([&] { return localLabel(a, "2.2.2.2/32") < 0 && agentAgrees(); }, 5.0))
      << a.ctl({"show", "mpls", "ldp", "fec"}).out;
   EXPECT_EQ(six, localLabel(a, "6.6.6.6/32"));
   EXPECT_EQ(0, a.stop());
}

// Three LSRs in a line, r1 - r2 - r3: the label switched path from r1 to r3's
// loopback is in the kernels' MPLS tables, and a ping goes across it.
TEST(RealHost, ThreeLsrsPingAcrossTheLabelSwitchedPath) {
   SKIP_UNLESS_REAL_HOST();
   // Modules that are there but not loaded yet are loaded once the agents
   // run, which must then program what they held back.
   bool loadLater = access("/proc/sys/net/mpls/platform_labels", F_OK) != 0 &&
                    sh("modinfo mpls_router >/dev/null 2>&1 && "
                       "modinfo mpls_iptunnel >/dev/null 2>&1") == 0;
   if (access("/proc/sys/net/mpls/platform_labels", F_OK) != 0 && !loadLater)
      GTEST_SKIP() << "the kernel has no MPLS forwarding (no /proc/sys/net/mpls/platform_labels, "
                      "and mpls_router/mpls_iptunnel can't be loaded)";
   TempDir dir;
   Netns n1(uniq("1")), n2(uniq("2")), n3(uniq("3"));
   ASSERT_TRUE(n1.ok() && n2.ok() && n3.ok());
   ASSERT_TRUE(lsrLine(n1, n2, n3));
   sh("ip netns exec " + n2.name() + " sysctl -qw net.ipv4.ip_forward=1");
   AgentProc a1(n1.name(), dir.path(), "r1"), a2(n2.name(), dir.path(), "r2"),
      a3(n3.name(), dir.path(), "r3");
   for (auto* a : {&a1, &a2, &a3}) {
      a->configIs("mpls ldp\n   router-id interface lo\n");
      ASSERT_TRUE(a->start()) << a->log();
   }
   if (loadLater) {
      Json f = a2.show({"mpls", "ldp", "forwarding"});
      EXPECT_FALSE(f["programmed"].b);
      EXPECT_NE(std::string::npos, f["reason"].str().find("no MPLS forwarding")) << f["reason"].str();
      ASSERT_EQ(0, sh("modprobe mpls_router && modprobe mpls_iptunnel"));
   }
   // r2 swaps or pops r3's label towards r3; r1 pushes r2's label.
   auto routes = [](AgentProc& a, char const* list) {
      Json j = a.show({"mpls", "ldp", "forwarding"});
      std::size_t accepted = 0;
      for (auto const& r : j[list].a) accepted += r["fec"].str() == "3.3.3.3/32" && r["accepted"].b;
      return accepted;
   };
   EXPECT_TRUE(waitFor([&] { return routes(a2, "labelRoutes") == 1; }, 60.0))
      << a2.ctl({"show", "mpls", "ldp", "forwarding"}).out;
   EXPECT_TRUE(waitFor([&] { return routes(a1, "ingressRoutes") == 1; }, 60.0))
      << a1.ctl({"show", "mpls", "ldp", "forwarding"}).out;
   auto tables = [&] {
      std::string out;
      for (auto* n : {&n1, &n2, &n3})
         for (char const* f : {"inet", "mpls"})
            out += n->name() + " " + f + ":\n" +
                   run({"ip", "netns", "exec", n->name(), "ip", "-f", f, "route"}, "/tmp").out;
      for (auto* n : {&n1, &n2, &n3})
         out += run({"ip", "netns", "exec", n->name(), "sh", "-c",
                     "grep -H . /proc/sys/net/mpls/platform_labels /proc/sys/net/mpls/conf/*/input"},
                    "/tmp").out;
      return out;
   };
   EXPECT_EQ(0, sh("ip netns exec " + n1.name() + " ping -c 2 -W 2 -I 1.1.1.1 3.3.3.3 >/dev/null"))
      << tables();
   // The operator deletes r1's route to r3: the agent's labels leave with it,
   // and the route is not made again without them.
   ASSERT_TRUE(n1.ip("route del 3.3.3.3/32"));
   EXPECT_TRUE(waitFor([&] { return routes(a1, "ingressRoutes") == 0; }, 30.0))
      << a1.ctl({"show", "mpls", "ldp", "forwarding"}).out;
   EXPECT_EQ("", run({"ip", "netns", "exec", n1.name(), "ip", "route", "show", "3.3.3.3/32"},
                     "/tmp").out)
      << tables();
   for (auto* a : {&a1, &a2, &a3}) EXPECT_EQ(0, a->stop(SIGTERM)) << a->log();
   // A clean stop leaves no label route behind.
   for (auto* n : {&n1, &n2, &n3})
      EXPECT_EQ("", run({"ip", "netns", "exec", n->name(), "ip", "-f", "mpls", "route"}, "/tmp").out)
         << n->name();
}

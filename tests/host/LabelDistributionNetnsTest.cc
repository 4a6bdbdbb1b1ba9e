// Label distribution against real peers in network namespaces: FRR's ldpd on
// each side of our agent, three LSRs in a line, with the labels known in all
// three and a route removed at the far end withdrawn and released through
// us; and two of our agents in downstream-on-demand mode. tshark decodes
// every PDU that crossed. Skipped, with the reason, where FRR, tshark or
// namespaces are missing.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/host/FrrHarness.h"

using namespace HostTest;

namespace {

// tshark capturing LDP's TCP on one interface of a namespace into a file.
class Capture {
 public:
   Capture(std::string const& ns, std::string const& intf, std::string file)
      : file_(std::move(file)) {
      pid_ = fork();
      if (pid_ == 0) {
         int null = open("/dev/null", O_WRONLY);
         dup2(null, 1);
         dup2(null, 2);
         execlp("ip", "ip", "netns", "exec", ns.c_str(), "tshark", "-i", intf.c_str(), "-f",
                "tcp port 646", "-w", file_.c_str(), static_cast<char*>(nullptr));
         _exit(127);
      }
      ok_ = pid_ > 0 && waitFor([&] { return access(file_.c_str(), R_OK) == 0; }, 15.0);
   }
   ~Capture() { stop(); }
   bool ok() const { return ok_; }
   void stop() {
      if (pid_ <= 0) return;
      ::kill(pid_, SIGINT);
      int st;
      waitpid(pid_, &st, 0);
      pid_ = -1;
   }
   std::string fields(std::string const& filter, std::vector<std::string> const& names,
                      std::string const& dir) const {
      std::vector<std::string> argv{"tshark", "-r", file_, "-Y", filter, "-T", "fields"};
      for (auto const& n : names) {
         argv.push_back("-e");
         argv.push_back(n);
      }
      return run(argv, dir).out;
   }

 private:
   std::string file_;
   pid_t pid_ = -1;
   bool ok_ = false;
};

std::string unavailable(bool frr) {
   std::string why = frr ? frrUnavailable() : realHostUnavailable();
   if (!why.empty()) return why;
   if (sh("which tshark") != 0) return "needs tshark";
   return "";
}

std::string uniq(std::string const& tag) {
   static int n = 0;
   return "ldpl" + std::to_string(getpid()) + tag + std::to_string(++n);
}

// Our agent's label for a FEC from a peer, or -1.
long ourRemoteLabel(AgentProc& a, std::string const& prefix, std::string const& peer) {
   Json j = a.show({"mpls", "ldp", "bindings", prefix});
   for (auto const& f : j["vrfs"]["default"].a)
      for (auto const& r : f["remoteLabels"].a)
         if (r["peer"].str() == peer && r["state"].str() == "in use") return long(r["label"].n);
   return -1;
}

// Our agent's local label of a FEC and the peers it was advertised to.
long ourLocalLabel(AgentProc& a, std::string const& prefix, std::size_t* peers = nullptr) {
   Json j = a.show({"mpls", "ldp", "bindings", prefix});
   for (auto const& f : j["vrfs"]["default"].a) {
      if (peers) {
         *peers = 0;
         for (auto const& p : f["advertisedTo"].a) *peers += p["state"].str() == "advertised";
      }
      if (!f["localLabels"].a.empty()) return long(f["localLabels"][0].n);
   }
   return -1;
}

// FRR's remote label for a FEC from a neighbour, or -1 ("imp-null" is 3).
long frrRemoteLabel(FrrRouter& f, std::string const& prefix, std::string const& neighbor) {
   Json j = f.show("show mpls ldp binding json");
   for (auto const& b : j["bindings"].a) {
      if (b["prefix"].str() != prefix || b["neighborId"].str() != neighbor) continue;
      std::string l = b["remoteLabel"].str();
      if (l == "imp-null") return 3;
      if (l.empty() || l == "-") return b["remoteLabel"].kind == Json::num_ ? long(b["remoteLabel"].n) : -1;
      return std::atol(l.c_str());
   }
   return -1;
}

std::string frrConf(std::string const& id, std::string const& intf) {
   return "hostname frr\nmpls ldp\n router-id " + id +
          "\n address-family ipv4\n  discovery transport-address " + id + "\n  interface " +
          intf + "\n  !\n exit-address-family\n !\n!\n";
}

}  // namespace

// f1 (FRR, 1.1.1.1) -- ours (2.2.2.2) -- f3 (FRR, 3.3.3.3).
TEST(LabelDistributionFrr, ThreeLsrsWithFrrOnBothSides) {
   std::string why = unavailable(true);
   if (!why.empty()) GTEST_SKIP() << "skipped: " << why;
   TempDir dir;
   sh("chmod 755 " + dir.path());
   Netns n1(uniq("a")), n2(uniq("b")), n3(uniq("c"));
   ASSERT_TRUE(n1.ok() && n2.ok() && n3.ok());
   ASSERT_TRUE(n1.ip("link add e12 type veth peer name e21 netns " + n2.name()));
   ASSERT_TRUE(n2.ip("link add e23 type veth peer name e32 netns " + n3.name()));
   ASSERT_TRUE(n1.ip("addr add 1.1.1.1/32 dev lo") && n2.ip("addr add 2.2.2.2/32 dev lo") &&
               n3.ip("addr add 3.3.3.3/32 dev lo"));
   ASSERT_TRUE(n1.ip("addr add 10.0.12.1/24 dev e12") && n2.ip("addr add 10.0.12.2/24 dev e21") &&
               n2.ip("addr add 10.0.23.2/24 dev e23") && n3.ip("addr add 10.0.23.3/24 dev e32"));
   ASSERT_TRUE(n1.ip("link set e12 up") && n2.ip("link set e21 up") && n2.ip("link set e23 up") &&
               n3.ip("link set e32 up"));
   ASSERT_TRUE(n1.ip("route add 2.2.2.2/32 via 10.0.12.2") &&
               n1.ip("route add 3.3.3.3/32 via 10.0.12.2") &&
               n2.ip("route add 1.1.1.1/32 via 10.0.12.1") &&
               n2.ip("route add 3.3.3.3/32 via 10.0.23.3") &&
               n3.ip("route add 1.1.1.1/32 via 10.0.23.2") &&
               n3.ip("route add 2.2.2.2/32 via 10.0.23.2") &&
               n3.ip("addr add 33.33.33.33/32 dev lo") &&
               n2.ip("route add 33.33.33.33/32 via 10.0.23.3") &&
               n1.ip("route add 33.33.33.33/32 via 10.0.12.2"));
   Capture cap12(n2.name(), "e21", dir.path() + "/e21.pcap");
   Capture cap23(n2.name(), "e23", dir.path() + "/e23.pcap");
   ASSERT_TRUE(cap12.ok() && cap23.ok());
   FrrRouter f1(n1.name(), dir.path() + "/f1"), f3(n3.name(), dir.path() + "/f3");
   ASSERT_TRUE(f1.start(frrConf("1.1.1.1", "e12")));
   ASSERT_TRUE(f3.start(frrConf("3.3.3.3", "e32")));
   AgentProc a(n2.name(), dir.path(), "ours");
   a.configIs("mpls ldp\n   router-id interface lo\n");
   ASSERT_TRUE(a.start()) << a.log();

   // FRR's labels in ours: f3's for its loopbacks, f1's for its own.
   EXPECT_TRUE(waitFor([&] { return ourRemoteLabel(a, "33.33.33.33/32", "3.3.3.3:0") == 3; }, 60.0))
      << a.ctl({"show", "mpls", "ldp", "bindings"}).out << a.ctl({"show", "mpls", "ldp", "neighbor"}).out;
   EXPECT_TRUE(waitFor([&] { return ourRemoteLabel(a, "1.1.1.1/32", "1.1.1.1:0") == 3; }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "bindings"}).out;
   // Ours in both FRR instances: our label for 33.33.33.33 went to both.
   long ours33 = -1;
   std::size_t peers = 0;
   EXPECT_TRUE(waitFor([&] {
      ours33 = ourLocalLabel(a, "33.33.33.33/32", &peers);
      return ours33 > 15 && peers == 2;
   }, 30.0)) << a.ctl({"show", "mpls", "ldp", "bindings", "33.33.33.33/32"}).out;
   EXPECT_TRUE(waitFor([&] { return frrRemoteLabel(f1, "33.33.33.33/32", "2.2.2.2") == ours33; },
                       30.0))
      << run({"vtysh", "--vty_socket", dir.path() + "/f1", "-c", "show mpls ldp binding"},
             dir.path()).out;
   EXPECT_TRUE(waitFor([&] { return frrRemoteLabel(f3, "33.33.33.33/32", "2.2.2.2") == ours33; },
                       30.0));
   EXPECT_TRUE(waitFor([&] { return frrRemoteLabel(f1, "2.2.2.2/32", "2.2.2.2") == 3; }, 30.0));

   // The far end removes 33.33.33.33: f3 withdraws it, we release it and,
   // once our route goes too, withdraw ours, which f1 releases.
   ASSERT_TRUE(n3.ip("addr del 33.33.33.33/32 dev lo"));
   EXPECT_TRUE(waitFor([&] { return ourRemoteLabel(a, "33.33.33.33/32", "3.3.3.3:0") < 0; }, 30.0))
      << a.ctl({"show", "mpls", "ldp", "bindings", "33.33.33.33/32"}).out;
   ASSERT_TRUE(n2.ip("route del 33.33.33.33/32") && n1.ip("route del 33.33.33.33/32"));
   EXPECT_TRUE(waitFor([&] {
      return ourLocalLabel(a, "33.33.33.33/32") < 0 &&
             frrRemoteLabel(f1, "33.33.33.33/32", "2.2.2.2") < 0 &&
             frrRemoteLabel(f3, "33.33.33.33/32", "2.2.2.2") < 0;
   }, 30.0)) << a.ctl({"show", "mpls", "ldp", "bindings", "33.33.33.33/32", "detail"}).out;
   // Sessions stayed up all along.
   EXPECT_EQ("OPERATIONAL", f1.neighborState("2.2.2.2"));
   EXPECT_EQ("OPERATIONAL", f3.neighborState("2.2.2.2"));
   EXPECT_EQ(0, a.stop(SIGTERM));
   f1.stop();
   f3.stop();
   cap12.stop();
   cap23.stop();
   // Every PDU decodes; withdraws and releases crossed both links.
   for (Capture* c : {&cap12, &cap23}) {
      EXPECT_EQ("", c->fields("_ws.malformed || _ws.expert.severity >= error", {"frame.number"},
                              dir.path()));
      EXPECT_NE("", c->fields("ldp.msg.type == 0x0402", {"frame.number"}, dir.path()));
      EXPECT_NE("", c->fields("ldp.msg.type == 0x0403", {"frame.number"}, dir.path()));
   }
}

// Interoperation with another project's LDP router, used strictly as a black
// box on the wire: FRR's ldpd (with its zebra) in one network namespace, our
// ldp-agent in another, a veth pair between them. Sessions over a link and
// over a targeted adjacency, with our agent active and passive, with matching
// MD5 passwords; with mismatched ones there is no session. Skipped, with the
// reason, where FRR or namespaces are missing.
#include <gtest/gtest.h>

#include "tests/host/FrrHarness.h"

using namespace HostTest;

namespace {

struct Case {
   char const* ourLoopback;  // 1.1.1.1: below FRR's 2.2.2.2, so passive; 3.3.3.3 active
   bool targeted;            // targeted adjacency only, no link Hellos
   char const* ourPassword;
   char const* frrPassword;
   bool sessionExpected;
};

std::string ourConfig(Case const& c) {
   std::string s = "mpls ldp\n   router-id interface lo\n";
   if (c.targeted) s += "   neighbor 2.2.2.2 targeted\n";
   if (*c.ourPassword) s += std::string("   password ") + c.ourPassword + "\n";
   s += "!\n";
   if (c.targeted) s += "interface va\n   no mpls ip\n!\n";
   return s;
}

std::string frrConfig(Case const& c) {
   std::string s = "hostname frr\nmpls ldp\n router-id 2.2.2.2\n";
   if (*c.frrPassword)
      s += std::string(" neighbor ") + c.ourLoopback + " password " + c.frrPassword + "\n";
   s += " address-family ipv4\n  discovery transport-address 2.2.2.2\n";
   if (c.targeted)
      s += std::string("  neighbor ") + c.ourLoopback + " targeted\n";
   else
      s += "  interface vb\n  !\n";
   s += " exit-address-family\n !\n!\n";
   return s;
}

bool ourSessionUp(AgentProc& a) {
   Json j = a.show({"mpls", "ldp", "neighbor"});
   for (auto const& n : j["vrfs"]["default"]["neighbors"].a)
      if (n["peerLdpId"].str() == "2.2.2.2:0" && n["state"].str() == "operational") return true;
   return false;
}

std::size_t ourAdjacencies(AgentProc& a) {
   Json j = a.show({"mpls", "ldp", "discovery"});
   return j["vrfs"]["default"]["adjacencies"].a.size();
}

void runCase(Case const& c) {
   TempDir dir;
   sh("chmod 755 " + dir.path());
   static int n = 0;
   std::string tag = std::to_string(++n);
   Netns ours("ldpt" + std::to_string(getpid()) + "o" + tag);
   Netns theirs("ldpt" + std::to_string(getpid()) + "f" + tag);
   ASSERT_TRUE(ours.ok() && theirs.ok());
   ASSERT_TRUE(ours.ip("link add va type veth peer name vb netns " + theirs.name()));
   ASSERT_TRUE(ours.ip(std::string("addr add ") + c.ourLoopback + "/32 dev lo"));
   ASSERT_TRUE(theirs.ip("addr add 2.2.2.2/32 dev lo"));
   ASSERT_TRUE(ours.ip("addr add 10.0.0.1/24 dev va") && theirs.ip("addr add 10.0.0.2/24 dev vb"));
   ASSERT_TRUE(ours.ip("link set va up") && theirs.ip("link set vb up"));
   ASSERT_TRUE(ours.ip("route add 2.2.2.2/32 via 10.0.0.2"));
   ASSERT_TRUE(theirs.ip(std::string("route add ") + c.ourLoopback + "/32 via 10.0.0.1"));

   FrrRouter frr(theirs.name(), dir.path() + "/frr");
   ASSERT_TRUE(frr.start(frrConfig(c)));
   AgentProc a(ours.name(), dir.path(), "ours");
   a.configIs(ourConfig(c));
   ASSERT_TRUE(a.start()) << a.log();

   if (c.sessionExpected) {
      EXPECT_TRUE(waitFor(
         [&] { return ourSessionUp(a) && frr.neighborState(c.ourLoopback) == "OPERATIONAL"; },
         45.0))
         << a.ctl({"show", "mpls", "ldp", "neighbor"}).out
         << a.ctl({"show", "mpls", "ldp", "discovery"}).out
         << "FRR: " << frr.neighborState(c.ourLoopback) << "\n"
         << a.log();
      Json j = a.show({"mpls", "ldp", "neighbor"});
      Json const& nb = j["vrfs"]["default"]["neighbors"][0];
      bool ourHigher = std::string(c.ourLoopback) > "2.2.2.2";
      EXPECT_EQ(ourHigher ? "active" : "passive", nb["role"].str());
      EXPECT_EQ(
         c.targeted ? "targeted" : "link",
         a.show({"mpls", "ldp", "discovery"})["vrfs"]["default"]["adjacencies"][0]["type"].str());
   } else {
      // Discovery works, so what keeps the session down is the password.
      EXPECT_TRUE(waitFor([&] { return ourAdjacencies(a) > 0; }, 30.0))
         << a.ctl({"show", "mpls", "ldp", "discovery"}).out;
      EXPECT_FALSE(waitFor(
         [&] { return ourSessionUp(a) || frr.neighborState(c.ourLoopback) == "OPERATIONAL"; },
         15.0));
   }
   EXPECT_EQ(0, a.stop(SIGTERM));
   frr.stop();
}

#define SKIP_UNLESS_FRR()                                               \
   do {                                                                 \
      std::string why = frrUnavailable();                               \
      if (!why.empty()) GTEST_SKIP() << "FRR interop skipped: " << why; \
   } while (0)

}  // namespace

TEST(FrrInterop, LinkAdjacencyOurAgentPassive) {
   SKIP_UNLESS_FRR();
   runCase({"1.1.1.1", false, "", "", true});
}

TEST(FrrInterop, LinkAdjacencyOurAgentActive) {
   SKIP_UNLESS_FRR();
   runCase({"3.3.3.3", false, "", "", true});
}

TEST(FrrInterop, TargetedAdjacencyOurAgentPassive) {
   SKIP_UNLESS_FRR();
   runCase({"1.1.1.1", true, "", "", true});
}

TEST(FrrInterop, TargetedAdjacencyOurAgentActive) {
   SKIP_UNLESS_FRR();
   runCase({"3.3.3.3", true, "", "", true});
}

TEST(FrrInterop, MatchingPasswordsBothWays) {
   SKIP_UNLESS_FRR();
   runCase({"1.1.1.1", false, "s3cret", "s3cret", true});
   runCase({"3.3.3.3", false, "s3cret", "s3cret", true});
}

TEST(FrrInterop, MismatchedPasswordsGiveNoSession) {
   SKIP_UNLESS_FRR();
   runCase({"3.3.3.3", false, "s3cret", "other", false});
   runCase({"1.1.1.1", false, "s3cret", "", false});
}

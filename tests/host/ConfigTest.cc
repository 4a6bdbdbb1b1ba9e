// The configuration language: what each statement means, the errors that
// name the line, the printer that parses back, and the applier: silent when
// nothing changed, and live changes that a running agent sees on virtual time.
#include <gtest/gtest.h>

#include "agent/LdpAgent.h"
#include "entities/Functions.h"
#include "host/ConfigApplier.h"
#include "host/KernelState.h"
#include "host/LabelBlockResponder.h"
#include "host/Show.h"
#include "runtime/nolu/Sim.h"
#include "runtime/vek/Reactor.h"

using namespace Host;
using Nolu::IntfId;
using Nolu::IpAddr;
using Vek::Ptr;

namespace {

char const* kFull = R"(# two routers' worth of settings
vrf red netns ns-red
management interface eth0
mpls label range 200000 1000
ip prefix-list loopbacks seq 10 permit 10.255.0.0/16
ip prefix-list loopbacks seq 20 deny 0.0.0.0/0
interface eth2
   no mpls ip
!
mpls ldp
   router-id interface lo
   transport-address interface lo
   neighbor 2.2.2.2 targeted
   password s3cret key
   discovery hello hold-time 30
   discovery hello interval 10
   discovery targeted-hello hold-time 90
   discovery targeted-hello interval 30
   session keepalive 60
   label distribution ordered
   label advertisement on-demand
   label retention conservative
   loop-detection
   hop-count-max 32
   fec filter prefix-list loopbacks
   link-ready delay 2.5
   link-ready timeout 30
!
mpls ldp vrf red
   router-id 9.9.9.9
   shutdown
)";

std::vector<ConfigError> parseErrors(std::string const& text, HostConfig* cfg = nullptr) {
   HostConfig c;
   std::vector<ConfigError> e;
   parseConfig(text, cfg ? *cfg : c, e);
   return e;
}

}  // namespace

TEST(HostConfig, StatementsMapOntoTheModel) {
   HostConfig c;
   std::vector<ConfigError> e;
   ASSERT_TRUE(parseConfig(kFull, c, e)) << (e.empty() ? "" : e[0].str());
   EXPECT_EQ("ns-red", c.vrfNetns.at("red"));
   EXPECT_TRUE(c.managementIntf.count("eth0"));
   EXPECT_EQ(200000u, c.labelRangeBase);
   EXPECT_EQ(1000u, c.labelRangeSize);
   EXPECT_FALSE(c.prefixLists.at("loopbacks").at(20).permit);
   EXPECT_EQ(std::set<std::string>{"eth2"}, c.mplsDisabledIntf);
   auto const& l = c.ldp.at("default");
   EXPECT_EQ("lo", l.routerIdIntf);
   EXPECT_EQ("lo", l.transportIntf);
   EXPECT_TRUE(l.targetedNeighbors.count(IpAddr(2, 2, 2, 2)));
   EXPECT_EQ("s3cret key", l.password);
   EXPECT_EQ(30, l.helloHoldTime);
   EXPECT_EQ(10, l.helloInterval);
   EXPECT_EQ(90, l.targetedHelloHoldTime);
   EXPECT_EQ(30, l.targetedHelloInterval);
   EXPECT_EQ(60, l.keepAliveTime);
   EXPECT_EQ(Ldp::orderedDistCtrl_, l.labelDistCtrl);
   EXPECT_EQ(Ldp::downstreamOnDemandAdvDspl_, l.labelAdvDspl);
   EXPECT_EQ(Ldp::conservativeRetention_, l.labelRetention);
   EXPECT_TRUE(l.loopDetection);
   EXPECT_EQ(32, l.hopCountMax);
   EXPECT_EQ("loopbacks", l.fecFilterPrefixList);
   EXPECT_EQ(2.5, l.linkReadyDelay);
   EXPECT_EQ(30.0, l.linkReadyTimeout);
   EXPECT_EQ(IpAddr(9, 9, 9, 9), c.ldp.at("red").routerId);
   EXPECT_TRUE(c.ldp.at("red").shutdown);

   // The printer's text parses back to the same model, and the same text.
   HostConfig again;
   ASSERT_TRUE(parseConfig(renderConfig(c), again, e));
   EXPECT_EQ(c, again);
   EXPECT_EQ(renderConfig(c), renderConfig(again));

   // Statements on top of a model: "no" forms undo, defaults come back.
   ASSERT_TRUE(
      parseConfig("mpls ldp\n no neighbor 2.2.2.2\n no discovery hello hold-time\n"
                  " no discovery hello interval\n no label distribution\n"
                  " no password\n no fec filter\nno ip prefix-list loopbacks\n"
                  "mpls ldp\n no hop-count-max 32\n",
                  c, e));
   EXPECT_EQ(255, c.ldp.at("default").hopCountMax);
   EXPECT_TRUE(c.ldp.at("default").targetedNeighbors.empty());
   EXPECT_EQ(15, c.ldp.at("default").helloHoldTime);
   EXPECT_EQ(Ldp::independentDistCtrl_, c.ldp.at("default").labelDistCtrl);
   EXPECT_TRUE(c.ldp.at("default").password.empty());
   EXPECT_TRUE(c.prefixLists.empty());
}

TEST(HostConfig, SectionsAndTheTopLevel) {
   HostConfig c;
   std::vector<ConfigError> e;
   // In an interface section "no mpls ip" is the interface's; after "exit" it
   // is the global switch.
   ASSERT_TRUE(parseConfig("interface eth1\nno mpls ip\nexit\nno mpls ip\n", c, e));
   EXPECT_TRUE(c.mplsDisabledIntf.count("eth1"));
   EXPECT_FALSE(c.mplsIp);
   // A top-level statement closes the section; "mpls ldp" statements then
   // aren't known at the top.
   auto errs = parseErrors("mpls ldp\nrouter-id 1.1.1.1\nip routing\nrouter-id 2.2.2.2\n");
   ASSERT_EQ(1u, errs.size());
   EXPECT_EQ(4u, errs[0].line);
   EXPECT_EQ("line 4: 'router-id 2.2.2.2': unknown statement", errs[0].str());
}

TEST(HostConfig, BadInputNamesTheLineAndChangesNothing) {
   HostConfig c;
   std::vector<ConfigError> e;
   ASSERT_TRUE(parseConfig("mpls ldp\n router-id 1.1.1.1\n", c, e));
   HostConfig before = c;
   auto errs = parseErrors(
      "mpls ldp\n"
      " router-id 300.1.1.1\n"                      // 2
      " discovery hello hold-time 0\n"              // 3
      " session keepalive\n"                        // 4
      " label distribution sideways\n"              // 5
      " neighbor 2.2.2.2\n"                         // 6
      " password\n"                                 // 7
      "interface\n"                                 // 8
      "ip prefix-list x seq 5 allow 1.0.0.0/8\n"    // 9
      "ip prefix-list x seq 5 permit 1.0.0.0/33\n"  // 10
      "mpls label range 1048000 1000\n"             // 11
      "frobnicate\n"                                // 12
      "mpls ldp\n hop-count-max 0\n"                // 14
      " hop-count-max 256\n"                        // 15
      " hop-count-max\n"                            // 16
      " no hop-count-max 1 2\n",                    // 17
      &c);
   std::vector<unsigned> lines;
   for (auto const& x : errs) lines.push_back(x.line);
   EXPECT_EQ((std::vector<unsigned>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16, 17}), lines);
   ASSERT_EQ(15u, errs.size());
   EXPECT_NE(std::string::npos, errs[11].message.find("from 1 to 255"));
   EXPECT_NE(std::string::npos, errs[12].message.find("from 1 to 255"));
   EXPECT_NE(std::string::npos, errs[0].message.find("not an IPv4 address"));
   EXPECT_NE(std::string::npos, errs[1].message.find("from 1 to 65535"));
   EXPECT_EQ(before, c);

   // What only the whole configuration shows.
   errs = parseErrors(
      "mpls ldp vrf blue\n fec filter prefix-list nope\n"
      " discovery hello interval 20\nvrf a netns n1\nvrf b netns n1\n");
   ASSERT_EQ(4u, errs.size());
   EXPECT_EQ(0u, errs[0].line);
   std::string all;
   for (auto const& x : errs) all += x.str() + "\n";
   EXPECT_NE(std::string::npos, all.find("VRF blue is not defined"));
   EXPECT_NE(std::string::npos, all.find("prefix list nope, which is not defined"));
   EXPECT_NE(std::string::npos, all.find("hello interval 20 must be below the hello hold time 15"));
   EXPECT_NE(std::string::npos, all.find("namespace n1 is already VRF a's"));
   EXPECT_EQ(1u, parseErrors("vrf default netns x\n").size());
}

namespace {

// Counts every change of one LDP configuration record.
class ConfigWatch : public Vek::Sm {
 public:
   explicit ConfigWatch(Ptr<Ldp::Config const> const& c) {
      r_.is(0, this, c, 0, &ConfigWatch::handleChange);
      initialized_ = true;
   }
   void handleChange(int const&) { ++changes; }
   int changes = 0;

 private:
   Vek::ReactorColl<int, Ldp::Config::MemberReactor<ConfigWatch, int>> r_;
};

// A whole agent over a store on virtual time, with the kernel state written
// by the host's writer and the configuration by the applier.
struct AgentWithConfig : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   // The agent's channels open in the namespace it runs in: here a simulated one.
   Nolu::Sim::Network net;
   Ptr<Ombra::Store> store{new Ombra::Store};
   std::unique_ptr<AgentBase::AgentRunner> runner;
   Ptr<Ldp::Agent> agent;
   std::unique_ptr<KernelStateWriter> kernel;
   Ptr<LabelBlockResponderSm> responder;
   std::unique_ptr<ConfigApplier> applier;

   AgentWithConfig() {
      Vek::activityManagerIs(&am);
      net.hostIs(Nolu::NamespaceName());
      runner = std::make_unique<AgentBase::AgentRunner>(store);
      EXPECT_TRUE(runner->start(Ldp::agentFactory, "LdpAgent"));
      agent = Vek::ptr_cast<Ldp::Agent>(runner->agent());
      KernelTargets t;
      t.kni = Vek::ptr_const_cast<KernelNetInfo::Status>(agent->kniStatus());
      t.ipStatus = Vek::ptr_const_cast<Ip::Status>(agent->ipStatus());
      t.routeStatus = Vek::ptr_const_cast<Tesh::Fib::RouteStatus>(agent->routeStatus());
      t.forwardingStatus =
         Vek::ptr_const_cast<Tesh::Fib::ForwardingStatus>(agent->forwardingStatus());
      kernel = std::make_unique<KernelStateWriter>("default", t);
      responder = LabelBlockResponderSm::LabelBlockResponderSmIs(
         "ldp", agent->mplsLabelRequest(),
         Vek::ptr_const_cast<Mpls::Api::Status>(agent->mplsAgentStatus()));
      ConfigTargets ct = ConfigTargets::fromStore(store);
      ct.labelBlockResponder = responder;
      applier = std::make_unique<ConfigApplier>(ct);
   }
   ~AgentWithConfig() override {
      applier.reset();
      responder = nullptr;
      kernel.reset();
      agent = nullptr;
      runner.reset();
      Ldp::IntfKindRegistry::instance().clear();
   }
   void link(U32 index, std::string const& name, U32 flags, std::string kind = "") {
      LinkInfo l;
      l.ifIndex = index;
      l.name = name;
      l.flags = flags;
      l.mtu = 1500;
      l.kind = std::move(kind);
      kernel->apply(l);
   }
   void addr(U32 index, IpAddr a, U8 len, bool deleted = false) {
      AddrInfo x;
      x.ifIndex = index;
      x.addr = a;
      x.prefixLen = len;
      x.deleted = deleted;
      kernel->apply(x);
   }
   std::vector<ConfigError> apply(std::string const& text, bool replace = true) {
      std::vector<ConfigError> e;
      applier->applyText(text, replace, e);
      return e;
   }
   Ptr<Ldp::ProtoConfig const> pc() const {
      return agent->ldpProtoConfigColl()->protoConfig("default");
   }
};

constexpr U32 kUp = 0x1 | 0x40;  // IFF_UP | IFF_RUNNING
constexpr U32 kLoop = 0x8;       // IFF_LOOPBACK

}  // namespace

TEST_F(AgentWithConfig, AppliedConfigurationRunsAndChangesLive) {
   link(1, "lo", kUp | kLoop);
   addr(1, IpAddr(127, 0, 0, 1), 8);
   addr(1, IpAddr(1, 1, 1, 1), 32);
   link(2, "eth1", kUp);
   addr(2, IpAddr(10, 0, 0, 1), 24);
   link(3, "eth2", kUp);
   addr(3, IpAddr(10, 0, 1, 1), 24);
   ASSERT_TRUE(apply("mpls ldp\n router-id interface lo\n").empty());
   am.runFor(2.0);
   ASSERT_TRUE(pc());
   EXPECT_EQ(Ldp::running_, pc()->runningState()) << pc()->reason();
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc()->routerId());
   EXPECT_EQ("lo", pc()->intfId().name());
   // The host's address of the kernel's loopback never reaches the agent.
   auto vrf = agent->ipStatus()->vrfIpIntfStatus("default");
   EXPECT_EQ(Nolu::IpAddrWithMask(IpAddr(1, 1, 1, 1), 32),
             vrf->ipIntfStatus(IntfId("lo"))->activeAddrWithMask());
   EXPECT_EQ(0u, vrf->ipIntfStatus(IntfId("lo"))->secondaryAddrWithMaskSize());
   // The label block is there for the agent's request.
   EXPECT_EQ(100000u, agent->mplsAgentStatus()->dynamicLabelRangeBase());

   // The same configuration again notifies nobody.
   auto cfg = agent->ldpConfigColl()->config("default");
   auto watch = Vek::makeSm<ConfigWatch>(cfg);
   ASSERT_TRUE(apply("mpls ldp\n router-id interface lo\n").empty());
   EXPECT_EQ(0, watch->changes);

   // Live changes: a targeted neighbour, a password, MPLS off on an
   // interface; each seen by the protocol configuration at once.
   // Outside "mpls ldp" these statements mean nothing.
   EXPECT_EQ(2u, apply("neighbor 3.3.3.3 targeted\npassword abc\n", false).size());
   ASSERT_TRUE(apply("mpls ldp\n neighbor 3.3.3.3 targeted\n password abc\n"
                     "interface eth2\n no mpls ip\n",
                     false)
                  .empty());
   EXPECT_TRUE(pc()->staticTargetHas(Nolu::IpGenAddr(IpAddr(3, 3, 3, 3))));
   EXPECT_EQ("abc", pc()->md5Password());
   EXPECT_TRUE(cfg->md5PasswordEncoded());
   EXPECT_NE("abc", cfg->md5Password());
   auto links = agent->ldpStatusColl()->status("default")->ldpLinkConfigColl();
   EXPECT_TRUE(links->adjLinkConfigHas(IntfId("eth1")));
   EXPECT_FALSE(links->adjLinkConfigHas(IntfId("eth2")));

   // A bad statement among good ones changes nothing at all.
   int before = watch->changes;
   auto errs = apply("mpls ldp\n neighbor 4.4.4.4 targeted\n router-id 1.2.3\n", false);
   ASSERT_EQ(1u, errs.size());
   EXPECT_EQ(3u, errs[0].line);
   EXPECT_EQ(before, watch->changes);
   EXPECT_FALSE(pc()->staticTargetHas(Nolu::IpGenAddr(IpAddr(4, 4, 4, 4))));

   // The hop count limit reaches the protocol configuration live, its "no"
   // form gives the default back, and a limit out of range is refused.
   EXPECT_EQ(255, pc()->ldpHopCountMax());
   ASSERT_TRUE(apply("mpls ldp\n hop-count-max 12\n", false).empty());
   EXPECT_EQ(12, pc()->ldpHopCountMax());
   EXPECT_EQ(1u, apply("mpls ldp\n hop-count-max 300\n", false).size());
   EXPECT_EQ(12, pc()->ldpHopCountMax());
   ASSERT_TRUE(apply("mpls ldp\n no hop-count-max\n", false).empty());
   EXPECT_EQ(255, pc()->ldpHopCountMax());

   // Forcing a new router id after a higher loopback came up moves it.
   link(4, "dummy0", kUp, "dummy");
   addr(4, IpAddr(5, 5, 5, 5), 32);
   ASSERT_TRUE(apply("mpls ldp\n no router-id\n", false).empty());
   am.runFor(2.0);
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc()->routerId());
   Vek::Ptr<Ldp::Config>(Vek::ptr_const_cast<Ldp::Config>(cfg))->forceRouterIdIs(am.now());
   am.runFor(2.0);
   EXPECT_EQ(IpAddr(5, 5, 5, 5), pc()->routerId());
   EXPECT_TRUE(Ldp::isLoopbackInterface(IntfId("dummy0")));

   // A management interface is never the router id, and shutdown disables.
   ASSERT_TRUE(apply("management interface dummy0\nmpls ldp\n shutdown\n", false).empty());
   EXPECT_TRUE(Ldp::isManagementOrInternalInterface(IntfId("dummy0")));
   am.runFor(2.0);
   EXPECT_EQ(Ldp::disabled_, pc()->runningState());
   EXPECT_EQ("LDP is disabled in LDP config", pc()->reason());
   ASSERT_TRUE(apply("mpls ldp\n no shutdown\n", false).empty());
   Vek::ptr_const_cast<Ldp::Config>(cfg)->forceRouterIdIs(am.now());
   am.runFor(2.0);
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc()->routerId());

   // Removing LDP removes the record; the label range follows its statement.
   ASSERT_TRUE(apply("mpls label range 300000 500\n").empty());
   EXPECT_FALSE(pc());
   EXPECT_FALSE(agent->ldpConfigColl()->config("default"));
   EXPECT_EQ(300000u, agent->mplsAgentStatus()->dynamicLabelRangeBase());
   EXPECT_FALSE(Ldp::isManagementOrInternalInterface(IntfId("dummy0")));
}

TEST_F(AgentWithConfig, LabelBlockAnswersTheAgentsRequest) {
   auto req = Vek::ptr_const_cast<Mpls::ClientLabelRequest>(
      Vek::Ptr<Mpls::ClientLabelRequest const>(agent->mplsLabelRequest()));
   auto status = agent->mplsAgentStatus();
   EXPECT_FALSE(status->labelBlockAllocation("ldp"));
   req->labelRequestIs("main")->sizeIs(16384);
   auto block = status->labelBlockAllocation("ldp");
   ASSERT_TRUE(block);
   // The range but its top 1024 labels, which pseudowires take.
   EXPECT_EQ(100000u, block->base());
   EXPECT_EQ(16384u - 1024u, block->size());
   // A smaller range gives a smaller block; the request going takes it back.
   ASSERT_TRUE(apply("mpls label range 500000 100\n").empty());
   EXPECT_EQ(500000u, block->base());
   EXPECT_EQ(75u, block->size());
   // A larger range than asked for is all LDP's, but the pseudowires' top.
   ASSERT_TRUE(apply("mpls label range 100000 400000\n").empty());
   EXPECT_EQ(100000u, block->base());
   EXPECT_EQ(400000u - pseudowireLabelCount(400000), block->size());
   EXPECT_GT(block->size(), 100000u);
   req->labelRequestDel("main");
   EXPECT_FALSE(status->labelBlockAllocation("ldp"));
}

TEST(HostConfig, PseudowireStatements) {
   HostConfig c;
   std::vector<ConfigError> e;
   ASSERT_TRUE(parseConfig("pseudowire pw1\n neighbor 2.2.2.2 pw-id 10\n pw-type ethernet-vlan\n"
                           " mtu 9000\n control-word\n no pw-status-tlv\n shutdown\n"
                           "pseudowire pw2\n neighbor 2.2.2.2 pw-id 11\n",
                           c, e))
      << (e.empty() ? "" : e[0].str());
   auto const& pw = c.pseudowires.at("pw1");
   EXPECT_EQ(IpAddr(2, 2, 2, 2), pw.neighbor);
   EXPECT_EQ(10u, pw.pwId);
   EXPECT_EQ(Pseudowire::pwTypeEthernetTagged_, pw.type);
   EXPECT_EQ(9000u, pw.mtu);
   EXPECT_TRUE(pw.controlWord);
   EXPECT_FALSE(pw.pwStatusTlv);
   EXPECT_TRUE(pw.shutdown);
   EXPECT_EQ(PseudowireConfig().mtu, c.pseudowires.at("pw2").mtu);
   HostConfig again;
   ASSERT_TRUE(parseConfig(renderConfig(c), again, e));
   EXPECT_EQ(c, again);
   // The "no" forms bring the defaults back; "no pseudowire" removes it.
   ASSERT_TRUE(parseConfig("pseudowire pw1\n no pw-type\n no mtu\n no control-word\n"
                           " pw-status-tlv\n no shutdown\nno pseudowire pw2\n",
                           c, e));
   EXPECT_EQ(Pseudowire::pwTypeEthernet_, c.pseudowires.at("pw1").type);
   EXPECT_EQ(1500u, c.pseudowires.at("pw1").mtu);
   EXPECT_FALSE(c.pseudowires.at("pw1").shutdown);
   EXPECT_TRUE(c.pseudowires.at("pw1").pwStatusTlv);
   EXPECT_FALSE(c.pseudowires.count("pw2"));

   // Bad statements name their line; what only the whole shows is told too.
   auto errs = parseErrors("pseudowire pw1\n neighbor 2.2.2.2\n neighbor 224.0.0.1 pw-id 1\n"
                           " neighbor 2.2.2.2 pw-id 0\n pw-type atm\n mtu 10\n control-word on\n"
                           "pseudowire a/b\n");
   std::vector<unsigned> lines;
   for (auto const& x : errs) lines.push_back(x.line);
   EXPECT_EQ((std::vector<unsigned>{2, 3, 4, 5, 6, 7, 8}), lines);
   errs = parseErrors("pseudowire pw1\npseudowire pw2\n neighbor 2.2.2.2 pw-id 5\n"
                      "pseudowire pw3\n neighbor 2.2.2.2 pw-id 5\n");
   std::string all;
   for (auto const& x : errs) all += x.str() + "\n";
   EXPECT_NE(std::string::npos, all.find("pseudowire pw1: no 'neighbor A.B.C.D pw-id N'"));
   EXPECT_NE(std::string::npos, all.find("pw-id 5 is pseudowire pw2 already"));
   EXPECT_NE(std::string::npos,
             parseErrors("mpls label range 1000 8\npseudowire a\n neighbor 2.2.2.2 pw-id 1\n"
                         "pseudowire b\n neighbor 2.2.2.2 pw-id 2\npseudowire c\n"
                         " neighbor 2.2.2.2 pw-id 3\n")
                .at(0)
                .message.find("keeps 2 labels for pseudowires"));
}

TEST_F(AgentWithConfig, PseudowiresBecomeRequestsWithLabelsAtTheTopOfTheRange) {
   auto const& reqs = *agent->pwLdpConfig();
   ASSERT_TRUE(apply("pseudowire pw1\n neighbor 2.2.2.2 pw-id 10\n mtu 9000\n"
                     "pseudowire pw2\n neighbor 3.3.3.3 pw-id 10\n shutdown\n")
                  .empty());
   Pseudowire::PseudowireLdpRequestKey k1(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)),
                                          Pseudowire::PseudowireId(10));
   Pseudowire::PseudowireLdpRequestKey k2(Nolu::IpGenAddr(IpAddr(3, 3, 3, 3)),
                                          Pseudowire::PseudowireId(10));
   auto r1 = reqs.ldpRequest(k1);
   auto r2 = reqs.ldpRequest(k2);
   ASSERT_TRUE(r1 && r2);
   // Labels come from the slice above the label layer's block.
   U32 first = 100000 + 16384 - 1024;
   EXPECT_EQ(first, r1->localLabel().value());
   EXPECT_EQ(first + 1, r2->localLabel().value());
   EXPECT_EQ(9000u, r1->mtu());
   EXPECT_EQ(Pseudowire::pwTypeEthernet_, r1->pwType());
   EXPECT_EQ(Pseudowire::connectorUp, r1->status());
   EXPECT_EQ(Pseudowire::connectorAdminDown, r2->status());
   // Live: a label stays with its pseudowire; a new one takes the free one;
   // a moved pseudowire leaves its old request.
   ASSERT_TRUE(apply("no pseudowire pw1\npseudowire pw2\n no shutdown\n"
                     " neighbor 4.4.4.4 pw-id 7\npseudowire pw3\n neighbor 2.2.2.2 pw-id 3\n",
                     false)
                  .empty());
   EXPECT_FALSE(reqs.ldpRequest(k1));
   EXPECT_FALSE(reqs.ldpRequest(k2));
   Pseudowire::PseudowireLdpRequestKey k4(Nolu::IpGenAddr(IpAddr(4, 4, 4, 4)),
                                          Pseudowire::PseudowireId(7));
   Pseudowire::PseudowireLdpRequestKey k3(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)),
                                          Pseudowire::PseudowireId(3));
   ASSERT_TRUE(reqs.ldpRequest(k4) && reqs.ldpRequest(k3));
   EXPECT_EQ(first + 1, reqs.ldpRequest(k4)->localLabel().value());
   EXPECT_EQ(first, reqs.ldpRequest(k3)->localLabel().value());
   EXPECT_EQ(Pseudowire::connectorUp, reqs.ldpRequest(k4)->status());
   // A bad statement changes nothing.
   EXPECT_FALSE(apply("pseudowire pw3\n mtu 70000\n", false).empty());
   EXPECT_EQ(1500u, reqs.ldpRequest(k3)->mtu());
}

TEST(HostConfig, LabelBindingStatementsLocalAndRemote) {
   HostConfig c;
   std::vector<ConfigError> e;
   ASSERT_TRUE(parseConfig("mpls ldp\n"
                           " label binding 10.9.0.1/32 local 5000\n"
                           " label binding 10.9.0.1/32 remote 300 nexthop 10.0.1.2\n"
                           " label binding 10.9.0.2/32 remote implicit-null nexthop 10.0.1.3\n"
                           " label binding 10.9.0.3/32 remote 0 nexthop 10.0.1.3\n",
                           c, e))
      << (e.empty() ? "" : e[0].str());
   auto const& l = c.ldp.at("default");
   Nolu::Prefix p1 = *Nolu::Prefix::fromString("10.9.0.1/32");
   Nolu::Prefix p2 = *Nolu::Prefix::fromString("10.9.0.2/32");
   EXPECT_EQ(5000u, l.staticBindings.at(p1));
   EXPECT_EQ((LdpVrfConfig::RemoteBinding{300, IpAddr(10, 0, 1, 2)}), l.staticRemoteBindings.at(p1));
   EXPECT_EQ((LdpVrfConfig::RemoteBinding{3, IpAddr(10, 0, 1, 3)}), l.staticRemoteBindings.at(p2));
   EXPECT_EQ(0u, l.staticRemoteBindings.at(*Nolu::Prefix::fromString("10.9.0.3/32")).label);
   std::string text = renderConfig(c);
   EXPECT_NE(std::string::npos,
             text.find("label binding 10.9.0.2/32 remote implicit-null nexthop 10.0.1.3\n"));
   HostConfig again;
   ASSERT_TRUE(parseConfig(text, again, e));
   EXPECT_EQ(c, again);

   // Each half goes by its own "no"; the prefix alone takes both.
   ASSERT_TRUE(parseConfig("mpls ldp\n no label binding 10.9.0.1/32 remote\n"
                           " no label binding 10.9.0.2/32 remote implicit-null nexthop 10.0.1.3\n",
                           c, e));
   EXPECT_TRUE(c.ldp.at("default").staticBindings.count(p1));
   EXPECT_FALSE(c.ldp.at("default").staticRemoteBindings.count(p1));
   EXPECT_FALSE(c.ldp.at("default").staticRemoteBindings.count(p2));
   ASSERT_TRUE(parseConfig("mpls ldp\n label binding 10.9.0.1/32 remote 7 nexthop 10.0.1.2\n"
                           " no label binding 10.9.0.1/32 local\n",
                           c, e));
   EXPECT_FALSE(c.ldp.at("default").staticBindings.count(p1));
   EXPECT_TRUE(c.ldp.at("default").staticRemoteBindings.count(p1));
   ASSERT_TRUE(parseConfig("mpls ldp\n no label binding 10.9.0.1/32\n", c, e));
   EXPECT_FALSE(c.ldp.at("default").staticRemoteBindings.count(p1));

   // Refusals, each on its line, and nothing changes.
   HostConfig before = c;
   auto errs = parseErrors("mpls ldp\n"
                           " label binding 10.9.0.1/32 remote 300\n"                    // 2
                           " label binding 10.9.0.1/32 remote 1048576 nexthop 1.2.3.4\n" // 3
                           " label binding 10.9.0.1/32 remote 30 nexthop 0.0.0.0\n"     // 4
                           " label binding 10.9.0.1/32 remote 30 nexthop 224.0.0.2\n"   // 5
                           " label binding 10.9.0.1/32 remote 30 nexthop 10.0.1\n"      // 6
                           " label binding 10.9.0.1/32 remote 30 via 10.0.1.2\n"        // 7
                           " label binding 10.9.0.1/33 remote 30 nexthop 10.0.1.2\n"    // 8
                           " label binding 10.9.0.1/32 remote x nexthop 10.0.1.2\n"     // 9
                           " label binding 10.9.0.1/32 local 15\n"                      // 10
                           " no label binding 10.9.0.1/32 remote 30 nexthop\n",         // 11
                           &c);
   std::vector<unsigned> lines;
   for (auto const& x : errs) lines.push_back(x.line);
   EXPECT_EQ((std::vector<unsigned>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), lines);
   ASSERT_EQ(10u, errs.size());
   EXPECT_NE(std::string::npos, errs[0].message.find("remote LABEL|implicit-null nexthop"));
   EXPECT_NE(std::string::npos, errs[1].message.find("the remote label"));
   EXPECT_NE(std::string::npos, errs[2].message.find("not a next-hop address"));
   EXPECT_NE(std::string::npos, errs[4].message.find("not an IPv4 address"));
   EXPECT_EQ(before, c);
}

TEST_F(AgentWithConfig, StaticBindingsReachTheAgentsConfigurationLive) {
   link(1, "lo", kUp | kLoop);
   addr(1, IpAddr(1, 1, 1, 1), 32);
   ASSERT_TRUE(apply("mpls ldp\n router-id interface lo\n label binding 10.9.0.1/32 local 5000\n"
                     " label binding 10.9.0.1/32 remote 300 nexthop 10.0.1.2\n"
                     " label binding 10.9.0.2/32 remote implicit-null nexthop 10.0.1.3\n")
                  .empty());
   auto cfg = agent->ldpConfigColl()->config("default");
   ASSERT_TRUE(cfg);
   auto e1 = cfg->staticFecBindingColl(Mpls::FwdEqvClass(*Nolu::Prefix::fromString("10.9.0.1/32")));
   auto e2 = cfg->staticFecBindingColl(Mpls::FwdEqvClass(*Nolu::Prefix::fromString("10.9.0.2/32")));
   ASSERT_TRUE(e1 && e2);
   EXPECT_EQ(Nolu::MplsLabel(5000), e1->localLabel());
   EXPECT_EQ(Nolu::MplsLabel(300), e1->outLabel());
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(10, 0, 1, 2)), e1->nexthop());
   EXPECT_TRUE(e2->localLabel().isNull());
   EXPECT_EQ(Nolu::MplsLabel(3), e2->outLabel());

   // Once a session has told the next hop's address, the label is the
   // prefix's in that LSR's table, and the bindings show it.
   am.runFor(3.0);
   auto st = agent->ldpStatusColl()->status("default");
   ASSERT_TRUE(st);
   Vek::ptr_const_cast<Ldp::LdpIdIntfIpMappingTable>(st->ldpIdIntfIpMappingTable())
      ->intfIpToLdpIdIs(Nolu::IpGenAddr(IpAddr(10, 0, 1, 2)),
                        Ldp::LdpIdentifier(IpAddr(2, 2, 2, 2), 0));
   {
      auto t = st->peerLabelBindingTableColl()->peerLabelBindingTable(
         Mpls::RouterId(IpAddr(2, 2, 2, 2).value(), 0));
      ASSERT_TRUE(t);
      auto const* row = t->bindingFind(e1->fec());
      ASSERT_TRUE(row);
      EXPECT_TRUE(row->mplsLabelHas(Nolu::MplsLabel(300)));
   }
   ShowContext ctx;
   ctx.agent = agent.ptr();
   ctx.config = applier.get();
   std::string out;
   ASSERT_TRUE(runShow({"mpls", "ldp", "bindings", "10.9.0.1/32"}, true, ctx, &out)) << out;
   EXPECT_NE(std::string::npos, out.find("\"static\"")) << out;
   EXPECT_NE(std::string::npos, out.find("2.2.2.2:0")) << out;
   EXPECT_NE(std::string::npos, out.find("5000")) << out;

   // The remote half goes and the local one stays in the same entry; a
   // prefix with neither goes.
   ASSERT_TRUE(apply("mpls ldp\n label binding 10.9.0.1/32 local 5000\n").empty());
   EXPECT_EQ(1u, cfg->staticFecBindingCollSize());
   EXPECT_EQ(e1, cfg->staticFecBindingColl(e1->fec()));
   EXPECT_TRUE(e1->outLabel().isNull());
   EXPECT_TRUE(e1->nexthop().isUnspecified());
   EXPECT_EQ(Nolu::MplsLabel(5000), e1->localLabel());
   EXPECT_EQ(0u, st->peerLabelBindingTableColl()->peerLabelBindingTableSize());
}

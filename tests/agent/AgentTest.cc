// Start-up of the agent over the embedded state database, and the small
// platform services that it uses.
#include <gtest/gtest.h>

#include "agent/AgentCommand.h"
#include "agent/IntfStatusManager.h"
#include "agent/LdpAgent.h"
#include "agent/SecretCliLib.h"
#include "entities/Functions.h"

using Vek::Ptr;

namespace {

struct VirtualTime {
   VirtualTime() { Vek::activityManagerIs(&am); }
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
};

std::vector<Ombra::Mount> expectedMounts() {
   return {
      {"l3/config", "L3::Config", "r"},
      {"mpls/ldp/ldpConfigColl", "Ldp::LdpConfigColl", "r"},
      {"mpls/ldp/ldpProtoConfigColl", "Ldp::LdpProtoConfigColl", "r"},
      {"mpls/ldp/ldpEnabledVrfColl", "Ldp::LdpEnabledVrfColl", "r"},
      {"mpls/ldp/ldpStatusColl", "Ldp::LdpStatusColl", "rw"},
      {"mpls/ldp/ldpAgentStatus", "Ldp::LdpAgentStatus", "rw"},
      {"mpls/config/labelRequest/ldp", "Mpls::ClientLabelRequest", "wc"},
      {"mpls/status", "Mpls::Api::Status", "r"},
      {"routing/hardware/mpls/status", "Mpls::Hardware::Status", "r"},
      {"mpls/ldp/linkReadyStatus", "Ldp::LdpLinkReadyStatusVrfColl", "rw"},
      {"routing/mpls/config", "Mpls::Config", "r"},
      {"routing/config", "Routing::Config", "r"},
      {"routing/acl/config", "Acl::AclListConfig", "r"},
      {"cell/1/ip/vrf/status/local", "Ip::AllVrfStatusLocal", "r"},
      {"ip/status", "Ip::Status", "r"},
      {"bridging/config", "Bridging::Config", "r"},
      {"acl/config/input", "Vek::Dir", "ri"},
      {"acl/config/cli", "Acl::Input::Config", "r"},
      {"pseudowire/ldp/config", "Pseudowire::PseudowireLdpConfig", "r"},
      {"pseudowire/ldp/status", "Pseudowire::PseudowireLdpStatus", "wc"},
      {"tunnel/protoTunnelRib/sr", "Tunnel::TunnelTable::TunnelRib", "r"},
      {"cell/1/agent/commandRequest/config/LdpAgent", "Vek::Dir", "ri"},
   };
}

}  // namespace

TEST(Agent, StartOnEmptyStoreAndRestart) {
   VirtualTime vt;
   AgentBase::AgentRunner runner;
   ASSERT_TRUE(runner.start(Ldp::agentFactory, "LdpAgent"));
   auto agent = Vek::ptr_cast<Ldp::Agent>(runner.agent());
   ASSERT_TRUE(agent);

   EXPECT_EQ(expectedMounts(), agent->mountLog());
   std::vector<Ombra::Mount> tesh = {
      {"routing/status", "Tesh::Fib::RouteStatus", "tesh"},
      {"forwarding/status", "Tesh::Fib::ForwardingStatus", "tesh"},
      {"kni/ns/default/status", "KernelNetInfo::Status", "tesh"},
   };
   EXPECT_EQ(tesh, agent->teshMountLog());
   EXPECT_EQ((std::vector<std::string>{"fecModeSm", "fecModeRestartSm", "aclConfigAggregatorSm",
                                       "ldpEventMonSmManager", "ldpProtoConfigSmManager",
                                       "ldpRootSm"}),
             agent->madeLog());

   // Every mounted entity was made in the store and fetched by its type.
   for (auto const& m : expectedMounts()) {
      EXPECT_TRUE(runner.store()->entity(m.path)) << m.path;
      EXPECT_EQ(m.typeName, runner.store()->typeName(m.path));
   }
   EXPECT_TRUE(agent->ldpConfigColl() && agent->ipStatus() && agent->cliRequestDir() &&
               agent->pwLdpStatus() && agent->srTunnelRib() && agent->kniStatus() &&
               agent->routeStatus() && agent->forwardingStatus());
   EXPECT_EQ("LdpAgent", agent->scheduler()->name());
   EXPECT_TRUE(agent->scheduler()->hasNotificationActive());
   EXPECT_EQ(100u, agent->timerWheel()->tickMsecs());
   EXPECT_EQ(300.0, agent->timerWheel()->span());
   EXPECT_TRUE(agent->allIntfStatusDir() && agent->allIntfStatusLocalDir());
   EXPECT_TRUE(agent->localEntitiesCreated());
   // Local directories are the agent's, not the store's.
   EXPECT_FALSE(runner.store()->entity("interface/status/all"));
   // Split forwarding unless configured otherwise.
   EXPECT_EQ(Tesh::Fib::fecModeSplit_, agent->fecModeStatus()->fecMode());

   // The root counts each start.
   EXPECT_EQ(1u, agent->ldpAgentStatus()->numStartups());
   auto store = runner.store();
   agent = nullptr;
   runner.stop();

   // A new agent over the same store sees what the old one wrote.
   AgentBase::AgentRunner again(store);
   ASSERT_TRUE(again.start(Ldp::agentFactory, "LdpAgent"));
   auto second = Vek::ptr_cast<Ldp::Agent>(again.agent());
   EXPECT_EQ(2u, second->ldpAgentStatus()->numStartups());
   EXPECT_EQ(expectedMounts(), second->mountLog());
}

TEST(Agent, UnifiedForwardingModeChoosesTheUnifiedTable) {
   VirtualTime vt;
   Ldp::entityTypesRegister();
   Ptr<Ombra::Store> store(new Ombra::Store);
   Ptr<L3::Config> l3(new L3::Config);
   l3->unifiedForwardingIs(true);
   store->entityIs("l3/config", "L3::Config", l3);
   AgentBase::AgentRunner runner(store);
   ASSERT_TRUE(runner.start(Ldp::agentFactory, "LdpAgent"));
   auto agent = Vek::ptr_cast<Ldp::Agent>(runner.agent());
   EXPECT_EQ(Tesh::Fib::fecModeUnified_, agent->fecModeStatus()->fecMode());
   EXPECT_EQ("forwarding/unifiedStatus", agent->teshMountLog()[1].path);
   EXPECT_TRUE(agent->l3Config() == l3);

   // A change of mode after start-up asks for a restart, once.
   l3->unifiedForwardingIs(false);
   EXPECT_TRUE(agent->fecModeRestartSm()->restartRequired());
   l3->unifiedForwardingIs(true);
   l3->unifiedForwardingIs(false);
   EXPECT_EQ(1u, agent->fecModeStatus()->modeChangeCount());
}

TEST(Ombra, MountGroupsAndTables) {
   Ldp::entityTypesRegister();
   Ptr<Ombra::Store> store(new Ombra::Store);
   store->entityIs("taken", "Ldp::LdpAgentStatus", Ptr<Vek::Entity>(new Ldp::LdpAgentStatus));
   Ptr<Ombra::EntityManager> em(new Ombra::EntityManager(store));
   Ombra::Mounter mounter("m");

   auto good = em->getMountGroup(&mounter);
   good->doMount(Ombra::Mount("mpls/ldp/ldpStatusColl", "Ldp::LdpStatusColl", "rw"));
   good->doMount(Ombra::Mount("taken", "Ldp::LdpAgentStatus", "rw"));
   good->doClose();
   // Nothing is reachable before the group completes.
   EXPECT_FALSE(em->getEntity("mpls/ldp/ldpStatusColl"));
   EXPECT_EQ(Ombra::mountSuccess_, good->complete());
   EXPECT_TRUE(em->getEntity<Ldp::LdpStatusColl>("mpls/ldp/ldpStatusColl"));
   EXPECT_TRUE(em->getEntity("taken") == store->entity("taken"));
   // A cast to another type gives null.
   EXPECT_FALSE(em->getEntity<Ldp::LdpStatusColl>("taken"));

   // A path that holds another type, or a type that nobody registered, fails.
   auto bad = em->getMountGroup(&mounter);
   bad->doMount(Ombra::Mount("taken", "Ldp::LdpStatusColl", "r"));
   bad->doClose();
   EXPECT_EQ(Ombra::mountFailure_, bad->complete());
   EXPECT_NE(std::string::npos, bad->failure().find("Ldp::LdpAgentStatus"));
   auto unknown = em->getMountGroup(&mounter);
   unknown->doMount(Ombra::Mount("x", "No::SuchType", "r"));
   unknown->doClose();
   EXPECT_EQ(Ombra::mountFailure_, unknown->complete());

   VekTesh::Mount tesh(store);
   EXPECT_TRUE(tesh.doMount("routing/status", "Tesh::Fib::RouteStatus"));
   EXPECT_FALSE(tesh.doMount("taken", "Tesh::Fib::RouteStatus"));
   EXPECT_TRUE(tesh.getEntity<Tesh::Fib::RouteStatus>("routing/status"));
   tesh.doUnmount("routing/status");
   EXPECT_FALSE(tesh.getEntity("routing/status"));
   EXPECT_TRUE(store->entity("routing/status"));
   tesh.doMount("routing/status", "Tesh::Fib::RouteStatus");
   tesh.cleanup("routing/status");
   EXPECT_FALSE(store->entity("routing/status"));
   EXPECT_EQ("cell/1/x", Cell::path("x"));
}

TEST(Services, ServiceAclThroughTheAggregator) {
   VirtualTime vt;
   Ptr<Acl::Input::Config> cli(new Acl::Input::Config);
   Ptr<Acl::Config> out(new Acl::Config);
   auto agg = Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(nullptr, cli, out);
   auto filter = Acl::ServiceAclFilterSm::ServiceAclFilterSmIs(out);
   Nolu::IpGenAddr peer(*Nolu::IpAddr::fromString("10.0.0.1"));
   Nolu::IpGenAddr local(*Nolu::IpAddr::fromString("10.0.0.2"));
   EXPECT_TRUE(filter->matchesConnection("default", peer, local, 1000, 646, 6, false));

   auto rule = cli->serviceAclRuleIs(10);
   rule->srcPrefixIs(*Nolu::IpGenPrefix::fromString("10.0.0.0/24"));
   rule->protocolIs(6);
   EXPECT_EQ(1u, out->serviceAclRuleSize());
   EXPECT_FALSE(filter->matchesConnection("default", peer, local, 1000, 646, 6, false));
   EXPECT_TRUE(filter->matchesConnection("default", peer, local, 1000, 646, 17, false));
   // A change of a rule's field reaches the merged configuration.
   rule->vrfIs("red");
   EXPECT_TRUE(filter->matchesConnection("default", peer, local, 1000, 646, 6, false));
   EXPECT_FALSE(filter->matchesConnection("red", peer, local, 1000, 646, 6, false));
   cli->serviceAclRuleDel(10);
   EXPECT_TRUE(filter->matchesConnection("red", peer, local, 1000, 646, 6, false));
}

TEST(Services, InterfaceDirectoriesFromKernelState) {
   VirtualTime vt;
   Ldp::IntfKindRegistry::instance().clear();
   Ptr<KernelNetInfo::Status> kni(new KernelNetInfo::Status);
   Ptr<Interface::AllIntfStatusDir> all(new Interface::AllIntfStatusDir);
   Ptr<Interface::AllIntfStatusLocalDir> local(new Interface::AllIntfStatusLocalDir);
   auto lo = kni->intfIs(1);
   lo->nameIs("dummy0");
   lo->loopbackIs(true);
   lo->operStatusIs(Interface::intfOperUp_);
   auto mgr = Interface::NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(kni, all, local);
   auto s = all->intfStatus(Nolu::IntfId("dummy0"));
   ASSERT_TRUE(s);
   EXPECT_EQ(Interface::intfOperUp_, s->operStatus());
   EXPECT_TRUE(local->intfStatus(Nolu::IntfId("dummy0")));
   EXPECT_TRUE(Ldp::isLoopbackInterface(Nolu::IntfId("dummy0")));

   auto eth = kni->intfIs(2);
   eth->nameIs("eth1");
   eth->mtuIs(9000);
   ASSERT_TRUE(all->intfStatus(Nolu::IntfId("eth1")));
   EXPECT_EQ(9000u, all->intfStatus(Nolu::IntfId("eth1"))->mtu());
   // A rename moves the entry; a removal drops it and its loopback mark.
   eth->nameIs("eth2");
   EXPECT_FALSE(all->intfStatus(Nolu::IntfId("eth1")));
   EXPECT_TRUE(all->intfStatus(Nolu::IntfId("eth2")));
   kni->intfDel(1);
   EXPECT_FALSE(all->intfStatus(Nolu::IntfId("dummy0")));
   EXPECT_FALSE(local->intfStatus(Nolu::IntfId("dummy0")));
   EXPECT_FALSE(Ldp::isLoopbackInterface(Nolu::IntfId("dummy0")));
}

TEST(Services, StoredKeys) {
   for (std::string key : {std::string(), std::string("secret"), std::string("a\0b\xff", 4)}) {
      auto stored = SecretCliLib::doEncodeKey(key, "10.0.0.1");
      EXPECT_EQ(key, SecretCliLib::doDecodeKey(stored, "10.0.0.1"));
      if (!key.empty()) EXPECT_EQ(std::string::npos, stored.find(key));
   }
   EXPECT_NE(SecretCliLib::doEncodeKey("k", "a"), SecretCliLib::doEncodeKey("k", "b"));
   // Text that isn't an encoded key is refused, not decoded into garbage.
   EXPECT_FALSE(SecretCliLib::doDecodeKey("secret"));
   EXPECT_FALSE(SecretCliLib::doDecodeKey("7A"));
   EXPECT_FALSE(SecretCliLib::doDecodeKey("7ZZ00"));
   EXPECT_FALSE(SecretCliLib::doDecodeKey(""));
}

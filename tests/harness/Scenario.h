#pragma once
// Simulation scenarios: several LDP agents in one process, each with its own
// state database and simulated host (namespace = agent name) on one shared
// simulated network, on virtual time. A test builds the topology in a few
// lines, writes each agent's kernel and IP status and LDP configuration, runs
// time forward, and reads any agent's entities, the trace ring and the PDUs
// that crossed each link.
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/LdpAgent.h"
#include "runtime/nolu/Sim.h"
#include "wire/LdpParser.h"

namespace LdpTest {

class Scenario;

// A Hello as it crossed a link, decoded.
struct HelloRecord {
   Vek::Seconds time = 0.0;
   Nolu::IpAddr srcIpAddr;
   U16 srcPort = 0;
   Nolu::IpAddr dstIpAddr;
   U16 dstPort = 0;
   U8 tos = 0;
   U8 ttl = 0;
   Ldp::LdpIdentifier ldpIdentifier;
   U32 msgId = 0;
   U16 holdTime = 0;
   bool targeted = false;
   bool requestTargeted = false;
   Nolu::IpGenAddr transportAddr;
   bool hasConfigSeqNum = false;
   U32 configSeqNum = 0;
};

class AgentNode {
 public:
   AgentNode(Scenario* s, std::string name);
   ~AgentNode();
   AgentNode(AgentNode const&) = delete;
   AgentNode& operator=(AgentNode const&) = delete;

   std::string const& name() const { return name_; }
   Ldp::Agent* agent() const { return agent_.ptr(); }
   Nolu::Sim::Host* host() const { return host_; }
   Vek::Ptr<Ombra::Store> const& store() const { return runner_.store(); }

   // An interface of the host, with its kernel entry and address; link may be
   // null. A second call for the same interface adds a secondary address.
   void intfIs(std::string const& intf, Nolu::Sim::Link* link, Nolu::IpAddrWithMask addr,
               bool loopback = false);
   // A loopback interface "lo" with the address, which becomes the router id.
   void loopback(std::string const& addr);
   void intfOperStatusIs(std::string const& intf, Interface::IntfOperStatus s);
   // LDP enabled in a VRF with default settings.
   void ldp(std::string const& vrf = "default");
   void staticTargetIs(std::string const& addr, bool on = true, std::string const& vrf = "default");
   void mplsDisabledIs(std::string const& intf, bool disabled);

   // The entities, writable for the test.
   Vek::Ptr<Ldp::Config> config(std::string const& vrf = "default") const;
   Vek::Ptr<KernelNetInfo::Status> kniStatus() const;
   Vek::Ptr<Ip::Status> ipStatus() const;
   Ldp::Status* status(std::string const& vrf = "default") const;
   Ldp::LdpRoot* root(std::string const& vrf = "default") const;
   Ldp::ProtoConfig const* protoConfig(std::string const& vrf = "default") const;

   std::size_t adjacencyCount(std::string const& vrf = "default") const;
   std::size_t peerCount(std::string const& vrf = "default") const;
   std::size_t sessionConfigCount(std::string const& vrf = "default") const;
   Ldp::LdpAdjStatus const* adjStatus(Ldp::LdpAdjId const& id,
                                      std::string const& vrf = "default") const;
   Ldp::LdpPeerConfig const* peer(Ldp::LdpIdentifier const& id,
                                  std::string const& vrf = "default") const;
   // The first adjacency of the given kind, or null.
   Ldp::LdpAdjStatus const* firstAdj(Ldp::LdpAdjType type,
                                     std::string const& vrf = "default") const;
   U32 ifIndex(std::string const& intf) const;

 private:
   Scenario* s_;
   std::string name_;
   Nolu::Sim::Host* host_;
   AgentBase::AgentRunner runner_;
   Vek::Ptr<Ldp::Agent> agent_;
   std::map<std::string, U32> ifIndex_;
};

class Scenario {
 public:
   Scenario();
   ~Scenario();
   Scenario(Scenario const&) = delete;
   Scenario& operator=(Scenario const&) = delete;

   // The agent of a name, made and started on first use.
   AgentNode& agent(std::string const& name);
   Nolu::Sim::Network& net() { return *net_; }
   Vek::ActivityManager& am() { return am_; }
   Vek::Seconds now() const { return am_.now(); }

   // A point-to-point link between two agents' interfaces, named "a:ai-b:bi".
   Nolu::Sim::Link* link(std::string const& a, std::string const& aIntf, std::string const& aAddr,
                         std::string const& b, std::string const& bIntf,
                         std::string const& bAddr);
   Nolu::Sim::Link* linkOf(std::string const& a, std::string const& aIntf) const;

   void runFor(Vek::Seconds d) { am_.runFor(d); }
   bool runUntil(std::function<bool()> const& cond, Vek::Seconds limit) {
      return am_.runUntil(cond, limit);
   }

   // The trace: levels per module ("*" for all), and the shared ring.
   void traceLevelIs(std::string const& module, int level);
   bool traced(std::string const& text) const { return Vek::traceRing().contains(text); }
   std::size_t tracedCount(std::string const& text) const {
      return Vek::traceRing().count(text);
   }
   void traceClear() { Vek::traceRing().clear(); }

   // What crossed a link, as a packet for the wire parsers, and decoded.
   static Vek::Ptr<Nolu::Pkt> pktOf(Nolu::Sim::Record const& r);
   // The Hellos among a link's records; from = 0.0.0.0 takes every sender.
   std::vector<HelloRecord> hellos(Nolu::Sim::Link const* link,
                                   Nolu::IpAddr from = Nolu::IpAddr()) const;

 private:
   friend class AgentNode;
   Vek::ActivityManager am_{Vek::ActivityManager::virtualTime};
   Vek::ActivityManager* prevAm_;
   std::unique_ptr<Nolu::Sim::Network> net_;
   std::map<std::string, std::unique_ptr<AgentNode>> agents_;
   std::map<std::string, Nolu::Sim::Link*> intfLinks_;
};

}  // namespace LdpTest

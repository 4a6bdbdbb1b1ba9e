#include "tests/harness/Scenario.h"

#include "runtime/vek/Trace.h"

namespace LdpTest {

namespace {

template <class T>
Vek::Ptr<T> writable(Vek::Ptr<T const> const& p) {
   return Vek::ptr_const_cast<T>(p);
}

Nolu::IpAddrWithMask parseAddr(std::string const& s) {
   auto slash = s.find('/');
   auto a = Nolu::IpAddr::fromString(s.substr(0, slash));
   VEK_ASSERT(a && "bad address in scenario");
   U8 len = slash == std::string::npos ? 32 : U8(std::stoi(s.substr(slash + 1)));
   return Nolu::IpAddrWithMask(*a, len);
}

}  // namespace

// ---- AgentNode

AgentNode::AgentNode(Scenario* s, std::string name)
   : s_(s), name_(std::move(name)), host_(s->net().hostIs(name_)) {
   auto a = Ldp::agentFactory("LdpAgent");
   a->netNsIs(Nolu::NamespaceName(name_));
   bool ok = runner_.start(a);
   VEK_ASSERT(ok && "agent failed to start");
   agent_ = a;
}

AgentNode::~AgentNode() {
   agent_ = nullptr;
   runner_.stop();
}

void AgentNode::intfIs(std::string const& intf, Nolu::Sim::Link* link, Nolu::IpAddrWithMask addr,
                       bool loopback) {
   Nolu::Sim::Interface* si = host_->intfIs(intf, link, addr.addr(), addr.len());
   ifIndex_[intf] = si->ifIndex;
   auto k = kniStatus()->intfIs(si->ifIndex);
   k->loopbackIs(loopback);
   k->operStatusIs(Interface::intfOperUp_);
   k->mtuIs(1500);
   k->nameIs(intf);
   auto ip = ipStatus()->vrfIpIntfStatusIs("default")->ipIntfStatusIs(Nolu::IntfId(intf));
   // The first address is the interface's primary one; later ones are secondary.
   if (ip->activeAddrWithMask().addr().isZero()) ip->activeAddrWithMaskIs(addr);
   else if (ip->activeAddrWithMask() != addr) ip->secondaryAddrWithMaskIs(addr, true);
}

void AgentNode::loopback(std::string const& addr) {
   // The loopback sits on a link of its own, so that what is sent from it is
   // recorded like the rest.
   Nolu::Sim::Link* l = s_->net().linkIs(name_ + ":lo");
   intfIs("lo", l, parseAddr(addr), true);
}

void AgentNode::intfOperStatusIs(std::string const& intf, Interface::IntfOperStatus st) {
   kniStatus()->intfIs(ifIndex(intf))->operStatusIs(st);
}

void AgentNode::ldp(std::string const& vrf) {
   writable(agent_->ldpConfigColl())->configIs(vrf)->enabledIs(true);
   writable(agent_->ldpEnabledVrfColl())->enabledVrfIs(vrf, true);
}

void AgentNode::staticTargetIs(std::string const& addr, bool on, std::string const& vrf) {
   Nolu::IpGenAddr a(parseAddr(addr).addr());
   if (on) config(vrf)->staticTargetIs(a, true);
   else config(vrf)->staticTargetDel(a);
}

void AgentNode::mplsDisabledIs(std::string const& intf, bool disabled) {
   auto c = writable(agent_->mplsConfig());
   if (disabled) c->mplsRoutingDisabledIntfIs(Nolu::IntfId(intf), true);
   else c->mplsRoutingDisabledIntfDel(Nolu::IntfId(intf));
}

Vek::Ptr<Ldp::Config> AgentNode::config(std::string const& vrf) const {
   return writable(agent_->ldpConfigColl())->configIs(vrf);
}

Vek::Ptr<KernelNetInfo::Status> AgentNode::kniStatus() const {
   return writable(agent_->kniStatus());
}

Vek::Ptr<Ip::Status> AgentNode::ipStatus() const { return writable(agent_->ipStatus()); }

Ldp::Status* AgentNode::status(std::string const& vrf) const {
   return agent_->ldpStatusColl()->status(vrf).ptr();
}

Ldp::LdpRoot* AgentNode::root(std::string const& vrf) const {
   return agent_->ldpRootSm()->ldpRoot(vrf).ptr();
}

Ldp::ProtoConfig const* AgentNode::protoConfig(std::string const& vrf) const {
   return agent_->ldpProtoConfigColl()->protoConfig(vrf).ptr();
}

std::size_t AgentNode::adjacencyCount(std::string const& vrf) const {
   auto* st = status(vrf);
   return st ? st->ldpAdjStatusColl()->adjStatusSize() : 0;
}

std::size_t AgentNode::peerCount(std::string const& vrf) const {
   auto* st = status(vrf);
   return st ? st->ldpPeerConfigColl()->peerConfigSize() : 0;
}

std::size_t AgentNode::sessionConfigCount(std::string const& vrf) const {
   auto* st = status(vrf);
   return st ? st->ldpSessionConfigColl()->sessionConfigSize() : 0;
}

Ldp::LdpAdjStatus const* AgentNode::adjStatus(Ldp::LdpAdjId const& id,
                                              std::string const& vrf) const {
   auto* st = status(vrf);
   return st ? st->ldpAdjStatusColl()->adjStatus(id).ptr() : nullptr;
}

Ldp::LdpPeerConfig const* AgentNode::peer(Ldp::LdpIdentifier const& id,
                                          std::string const& vrf) const {
   auto* st = status(vrf);
   return st ? st->ldpPeerConfigColl()->peerConfig(id).ptr() : nullptr;
}

Ldp::LdpAdjStatus const* AgentNode::firstAdj(Ldp::LdpAdjType type, std::string const& vrf) const {
   auto* st = status(vrf);
   if (!st) return nullptr;
   for (auto it = st->ldpAdjStatusColl()->adjStatusIter(); it; ++it) {
      if (it.key().adjType() == type) return it.value().ptr();
   }
   return nullptr;
}

U32 AgentNode::ifIndex(std::string const& intf) const {
   auto it = ifIndex_.find(intf);
   return it == ifIndex_.end() ? 0 : it->second;
}

// ---- Scenario

Scenario::Scenario() : prevAm_(Vek::activityManager()) {
   Vek::activityManagerIs(&am_);
   net_ = std::make_unique<Nolu::Sim::Network>();
}

Scenario::~Scenario() {
   agents_.clear();
   net_.reset();
   Vek::activityManagerIs(prevAm_);
}

AgentNode& Scenario::agent(std::string const& name) {
   auto& p = agents_[name];
   if (!p) p = std::make_unique<AgentNode>(this, name);
   return *p;
}

Nolu::Sim::Link* Scenario::link(std::string const& a, std::string const& aIntf,
                                std::string const& aAddr, std::string const& b,
                                std::string const& bIntf, std::string const& bAddr) {
   Nolu::Sim::Link* l = net_->linkIs(a + ":" + aIntf + "-" + b + ":" + bIntf);
   agent(a).intfIs(aIntf, l, parseAddr(aAddr));
   agent(b).intfIs(bIntf, l, parseAddr(bAddr));
   intfLinks_[a + ":" + aIntf] = l;
   intfLinks_[b + ":" + bIntf] = l;
   return l;
}

Nolu::Sim::Link* Scenario::linkOf(std::string const& a, std::string const& aIntf) const {
   auto it = intfLinks_.find(a + ":" + aIntf);
   return it == intfLinks_.end() ? nullptr : it->second;
}

void Scenario::traceLevelIs(std::string const& module, int level) {
   Vek::traceLevelIs(module, level);
}

Vek::Ptr<Nolu::Pkt> Scenario::pktOf(Nolu::Sim::Record const& r) {
   auto pkt = Nolu::globalPktManager()->newPkt(U32(r.bytes.size()));
   pkt->appendData(r.bytes.data(), U32(r.bytes.size()));
   return pkt;
}

std::vector<HelloRecord> Scenario::hellos(Nolu::Sim::Link const* link, Nolu::IpAddr from) const {
   std::vector<HelloRecord> out;
   if (!link) return out;
   for (auto const& r : link->records()) {
      if (r.protocol != 17) continue;
      if (!from.isZero() && r.srcIpAddr != from) continue;
      auto pkt = pktOf(r);
      auto pdu = Ldp::ldpPduParserFactory(pkt, 0);
      if (!pdu->validLdpPdu() || pdu->msgNum() != 1) continue;
      auto hello = Ldp::ldpHelloMsgParserFactory(pkt, pdu->msgOffset(0));
      if (!hello->validMsg()) continue;
      HelloRecord h;
      h.time = r.time;
      h.srcIpAddr = r.srcIpAddr;
      h.srcPort = r.srcPort;
      h.dstIpAddr = r.dstIpAddr;
      h.dstPort = r.dstPort;
      h.tos = r.tos;
      h.ttl = r.ttl;
      h.ldpIdentifier = pdu->ldpIdentifier();
      h.msgId = hello->msgId();
      h.holdTime = hello->holdTime();
      h.targeted = hello->targeted();
      h.requestTargeted = hello->requestTargeted();
      h.transportAddr = hello->transportAddr();
      h.hasConfigSeqNum = hello->hasConfigSeqNum();
      h.configSeqNum = hello->configSeqNum();
      out.push_back(h);
   }
   return out;
}

}  // namespace LdpTest

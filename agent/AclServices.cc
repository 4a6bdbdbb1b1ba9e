#include "agent/AclServices.h"

namespace Acl {

Vek::Ptr<AclConfigAggregatorSm> AclConfigAggregatorSm::AclConfigAggregatorSmIs(
   Vek::Ptr<Vek::Dir const> const& inputDir, Vek::Ptr<Input::Config const> const& cliInput,
   Vek::Ptr<Config> const& configOut) {
   return Vek::makeSm<AclConfigAggregatorSm>(inputDir, cliInput, configOut);
}

AclConfigAggregatorSm::AclConfigAggregatorSm(Vek::Ptr<Vek::Dir const> const& inputDir,
                                             Vek::Ptr<Input::Config const> const& cliInput,
                                             Vek::Ptr<Config> const& configOut)
   : inputDir_(inputDir), configOut_(Vek::validPtr(configOut)) {
   cliInput_.init(this, cliInput);
   handleInitialized();
}

void AclConfigAggregatorSm::handleInitialized() {
   if (auto const* in = cliInput_.get()) {
      for (auto it = in->serviceAclRule().begin(); it; ++it) {
         U32 seq = it.key();
         rule_.is(seq, this, it.value(), seq, &AclConfigAggregatorSm::handleRuleMember);
      }
   }
   rebuild();
   initialized_ = true;
}

void AclConfigAggregatorSm::handleServiceAclRule(U32 const& seq) {
   if (!initialized_) return;
   auto const* in = cliInput_.get();
   auto rule = in ? in->serviceAclRule(seq) : nullptr;
   if (rule) rule_.is(seq, this, rule, seq, &AclConfigAggregatorSm::handleRuleMember);
   else rule_.del(seq);
   rebuild();
}

void AclConfigAggregatorSm::handleRuleMember(U32 const&) {
   if (!initialized_) return;
   rebuild();
}

void AclConfigAggregatorSm::rebuild() {
   configOut_->serviceAclRuleDelAll();
   if (auto const* in = cliInput_.get()) {
      for (auto it = in->serviceAclRule().begin(); it; ++it) {
         auto const& src = it.value();
         auto r = configOut_->serviceAclRuleIs(it.key());
         r->vrfIs(src->vrf());
         r->srcPrefixIs(src->srcPrefix());
         r->dstPortIs(src->dstPort());
         r->protocolIs(src->protocol());
      }
   }
   configOut_->versionInc(1);
}

Vek::Ptr<ServiceAclFilterSm> ServiceAclFilterSm::ServiceAclFilterSmIs(
   Vek::Ptr<Config const> const& config) {
   return Vek::makeSm<ServiceAclFilterSm>(config);
}

ServiceAclFilterSm::ServiceAclFilterSm(Vek::Ptr<Config const> const& config) : config_(config) {
   handleInitialized();
}

namespace {

bool prefixContains(Nolu::IpGenPrefix const& p, Nolu::IpGenAddr const& a) {
   if (p.isEmpty()) return true;
   if (p.af() != a.af()) return false;
   U8 pa[16] = {}, aa[16] = {};
   p.addr().bytesAre(pa);
   a.bytesAre(aa);
   unsigned full = p.len() / 8, rest = p.len() % 8;
   for (unsigned i = 0; i < full; ++i)
      if (pa[i] != aa[i]) return false;
   if (rest) {
      U8 mask = U8(0xFF << (8 - rest));
      if ((pa[full] & mask) != (aa[full] & mask)) return false;
   }
   return true;
}

}  // namespace

bool ServiceAclFilterSm::matchesConnection(L3::VrfName const& vrf, Nolu::IpGenAddr const& srcIp,
                                           Nolu::IpGenAddr const&, U16, U16 dstPort,
                                           U8 protocol, bool) const {
   if (!config_) return true;
   for (auto it = config_->serviceAclRule().begin(); it; ++it) {
      auto const& r = it.value();
      if (!r->vrf().empty() && r->vrf() != vrf) continue;
      if (r->protocol() && r->protocol() != protocol) continue;
      if (r->dstPort() && r->dstPort() != dstPort) continue;
      if (!prefixContains(r->srcPrefix(), srcIp)) continue;
      return false;
   }
   return true;
}

}  // namespace Acl

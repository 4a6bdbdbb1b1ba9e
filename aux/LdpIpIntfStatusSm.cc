#include "aux/LdpIpIntfStatusSm.h"

#include "entities/Functions.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpIpIntfStatus");
}

// The reactor of one interface: its active and secondary addresses, with the
// last active address remembered so that a change can be undone in the table.
class LdpIpIntfStatusSm::IntfReactor : public Ip::IpIntfStatus::NotifieeConst {
 public:
   IntfReactor(LdpIpIntfStatusSm* sm, Vek::Ptr<Ip::IpIntfStatus const> const& n,
               Nolu::IntfId const& intfId)
      : sm_(sm), intfId_(intfId) {
      ownerIs(sm);
      notifierBaseIs(n);
   }
   Vek::Ptr<Ip::IpIntfStatus const> ipIntfStatus() const { return notifier(); }
   void onActiveAddrWithMask() override { run([](IntfReactor* r) { r->handleActive(); }); }
   void onSecondaryAddrWithMask(Nolu::IpAddrWithMask const& a) override {
      Nolu::IpAddrWithMask addr = a;
      run([addr](IntfReactor* r) { r->handleSecondary(addr); });
   }
   void handleIpIntfStatus() {
      VEK_ASSERT(ipIntfStatus() && "ipIntfStatus() should always be valid");
      handleActive();
      for (auto it = ipIntfStatus()->secondaryAddrWithMaskIter(); it; ++it)
         handleSecondary(it.key());
   }
   void handleActive() {
      sm_->handleIntfIp(intfId_, previous_);
      previous_ = ipIntfStatus()->activeAddrWithMask();
      sm_->handleIntfIp(intfId_, previous_);
   }
   void handleSecondary(Nolu::IpAddrWithMask const& addr) { sm_->handleIntfIp(intfId_, addr); }

 private:
   template <class F>
   void run(F const& f) {
      IntfReactor* self = this;
      Vek::Sm::run(sm_, [self, &f] { f(self); });
   }
   LdpIpIntfStatusSm* sm_;
   Nolu::IntfId intfId_;
   Nolu::IpAddrWithMask previous_;
};

LdpIpIntfStatusSm::LdpIpIntfStatusSm(U32 instId,
                                     Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
                                     Vek::Ptr<LocalIntfIpColl> const& localIntfIpColl,
                                     Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig)
   : LdpSm(instId), vrfIpIntfStatus_(Vek::validPtr(vrfIpIntfStatus)),
     localIntfIpColl_(Vek::validPtr(localIntfIpColl)), mplsRoutingConfig_(mplsRoutingConfig) {
   vrfIpIntfStatusReactor_.init(this, vrfIpIntfStatus_);
   mplsRoutingConfigReactor_.init(this, mplsRoutingConfig_);
   handleInitialized();
}

void LdpIpIntfStatusSm::handleInitialized() {
   initialized_ = true;
   handleIpIntfStatus();
}

void LdpIpIntfStatusSm::handleIpIntfStatus() {
   if (!initialized_) return;
   for (auto it = vrfIpIntfStatus_->ipIntfStatusIter(); it; ++it) handleIpIntfStatus(it.key());
   // What a former life of the agent left in the table goes.
   std::vector<std::pair<Nolu::IntfId, Nolu::IpAddrWithMask>> pairs;
   for (auto it = localIntfIpColl_->intfIpWithMaskIter(); it; ++it) {
      LDP_TRACE(th, 8, "   Iterating " << it.key());
      for (auto i = it.value()->intfIdIter(); i; ++i) pairs.emplace_back(i.key(), it.key());
   }
   for (auto const& [intf, addr] : pairs) handleIntfIp(intf, addr);
}

void LdpIpIntfStatusSm::handleIpIntfStatus(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto st = vrfIpIntfStatus_->ipIntfStatus(intfId);
   if (!st) {
      // The interface went: its addresses leave the table.
      ipIntfStatus_.del(intfId);
      std::vector<Nolu::IpAddrWithMask> held;
      for (auto it = localIntfIpColl_->intfIpWithMaskIter(); it; ++it)
         if (it.value()->intfIdHas(intfId)) held.push_back(it.key());
      for (auto const& a : held) handleIntfIp(intfId, a);
      return;
   }
   IntfReactor* r = ipIntfStatus_.find(intfId);
   if (r && r->ipIntfStatus() != st) {
      ipIntfStatus_.del(intfId);
      r = nullptr;
   }
   if (!r) r = ipIntfStatus_.is(intfId, this, st, intfId);
   r->handleIpIntfStatus();
}

void LdpIpIntfStatusSm::handleIntfIp(Nolu::IntfId const& intfId,
                                     Nolu::IpAddrWithMask const& addr) {
   if (!initialized_ || addr.addr().isZero()) return;
   if (isManagementOrInternalInterface(intfId)) return;
   auto st = vrfIpIntfStatus_->ipIntfStatus(intfId);
   bool mplsOff = mplsRoutingConfig_ && mplsRoutingConfig_->mplsRoutingDisabledIntf(intfId);
   if (st && !mplsOff &&
       (st->activeAddrWithMask() == addr || st->secondaryAddrWithMaskHas(addr))) {
      auto member = localIntfIpColl_->intfIpWithMaskIs(addr);
      if (!member->intfIdHas(intfId)) {
         LDP_TRACE(th, 7, "Adding " << addr << " of " << intfId);
         member->intfIdIs(intfId, true);
      }
      return;
   }
   auto member = localIntfIpColl_->intfIpWithMask(addr);
   if (!member) return;
   member->intfIdDel(intfId);
   if (member->intfIdSize() == 0) {
      LDP_TRACE(th, 7, "Removing " << addr);
      localIntfIpColl_->intfIpWithMaskDel(addr);
   }
}

}  // namespace Ldp

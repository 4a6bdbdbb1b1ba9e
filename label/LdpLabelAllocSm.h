#pragma once
// Local labels: asks the MPLS agent for a block, sets the number allocator's
// range from it, claims the labels an earlier run gave out while the agent is
// in its reserve phase, and then serves the label requests of the FECs.
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "entities/Platform.h"
#include "runtime/hesk/NumAllocator.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpLabelAllocSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Hesk::NumAllocator> numAllocator;
      Vek::Ptr<Hesk::NumAllocatorConfig> numAllocatorConfig;
      Vek::Ptr<Hesk::NumAllocatorStatus const> numAllocatorStatus;
      Vek::Ptr<LabelAllocRequestTable const> labelAllocRequestTable;
      Vek::Ptr<LabelAllocGlobalStatus const> labelAllocGlobalStatus;
      Vek::Ptr<Mpls::ClientLabelRequest> labelRequestClient;
      Vek::Ptr<Mpls::Api::Status const> mplsAgentStatus;
      Vek::Ptr<Mpls::LabelBindingTable> localLabelAllocTable;
   };
   static constexpr char const* clientName = "ldp";
   static constexpr char const* labelRequestId = "main";
   static constexpr char const* rangeType = "dynamic";
   static constexpr U32 labelBlockSize = 16384;

   static Vek::Ptr<LdpLabelAllocSm> LdpLabelAllocSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLabelAllocSm>(instId, in);
   }
   LdpLabelAllocSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override;

   void handleLabelBindingRequest(Mpls::FwdEqvClass const& fec) { handleFec(fec); }
   void handleLabelBindingRequestNumLabelsRequested(Mpls::FwdEqvClass const& fec) {
      handleFec(fec);
   }
   void handleLabelBindingRequestLdpFecDeliveryType(Mpls::FwdEqvClass const& fec) {
      handleFec(fec);
   }
   void handleState() { handleFec(); }
   void handleRangeExhausted();
   void handleLabelBlockAllocation(Vek::String const&) { handleBlockAllocation(); }
   void handleBlockAllocation();
   void updateLabelBlockSize(U32 start, U32 size);
   void labelAllocReconcile();
   void labelAllocReconcile(Mpls::FwdEqvClass const& fec);
   bool validLabel(Nolu::MplsLabel const& label, Mpls::FwdEqvClass const& fec) const;
   void handleFec();
   void handleFec(Mpls::FwdEqvClass const& fec);
   void releaseLabels(Mpls::FwdEqvClass const& fec, std::size_t n);

   bool allocReady() const { return allocReady_; }

 private:
   bool dynamicPhase() const { return in_.labelAllocGlobalStatus->state() == labelAllocReady_; }
   // The labels of one binding, copied, since changing the set moves them.
   static std::vector<Nolu::MplsLabel> labelsOf(Mpls::MplsLabelSet const& b);

   class BlockReactor : public Vek::CustomReactor<Mpls::Api::Status::NotifieeConst, LdpLabelAllocSm> {
    public:
      using CustomReactor::CustomReactor;
      void onLabelBlockAllocation(Vek::String const&) override {
         fwd([](LdpLabelAllocSm* sm) { sm->handleBlockAllocation(); });
      }
   };
   // Changes of the block itself.
   class BlockSizeReactor : public Vek::CustomReactor<Mpls::Api::LabelBlock::NotifieeConst, LdpLabelAllocSm> {
    public:
      using CustomReactor::CustomReactor;
      void onBase() override { fwd([](LdpLabelAllocSm* sm) { sm->handleBlockAllocation(); }); }
      void onSize() override { fwd([](LdpLabelAllocSm* sm) { sm->handleBlockAllocation(); }); }
   };

   Inputs in_;
   bool allocReady_ = false;
   bool user_ = false;
   Vek::Input<LabelAllocRequestTable::Reactor<LdpLabelAllocSm>> requestReactor_;
   Vek::Input<LabelAllocGlobalStatus::Reactor<LdpLabelAllocSm>> globalStatusReactor_;
   Vek::Input<Hesk::NumAllocatorStatus::Reactor<LdpLabelAllocSm>> allocatorStatusReactor_;
   Vek::Input<BlockReactor> blockReactor_;
   Vek::Input<BlockSizeReactor> blockSizeReactor_;
};

}  // namespace Ldp

#pragma once
// Publishes the label bindings for the forwarding side: copies the VRF's
// internal local binding table and its per-peer tables into the shared table
// at mpls/ldp/ldpBindingTables.
//
// The copy is the simplest faithful one: row by row, driven by the change
// counter that each internal table carries. Every change of an internal table
// names its row (FEC and label, or FEC and the null label for the whole FEC)
// and raises changeCnt; on each raise the producer makes the published rows
// of that FEC equal to the internal ones, nothing more. A counter that jumped
// further than the rows seen (a change missed) and a new table are answered by
// a full comparison, which also removes rows that a former run left behind.
// Nothing is batched or reordered, so a reader sees the internal tables'
// history in their order.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "entities/LdpTesh.h"
#include "runtime/vek/Reactor.h"

namespace Ldp::LdpTesh {

class LdpLibProducerSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Mpls::LdpInternalLabelBindingTable const> localLabelBindingTable;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTableColl const> peerLabelBindingTableColl;
      Vek::Ptr<LdpLabelBindingTable> labelBindingTable;
   };
   static Vek::Ptr<LdpLibProducerSm> LdpLibProducerSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLibProducerSm>(instId, in);
   }
   LdpLibProducerSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   // The local table: its counter, a whole resynchronisation.
   void handleLocalChangeCnt();
   void syncLocal();
   void syncLocalFec(Mpls::FwdEqvClass const& fec);
   // The peers' tables.
   void handlePeerLabelBindingTable(Mpls::RouterId const& peer);
   void handlePeerChangeCnt(Mpls::RouterId const& peer);
   void syncPeer(Mpls::RouterId const& peer);
   void syncPeerFec(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec);
   // Rows copied since the start, for tests and the operator.
   U64 rowsCopied() const { return rowsCopied_; }

 private:
   class LocalReactor
      : public Vek::CustomReactor<Mpls::LdpInternalLabelBindingTable::NotifieeConst,
                                  LdpLibProducerSm> {
    public:
      using CustomReactor::CustomReactor;
      void onChangeCnt() override { fwd([](auto* sm) { sm->handleLocalChangeCnt(); }); }
   };
   class PeerCollReactor
      : public Vek::CustomReactor<Mpls::LdpInternalLabelBindingTableColl::NotifieeConst,
                                  LdpLibProducerSm> {
    public:
      using CustomReactor::CustomReactor;
      void onPeerLabelBindingTable(Mpls::RouterId const& k) override {
         fwd([&k](auto* sm) { sm->handlePeerLabelBindingTable(k); });
      }
   };
   class PeerReactor : public Mpls::LdpInternalLabelBindingTable::NotifieeConst {
    public:
      using Notifier = Mpls::LdpInternalLabelBindingTable;
      PeerReactor(LdpLibProducerSm* sm, Vek::Ptr<Notifier const> const& n,
                  Mpls::RouterId const& peer)
         : sm_(sm), peer_(peer) {
         ownerIs(sm);
         notifierBaseIs(n);
      }
      void onChangeCnt() override {
         LdpLibProducerSm* sm = sm_;
         Mpls::RouterId peer = peer_;
         Vek::Sm::run(sm, [sm, &peer] { sm->handlePeerChangeCnt(peer); });
      }
      U64 seen = 0;

    private:
      LdpLibProducerSm* sm_;
      Mpls::RouterId peer_;
   };

   void labelRowIs(LbtLabelKey const& k, bool on);
   void peerLabelRowIs(PeerLbtLabelKey const& k, bool on);

   Inputs in_;
   U64 localSeen_ = 0;
   U64 rowsCopied_ = 0;
   Vek::Input<LocalReactor> localReactor_;
   Vek::Input<PeerCollReactor> peerCollReactor_;
   Vek::ReactorColl<Mpls::RouterId, PeerReactor> peer_;
};

}  // namespace Ldp::LdpTesh

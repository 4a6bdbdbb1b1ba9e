#pragma once
// Computes the answer to each pseudowire request from the FEC sessions that
// serve it, and writes it to Pseudowire::PseudowireLdpStatus: up with the
// peer's label once both sides match, or why not. Changes to a pseudowire's
// records are folded into one review per scheduler pass.
#include "discovery/LdpReactors.h"
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

#include <memory>

namespace Ldp {

class PwLdpResponseSm : public LdpSm {
 public:
   using Key = Pseudowire::PseudowireLdpRequestKey;
   struct Inputs {
      Vek::Ptr<LdpIndex const> ldpIndex;
      Vek::Ptr<Pseudowire::PseudowireLdpStatus> pwLdpStatus;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<PwLdpResponseSm> PwLdpResponseSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<PwLdpResponseSm>(instId, in);
   }
   PwLdpResponseSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override;
   void handlePwKeyToPwFecSessionInfo(Key const& key);
   // kind: 0 local config, 1 remote config, 2 local status, 3 remote status.
   void handleInfoRecord(Key const& key, int kind, PwFecSessionId const& id);
   void scheduleReview(Key const& key);
   void handlePwReviewTimerTask();
   void computeResponseForPw(Key const& key);

 private:
   void setResponseDefaults(Pseudowire::PseudowireLdpResponse* r) const;

   class InfoMapReactor
      : public Vek::CustomReactor<PwFecSessionInfoMap::NotifieeConst, PwLdpResponseSm> {
    public:
      InfoMapReactor(PwLdpResponseSm* sm, Vek::Ptr<PwFecSessionInfoMap const> const& n,
                     Key const& key)
         : CustomReactor(sm, n), key_(key) {}
      void onLocalConfig(PwFecSessionId const& id) override { on(0, id); }
      void onRemoteConfig(PwFecSessionId const& id) override { on(1, id); }
      void onLocalStatus(PwFecSessionId const& id) override { on(2, id); }
      void onRemoteStatus(PwFecSessionId const& id) override { on(3, id); }

    private:
      void on(int kind, PwFecSessionId const& id) {
         Key k = key_;
         fwd([&k, kind, &id](auto* sm) { sm->handleInfoRecord(k, kind, id); });
      }
      Key key_;
   };
   class ConfigReactor : public KeyedReactor<PwFecSessionConfig::NotifieeConst, PwLdpResponseSm, Key> {
    public:
      using KeyedReactor::KeyedReactor;
      void onMember(PwFecSessionMember const&) override { fire(); }
      void onFecParams() override { fire(); }
   };
   class LocalStatusReactor
      : public KeyedReactor<LocalPwFecSessionStatus::NotifieeConst, PwLdpResponseSm, Key> {
    public:
      using KeyedReactor::KeyedReactor;
      void onFecSessionState() override { fire(); }
      void onMappingActive() override { fire(); }
   };
   class RemoteStatusReactor
      : public KeyedReactor<RemotePwFecSessionStatus::NotifieeConst, PwLdpResponseSm, Key> {
    public:
      using KeyedReactor::KeyedReactor;
      void onFecSessionState() override { fire(); }
      void onPwStatusFlags() override { fire(); }
      void onMplsLabelSet() override { fire(); }
   };
   class LabelSetReactor : public KeyedReactor<MplsLabelSet::NotifieeConst, PwLdpResponseSm, Key> {
    public:
      using KeyedReactor::KeyedReactor;
      void onMplsLabel(Nolu::MplsLabel const&) override { fire(); }
   };
   // The reactors of one pseudowire's records.
   struct PwInfo {
      std::unique_ptr<InfoMapReactor> infoMap;
      Vek::ReactorColl<PwFecSessionId, ConfigReactor> localConfig;
      Vek::ReactorColl<PwFecSessionId, ConfigReactor> remoteConfig;
      Vek::ReactorColl<PwFecSessionId, LocalStatusReactor> localStatus;
      Vek::ReactorColl<PwFecSessionId, RemoteStatusReactor> remoteStatus;
      Vek::ReactorColl<PwFecSessionId, LabelSetReactor> remoteLabelSet;
   };

   Inputs in_;
   Vek::Ptr<Hesk::TimerTask> pwReviewTimerTask_;
   Vek::HashMap<Key, bool> pwToReview_;
   Vek::HashMap<Key, std::unique_ptr<PwInfo>> pwFecSessionInfo_;
   Vek::Input<LdpIndex::Reactor<PwLdpResponseSm>> ldpIndexReactor_;
};

}  // namespace Ldp

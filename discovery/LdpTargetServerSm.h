#pragma once
// The one channel that receives targeted Hellos. It opens and closes with its
// configuration, validates each datagram and its Hello, and hands the Hello
// to the machine of the target that it belongs to. A Hello from an address
// that isn't a configured target is ignored: targets are not learnt from the
// network.
#include "entities/LdpSm.h"
#include "discovery/LdpHelloParam.h"
#include "discovery/LdpServiceAcl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpStatus.h"
#include "runtime/nolu/Pam.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpTargetServerSm : public LdpSm {
 public:
   struct Inputs {
      L3::VrfName vrfName;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam;
      Vek::Ptr<LdpTargetServerConfig const> ldpTargetServerConfig;
      Vek::Ptr<LdpTargetServerStatus> ldpTargetServerStatus;
      Vek::Ptr<LdpTargetConfigColl const> ldpTargetConfigColl;
      Vek::Ptr<LdpTargetStatusColl const> ldpTargetStatusColl;
      Vek::Ptr<LdpTargetMsgPipeCollection const> ldpTargetMsgPipeCollection;
      Vek::Ptr<Nolu::UdpPam> rxUdpPam;
      Vek::Ptr<LdpServiceAclFilter const> serviceAclFilterSm;
   };
   static Vek::Ptr<LdpTargetServerSm> LdpTargetServerSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpTargetServerSm>(instId, in);
   }
   LdpTargetServerSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleConfig();
   void handleEnableTargetServer();
   void handleDisableTargetServer();
   void handlePamReadable();

 private:
   class ServerConfigReactor
      : public Vek::CustomReactor<LdpTargetServerConfig::NotifieeConst, LdpTargetServerSm> {
    public:
      using CustomReactor::CustomReactor;
      void onEnabled() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onListenIpAddr() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onListenPort() override { fwd([](auto* sm) { sm->handleConfig(); }); }
   };
   class UdpPamReactor : public Vek::CustomReactor<Nolu::UdpPam::NotifieeConst, LdpTargetServerSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handlePamReadable(); }); }
   };

   Inputs in_;
   Vek::Input<ServerConfigReactor> ldpTargetServerConfigReactor_;
   Vek::Input<UdpPamReactor> rxUdpPamReactor_;
};

}  // namespace Ldp

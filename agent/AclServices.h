#pragma once
// The service ACL: the aggregation of its configured inputs into one
// configuration, and the filter that the sockets ask about each connection.
#include "entities/EntityTypes.h"
#include "runtime/vek/Reactor.h"

namespace Acl {

// Merges the command line input of the service ACL into one configuration;
// every change of the input rebuilds the output and raises its version.
class AclConfigAggregatorSm : public Vek::Sm {
 public:
   static Vek::Ptr<AclConfigAggregatorSm> AclConfigAggregatorSmIs(
      Vek::Ptr<Vek::Dir const> const& inputDir, Vek::Ptr<Input::Config const> const& cliInput,
      Vek::Ptr<Config> const& configOut);
   AclConfigAggregatorSm(Vek::Ptr<Vek::Dir const> const& inputDir,
                         Vek::Ptr<Input::Config const> const& cliInput,
                         Vek::Ptr<Config> const& configOut);
   void handleInitialized();
   void handleServiceAclRule(U32 const& seq);
   void handleRuleMember(U32 const& seq);
   Vek::Ptr<Config> const& configOut() const { return configOut_; }

 private:
   void rebuild();
   Vek::Ptr<Vek::Dir const> inputDir_;
   Vek::Ptr<Config> configOut_;
   Vek::Input<Input::Config::Reactor<AclConfigAggregatorSm>> cliInput_;
   Vek::ReactorColl<U32, ServiceAclRule::MemberReactor<AclConfigAggregatorSm, U32>> rule_;
};

// Answers whether a connection is allowed: allowed unless a rule of the
// configuration denies it.
class ServiceAclFilterSm : public Vek::Sm {
 public:
   static Vek::Ptr<ServiceAclFilterSm> ServiceAclFilterSmIs(Vek::Ptr<Config const> const& config);
   explicit ServiceAclFilterSm(Vek::Ptr<Config const> const& config);
   void handleInitialized() { initialized_ = true; }

   // protocol 6 TCP, 17 UDP; flag has no use for this filter.
   bool matchesConnection(L3::VrfName const& vrf, Nolu::IpGenAddr const& srcIp,
                          Nolu::IpGenAddr const& dstIp, U16 srcPort, U16 dstPort, U8 protocol,
                          bool flag) const;
   Vek::Ptr<Config const> config() const { return config_; }

 private:
   Vek::Ptr<Config const> config_;
};

}  // namespace Acl

#pragma once
// Puts a configuration into the state database: the LDP configuration of each
// VRF and the set of VRFs where LDP is wanted, the MPLS and routing switches,
// the prefix lists, the management interfaces, the VRFs' namespaces and the
// label range. Every write compares first, so applying the same configuration
// again changes nothing and notifies nobody; what the new configuration no
// longer has is deleted.
#include <functional>
#include <map>
#include <string>

#include "host/Config.h"
#include "host/LabelBlockResponder.h"
#include "runtime/ombra/Ombra.h"

namespace Host {

struct ConfigTargets {
   Vek::Ptr<Ldp::LdpConfigColl> ldpConfigColl;
   Vek::Ptr<Ldp::LdpEnabledVrfColl> ldpEnabledVrfColl;
   Vek::Ptr<Mpls::Config> mplsConfig;
   Vek::Ptr<Routing::Config> routingConfig;
   Vek::Ptr<Acl::AclListConfig> aclListConfig;
   Vek::Ptr<L3::Config> l3Config;
   Vek::Ptr<LabelBlockResponderSm> labelBlockResponder;
   // The pseudowire agent's requests, which the host writes in its stead.
   Vek::Ptr<Pseudowire::PseudowireLdpConfig> pwLdpConfig;
   // Told the VRFs and their namespaces, so that the host watches them.
   std::function<void(std::map<std::string, std::string> const&)> vrfNetnsIs;

   // The configuration entities at their paths in the store, made if absent.
   static ConfigTargets fromStore(Vek::Ptr<Ombra::Store> const& store);
};

class ConfigApplier {
 public:
   explicit ConfigApplier(ConfigTargets targets) : t_(std::move(targets)) {}

   // Replaces the running configuration with cfg.
   void apply(HostConfig const& cfg);
   // Parses text on top of an empty configuration (replace) or on top of the
   // running one, and applies the result; on errors nothing changes.
   bool applyText(std::string const& text, bool replace, std::vector<ConfigError>& errors);
   HostConfig const& running() const { return running_; }
   // The local label of each pseudowire, by name.
   std::map<std::string, U32> const& pwLabels() const { return pwLabels_; }
   ConfigTargets const& targets() const { return t_; }

 private:
   void applyLdp(std::string const& vrf, LdpVrfConfig const& l);
   void applyPseudowires(HostConfig const& cfg);
   ConfigTargets t_;
   std::map<std::string, U32> pwLabels_;
   HostConfig running_;
   bool applied_ = false;
};

}  // namespace Host

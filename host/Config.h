#pragma once
// The operator's configuration of the agent on a host, in the line-based
// style of routers: the model, its parser and its printer. The parser works on
// top of a model, so that a whole file (on an empty model) and single
// statements (on the running one) go through the same code; it stops at
// nothing and reports every bad line with its number and what is wrong.
//
// Sections: "mpls ldp [vrf NAME]", "interface NAME" and "pseudowire NAME" open one; a statement
// is looked up in the open section first and otherwise at the top level,
// which closes the section; "exit" and "!" close it too. Indentation is free.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "entities/EntityTypes.h"

namespace Host {

// The LDP settings of one VRF ("mpls ldp" or "mpls ldp vrf NAME").
struct LdpVrfConfig {
   bool shutdown = false;
   Nolu::IpAddr routerId;
   std::string routerIdIntf;
   std::string transportIntf;
   std::set<Nolu::IpAddr> targetedNeighbors;
   std::string password;  // plain text; stored encoded in the agent's configuration
   U16 helloHoldTime = 15;
   U16 helloInterval = 5;
   U16 targetedHelloHoldTime = 45;
   U16 targetedHelloInterval = 15;
   U16 keepAliveTime = 180;
   Ldp::LdpLabelDistCtrl labelDistCtrl = Ldp::independentDistCtrl_;
   Ldp::LdpLabelAdvDspl labelAdvDspl = Ldp::unsolicitedAdvDspl_;
   Ldp::LdpLabelRetention labelRetention = Ldp::liberalRetention_;
   bool loopDetection = false;
   // "hop-count-max N": the largest Hop Count accepted before a Label Mapping
   // or Request counts as looping.
   U8 hopCountMax = 255;
   std::string fecFilterPrefixList;
   // "label binding PREFIX local N": a configured local label per IPv4 prefix.
   std::map<Nolu::Prefix, U32> staticBindings;
   // "label binding PREFIX remote N nexthop A.B.C.D": the label that a next hop
   // expects for an IPv4 prefix (3 is Implicit Null).
   struct RemoteBinding {
      U32 label = 0;
      Nolu::IpAddr nexthop;
      bool operator==(RemoteBinding const&) const = default;
   };
   std::map<Nolu::Prefix, RemoteBinding> staticRemoteBindings;
   // "label allocation all-prefixes": FECs for routes shorter than /32.
   bool allPrefixes = false;
   Vek::Seconds linkReadyDelay = 0.0;
   Vek::Seconds linkReadyTimeout = Vek::infinity;
   bool operator==(LdpVrfConfig const&) const = default;
};

// A pseudowire signalled over LDP ("pseudowire NAME"): the neighbour and PW id
// that name it to LDP, and what its Label Mapping carries.
struct PseudowireConfig {
   Nolu::IpAddr neighbor;
   U32 pwId = 0;
   Pseudowire::PseudowireType type = Pseudowire::pwTypeEthernet_;
   U32 mtu = 1500;
   bool controlWord = false;
   bool pwStatusTlv = true;
   bool shutdown = false;
   bool operator==(PseudowireConfig const&) const = default;
};

struct PrefixListEntry {
   bool permit = true;
   Nolu::IpGenPrefix prefix;
   bool operator==(PrefixListEntry const&) const = default;
};

struct HostConfig {
   std::map<std::string, LdpVrfConfig> ldp;  // by VRF name, "default" for "mpls ldp"
   std::map<std::string, std::map<U32, PrefixListEntry>> prefixLists;
   std::set<std::string> mplsDisabledIntf;  // "interface NAME" + "no mpls ip"
   bool mplsIp = true;
   bool ipRouting = true;
   std::set<std::string> managementIntf;
   std::map<std::string, std::string> vrfNetns;  // VRF name -> network namespace
   U32 labelRangeBase = 100000;
   U32 labelRangeSize = 16384;
   std::map<std::string, PseudowireConfig> pseudowires;  // by name
   bool operator==(HostConfig const&) const = default;
};

struct ConfigError {
   unsigned line = 0;  // 0: the configuration as a whole
   std::string text;   // the line as written
   std::string message;
   std::string str() const;
};

// Parses text statement by statement on top of cfg and checks the result as a
// whole. On any error cfg is left as it was and false comes back.
bool parseConfig(std::string const& text, HostConfig& cfg, std::vector<ConfigError>& errors);

// Checks what no single statement can: references between statements.
void validateConfig(HostConfig const& cfg, std::vector<ConfigError>& errors);

// Pseudowire labels come from the top of the label range, and the label
// block of the label layer is the rest: the number of labels kept for
// pseudowires in a range of the given size (1024, or a quarter of a range
// smaller than 4096).
U32 pseudowireLabelCount(U32 rangeSize);

// The configuration as text that parses back to the same model.
std::string renderConfig(HostConfig const& cfg);

}  // namespace Host

#pragma once
// Keys and small value types that the entities share beyond the wire
// identifiers: adjacency, FEC-session and pseudowire FEC-session keys, route
// vias, the forwarding layer's router id, pseudowire request keys, and the
// protocol parameter word.
#include <ostream>
#include <string>

#include "entities/Enums.h"
#include "entities/Identifiers.h"
#include "entities/Pseudowire.h"
#include "runtime/nolu/Types.h"
#include "runtime/vek/Exception.h"

namespace L3 {
// A VRF by name; the default VRF is "default".
using VrfName = std::string;
inline VrfName const& defaultVrfName() {
   static VrfName const name("default");
   return name;
}
}  // namespace L3

namespace Ldp {

enum LdpAdjType : U8 {
   adjTypeNone_ = 0,
   adjTypeLink_ = 1,
   adjTypeTarget_ = 2,
};
char const* ldpAdjTypeStr(LdpAdjType t);
std::ostream& operator<<(std::ostream& os, LdpAdjType t);

// The key of an adjacency: a link adjacency is known by its interface and the
// peer's LDP identifier, a targeted one by the target address and the peer's
// LDP identifier. Reading the field of the other kind is a fault.
class LdpAdjId {
 public:
   LdpAdjId() = default;
   LdpAdjId(Nolu::IntfId const& intf, LdpIdentifier const& ldpId);
   LdpAdjId(Nolu::IpAddr target, LdpIdentifier const& ldpId);

   LdpAdjType adjType() const { return adjType_; }
   bool isLink() const { return adjType_ == adjTypeLink_; }
   bool isTarget() const { return adjType_ == adjTypeTarget_; }
   Nolu::IntfId const& intfId() const;
   Nolu::IpAddr targetIpAddr() const;
   LdpIdentifier const& ldpIdentifier() const { return ldpId_; }

   bool operator==(LdpAdjId const& o) const {
      return adjType_ == o.adjType_ && ldpId_ == o.ldpId_ && intf_ == o.intf_ &&
             target_ == o.target_;
   }
   bool operator!=(LdpAdjId const& o) const { return !(*this == o); }
   // Link adjacencies first, then by interface or target, then by peer.
   bool operator<(LdpAdjId const& o) const;
   std::size_t hash() const;
   Vek::String stringValue() const;

 private:
   LdpAdjType adjType_ = adjTypeNone_;
   Nolu::IntfId intf_;
   Nolu::IpAddr target_;
   LdpIdentifier ldpId_;
};
std::ostream& operator<<(std::ostream& os, LdpAdjId const& v);

// A FEC on a session.
class LdpFecSessionId {
 public:
   LdpFecSessionId() = default;
   LdpFecSessionId(Mpls::FwdEqvClass const& fec, LdpSessionId const& sessionId)
      : fec_(fec), sessionId_(sessionId) {}
   Mpls::FwdEqvClass const& fec() const { return fec_; }
   LdpSessionId const& sessionId() const { return sessionId_; }

   bool operator==(LdpFecSessionId const& o) const {
      return fec_ == o.fec_ && sessionId_ == o.sessionId_;
   }
   bool operator!=(LdpFecSessionId const& o) const { return !(*this == o); }
   // By FEC, then by session, so that a FEC's sessions are neighbours.
   bool operator<(LdpFecSessionId const& o) const {
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return sessionId_ < o.sessionId_;
   }
   std::size_t hash() const { return Vek::hashMix(fec_.hash() * 31 + sessionId_.hash()); }
   Vek::String stringValue() const { return fec_.stringValue() + "/" + sessionId_.stringValue(); }

 private:
   Mpls::FwdEqvClass fec_;
   LdpSessionId sessionId_;
};
std::ostream& operator<<(std::ostream& os, LdpFecSessionId const& v);

// A pseudowire FEC on a session.
class PwFecSessionId {
 public:
   PwFecSessionId() = default;
   PwFecSessionId(PwFwdEqvClass const& fec, LdpSessionId const& sessionId)
      : fec_(fec), sessionId_(sessionId) {}
   PwFwdEqvClass const& fec() const { return fec_; }
   LdpSessionId const& sessionId() const { return sessionId_; }

   bool operator==(PwFecSessionId const& o) const {
      return fec_ == o.fec_ && sessionId_ == o.sessionId_;
   }
   bool operator!=(PwFecSessionId const& o) const { return !(*this == o); }
   bool operator<(PwFecSessionId const& o) const {
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return sessionId_ < o.sessionId_;
   }
   std::size_t hash() const { return Vek::hashMix(fec_.hash() * 31 + sessionId_.hash()); }
   Vek::String stringValue() const { return fec_.stringValue() + "/" + sessionId_.stringValue(); }

 private:
   PwFwdEqvClass fec_;
   LdpSessionId sessionId_;
};
std::ostream& operator<<(std::ostream& os, PwFecSessionId const& v);

// A point-to-multipoint FEC: the root address and the LSP id of the opaque
// value.
class LdpP2mpFecId {
 public:
   LdpP2mpFecId() = default;
   LdpP2mpFecId(Nolu::IpGenAddr const& root, U32 lspId) : root_(root), lspId_(lspId) {}
   Nolu::IpGenAddr const& rootAddr() const { return root_; }
   U32 lspId() const { return lspId_; }
   bool operator==(LdpP2mpFecId const& o) const { return root_ == o.root_ && lspId_ == o.lspId_; }
   bool operator!=(LdpP2mpFecId const& o) const { return !(*this == o); }
   bool operator<(LdpP2mpFecId const& o) const {
      if (root_ != o.root_) return root_ < o.root_;
      return lspId_ < o.lspId_;
   }
   std::size_t hash() const { return Vek::hashMix(root_.hash() * 31 + lspId_); }
   Vek::String stringValue() const { return root_.stringValue() + ":" + std::to_string(lspId_); }

 private:
   Nolu::IpGenAddr root_;
   U32 lspId_ = 0;
};
std::ostream& operator<<(std::ostream& os, LdpP2mpFecId const& v);

class LdpP2mpFecSessionId {
 public:
   LdpP2mpFecSessionId() = default;
   LdpP2mpFecSessionId(LdpP2mpFecId const& fec, LdpSessionId const& sessionId)
      : fec_(fec), sessionId_(sessionId) {}
   LdpP2mpFecId const& fec() const { return fec_; }
   LdpSessionId const& sessionId() const { return sessionId_; }
   bool operator==(LdpP2mpFecSessionId const& o) const {
      return fec_ == o.fec_ && sessionId_ == o.sessionId_;
   }
   bool operator!=(LdpP2mpFecSessionId const& o) const { return !(*this == o); }
   bool operator<(LdpP2mpFecSessionId const& o) const {
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return sessionId_ < o.sessionId_;
   }
   std::size_t hash() const { return Vek::hashMix(fec_.hash() * 31 + sessionId_.hash()); }
   Vek::String stringValue() const { return fec_.stringValue() + "/" + sessionId_.stringValue(); }

 private:
   LdpP2mpFecId fec_;
   LdpSessionId sessionId_;
};
std::ostream& operator<<(std::ostream& os, LdpP2mpFecSessionId const& v);

// The next hop of a route: address and interface.
class Via {
 public:
   Via() = default;
   Via(Nolu::IpGenAddr const& addr, Nolu::IntfId const& intf) : addr_(addr), intf_(intf) {}
   Nolu::IpGenAddr const& addr() const { return addr_; }
   Nolu::IntfId const& intfId() const { return intf_; }
   bool operator==(Via const& o) const { return addr_ == o.addr_ && intf_ == o.intf_; }
   bool operator!=(Via const& o) const { return !(*this == o); }
   bool operator<(Via const& o) const {
      if (addr_ != o.addr_) return addr_ < o.addr_;
      return intf_ < o.intf_;
   }
   std::size_t hash() const { return Vek::hashMix(addr_.hash() * 31 + intf_.hash()); }
   Vek::String stringValue() const { return addr_.stringValue() + "%" + intf_.stringValue(); }

 private:
   Nolu::IpGenAddr addr_;
   Nolu::IntfId intf_;
};
std::ostream& operator<<(std::ostream& os, Via const& v);

// The operator's protocol parameters as one 64-bit feature word; the
// protocol machines test single bits of it.
class LdpProtoParamSetting {
 public:
   constexpr LdpProtoParamSetting() = default;
   constexpr explicit LdpProtoParamSetting(U64 v) : value_(v) {}
   constexpr U64 value() const { return value_; }
   constexpr bool hasFlag(U64 mask) const { return (value_ & mask) != 0; }
   constexpr U64 operator&(U64 mask) const { return value_ & mask; }
   void flagIs(U64 mask, bool on) { value_ = on ? (value_ | mask) : (value_ & ~mask); }
   constexpr bool operator==(LdpProtoParamSetting const& o) const { return value_ == o.value_; }
   constexpr bool operator!=(LdpProtoParamSetting const& o) const { return value_ != o.value_; }
   std::size_t hash() const { return Vek::hashMix(value_); }
   Vek::String stringValue() const;

   static constexpr U64 loopDetectionStrict = 0x1;
   static constexpr U64 keepDownstreamOnDemand = 0x4;
   static constexpr U64 shortPrefixFecs = 0x8;
   static constexpr U64 lspRoles = 0x100;
   static constexpr U64 pwStatusWithdrawMethod = 0x200;

 private:
   U64 value_ = 0;
};
std::ostream& operator<<(std::ostream& os, LdpProtoParamSetting const& v);

// One entry of a session's state history.
struct LdpSessionStateLogEntry {
   Vek::Seconds time = 0.0;
   U8 sessionState = 0;
   LdpStatusCode code = statusSuccess_;
   Vek::String reason;
   bool operator==(LdpSessionStateLogEntry const& o) const = default;
};

// What a sent message id stood for, to read a later Notification naming it.
struct LdpMsgIdFecMappingInfo {
   Mpls::FwdEqvClass fec;
   LdpMsgType msgType = LdpMsgTypeNone_;
   Nolu::MplsLabel label;
   // Clear once the message no longer stands for anything: a Notification
   // about it then reaches nobody.
   bool valid = true;
   bool operator==(LdpMsgIdFecMappingInfo const& o) const = default;
};
struct PwMsgIdFecMappingInfo {
   PwFwdEqvClass fec;
   LdpMsgType msgType = LdpMsgTypeNone_;
   Nolu::MplsLabel label;
   // As above.
   bool valid = true;
   bool operator==(PwMsgIdFecMappingInfo const& o) const = default;
};

}  // namespace Ldp

namespace Mpls {

// A peer as the forwarding layer knows it: router id and label space.
class RouterId {
 public:
   constexpr RouterId() = default;
   constexpr RouterId(U32 rtrId, U16 lblSpace) : rtrId_(rtrId), lblSpace_(lblSpace) {}
   explicit RouterId(Ldp::LdpIdentifier const& id) : rtrId_(id.lsrId()), lblSpace_(id.lblSpace()) {}
   constexpr U32 rtrIdValue() const { return rtrId_; }
   constexpr U16 lblSpaceValue() const { return lblSpace_; }
   constexpr bool operator==(RouterId const& o) const {
      return rtrId_ == o.rtrId_ && lblSpace_ == o.lblSpace_;
   }
   constexpr bool operator!=(RouterId const& o) const { return !(*this == o); }
   constexpr bool operator<(RouterId const& o) const {
      return rtrId_ < o.rtrId_ || (rtrId_ == o.rtrId_ && lblSpace_ < o.lblSpace_);
   }
   std::size_t hash() const { return Vek::hashMix((U64(rtrId_) << 16) | lblSpace_); }
   Vek::String stringValue() const;

 private:
   U32 rtrId_ = 0;
   U16 lblSpace_ = 0;
};
std::ostream& operator<<(std::ostream& os, RouterId const& v);

}  // namespace Mpls

namespace Pseudowire {

// A pseudowire as its owner names it: the neighbour's address and the PW id.
class PseudowireLdpRequestKey {
 public:
   PseudowireLdpRequestKey() = default;
   PseudowireLdpRequestKey(Nolu::IpGenAddr const& addr, PseudowireId pwId)
      : addr_(addr), pwId_(pwId) {}
   Nolu::IpGenAddr const& addr() const { return addr_; }
   PseudowireId pwId() const { return pwId_; }
   bool operator==(PseudowireLdpRequestKey const& o) const {
      return addr_ == o.addr_ && pwId_ == o.pwId_;
   }
   bool operator!=(PseudowireLdpRequestKey const& o) const { return !(*this == o); }
   bool operator<(PseudowireLdpRequestKey const& o) const {
      if (addr_ != o.addr_) return addr_ < o.addr_;
      return pwId_ < o.pwId_;
   }
   std::size_t hash() const { return Vek::hashMix(addr_.hash() * 31 + pwId_.value()); }
   Vek::String stringValue() const {
      return addr_.stringValue() + "/" + std::to_string(pwId_.value());
   }

 private:
   Nolu::IpGenAddr addr_;
   PseudowireId pwId_;
};
using PseudowireLdpResponseKey = PseudowireLdpRequestKey;
std::ostream& operator<<(std::ostream& os, PseudowireLdpRequestKey const& v);

// The string form of a pseudowire key.
using PseudowireLdpKey = std::string;
inline PseudowireLdpKey pseudowireLdpKey(PseudowireLdpRequestKey const& k) {
   return k.stringValue();
}

}  // namespace Pseudowire

NOLU_STD_HASH(Ldp::LdpAdjId);
NOLU_STD_HASH(Ldp::LdpFecSessionId);
NOLU_STD_HASH(Ldp::PwFecSessionId);
NOLU_STD_HASH(Ldp::LdpP2mpFecId);
NOLU_STD_HASH(Ldp::LdpP2mpFecSessionId);
NOLU_STD_HASH(Ldp::Via);
NOLU_STD_HASH(Mpls::RouterId);
NOLU_STD_HASH(Pseudowire::PseudowireLdpRequestKey);

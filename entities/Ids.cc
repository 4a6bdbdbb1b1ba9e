#include "entities/Ids.h"

#include <sstream>

namespace Ldp {

char const* ldpAdjTypeStr(LdpAdjType t) {
   switch (t) {
      case adjTypeNone_: return "adjTypeNone_";
      case adjTypeLink_: return "adjTypeLink_";
      case adjTypeTarget_: return "adjTypeTarget_";
   }
   return "unknown";
}
std::ostream& operator<<(std::ostream& os, LdpAdjType t) { return os << ldpAdjTypeStr(t); }

LdpAdjId::LdpAdjId(Nolu::IntfId const& intf, LdpIdentifier const& ldpId)
   : adjType_(adjTypeLink_), intf_(intf), ldpId_(ldpId) {
   if (intf.isEmpty()) throw Vek::RangeException("LdpAdjId: a link adjacency needs an interface");
}

LdpAdjId::LdpAdjId(Nolu::IpAddr target, LdpIdentifier const& ldpId)
   : adjType_(adjTypeTarget_), target_(target), ldpId_(ldpId) {}

Nolu::IntfId const& LdpAdjId::intfId() const {
   if (adjType_ != adjTypeLink_) {
      throw Vek::RangeException("LdpAdjId::intfId: not a link adjacency");
   }
   return intf_;
}

Nolu::IpAddr LdpAdjId::targetIpAddr() const {
   if (adjType_ != adjTypeTarget_) {
      throw Vek::RangeException("LdpAdjId::targetIpAddr: not a targeted adjacency");
   }
   return target_;
}

bool LdpAdjId::operator<(LdpAdjId const& o) const {
   if (adjType_ != o.adjType_) return adjType_ < o.adjType_;
   if (intf_ != o.intf_) return intf_ < o.intf_;
   if (target_ != o.target_) return target_ < o.target_;
   return ldpId_ < o.ldpId_;
}

std::size_t LdpAdjId::hash() const {
   U64 h = adjType_ == adjTypeLink_ ? intf_.hash() : target_.hash();
   return Vek::hashMix(h * 31 + ldpId_.hash() * 7 + adjType_);
}

Vek::String LdpAdjId::stringValue() const {
   switch (adjType_) {
      case adjTypeLink_: return intf_.stringValue() + "-" + ldpId_.stringValue();
      case adjTypeTarget_: return target_.stringValue() + "-" + ldpId_.stringValue();
      default: return "none";
   }
}

std::ostream& operator<<(std::ostream& os, LdpAdjId const& v) { return os << v.stringValue(); }
std::ostream& operator<<(std::ostream& os, LdpFecSessionId const& v) {
   return os << v.stringValue();
}
std::ostream& operator<<(std::ostream& os, PwFecSessionId const& v) {
   return os << v.stringValue();
}
std::ostream& operator<<(std::ostream& os, LdpP2mpFecId const& v) { return os << v.stringValue(); }
std::ostream& operator<<(std::ostream& os, LdpP2mpFecSessionId const& v) {
   return os << v.stringValue();
}
std::ostream& operator<<(std::ostream& os, Via const& v) { return os << v.stringValue(); }

Vek::String LdpProtoParamSetting::stringValue() const {
   std::ostringstream os;
   os << "0x" << std::hex << value_;
   return os.str();
}
std::ostream& operator<<(std::ostream& os, LdpProtoParamSetting const& v) {
   return os << v.stringValue();
}

}  // namespace Ldp

namespace Mpls {

Vek::String RouterId::stringValue() const {
   return Nolu::IpAddr(rtrId_).stringValue() + ":" + std::to_string(lblSpace_);
}
std::ostream& operator<<(std::ostream& os, RouterId const& v) { return os << v.stringValue(); }

}  // namespace Mpls

namespace Pseudowire {

std::ostream& operator<<(std::ostream& os, PseudowireLdpRequestKey const& v) {
   return os << v.stringValue();
}

}  // namespace Pseudowire

#include "entities/Identifiers.h"

#include <tuple>

namespace Ldp {

std::optional<LdpIdentifier> LdpIdentifier::fromString(std::string_view s) {
   auto pos = s.find(':');
   if (pos == std::string_view::npos) return std::nullopt;
   auto addr = Nolu::IpAddr::fromString(s.substr(0, pos));
   auto rest = s.substr(pos + 1);
   if (!addr || rest.empty() || rest.size() > 5) return std::nullopt;
   U32 space = 0;
   for (char c : rest) {
      if (c < '0' || c > '9') return std::nullopt;
      space = space * 10 + U32(c - '0');
   }
   if (space > 0xFFFF) return std::nullopt;
   return LdpIdentifier(*addr, U16(space));
}

Vek::String LdpIdentifier::stringValue() const {
   return lsrIdAddr().stringValue() + ":" + std::to_string(lblSpace_);
}

std::ostream& operator<<(std::ostream& os, LdpIdentifier const& v) {
   return os << v.stringValue();
}

std::ostream& operator<<(std::ostream& os, LdpSessionId const& v) {
   return os << v.stringValue();
}

bool PwFwdEqvClass::operator<(PwFwdEqvClass const& o) const {
   return std::make_tuple(pwId_.value(), U8(pwType_), groupId_.value(), controlWord_) <
          std::make_tuple(o.pwId_.value(), U8(o.pwType_), o.groupId_.value(), o.controlWord_);
}

std::size_t PwFwdEqvClass::hash() const {
   U64 a = (U64(pwId_.value()) << 32) | groupId_.value();
   return Vek::hashMix(a ^ Vek::hashMix((U64(pwType_) << 1) | U64(controlWord_)));
}

Vek::String PwFwdEqvClass::stringValue() const {
   return "pwId " + pwId_.stringValue() + " type " + Pseudowire::pseudowireTypeStr(pwType_) +
          " group " + groupId_.stringValue() + (controlWord_ ? " cw" : "");
}

std::ostream& operator<<(std::ostream& os, PwFwdEqvClass const& v) {
   return os << v.stringValue();
}

bool PwFwdEqvClassParams::operator==(PwFwdEqvClassParams const& o) const {
   return mtu_ == o.mtu_ && intfDescription_ == o.intfDescription_ &&
          requestedVlanId_ == o.requestedVlanId_ && vccvCcTypes_ == o.vccvCcTypes_ &&
          vccvCvTypes_ == o.vccvCvTypes_ && reassemblySupported_ == o.reassemblySupported_;
}

std::size_t PwFwdEqvClassParams::hash() const {
   U64 a = (U64(mtu_) << 32) | (U64(requestedVlanId_) << 16) | (U64(vccvCcTypes_) << 8) |
           U64(vccvCvTypes_);
   return Vek::hashMix(a ^ Vek::hashBytes(intfDescription_.data(), intfDescription_.size()) ^
                       U64(reassemblySupported_));
}

Vek::String PwFwdEqvClassParams::stringValue() const {
   Vek::String s = "mtu " + std::to_string(mtu_);
   if (!intfDescription_.empty()) s += " descr \"" + intfDescription_ + "\"";
   if (requestedVlanId_) s += " vlan " + std::to_string(requestedVlanId_);
   if (vccvCcTypes_ || vccvCvTypes_) {
      s += " vccv cc " + std::to_string(vccvCcTypes_) + " cv " + std::to_string(vccvCvTypes_);
   }
   if (reassemblySupported_) s += " reassembly";
   return s;
}

std::ostream& operator<<(std::ostream& os, PwFwdEqvClassParams const& v) {
   return os << v.stringValue();
}

Vek::String PwFwdEqvClassInfo::stringValue() const {
   return fwdEqvClass_.stringValue() + " " + fwdEqvClassParams_.stringValue();
}

std::ostream& operator<<(std::ostream& os, PwFwdEqvClassInfo const& v) {
   return os << v.stringValue();
}

}  // namespace Ldp

namespace Mpls {

std::ostream& operator<<(std::ostream& os, FwdEqvClass const& v) { return os << v.stringValue(); }

}  // namespace Mpls

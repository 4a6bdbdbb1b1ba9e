#pragma once
// Identifiers that key sessions and FECs: the LDP identifier, the session
// key, the prefix FEC and the pseudowire FEC with its interface parameters.
#include <optional>
#include <ostream>
#include <string_view>

#include "entities/Pseudowire.h"
#include "runtime/nolu/Types.h"

namespace Ldp {

// The 6-byte LDP identifier: LSR id and label space.
class LdpIdentifier {
 public:
   constexpr LdpIdentifier() = default;
   constexpr LdpIdentifier(U32 lsrId, U16 lblSpace) : lsrId_(lsrId), lblSpace_(lblSpace) {}
   constexpr LdpIdentifier(Nolu::IpAddr lsrId, U16 lblSpace)
      : lsrId_(lsrId.value()), lblSpace_(lblSpace) {}
   // "a.b.c.d:n"
   static std::optional<LdpIdentifier> fromString(std::string_view s);

   constexpr U32 lsrId() const { return lsrId_; }
   Nolu::IpAddr lsrIdAddr() const { return Nolu::IpAddr(lsrId_); }
   constexpr U16 lblSpace() const { return lblSpace_; }
   void tmpLsrIdIs(U32 v) { lsrId_ = v; }
   void tmpLblSpaceIs(U16 v) { lblSpace_ = v; }
   // All six bytes zero.
   constexpr bool isEmpty() const { return lsrId_ == 0 && lblSpace_ == 0; }

   constexpr bool operator==(LdpIdentifier const& o) const {
      return lsrId_ == o.lsrId_ && lblSpace_ == o.lblSpace_;
   }
   constexpr bool operator!=(LdpIdentifier const& o) const { return !(*this == o); }
   constexpr bool operator<(LdpIdentifier const& o) const {
      return lsrId_ < o.lsrId_ || (lsrId_ == o.lsrId_ && lblSpace_ < o.lblSpace_);
   }
   std::size_t hash() const { return Vek::hashMix((U64(lsrId_) << 16) | lblSpace_); }
   Vek::String stringValue() const;

 private:
   U32 lsrId_ = 0;
   U16 lblSpace_ = 0;
};
std::ostream& operator<<(std::ostream& os, LdpIdentifier const& v);

// The key of a session: the peer's LDP identifier.
class LdpSessionId {
 public:
   constexpr LdpSessionId() = default;
   constexpr explicit LdpSessionId(LdpIdentifier const& peer) : peer_(peer) {}
   constexpr LdpSessionId(U32 lsrId, U16 lblSpace) : peer_(lsrId, lblSpace) {}

   constexpr LdpIdentifier const& ldpIdentifier() const { return peer_; }
   constexpr U32 lsrId() const { return peer_.lsrId(); }
   constexpr U16 lblSpace() const { return peer_.lblSpace(); }

   constexpr bool operator==(LdpSessionId const& o) const { return peer_ == o.peer_; }
   constexpr bool operator!=(LdpSessionId const& o) const { return peer_ != o.peer_; }
   constexpr bool operator<(LdpSessionId const& o) const { return peer_ < o.peer_; }
   std::size_t hash() const { return peer_.hash(); }
   Vek::String stringValue() const { return peer_.stringValue(); }

 private:
   LdpIdentifier peer_;
};
std::ostream& operator<<(std::ostream& os, LdpSessionId const& v);

// The pseudowire FEC, RFC 4447 type 128.
class PwFwdEqvClass {
 public:
   PwFwdEqvClass() = default;
   PwFwdEqvClass(Pseudowire::PseudowireId pwId, Pseudowire::PseudowireType pwType,
                 Pseudowire::GroupId groupId, bool controlWord)
      : pwId_(pwId), groupId_(groupId), pwType_(pwType), controlWord_(controlWord) {}

   Pseudowire::PseudowireId pwId() const { return pwId_; }
   void pwIdIs(Pseudowire::PseudowireId v) { pwId_ = v; }
   Pseudowire::PseudowireType pwType() const { return pwType_; }
   void pwTypeIs(Pseudowire::PseudowireType v) { pwType_ = v; }
   Pseudowire::GroupId groupId() const { return groupId_; }
   void groupIdIs(Pseudowire::GroupId v) { groupId_ = v; }
   bool controlWord() const { return controlWord_; }
   void controlWordIs(bool v) { controlWord_ = v; }

   bool operator==(PwFwdEqvClass const& o) const {
      return pwId_ == o.pwId_ && pwType_ == o.pwType_ && groupId_ == o.groupId_ &&
             controlWord_ == o.controlWord_;
   }
   bool operator!=(PwFwdEqvClass const& o) const { return !(*this == o); }
   bool operator<(PwFwdEqvClass const& o) const;
   std::size_t hash() const;
   Vek::String stringValue() const;

 private:
   Pseudowire::PseudowireId pwId_;
   Pseudowire::GroupId groupId_;
   Pseudowire::PseudowireType pwType_ = Pseudowire::pwTypeNone_;
   bool controlWord_ = false;
};
std::ostream& operator<<(std::ostream& os, PwFwdEqvClass const& v);

// The interface parameters that go with a pseudowire FEC. mtu 0 and
// requestedVlanId 0 mean "not given".
class PwFwdEqvClassParams {
 public:
   U32 mtu() const { return mtu_; }
   void mtuIs(U32 v) { mtu_ = v; }
   Vek::String const& intfDescription() const { return intfDescription_; }
   void intfDescriptionIs(Vek::String const& v) { intfDescription_ = v; }
   U16 requestedVlanId() const { return requestedVlanId_; }
   void requestedVlanIdIs(U16 v) { requestedVlanId_ = v; }
   U8 vccvCcTypes() const { return vccvCcTypes_; }
   void vccvCcTypesIs(U8 v) { vccvCcTypes_ = v; }
   Pseudowire::VccvCvTypes vccvCvTypes() const { return vccvCvTypes_; }
   void vccvCvTypesIs(Pseudowire::VccvCvTypes v) { vccvCvTypes_ = v; }
   bool reassemblySupported() const { return reassemblySupported_; }
   void reassemblySupportedIs(bool v) { reassemblySupported_ = v; }

   bool operator==(PwFwdEqvClassParams const& o) const;
   bool operator!=(PwFwdEqvClassParams const& o) const { return !(*this == o); }
   std::size_t hash() const;
   Vek::String stringValue() const;

 private:
   U32 mtu_ = 0;
   Vek::String intfDescription_;
   U16 requestedVlanId_ = 0;
   U8 vccvCcTypes_ = 0;
   Pseudowire::VccvCvTypes vccvCvTypes_ = Pseudowire::vccvCvNone_;
   bool reassemblySupported_ = false;
};
std::ostream& operator<<(std::ostream& os, PwFwdEqvClassParams const& v);

// A pseudowire FEC with its interface parameters: what a Label Mapping for a
// pseudowire carries.
class PwFwdEqvClassInfo {
 public:
   PwFwdEqvClassInfo() = default;
   explicit PwFwdEqvClassInfo(PwFwdEqvClass const& fec, PwFwdEqvClassParams const& params = {})
      : fwdEqvClass_(fec), fwdEqvClassParams_(params) {}

   PwFwdEqvClass const& fwdEqvClass() const { return fwdEqvClass_; }
   void fwdEqvClassIs(PwFwdEqvClass const& v) { fwdEqvClass_ = v; }
   PwFwdEqvClassParams const& fwdEqvClassParams() const { return fwdEqvClassParams_; }
   void fwdEqvClassParamsIs(PwFwdEqvClassParams const& v) { fwdEqvClassParams_ = v; }

   bool operator==(PwFwdEqvClassInfo const& o) const {
      return fwdEqvClass_ == o.fwdEqvClass_ && fwdEqvClassParams_ == o.fwdEqvClassParams_;
   }
   bool operator!=(PwFwdEqvClassInfo const& o) const { return !(*this == o); }
   std::size_t hash() const {
      return Vek::hashMix(fwdEqvClass_.hash() ^ fwdEqvClassParams_.hash());
   }
   Vek::String stringValue() const;

 private:
   PwFwdEqvClass fwdEqvClass_;
   PwFwdEqvClassParams fwdEqvClassParams_;
};
std::ostream& operator<<(std::ostream& os, PwFwdEqvClassInfo const& v);

}  // namespace Ldp

namespace Mpls {

// A prefix FEC. The default value is the empty FEC.
class FwdEqvClass {
 public:
   FwdEqvClass() = default;
   explicit FwdEqvClass(Nolu::IpGenPrefix const& prefix) : prefix_(prefix) {}
   explicit FwdEqvClass(Nolu::Prefix const& prefix) : prefix_(prefix) {}

   Nolu::IpGenPrefix const& prefix() const { return prefix_; }
   Nolu::AddressFamily af() const { return prefix_.af(); }
   bool isEmpty() const { return prefix_.isEmpty(); }

   bool operator==(FwdEqvClass const& o) const { return prefix_ == o.prefix_; }
   bool operator!=(FwdEqvClass const& o) const { return prefix_ != o.prefix_; }
   bool operator<(FwdEqvClass const& o) const { return prefix_ < o.prefix_; }
   std::size_t hash() const { return prefix_.hash(); }
   Vek::String stringValue() const { return prefix_.stringValue(); }

 private:
   Nolu::IpGenPrefix prefix_;
};
std::ostream& operator<<(std::ostream& os, FwdEqvClass const& v);

}  // namespace Mpls

NOLU_STD_HASH(Ldp::LdpIdentifier);
NOLU_STD_HASH(Ldp::LdpSessionId);
NOLU_STD_HASH(Ldp::PwFwdEqvClass);
NOLU_STD_HASH(Ldp::PwFwdEqvClassInfo);
NOLU_STD_HASH(Mpls::FwdEqvClass);

#pragma once
// Value types of pseudowires that LDP signals: identifiers, the PW type, and
// the VCCV and status bits that travel in the PWid FEC element and the PW
// Status TLV.
#include <ostream>

#include "runtime/vek/Types.h"

namespace Pseudowire {

// A 32-bit identifier with value semantics; Tag keeps the kinds apart.
template <class Tag>
class U32Id {
 public:
   constexpr U32Id() = default;
   constexpr explicit U32Id(U32 v) : value_(v) {}
   constexpr U32 value() const { return value_; }
   void valueIs(U32 v) { value_ = v; }
   constexpr bool operator==(U32Id const& o) const { return value_ == o.value_; }
   constexpr bool operator!=(U32Id const& o) const { return value_ != o.value_; }
   constexpr bool operator<(U32Id const& o) const { return value_ < o.value_; }
   std::size_t hash() const { return Vek::hashMix(value_); }
   Vek::String stringValue() const { return std::to_string(value_); }

 private:
   U32 value_ = 0;
};
template <class Tag>
std::ostream& operator<<(std::ostream& os, U32Id<Tag> const& v) {
   return os << v.value();
}

struct PseudowireIdTag;
struct GroupIdTag;
// The PW id of the PWid FEC element; 0 means "every pseudowire of the group".
using PseudowireId = U32Id<PseudowireIdTag>;
using GroupId = U32Id<GroupIdTag>;

// The kinds of pseudowire that the switch offers, and pwTypeNone_ for "not
// set". pwTypeOther_ stands for any other wire code a peer may send.
enum PseudowireType : U8 {
   pwTypeOther_ = 0,
   pwTypeEthernetTagged_ = 1,
   pwTypeEthernet_ = 2,
   pwTypeNone_ = 4,
};
char const* pseudowireTypeStr(PseudowireType t);
std::ostream& operator<<(std::ostream& os, PseudowireType t);
// The PW type code on the wire (RFC 4446): 0x0004 Ethernet tagged mode,
// 0x0005 Ethernet; 0 for the types that have none.
U16 wirePwTypeForPseudowireType(PseudowireType t);
PseudowireType pseudowireTypeForWirePwType(U16 wire);

// VCCV control channel types (bit mask).
enum VccvCcTypes : U8 {
   vccvCcNone_ = 0x00,
   vccvCcPwControlWord_ = 0x01,
   vccvCcRouterAlert_ = 0x02,
   vccvCcTtlExpiry_ = 0x04,
};
// VCCV connectivity verification types (bit mask).
enum VccvCvTypes : U8 {
   vccvCvNone_ = 0x00,
   vccvCvIcmpPing_ = 0x01,
   vccvCvLspPing_ = 0x02,
   vccvCvBfdIpUdp_ = 0x04,
   vccvCvBfdIpUdpSignal_ = 0x08,
   vccvCvBfdPwAch_ = 0x10,
   vccvCvBfdPwAchSignal_ = 0x20,
};

// The status bits of the PW Status TLV (bit mask; 0 is "forwarding").
enum PseudowireLdpStatusFlags : U32 {
   pwStatusForwarding_ = 0x00,
   pwStatusNotForwarding_ = 0x01,
   pwStatusAcRxFault_ = 0x02,
   pwStatusAcTxFault_ = 0x04,
   pwStatusPsnRxFault_ = 0x08,
   pwStatusPsnTxFault_ = 0x10,
};

}  // namespace Pseudowire

template <class Tag>
struct std::hash<Pseudowire::U32Id<Tag>> {
   std::size_t operator()(Pseudowire::U32Id<Tag> const& v) const noexcept { return v.hash(); }
};

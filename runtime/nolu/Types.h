#pragma once
// Network value types: addresses, prefixes, labels, interface names and
// fields kept in network byte order. All are small, immutable-by-default
// values with ==, <, a stable hash() and stringValue().
#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Nolu {

// Fields in network byte order, laid over packet bytes. Alignment is 1 so a
// header made of them can sit at any offset in a buffer.
struct NetU8 {
   U8 b_[1];
   U8 value() const { return b_[0]; }
   void valueIs(U8 v) { b_[0] = v; }
};

struct NetU16 {
   U8 b_[2];
   U16 value() const { return U16((U16(b_[0]) << 8) | b_[1]); }
   void valueIs(U16 v) {
      b_[0] = U8(v >> 8);
      b_[1] = U8(v);
   }
};

struct NetU32 {
   U8 b_[4];
   U32 value() const {
      return (U32(b_[0]) << 24) | (U32(b_[1]) << 16) | (U32(b_[2]) << 8) | U32(b_[3]);
   }
   void valueIs(U32 v) {
      b_[0] = U8(v >> 24);
      b_[1] = U8(v >> 16);
      b_[2] = U8(v >> 8);
      b_[3] = U8(v);
   }
};
static_assert(sizeof(NetU16) == 2 && alignof(NetU16) == 1);
static_assert(sizeof(NetU32) == 4 && alignof(NetU32) == 1);

// Plain reads and writes of network order integers at a byte pointer.
inline U16 readU16(U8 const* p) { return U16((U16(p[0]) << 8) | p[1]); }
inline U32 readU32(U8 const* p) {
   return (U32(p[0]) << 24) | (U32(p[1]) << 16) | (U32(p[2]) << 8) | U32(p[3]);
}
inline void writeU16(U8* p, U16 v) {
   p[0] = U8(v >> 8);
   p[1] = U8(v);
}
inline void writeU32(U8* p, U32 v) {
   p[0] = U8(v >> 24);
   p[1] = U8(v >> 16);
   p[2] = U8(v >> 8);
   p[3] = U8(v);
}

// Address families, numbered as on the wire (IANA address family numbers).
enum AddressFamily : U8 {
   ipunknown_ = 0,
   ipv4_ = 1,
   ipv6_ = 2,
};
char const* addressFamilyStr(AddressFamily af);
std::ostream& operator<<(std::ostream& os, AddressFamily af);

// An IPv4 address, held as a host order number.
class IpAddr {
 public:
   constexpr IpAddr() = default;
   constexpr explicit IpAddr(U32 hostOrder) : value_(hostOrder) {}
   constexpr IpAddr(U8 a, U8 b, U8 c, U8 d)
      : value_((U32(a) << 24) | (U32(b) << 16) | (U32(c) << 8) | U32(d)) {}
   static IpAddr fromBytes(U8 const* p) { return IpAddr(readU32(p)); }
   static std::optional<IpAddr> fromString(std::string_view s);
   static constexpr IpAddr ipAddrZero() { return IpAddr(); }

   constexpr U32 value() const { return value_; }
   void valueIs(U32 v) { value_ = v; }
   void bytesAre(U8* p) const { writeU32(p, value_); }
   constexpr bool isZero() const { return value_ == 0; }
   constexpr bool isMulticast() const { return (value_ >> 28) == 0xE; }
   constexpr bool isLoopback() const { return (value_ >> 24) == 127; }

   constexpr bool operator==(IpAddr const& o) const { return value_ == o.value_; }
   constexpr bool operator!=(IpAddr const& o) const { return value_ != o.value_; }
   constexpr bool operator<(IpAddr const& o) const { return value_ < o.value_; }
   std::size_t hash() const { return Vek::hashMix(value_); }
   Vek::String stringValue() const;
   // Appends the dotted quad to s, without a formatter: traces and event
   // lines print addresses by the hundred thousand.
   void appendTo(std::string& s) const;

 private:
   U32 value_ = 0;
};
static_assert(sizeof(IpAddr) == 4);

// An IPv6 address, 16 bytes in network order.
class Ip6Addr {
 public:
   Ip6Addr() { bytes_.fill(0); }
   static Ip6Addr fromBytes(U8 const* p) {
      Ip6Addr a;
      std::memcpy(a.bytes_.data(), p, 16);
      return a;
   }
   static std::optional<Ip6Addr> fromString(std::string_view s);

   // The byte at index, 0 being the most significant.
   U8 u8(unsigned index) const {
      if (index >= 16) throw Vek::RangeException("Ip6Addr::u8: index out of range");
      return bytes_[index];
   }
   void u8Is(unsigned index, U8 v) {
      if (index >= 16) throw Vek::RangeException("Ip6Addr::u8: index out of range");
      bytes_[index] = v;
   }
   U8 const* bytes() const { return bytes_.data(); }
   void bytesAre(U8* p) const { std::memcpy(p, bytes_.data(), 16); }
   bool isZero() const;

   bool operator==(Ip6Addr const& o) const { return bytes_ == o.bytes_; }
   bool operator!=(Ip6Addr const& o) const { return bytes_ != o.bytes_; }
   bool operator<(Ip6Addr const& o) const { return bytes_ < o.bytes_; }
   std::size_t hash() const { return Vek::hashBytes(bytes_.data(), 16); }
   Vek::String stringValue() const;

 private:
   std::array<U8, 16> bytes_;
};

// An address of either version. The default value has no family and stands
// for "unspecified". It is 8 bytes: an IPv4 address is held as it is, an IPv6
// address by the number under which the process keeps it (addresses of either
// version are few beside the tables keyed by them).
class IpGenAddr {
 public:
   IpGenAddr() = default;
   IpGenAddr(IpAddr a) : v_(a.value()), af_(ipv4_) {}
   IpGenAddr(Ip6Addr const& a);
   static std::optional<IpGenAddr> fromString(std::string_view s);

   AddressFamily af() const { return af_; }
   bool isV4() const { return af_ == ipv4_; }
   bool isV6() const { return af_ == ipv6_; }
   bool isUnspecified() const { return af_ == ipunknown_; }
   // The IPv4 value; 0.0.0.0 unless the family is IPv4.
   IpAddr v4Addr() const { return af_ == ipv4_ ? IpAddr(v_) : IpAddr(); }
   // The IPv6 value; :: unless the family is IPv6.
   Ip6Addr const& v6Addr() const;
   // Bytes of the address: 4 for IPv4, 16 for IPv6, 0 without family.
   unsigned byteLength() const { return af_ == ipv4_ ? 4 : af_ == ipv6_ ? 16 : 0; }
   void bytesAre(U8* p) const;

   bool operator==(IpGenAddr const& o) const { return af_ == o.af_ && v_ == o.v_; }
   bool operator!=(IpGenAddr const& o) const { return !(*this == o); }
   bool operator<(IpGenAddr const& o) const;
   std::size_t hash() const { return Vek::hashMix(U64(v_) | (U64(af_) << 32)); }
   Vek::String stringValue() const;

 private:
   friend class IpGenPrefix;
   IpGenAddr(AddressFamily af, U32 v) : v_(v), af_(af) {}
   U32 v_ = 0;
   AddressFamily af_ = ipunknown_;
};
static_assert(sizeof(IpGenAddr) == 8);

// An IPv4 address with a mask length; the host bits are kept.
class IpAddrWithMask {
 public:
   IpAddrWithMask() = default;
   IpAddrWithMask(IpAddr addr, U8 len);
   IpAddr addr() const { return addr_; }
   U8 len() const { return len_; }
   IpAddr subnet() const;
   bool contains(IpAddr a) const;

   bool operator==(IpAddrWithMask const& o) const { return addr_ == o.addr_ && len_ == o.len_; }
   bool operator!=(IpAddrWithMask const& o) const { return !(*this == o); }
   bool operator<(IpAddrWithMask const& o) const {
      return addr_ < o.addr_ || (addr_ == o.addr_ && len_ < o.len_);
   }
   std::size_t hash() const { return Vek::hashMix((U64(addr_.value()) << 8) | len_); }
   Vek::String stringValue() const;

 private:
   IpAddr addr_;
   U8 len_ = 0;
};

class IpGenAddrWithMask {
 public:
   IpGenAddrWithMask() = default;
   IpGenAddrWithMask(IpGenAddr const& addr, U8 len);
   IpGenAddr const& addr() const { return addr_; }
   U8 len() const { return len_; }
   AddressFamily af() const { return addr_.af(); }

   bool operator==(IpGenAddrWithMask const& o) const {
      return addr_ == o.addr_ && len_ == o.len_;
   }
   bool operator!=(IpGenAddrWithMask const& o) const { return !(*this == o); }
   bool operator<(IpGenAddrWithMask const& o) const {
      return addr_ < o.addr_ || (addr_ == o.addr_ && len_ < o.len_);
   }
   std::size_t hash() const { return Vek::hashMix(addr_.hash() ^ len_); }
   Vek::String stringValue() const;

 private:
   IpGenAddr addr_;
   U8 len_ = 0;
};

// An IPv4 prefix: the address with its host bits cleared, and the length.
class Prefix {
 public:
   Prefix() = default;
   Prefix(IpAddr addr, U8 len);
   static std::optional<Prefix> fromString(std::string_view s);
   IpAddr addr() const { return addr_; }
   U8 len() const { return len_; }
   bool contains(IpAddr a) const;

   bool operator==(Prefix const& o) const { return addr_ == o.addr_ && len_ == o.len_; }
   bool operator!=(Prefix const& o) const { return !(*this == o); }
   bool operator<(Prefix const& o) const {
      return addr_ < o.addr_ || (addr_ == o.addr_ && len_ < o.len_);
   }
   std::size_t hash() const { return Vek::hashMix((U64(addr_.value()) << 8) | len_); }
   Vek::String stringValue() const;

 private:
   IpAddr addr_;
   U8 len_ = 0;
};

// A prefix of either version; the default value has no family ("empty").
// Like the address, it is 8 bytes.
class IpGenPrefix {
 public:
   IpGenPrefix() = default;
   IpGenPrefix(Prefix const& p) : v_(p.addr().value()), af_(ipv4_), len_(p.len()) {}
   // Raises RangeException for a length beyond the family's bits or an
   // address without family.
   IpGenPrefix(IpGenAddr const& addr, U8 len);
   static std::optional<IpGenPrefix> fromString(std::string_view s);

   AddressFamily af() const { return af_; }
   bool isEmpty() const { return af_ == ipunknown_; }
   IpGenAddr addr() const { return IpGenAddr(af_, v_); }
   U8 len() const { return len_; }
   Prefix v4Prefix() const { return Prefix(addr().v4Addr(), len_); }

   bool operator==(IpGenPrefix const& o) const {
      return af_ == o.af_ && v_ == o.v_ && len_ == o.len_;
   }
   bool operator!=(IpGenPrefix const& o) const { return !(*this == o); }
   bool operator<(IpGenPrefix const& o) const {
      if (addr() != o.addr()) return addr() < o.addr();
      return len_ < o.len_;
   }
   std::size_t hash() const { return Vek::hashMix((U64(v_) << 16) | (U64(af_) << 8) | len_); }
   Vek::String stringValue() const;
   // Appends stringValue() to s.
   void appendTo(std::string& s) const;

 private:
   U32 v_ = 0;
   AddressFamily af_ = ipunknown_;
   U8 len_ = 0;
};
static_assert(sizeof(IpGenPrefix) == 8);

class EthAddr {
 public:
   EthAddr() { bytes_.fill(0); }
   EthAddr(U8 a, U8 b, U8 c, U8 d, U8 e, U8 f) : bytes_{a, b, c, d, e, f} {}
   static EthAddr fromBytes(U8 const* p) {
      EthAddr e;
      std::memcpy(e.bytes_.data(), p, 6);
      return e;
   }
   static std::optional<EthAddr> fromString(std::string_view s);
   U8 const* bytes() const { return bytes_.data(); }
   void bytesAre(U8* p) const { std::memcpy(p, bytes_.data(), 6); }
   bool isMulticast() const { return bytes_[0] & 1; }

   bool operator==(EthAddr const& o) const { return bytes_ == o.bytes_; }
   bool operator!=(EthAddr const& o) const { return bytes_ != o.bytes_; }
   bool operator<(EthAddr const& o) const { return bytes_ < o.bytes_; }
   std::size_t hash() const { return Vek::hashBytes(bytes_.data(), 6); }
   Vek::String stringValue() const;

 private:
   std::array<U8, 6> bytes_;
};

// The multicast MAC address of an IPv4 group: 01:00:5e and the low 23 bits.
EthAddr ipMcastMacAddr(IpAddr group);

// An interface, known by its name ("Ethernet1", "eth0"). The empty name is
// the "no interface" value. It is 4 bytes: the process keeps each name once
// and an interface is the number of its name.
class IntfId {
 public:
   IntfId() = default;
   explicit IntfId(std::string_view name);
   Vek::String const& name() const;
   bool isEmpty() const { return id_ == 0; }

   bool operator==(IntfId const& o) const { return id_ == o.id_; }
   bool operator!=(IntfId const& o) const { return id_ != o.id_; }
   bool operator<(IntfId const& o) const { return id_ != o.id_ && name() < o.name(); }
   std::size_t hash() const { return Vek::hashMix(id_); }
   Vek::String stringValue() const { return name(); }

 private:
   U32 id_ = 0;
};
static_assert(sizeof(IntfId) == 4);

// An MPLS label. 20 bits on the wire; the values above carry meanings of
// their own inside the agent: null (no label) and any (every label).
class MplsLabel {
 public:
   static constexpr U32 min = 0;
   static constexpr U32 max = 0xFFFFF;
   static constexpr U32 nullValue = 0x100000;
   static constexpr U32 anyValue = 0x100001;
   static constexpr U32 luWithdraw = 0x800000;
   static constexpr U32 implicitNullValue = 3;
   static constexpr U32 specialLabelLimit = 15;

   MplsLabel() = default;
   explicit MplsLabel(U32 v) : value_(v) { check(v); }
   static MplsLabel null() { return MplsLabel(); }
   static MplsLabel any() { return MplsLabel(anyValue); }
   static MplsLabel implicitNull() { return MplsLabel(implicitNullValue); }

   U32 value() const { return value_; }
   void valueIs(U32 v) {
      check(v);
      value_ = v;
   }
   // A label that can be put on the wire.
   bool isValid() const { return value_ <= max; }
   bool isNull() const { return value_ == nullValue; }
   bool isAny() const { return value_ == anyValue; }
   bool isSpecialLabel() const { return value_ < specialLabelLimit; }

   bool operator==(MplsLabel const& o) const { return value_ == o.value_; }
   bool operator!=(MplsLabel const& o) const { return value_ != o.value_; }
   bool operator<(MplsLabel const& o) const { return value_ < o.value_; }
   std::size_t hash() const { return Vek::hashMix(value_); }
   Vek::String stringValue() const;

 private:
   static void check(U32 v) {
      if (v > luWithdraw) {
         throw Vek::RangeException(
            "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
      }
   }
   U32 value_ = nullValue;
};

class Port {
 public:
   constexpr Port() = default;
   constexpr explicit Port(U16 v) : value_(v) {}
   constexpr U16 value() const { return value_; }
   void valueIs(U16 v) { value_ = v; }
   constexpr bool operator==(Port const& o) const { return value_ == o.value_; }
   constexpr bool operator!=(Port const& o) const { return value_ != o.value_; }
   constexpr bool operator<(Port const& o) const { return value_ < o.value_; }
   std::size_t hash() const { return Vek::hashMix(value_); }
   Vek::String stringValue() const { return std::to_string(value_); }

 private:
   U16 value_ = 0;
};

// The name of a network namespace, at most 150 bytes.
class NamespaceName {
 public:
   static constexpr std::size_t maxLength = 150;
   NamespaceName() = default;
   explicit NamespaceName(std::string_view s) : name_(checked(s)) {}
   Vek::String const& name() const { return name_; }
   bool isEmpty() const { return name_.empty(); }

   bool operator==(NamespaceName const& o) const { return name_ == o.name_; }
   bool operator!=(NamespaceName const& o) const { return name_ != o.name_; }
   bool operator<(NamespaceName const& o) const { return name_ < o.name_; }
   std::size_t hash() const { return Vek::hashBytes(name_.data(), name_.size()); }
   Vek::String stringValue() const { return name_; }

 private:
   static std::string_view checked(std::string_view s) {
      if (s.size() > maxLength) {
         throw Vek::RangeException("NamespaceName::bytes > 150 not allowed");
      }
      return s;
   }
   Vek::String name_;
};

// Stream output through stringValue() for every value type above.
inline std::ostream& operator<<(std::ostream& os, IpAddr const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, Ip6Addr const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, IpGenAddr const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, IpAddrWithMask const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, IpGenAddrWithMask const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, Prefix const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, IpGenPrefix const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, EthAddr const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, IntfId const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, MplsLabel const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, Port const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, NamespaceName const& v) {
   return os << v.stringValue();
}

// std::hash through the type's own hash(), so the values can key std
// containers with a stable order.
template <class T>
struct ValueHash {
   std::size_t operator()(T const& v) const { return v.hash(); }
};

}  // namespace Nolu

#define NOLU_STD_HASH(T)                                                           \
   template <>                                                                     \
   struct std::hash<T> {                                                           \
      std::size_t operator()(T const& v) const noexcept { return v.hash(); }       \
   }

NOLU_STD_HASH(Nolu::IpAddr);
NOLU_STD_HASH(Nolu::Ip6Addr);
NOLU_STD_HASH(Nolu::IpGenAddr);
NOLU_STD_HASH(Nolu::IpAddrWithMask);
NOLU_STD_HASH(Nolu::IpGenAddrWithMask);
NOLU_STD_HASH(Nolu::Prefix);
NOLU_STD_HASH(Nolu::IpGenPrefix);
NOLU_STD_HASH(Nolu::EthAddr);
NOLU_STD_HASH(Nolu::IntfId);
NOLU_STD_HASH(Nolu::MplsLabel);
NOLU_STD_HASH(Nolu::Port);
NOLU_STD_HASH(Nolu::NamespaceName);

#include "runtime/nolu/Types.h"

#include <deque>
#include <unordered_map>

#include <arpa/inet.h>

#include <charconv>

#include <cstdio>

namespace Nolu {

namespace {

// Parses a decimal number of at most maxDigits digits that fills s.
std::optional<unsigned> parseDecimal(std::string_view s, unsigned maxDigits) {
   if (s.empty() || s.size() > maxDigits) return std::nullopt;
   unsigned v = 0;
   for (char c : s) {
      if (c < '0' || c > '9') return std::nullopt;
      v = v * 10 + unsigned(c - '0');
   }
   return v;
}

// Splits "addr/len" into its parts; no slash gives an empty length text.
std::pair<std::string_view, std::string_view> splitSlash(std::string_view s) {
   auto pos = s.find('/');
   if (pos == std::string_view::npos) return {s, {}};
   return {s.substr(0, pos), s.substr(pos + 1)};
}

U32 v4Mask(U8 len) { return len == 0 ? 0 : ~U32(0) << (32 - len); }

}  // namespace

char const* addressFamilyStr(AddressFamily af) {
   switch (af) {
    case ipunknown_: return "ipunknown";
    case ipv4_: return "ipv4";
    case ipv6_: return "ipv6";
   }
   return "ipunknown";
}

std::ostream& operator<<(std::ostream& os, AddressFamily af) {
   return os << addressFamilyStr(af);
}

// ---- IpAddr

std::optional<IpAddr> IpAddr::fromString(std::string_view s) {
   U32 v = 0;
   for (int i = 0; i < 4; ++i) {
      auto pos = s.find('.');
      if ((i < 3) == (pos == std::string_view::npos)) return std::nullopt;
      auto part = parseDecimal(s.substr(0, pos), 3);
      if (!part || *part > 255) return std::nullopt;
      v = (v << 8) | *part;
      s = pos == std::string_view::npos ? std::string_view() : s.substr(pos + 1);
   }
   return IpAddr(v);
}

namespace {
void appendDecimal(std::string& s, unsigned v) {
   char buf[10];
   auto r = std::to_chars(buf, buf + sizeof buf, v);
   s.append(buf, r.ptr);
}
}  // namespace

void IpAddr::appendTo(std::string& s) const {
   char buf[16];
   char* p = buf;
   for (int shift = 24; shift >= 0; shift -= 8) {
      unsigned b = (value_ >> shift) & 0xFF;
      if (b >= 100) *p++ = char('0' + b / 100);
      if (b >= 10) *p++ = char('0' + b / 10 % 10);
      *p++ = char('0' + b % 10);
      if (shift) *p++ = '.';
   }
   s.append(buf, p);
}

Vek::String IpAddr::stringValue() const {
   std::string s;
   appendTo(s);
   return s;
}

// ---- Ip6Addr

std::optional<Ip6Addr> Ip6Addr::fromString(std::string_view s) {
   if (s.size() >= INET6_ADDRSTRLEN) return std::nullopt;
   std::string text(s);
   U8 bytes[16];
   if (inet_pton(AF_INET6, text.c_str(), bytes) != 1) return std::nullopt;
   return fromBytes(bytes);
}

bool Ip6Addr::isZero() const {
   for (U8 b : bytes_) {
      if (b) return false;
   }
   return true;
}

Vek::String Ip6Addr::stringValue() const {
   char buf[INET6_ADDRSTRLEN];
   if (!inet_ntop(AF_INET6, bytes_.data(), buf, sizeof(buf))) return "::";
   return buf;
}

// ---- IpGenAddr

namespace {

// The IPv6 addresses and interface names that the process has met, each kept
// once under a number. They are few and never given back.
template <class T, class H = ValueHash<T>>
class Interned {
 public:
   explicit Interned(T none) { values_.push_back(std::move(none)); }
   U32 id(T const& v) {
      auto [it, fresh] = ids_.try_emplace(v, U32(values_.size()));
      if (fresh) values_.push_back(v);
      return it->second;
   }
   T const& value(U32 id) const { return values_[id]; }

 private:
   std::deque<T> values_;
   std::unordered_map<T, U32, H> ids_;
};

Interned<Ip6Addr>& ip6Addrs() {
   static Interned<Ip6Addr> t{Ip6Addr()};
   return t;
}

Interned<std::string, std::hash<std::string>>& intfNames() {
   static Interned<std::string, std::hash<std::string>> t{std::string()};
   return t;
}

}  // namespace

IpGenAddr::IpGenAddr(Ip6Addr const& a) : v_(ip6Addrs().id(a)), af_(ipv6_) {}

Ip6Addr const& IpGenAddr::v6Addr() const { return ip6Addrs().value(af_ == ipv6_ ? v_ : 0); }

std::optional<IpGenAddr> IpGenAddr::fromString(std::string_view s) {
   if (auto v4 = IpAddr::fromString(s)) return IpGenAddr(*v4);
   if (auto v6 = Ip6Addr::fromString(s)) return IpGenAddr(*v6);
   return std::nullopt;
}

void IpGenAddr::bytesAre(U8* p) const {
   if (af_ == ipv4_) v4Addr().bytesAre(p);
   else if (af_ == ipv6_) v6Addr().bytesAre(p);
}

bool IpGenAddr::operator<(IpGenAddr const& o) const {
   if (af_ != o.af_) return af_ < o.af_;
   if (af_ == ipv4_) return v_ < o.v_;
   if (af_ == ipv6_) return v_ != o.v_ && v6Addr() < o.v6Addr();
   return false;
}

Vek::String IpGenAddr::stringValue() const {
   if (af_ == ipv4_) return v4Addr().stringValue();
   if (af_ == ipv6_) return v6Addr().stringValue();
   return "unspecified";
}

// ---- IntfId

IntfId::IntfId(std::string_view name) : id_(name.empty() ? 0 : intfNames().id(std::string(name))) {}

Vek::String const& IntfId::name() const { return intfNames().value(id_); }

// ---- masks and prefixes

IpAddrWithMask::IpAddrWithMask(IpAddr addr, U8 len) : addr_(addr), len_(len) {
   if (len > 32) throw Vek::RangeException("IpAddrWithMask::len > 32 not allowed");
}

IpAddr IpAddrWithMask::subnet() const { return IpAddr(addr_.value() & v4Mask(len_)); }

bool IpAddrWithMask::contains(IpAddr a) const {
   return (a.value() & v4Mask(len_)) == subnet().value();
}

Vek::String IpAddrWithMask::stringValue() const {
   return addr_.stringValue() + "/" + std::to_string(len_);
}

IpGenAddrWithMask::IpGenAddrWithMask(IpGenAddr const& addr, U8 len) : addr_(addr), len_(len) {
   if (len > addr.byteLength() * 8) {
      throw Vek::RangeException("IpGenAddrWithMask::len beyond the address length not allowed");
   }
}

Vek::String IpGenAddrWithMask::stringValue() const {
   return addr_.stringValue() + "/" + std::to_string(len_);
}

Prefix::Prefix(IpAddr addr, U8 len) : addr_(addr.value() & v4Mask(len > 32 ? 32 : len)), len_(len) {
   if (len > 32) throw Vek::RangeException("Prefix::len > 32 not allowed");
}

std::optional<Prefix> Prefix::fromString(std::string_view s) {
   auto [a, l] = splitSlash(s);
   auto addr = IpAddr::fromString(a);
   if (!addr) return std::nullopt;
   unsigned len = 32;
   if (!l.empty() || a.size() != s.size()) {
      auto v = parseDecimal(l, 2);
      if (!v || *v > 32) return std::nullopt;
      len = *v;
   }
   return Prefix(*addr, U8(len));
}

bool Prefix::contains(IpAddr a) const { return (a.value() & v4Mask(len_)) == addr_.value(); }

Vek::String Prefix::stringValue() const {
   std::string s;
   addr_.appendTo(s);
   s += '/';
   appendDecimal(s, len_);
   return s;
}

IpGenPrefix::IpGenPrefix(IpGenAddr const& addr, U8 len) : af_(addr.af()), len_(len) {
   if (addr.isUnspecified()) throw Vek::RangeException("IpGenPrefix without address family");
   if (len > addr.byteLength() * 8) {
      throw Vek::RangeException("IpGenPrefix::len beyond the address length not allowed");
   }
   if (addr.isV4()) {
      v_ = addr.v4Addr().value() & v4Mask(len);
   } else {
      Ip6Addr a = addr.v6Addr();
      for (unsigned i = 0; i < 16; ++i) {
         unsigned bitsHere = len > i * 8 ? len - i * 8 : 0;
         if (bitsHere < 8) a.u8Is(i, U8(a.u8(i) & U8(0xFF << (8 - bitsHere))));
      }
      v_ = IpGenAddr(a).v_;
   }
}

std::optional<IpGenPrefix> IpGenPrefix::fromString(std::string_view s) {
   auto [a, l] = splitSlash(s);
   auto addr = IpGenAddr::fromString(a);
   if (!addr) return std::nullopt;
   unsigned len = addr->byteLength() * 8;
   if (a.size() != s.size()) {
      auto v = parseDecimal(l, 3);
      if (!v || *v > addr->byteLength() * 8) return std::nullopt;
      len = *v;
   }
   return IpGenPrefix(*addr, U8(len));
}

Vek::String IpGenPrefix::stringValue() const {
   std::string s;
   appendTo(s);
   return s;
}

void IpGenPrefix::appendTo(std::string& s) const {
   if (isEmpty()) {
      s += "empty";
      return;
   }
   if (af_ == ipv4_) IpAddr(v_).appendTo(s);
   else s += addr().stringValue();
   s += '/';
   appendDecimal(s, len_);
}

// ---- EthAddr

std::optional<EthAddr> EthAddr::fromString(std::string_view s) {
   if (s.size() != 17) return std::nullopt;
   EthAddr e;
   for (unsigned i = 0; i < 6; ++i) {
      if (i < 5 && s[i * 3 + 2] != ':') return std::nullopt;
      unsigned v = 0;
      for (unsigned j = 0; j < 2; ++j) {
         char c = s[i * 3 + j];
         unsigned d;
         if (c >= '0' && c <= '9') d = unsigned(c - '0');
         else if (c >= 'a' && c <= 'f') d = unsigned(c - 'a' + 10);
         else if (c >= 'A' && c <= 'F') d = unsigned(c - 'A' + 10);
         else return std::nullopt;
         v = v * 16 + d;
      }
      e.bytes_[i] = U8(v);
   }
   return e;
}

Vek::String EthAddr::stringValue() const {
   char buf[18];
   std::snprintf(buf, sizeof(buf), "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1],
                 bytes_[2], bytes_[3], bytes_[4], bytes_[5]);
   return buf;
}

EthAddr ipMcastMacAddr(IpAddr group) {
   U32 v = group.value();
   return EthAddr(0x01, 0x00, 0x5e, U8((v >> 16) & 0x7F), U8(v >> 8), U8(v));
}

// ---- MplsLabel

Vek::String MplsLabel::stringValue() const {
   if (value_ == nullValue) return "null";
   if (value_ == anyValue) return "any";
   return std::to_string(value_);
}

}  // namespace Nolu

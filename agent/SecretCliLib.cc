#include "agent/SecretCliLib.h"

#include "runtime/vek/Types.h"

namespace SecretCliLib {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

int hexValue(char c) {
   if (c >= '0' && c <= '9') return c - '0';
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   return -1;
}

// The key stream: a mix of the salt, the context and the position.
U8 streamByte(U8 salt, std::string const& context, std::size_t i) {
   U64 h = Vek::hashBytes(context.data(), context.size());
   return U8(Vek::hashMix(h ^ (U64(salt) << 32) ^ i));
}

void putHex(std::string& s, U8 b) {
   s += kHex[b >> 4];
   s += kHex[b & 0xF];
}

}  // namespace

std::string doEncodeKey(std::string const& plain, std::string const& context) {
   U8 salt = U8(Vek::hashBytes(plain.data(), plain.size()) ^ plain.size());
   std::string out = "7";
   putHex(out, salt);
   for (std::size_t i = 0; i < plain.size(); ++i) {
      putHex(out, U8(U8(plain[i]) ^ streamByte(salt, context, i)));
   }
   return out;
}

bool isEncodedKey(std::string const& stored) { return doDecodeKey(stored).has_value(); }

std::optional<std::string> doDecodeKey(std::string const& stored, std::string const& context) {
   if (stored.size() < 3 || stored[0] != '7' || (stored.size() - 1) % 2 != 0) return std::nullopt;
   auto byteAt = [&](std::size_t pos) -> int {
      int hi = hexValue(stored[pos]), lo = hexValue(stored[pos + 1]);
      return hi < 0 || lo < 0 ? -1 : hi * 16 + lo;
   };
   int salt = byteAt(1);
   if (salt < 0) return std::nullopt;
   std::string plain;
   for (std::size_t pos = 3, i = 0; pos < stored.size(); pos += 2, ++i) {
      int b = byteAt(pos);
      if (b < 0) return std::nullopt;
      plain += char(U8(b) ^ streamByte(U8(salt), context, i));
   }
   return plain;
}

}  // namespace SecretCliLib

#pragma once
// Helpers of the wire tests: packets from byte lists, and byte lists of
// packets, for comparing with expected bytes written out by hand.
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "runtime/nolu/Pkt.h"

namespace WireTest {

using Bytes = std::vector<U8>;

inline Vek::Ptr<Nolu::Pkt> pktOf(Bytes const& b) {
   auto pkt = Nolu::globalPktManager()->newPkt(U32(b.size()));
   EXPECT_TRUE(pkt->appendData(b.data(), U32(b.size())));
   return pkt;
}

inline Bytes bytesOf(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset = 0) {
   U8 const* p = pkt->readPtr(offset);
   return Bytes(p, p + pkt->frontBytes() - offset);
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
   Bytes out;
   for (auto const& p : parts) out.insert(out.end(), p.begin(), p.end());
   return out;
}

// A PDU header for LSR id 10.0.0.1, label space 0, around the messages.
inline Bytes pduOf(Bytes const& msgs) {
   U16 len = U16(msgs.size() + 6);
   return cat({{0x00, 0x01, U8(len >> 8), U8(len), 0x0a, 0x00, 0x00, 0x01, 0x00, 0x00}, msgs});
}

// A message header around TLVs.
inline Bytes msgOf(U16 type, U32 id, Bytes const& tlvs) {
   U16 len = U16(tlvs.size() + 4);
   return cat({{U8(type >> 8), U8(type), U8(len >> 8), U8(len), U8(id >> 24), U8(id >> 16),
                U8(id >> 8), U8(id)},
               tlvs});
}

// Runs body with assertions turned into Vek::AssertionFailure, and returns
// the text of the failed assertion, or "" if none failed.
template <class F>
std::string assertionText(F body) {
   auto old = Vek::assertHandler();
   Vek::assertHandlerIs(Vek::throwingAssertHandler);
   std::string text;
   try {
      body();
   } catch (Vek::AssertionFailure const& e) {
      text = e.what();
   }
   Vek::assertHandlerIs(old);
   return text;
}

}  // namespace WireTest

#pragma once
// What crossed a link, from a capture file (pcap, as dumpcap -P writes it on
// an Ethernet interface): the TCP streams on port 646 put back together from
// their sequence numbers, cut into LDP PDUs and messages, each message with
// the time of the packet that brought its last byte. Label Mappings carry
// the prefixes of their FEC elements.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace Bench {

struct LdpMessage {
   double time = 0.0;      // seconds since the epoch, from the capture
   std::size_t conn = 0;   // the TCP connection, in the order they were first seen
   uint32_t src = 0;       // the sender's address, host order
   uint16_t type = 0;      // message type, U bit cleared
   std::vector<uint64_t> prefixes;  // Label Mapping: (address << 8) | length
};

class LdpCapture {
 public:
   // Reads the file; false when it is no pcap file.
   bool read(std::string const& path) {
      std::ifstream in(path, std::ios::binary);
      std::string d((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      if (d.size() < 24) return false;
      uint32_t magic = le32(d, 0);
      double tick = 1e-6;
      if (magic == 0xa1b23c4d)
         tick = 1e-9;
      else if (magic != 0xa1b2c3d4)
         return false;
      if (le32(d, 20) != 1) return false;  // Ethernet only
      std::size_t p = 24;
      while (p + 16 <= d.size()) {
         double t = le32(d, p) + le32(d, p + 4) * tick;
         std::size_t len = le32(d, p + 8);
         p += 16;
         if (p + len > d.size()) break;
         frame(d, p, len, t);
         p += len;
      }
      return true;
   }
   std::vector<LdpMessage> const& messages() const { return msgs_; }
   std::size_t connections() const { return connCount_; }

 private:
   static uint32_t le32(std::string const& d, std::size_t o) {
      uint32_t v;
      std::memcpy(&v, d.data() + o, 4);
      return v;
   }
   static uint32_t be(std::string const& d, std::size_t o, int n) {
      uint32_t v = 0;
      for (int i = 0; i < n; ++i) v = (v << 8) | uint8_t(d[o + std::size_t(i)]);
      return v;
   }
   using Key = std::tuple<uint32_t, uint16_t, uint32_t, uint16_t>;
   struct Stream {
      std::size_t conn = 0;
      uint32_t src = 0;
      uint32_t next = 0;                       // next sequence number expected
      std::map<uint32_t, std::string> ahead;  // segments past a gap
      std::string buf;                         // bytes not yet a whole PDU
   };

   void frame(std::string const& d, std::size_t p, std::size_t len, double t) {
      if (len < 14 + 20 + 20 || be(d, p + 12, 2) != 0x0800) return;
      std::size_t ip = p + 14;
      std::size_t ihl = (uint8_t(d[ip]) & 0xf) * 4u;
      if (uint8_t(d[ip + 9]) != 6) return;
      std::size_t ipEnd = ip + be(d, ip + 2, 2);
      if (ipEnd > p + len) ipEnd = p + len;
      std::size_t tcp = ip + ihl;
      if (tcp + 20 > ipEnd) return;
      uint16_t sport = uint16_t(be(d, tcp, 2)), dport = uint16_t(be(d, tcp + 2, 2));
      if (sport != 646 && dport != 646) return;
      uint32_t src = be(d, ip + 12, 4), dst = be(d, ip + 16, 4);
      uint32_t seq = be(d, tcp + 4, 4);
      uint8_t flags = uint8_t(d[tcp + 13]);
      std::size_t off = (uint8_t(d[tcp + 12]) >> 4) * 4u;
      Key k{src, sport, dst, dport};
      if (flags & 0x02) {  // SYN, or SYN-ACK: the stream starts
         // Both directions of a connection share its number: a SYN without
         // ACK opens a new one, the answer joins it.
         uint64_t a = (uint64_t(src) << 16) | sport, b = (uint64_t(dst) << 16) | dport;
         auto pair = std::make_pair(std::min(a, b), std::max(a, b));
         if (!(flags & 0x10) || !conns_.count(pair)) conns_[pair] = ++connCount_;
         Stream s;
         s.conn = conns_[pair];
         s.src = src;
         s.next = seq + 1;
         streams_[k] = s;
         return;
      }
      std::string payload = d.substr(tcp + off, ipEnd > tcp + off ? ipEnd - tcp - off : 0);
      if (payload.empty()) return;
      auto it = streams_.find(k);
      if (it == streams_.end()) {
         // A connection from before the capture: taken up at the first
         // segment that starts with a PDU header (version 1).
         if (payload.size() < 10 || be(payload, 0, 2) != 1) return;
         uint64_t a = (uint64_t(src) << 16) | sport, b = (uint64_t(dst) << 16) | dport;
         auto pair = std::make_pair(std::min(a, b), std::max(a, b));
         if (!conns_.count(pair)) conns_[pair] = ++connCount_;
         Stream fresh;
         fresh.conn = conns_[pair];
         fresh.src = src;
         fresh.next = seq;
         it = streams_.emplace(k, fresh).first;
      }
      Stream& s = it->second;
      int32_t ahead = int32_t(seq - s.next);
      if (ahead > 0) {
         s.ahead[seq] = payload;
         return;
      }
      if (uint32_t(-ahead) >= payload.size()) return;  // all seen before
      s.buf += payload.substr(uint32_t(-ahead));
      s.next = seq + uint32_t(payload.size());
      for (auto a = s.ahead.begin(); a != s.ahead.end();) {
         int32_t gap = int32_t(a->first - s.next);
         if (gap > 0) break;
         if (uint32_t(-gap) < a->second.size()) {
            s.buf += a->second.substr(uint32_t(-gap));
            s.next = a->first + uint32_t(a->second.size());
         }
         a = s.ahead.erase(a);
      }
      pdus(s, t);
   }
   void pdus(Stream& s, double t) {
      std::size_t p = 0;
      while (s.buf.size() - p >= 4) {
         std::size_t total = 4 + be(s.buf, p + 2, 2);
         if (s.buf.size() - p < total) break;
         std::size_t m = p + 10;
         while (m + 8 <= p + total) {
            LdpMessage msg;
            msg.time = t;
            msg.conn = s.conn;
            msg.src = s.src;
            msg.type = uint16_t(be(s.buf, m, 2) & 0x7fff);
            std::size_t mlen = be(s.buf, m + 2, 2);
            std::size_t end = m + 4 + mlen;
            if (end > p + total) break;
            if (msg.type == 0x0400) fecs(s.buf, m + 8, end, &msg.prefixes);
            msgs_.push_back(std::move(msg));
            m = end;
         }
         p += total;
      }
      s.buf.erase(0, p);
   }
   // The prefix elements of a message's FEC TLV (the first TLV).
   static void fecs(std::string const& d, std::size_t p, std::size_t end,
                    std::vector<uint64_t>* out) {
      if (p + 4 > end || (be(d, p, 2) & 0x3fff) != 0x0100) return;
      std::size_t tend = p + 4 + be(d, p + 2, 2);
      if (tend > end) return;
      p += 4;
      while (p < tend) {
         uint8_t type = uint8_t(d[p]);
         if (type == 1) {  // wildcard
            ++p;
            continue;
         }
         if (type != 2 || p + 4 > tend) return;
         uint8_t plen = uint8_t(d[p + 3]);
         std::size_t bytes = (plen + 7u) / 8u;
         if (p + 4 + bytes > tend || plen > 32) return;
         uint32_t a = 0;
         for (std::size_t i = 0; i < 4; ++i)
            a = (a << 8) | (i < bytes ? uint8_t(d[p + 4 + i]) : 0u);
         out->push_back((uint64_t(a) << 8) | plen);
         p += 4 + bytes;
      }
   }

   std::map<Key, Stream> streams_;
   std::map<std::pair<uint64_t, uint64_t>, std::size_t> conns_;
   std::size_t connCount_ = 0;
   std::vector<LdpMessage> msgs_;
};

}  // namespace Bench

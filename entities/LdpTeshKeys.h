#pragma once
// The row keys of the published binding table: a local row is a FEC and one
// of its labels, a peer row the peer, the FEC and one label. The keys sort by
// peer, then FEC, then label, so that a reader finds all rows of a FEC (or of
// a peer's FEC) as one range.
#include <ostream>

#include "entities/Ids.h"

namespace Ldp::LdpTesh {

// A FEC and one label of it.
class LbtLabelKey {
 public:
   LbtLabelKey() = default;
   LbtLabelKey(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel label) : fec_(fec), label_(label) {}
   Mpls::FwdEqvClass const& fec() const { return fec_; }
   Nolu::MplsLabel label() const { return label_; }
   bool operator==(LbtLabelKey const& o) const { return fec_ == o.fec_ && label_ == o.label_; }
   bool operator!=(LbtLabelKey const& o) const { return !(*this == o); }
   bool operator<(LbtLabelKey const& o) const {
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return label_ < o.label_;
   }
   std::size_t hash() const { return Vek::hashMix(fec_.hash() * 31 + label_.hash()); }
   Vek::String stringValue() const { return fec_.stringValue() + "/" + label_.stringValue(); }

 private:
   Mpls::FwdEqvClass fec_;
   Nolu::MplsLabel label_;
};

// A FEC and an LSR that was sent its label.
class LbtAdvertisedToKey {
 public:
   LbtAdvertisedToKey() = default;
   LbtAdvertisedToKey(Mpls::FwdEqvClass const& fec, LdpIdentifier const& ldpId)
      : fec_(fec), ldpId_(ldpId) {}
   Mpls::FwdEqvClass const& fec() const { return fec_; }
   LdpIdentifier const& ldpId() const { return ldpId_; }
   bool operator==(LbtAdvertisedToKey const& o) const {
      return fec_ == o.fec_ && ldpId_ == o.ldpId_;
   }
   bool operator!=(LbtAdvertisedToKey const& o) const { return !(*this == o); }
   bool operator<(LbtAdvertisedToKey const& o) const {
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return ldpId_ < o.ldpId_;
   }
   std::size_t hash() const { return Vek::hashMix(fec_.hash() * 31 + ldpId_.hash()); }
   Vek::String stringValue() const { return fec_.stringValue() + "/" + ldpId_.stringValue(); }

 private:
   Mpls::FwdEqvClass fec_;
   LdpIdentifier ldpId_;
};

// A peer's FEC.
class PeerFecKey {
 public:
   PeerFecKey() = default;
   PeerFecKey(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec) : peer_(peer), fec_(fec) {}
   Mpls::RouterId const& peer() const { return peer_; }
   Mpls::FwdEqvClass const& fec() const { return fec_; }
   bool operator==(PeerFecKey const& o) const { return peer_ == o.peer_ && fec_ == o.fec_; }
   bool operator!=(PeerFecKey const& o) const { return !(*this == o); }
   bool operator<(PeerFecKey const& o) const {
      if (peer_ != o.peer_) return peer_ < o.peer_;
      return fec_ < o.fec_;
   }
   std::size_t hash() const { return Vek::hashMix(peer_.hash() * 31 + fec_.hash()); }
   Vek::String stringValue() const { return peer_.stringValue() + "/" + fec_.stringValue(); }

 private:
   Mpls::RouterId peer_;
   Mpls::FwdEqvClass fec_;
};

// A peer's label for a FEC.
class PeerLbtLabelKey {
 public:
   PeerLbtLabelKey() = default;
   PeerLbtLabelKey(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec, Nolu::MplsLabel label)
      : peer_(peer), fec_(fec), label_(label) {}
   Mpls::RouterId const& peer() const { return peer_; }
   Mpls::FwdEqvClass const& fec() const { return fec_; }
   Nolu::MplsLabel label() const { return label_; }
   PeerFecKey peerFec() const { return PeerFecKey(peer_, fec_); }
   // The first key of a peer's FEC: a range walk starts here.
   static PeerLbtLabelKey first(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec) {
      return PeerLbtLabelKey(peer, fec, Nolu::MplsLabel(0));
   }
   bool operator==(PeerLbtLabelKey const& o) const {
      return peer_ == o.peer_ && fec_ == o.fec_ && label_ == o.label_;
   }
   bool operator!=(PeerLbtLabelKey const& o) const { return !(*this == o); }
   bool operator<(PeerLbtLabelKey const& o) const {
      if (peer_ != o.peer_) return peer_ < o.peer_;
      if (fec_ != o.fec_) return fec_ < o.fec_;
      return label_ < o.label_;
   }
   std::size_t hash() const {
      return Vek::hashMix((peer_.hash() * 31 + fec_.hash()) * 31 + label_.hash());
   }
   Vek::String stringValue() const {
      return peer_.stringValue() + "/" + fec_.stringValue() + "/" + label_.stringValue();
   }

 private:
   Mpls::RouterId peer_;
   Mpls::FwdEqvClass fec_;
   Nolu::MplsLabel label_;
};

// When a FEC's row set last changed (UTC seconds) and where its labels come
// from (1 static, 2 dynamic).
struct LbtUpdate {
   U32 lastUpdate = 0;
   U8 labelSource = 0;
   bool operator==(LbtUpdate const& o) const = default;
};

inline std::ostream& operator<<(std::ostream& os, LbtLabelKey const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, LbtAdvertisedToKey const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, PeerFecKey const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, PeerLbtLabelKey const& v) {
   return os << v.stringValue();
}
inline std::ostream& operator<<(std::ostream& os, LbtUpdate const& v) {
   return os << v.lastUpdate << "/" << unsigned(v.labelSource);
}

}  // namespace Ldp::LdpTesh

NOLU_STD_HASH(Ldp::LdpTesh::LbtLabelKey);
NOLU_STD_HASH(Ldp::LdpTesh::LbtAdvertisedToKey);
NOLU_STD_HASH(Ldp::LdpTesh::PeerFecKey);
NOLU_STD_HASH(Ldp::LdpTesh::PeerLbtLabelKey);

// Hand-written operations of the declared entities.
#include <optional>

#include "entities/EntityTypes.h"

namespace {

// Whether prefix p covers address a of the same family.
bool prefixCovers(Nolu::IpGenPrefix const& p, Nolu::IpGenAddr const& a, U8 len) {
   if (p.af() != a.af() || len < p.len()) return false;
   if (p.isEmpty()) return false;
   U8 pa[16] = {}, aa[16] = {};
   p.addr().bytesAre(pa);
   a.bytesAre(aa);
   unsigned full = p.len() / 8, rest = p.len() % 8;
   for (unsigned i = 0; i < full; ++i)
      if (pa[i] != aa[i]) return false;
   if (rest) {
      U8 mask = U8(0xFF << (8 - rest));
      if ((pa[full] & mask) != (aa[full] & mask)) return false;
   }
   return true;
}

}  // namespace

namespace Ldp {

// A FEC is permitted when the first entry of the prefix list that covers it,
// by sequence number, permits it. Without a list every FEC is permitted; with
// one, a FEC that no entry covers is not.
bool LdpFecFilter::isPermittedFec(Mpls::FwdEqvClass const& fec) const {
   auto const& list = prefixList();
   if (!list) return true;
   auto const& pfx = fec.prefix();
   // The lists run by sequence number: the first cover in each is its best.
   std::optional<U32> permitSeq, denySeq;
   for (auto it = list->permit().begin(); it && !permitSeq; ++it)
      if (prefixCovers(it.value(), pfx.addr(), pfx.len())) permitSeq = it.key();
   for (auto it = list->deny().begin(); it && !denySeq; ++it)
      if (prefixCovers(it.value(), pfx.addr(), pfx.len())) denySeq = it.key();
   if (!permitSeq) return false;
   return !denySeq || *permitSeq < *denySeq;
}

void LdpSessionStatus::addSessionStateLogEntry(LdpSessionStateLogEntry const& e) {
   auto log = sessionStateLogEntryColl();
   if (!log) log = sessionStateLogEntryCollIs();
   U32 index = log->nextIndexInc(1);
   log->entryIs(index, e);
   // A session that flaps keeps only its latest history.
   while (log->entrySize() > stateLogEntryMax) log->entryDel(U32(log->entryIter().key()));
}

Vek::Ptr<PwFecSessionConfig> PwFecSessionConfigColl::fecSessionConfigIs(PwFecSessionId const& id,
                                                                        PwFecSessionMember member) {
   auto c = fecSessionConfigIs(id);
   c->memberIs(member, true);
   return c;
}

}  // namespace Ldp

namespace Mpls {

void LdpInternalLabelBindingTable::updateProducer(FwdEqvClass const& fec, Nolu::MplsLabel label) {
   lastFwdEqvClassIs(fec);
   lastLabelIs(label);
   changeCntInc(1);
}

}  // namespace Mpls

#include "host/PwView.h"

#include <cstdio>

#include "entities/Functions.h"

namespace Host {

char const* pwTypeName(Pseudowire::PseudowireType t) {
   switch (t) {
      case Pseudowire::pwTypeEthernet_:
         return "ethernet";
      case Pseudowire::pwTypeEthernetTagged_:
         return "ethernet-vlan";
      case Pseudowire::pwTypeNone_:
         return "";
      default:
         return "other";
   }
}

std::string pwFlagsText(U32 flags) {
   static char const* const names[] = {"not-forwarding", "ac-rx-fault", "ac-tx-fault",
                                       "psn-rx-fault", "psn-tx-fault"};
   if (!flags) return "forwarding";
   std::string out;
   for (unsigned i = 0; i < 5; ++i)
      if (flags & (1u << i)) out += (out.empty() ? "" : ",") + std::string(names[i]);
   if (flags >> 5) {
      char buf[16];
      std::snprintf(buf, sizeof buf, "0x%x", flags >> 5 << 5);
      out += (out.empty() ? "" : ",") + std::string(buf);
   }
   return out;
}

std::vector<Ldp::LdpMsgType> const& pwMsgTypes() {
   static std::vector<Ldp::LdpMsgType> const types{
      Ldp::LdpLabelMapping_, Ldp::LdpLabelWithdraw_, Ldp::LdpLabelRelease_,
      Ldp::LdpLabelRequest_, Ldp::LdpLabelAbortReq_, Ldp::LdpNotification_};
   return types;
}

namespace {

// The status of a response in words.
char const* pwStatusName(int status) {
   switch (status) {
      case Pseudowire::connectorNoLocalMapping:
         return "no local mapping";
      case Pseudowire::connectorNoRemote:
         return "no remote";
      case Pseudowire::connectorNoPeerLabel:
         return "no peer label";
      case Pseudowire::connectorPwTypeMismatch:
         return "PW type mismatch";
      case Pseudowire::connectorControlWordMismatch:
         return "control word mismatch";
      case Pseudowire::connectorRemoteNotForwarding:
         return "remote not forwarding";
      case Pseudowire::connectorUp:
         return "up";
      default:
         return "not signalled";
   }
}

// Local label session state bits: a request is outstanding, a mapping stands.
constexpr U32 kLocalRequestOutstanding = 1, kLocalMapped = 8;

// Where our label of one FEC session stands.
void localFecState(Ldp::LocalPwFecSessionStatus const& ls, Ldp::PwFecSessionConfig const* c,
                   PwFecSessionView& v) {
   U32 bits = U32(ls.labelSessionState());
   // A fault told by withdrawing keeps the label from the peer on purpose.
   bool faultWithdrawn = c && c->pwStatusMethod() == Ldp::pwStatusMethodWithdraw_ &&
                         c->pwStatusFlags() != Pseudowire::pwStatusForwarding_;
   if (!ls.labelWithdrawOutstanding().isNull()) {
      v.state = "withdrawn, release awaited";
      if (ls.labelWithdrawOutstanding().isValid()) v.label = ls.labelWithdrawOutstanding().value();
   } else if (ls.labelMappingSent().isValid()) {
      v.label = ls.labelMappingSent().value();
      v.state = bits & kLocalMapped              ? "advertised"
                : bits & kLocalRequestOutstanding ? "requested"
                                                  : "released by the peer";
   } else if (c && c->label().isValid() && !faultWithdrawn &&
              ls.ldpMsgRx(Ldp::LdpLabelRelease_) != 0) {
      // A label to give and nothing in the way, yet none out after a
      // Release: the peer took it back unasked, and we wait for its request.
      v.state = "released by the peer";
   } else {
      v.state = "not advertised";
   }
}

// Where the peer's label of one FEC session stands.
void remoteFecState(Ldp::RemotePwFecSessionStatus const& rs, PwFecSessionView& v) {
   auto held = rs.mplsLabelSet();
   if (held && held->mplsLabelSize()) v.label = held->mplsLabelIter().key().value();
   if (rs.labelWithdrawMsgId() != 0) {
      v.state = "withdrawn, to release";
      if (!v.label && rs.labelWithdrawLabel().isValid()) v.label = rs.labelWithdrawLabel().value();
   } else if (v.label) {
      v.state = "held";
   } else if (rs.labelReleaseMsgId() != 0) {
      v.state = "withdrawn, released";
   } else {
      v.state = "none";
   }
}

template <class S>
void countMessages(S const& s, PwFecSessionView& v) {
   for (auto it = s.ldpMsgRxIter(); it; ++it) v.messagesRx[it.key()] += it.value();
   for (auto it = s.ldpMsgTxIter(); it; ++it) v.messagesTx[it.key()] += it.value();
}

PwFecSessionView fecView(Ldp::PwFecSessionId const& id, Ldp::PwFecSessionConfig const* c) {
   PwFecSessionView v;
   v.pwType = id.fec().pwType();
   v.controlWord = id.fec().controlWord();
   v.groupId = id.fec().groupId().value();
   if (c) v.mtu = c->fecParams().mtu();
   v.state = "none";
   return v;
}

// The session to the neighbour: one that the index knows by its address,
// else one whose LSR id is that address.
std::optional<Ldp::LdpSessionId> sessionTo(Ldp::Status const& st, Nolu::IpAddr addr) {
   auto const* ssc = st.ldpSessionStatusColl().ptr();
   if (auto set = st.index()->peerToSession(Nolu::IpGenAddr(addr))) {
      for (auto it = set->sessionIdIter(); it; ++it)
         if (it.key().lsrId() != 0 && ssc->sessionStatus(it.key())) return it.key();
   }
   // The platform label space of the LSR named by the address: one look-up,
   // not a walk over every session for every pseudowire shown.
   Ldp::LdpSessionId byLsrId(Ldp::LdpIdentifier(addr, 0));
   if (ssc->sessionStatus(byLsrId)) return byLsrId;
   return std::nullopt;
}

char const* onOff(bool b) { return b ? "on" : "off"; }

}  // namespace

PwView pwView(Ldp::Agent const& agent, PseudowireConfig const& pw) {
   PwView v;
   Pseudowire::PseudowireLdpRequestKey key(Nolu::IpGenAddr(pw.neighbor),
                                           Pseudowire::PseudowireId(pw.pwId));
   auto const* pc = agent.ldpProtoConfigColl()->protoConfig(L3::defaultVrfName()).ptr();
   v.ldpRunning = pc && pc->runningState() == Ldp::running_;
   Ldp::Status const* st = agent.ldpStatusColl()->status(L3::defaultVrfName()).ptr();
   if (auto r = agent.pwLdpStatus()->response(key)) v.status = int(r->status());

   std::optional<Ldp::LdpSessionId> session;
   std::optional<Ldp::PwFecSessionId> localId;
   Ldp::PwFecSessionInfoMap const* info = nullptr;
   if (st) {
      if (auto ps = st->pwStatusColl()->status(key)) v.statusMethod = ps->pwStatusMethod();
      info = st->index()->pwKeyToPwFecSessionInfo(key).ptr();
      if (info) {
         // The local FEC session that the pseudowire's configuration wants.
         for (auto it = info->localConfigIter(); it; ++it) {
            if (!it.value() || !it.value()->memberHas(Ldp::pwMemberConfig_)) continue;
            localId = it.key();
            session = it.key().sessionId();
            v.localStatusFlags = U32(it.value()->pwStatusFlags());
            if (auto ls = info->localStatus(it.key())) v.localMapped = ls->mappingActive();
            break;
         }
      }
      if (!session) session = sessionTo(*st, pw.neighbor);
      if (session) {
         if (auto ss = st->ldpSessionStatusColl()->sessionStatus(*session))
            v.sessionState = ss->sessionState();
      }
   }

   // Every FEC session of this pw-id on the session, ours and the peer's.
   std::optional<std::size_t> localIdx, remoteIdx;
   int remoteRank = 0;
   auto onSession = [&](Ldp::PwFecSessionId const& id) {
      return id.fec().pwId().value() == pw.pwId && (!session || id.sessionId() == *session);
   };
   if (info) {
      for (auto it = info->localConfigIter(); it; ++it) {
         if (!onSession(it.key())) continue;
         PwFecSessionView f = fecView(it.key(), it.value().ptr());
         f.local = true;
         if (auto ls = info->localStatus(it.key())) {
            localFecState(*ls, it.value().ptr(), f);
            countMessages(*ls, f);
         }
         if (localId && it.key() == *localId) localIdx = v.fecSessions.size();
         v.fecSessions.push_back(std::move(f));
      }
      for (auto it = info->remoteConfigIter(); it; ++it) {
         if (!onSession(it.key())) continue;
         PwFecSessionView f = fecView(it.key(), it.value().ptr());
         auto rs = info->remoteStatus(it.key());
         if (rs) {
            remoteFecState(*rs, f);
            countMessages(*rs, f);
         }
         // The peer's FEC: the one that matches ours, else one that holds a
         // label, else the first.
         int rank = localId && it.key().fec() == localId->fec() ? 2 : f.label ? 1 : 0;
         if (!remoteIdx || rank > remoteRank) {
            remoteIdx = v.fecSessions.size();
            remoteRank = rank;
            v.remoteStatusFlags = rs ? U32(rs->pwStatusFlags()) : 0;
         }
         v.fecSessions.push_back(std::move(f));
      }
   }
   for (auto const& f : v.fecSessions) {
      for (auto const& [t, n] : f.messagesRx) v.messagesRx[t] += n;
      for (auto const& [t, n] : f.messagesTx) v.messagesTx[t] += n;
   }
   if (localIdx) v.localLabelState = v.fecSessions[*localIdx].state;
   if (remoteIdx) v.remote = v.fecSessions[*remoteIdx];

   // LDP brings the pseudowire up with any MTU; a data path takes it only
   // with equal ones.
   v.mtuMismatch = v.remote && v.remote->mtu && v.remote->mtu != pw.mtu;

   std::string const to = pw.neighbor.stringValue();
   bool operational = v.sessionState && *v.sessionState == Ldp::stateOperational_;
   int status = v.status.value_or(-1);
   if (!v.ldpRunning)
      v.statusText = "LDP not running";
   else if (!operational && (status < 0 || status == Pseudowire::connectorNoLocalMapping))
      v.statusText = v.sessionState ? "LDP session to " + to + " not operational"
                                    : "no LDP session to " + to;
   else if (status == Pseudowire::connectorNoLocalMapping && pw.shutdown)
      v.statusText = "admin down";
   else if (status == Pseudowire::connectorUp && pw.shutdown)
      v.statusText = "up, admin down here";
   else
      v.statusText = pwStatusName(status);

   std::vector<std::string> why;
   auto label = [](std::optional<U32> l) { return l ? " " + std::to_string(*l) : std::string(); };
   auto const* mine = localIdx ? &v.fecSessions[*localIdx] : nullptr;
   auto const* theirs = v.remote ? &*v.remote : nullptr;
   if (operational) {
      switch (status) {
         case Pseudowire::connectorNoLocalMapping:
            if (mine && mine->state == "withdrawn, release awaited")
               why.push_back("our Withdraw of label" + label(mine->label) +
                             " awaits the peer's Release");
            else if (mine && mine->state == "released by the peer")
               why.push_back("the peer released our label" + label(mine->label) +
                             " and asked for none since");
            else if (pw.shutdown)
               why.push_back("admin down here: our label is withdrawn while it lasts");
            else
               why.push_back("our label is not advertised yet");
            break;
         case Pseudowire::connectorNoRemote:
            if (!theirs) why.push_back("the peer advertised no PW FEC for pw-id " +
                                       std::to_string(pw.pwId));
            break;
         case Pseudowire::connectorNoPeerLabel:
            why.push_back(theirs && theirs->state.rfind("withdrawn", 0) == 0
                             ? "the peer withdrew its label" + label(theirs->label)
                             : std::string("the peer's FEC holds no label"));
            break;
         case Pseudowire::connectorPwTypeMismatch:
            if (theirs)
               why.push_back(std::string("PW type: ours ") + pwTypeName(pw.type) + ", the peer's " +
                             pwTypeName(theirs->pwType));
            break;
         case Pseudowire::connectorControlWordMismatch:
            if (theirs)
               why.push_back(std::string("control word: ours ") + onOff(pw.controlWord) +
                             ", the peer's " + onOff(theirs->controlWord));
            break;
         case Pseudowire::connectorRemoteNotForwarding:
            why.push_back("the peer signals " + pwFlagsText(v.remoteStatusFlags));
            break;
         default:
            break;
      }
      if (pw.shutdown && status != Pseudowire::connectorNoLocalMapping)
         why.push_back("admin down here");
      // A FEC of ours that the pseudowire no longer wants, still in its
      // withdraw handshake (after a change of PW type or control word).
      for (std::size_t i = 0; i < v.fecSessions.size(); ++i) {
         auto const& f = v.fecSessions[i];
         if (!f.local || (localIdx && i == *localIdx) || f.state != "withdrawn, release awaited")
            continue;
         why.push_back("our Withdraw of label" + label(f.label) + " of the old FEC (" +
                       pwTypeName(f.pwType) + ", control word " + onOff(f.controlWord) +
                       ") awaits the peer's Release");
      }
   }
   if (v.mtuMismatch)
      why.push_back("MTU mismatch: ours " + std::to_string(pw.mtu) + ", the peer's " +
                    std::to_string(v.remote->mtu));
   for (auto const& w : why) v.reason += (v.reason.empty() ? "" : "; ") + w;
   return v;
}

}  // namespace Host

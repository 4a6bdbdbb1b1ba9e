#include "host/Show.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <cstdio>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "entities/Functions.h"
#include "host/Json.h"
#include "host/PwView.h"

namespace Host {

namespace {

// An answer as a tree, printed as JSON or as indented text.
struct Node {
   enum Kind { null_, str_, num_, boolean_, object_, array_ } kind = null_;
   std::string s;
   double n = 0;
   bool b = false;
   // Lists, so that a reference to a member stays good while more are added.
   std::list<std::pair<std::string, Node>> members;
   std::list<Node> items;

   static Node str(std::string v) {
      Node x;
      x.kind = str_;
      x.s = std::move(v);
      return x;
   }
   // An endless time (the runtime's infinity) is null.
   static Node num(double v) {
      Node x;
      if (!std::isfinite(v) || v >= 1e18) return x;
      x.kind = num_;
      x.n = v;
      return x;
   }
   static Node boolean(bool v) {
      Node x;
      x.kind = boolean_;
      x.b = v;
      return x;
   }
   static Node object() {
      Node x;
      x.kind = object_;
      return x;
   }
   static Node array() {
      Node x;
      x.kind = array_;
      return x;
   }
   Node& set(std::string const& k, Node v) {
      members.emplace_back(k, std::move(v));
      return members.back().second;
   }
   Node& set(std::string const& k, std::string v) { return set(k, str(std::move(v))); }
   Node& set(std::string const& k, char const* v) { return set(k, str(v)); }
   Node& set(std::string const& k, bool v) { return set(k, boolean(v)); }
   Node& set(std::string const& k, double v) { return set(k, num(v)); }
   Node& set(std::string const& k, U64 v) { return set(k, num(double(v))); }
   Node& set(std::string const& k, U32 v) { return set(k, num(double(v))); }
   Node& set(std::string const& k, U16 v) { return set(k, num(double(v))); }
   Node& add(Node v) {
      items.push_back(std::move(v));
      return items.back();
   }
};

std::string numText(double v) {
   char buf[32];
   if (v == std::floor(v) && std::fabs(v) < 1e15)
      std::snprintf(buf, sizeof(buf), "%.0f", v);
   else
      std::snprintf(buf, sizeof(buf), "%.3f", v);
   return buf;
}

void toJson(Node const& x, std::string& o) {
   switch (x.kind) {
      case Node::null_:
         o += "null";
         break;
      case Node::str_:
         o += JsonWriter::quote(x.s);
         break;
      case Node::num_:
         o += numText(x.n);
         break;
      case Node::boolean_:
         o += x.b ? "true" : "false";
         break;
      case Node::object_: {
         o += '{';
         bool first = true;
         for (auto const& [k, v] : x.members) {
            if (!first) o += ',';
            first = false;
            o += JsonWriter::quote(k);
            o += ':';
            toJson(v, o);
         }
         o += '}';
         break;
      }
      case Node::array_: {
         o += '[';
         bool first = true;
         for (auto const& v : x.items) {
            if (!first) o += ',';
            first = false;
            toJson(v, o);
         }
         o += ']';
         break;
      }
   }
}

std::string scalarText(Node const& x) {
   switch (x.kind) {
      case Node::null_:
         return "-";
      case Node::str_:
         return x.s.empty() ? "-" : x.s;
      case Node::num_:
         return numText(x.n);
      case Node::boolean_:
         return x.b ? "yes" : "no";
      default:
         return "";
   }
}

bool scalar(Node const& x) { return x.kind != Node::object_ && x.kind != Node::array_; }

void toText(Node const& x, int indent, std::ostringstream& o) {
   std::string pad(indent, ' ');
   for (auto const& [k, v] : x.members) {
      if (scalar(v)) {
         o << pad << k << ": " << scalarText(v) << "\n";
      } else if (v.kind == Node::object_) {
         o << pad << k << ":\n";
         toText(v, indent + 2, o);
      } else if (v.items.empty()) {
         o << pad << k << ": none\n";
      } else if (scalar(v.items.front())) {
         o << pad << k << ":";
         for (auto const& i : v.items) o << " " << scalarText(i);
         o << "\n";
      } else {
         o << pad << k << ":\n";
         for (auto const& i : v.items) {
            o << pad << "  -\n";
            toText(i, indent + 4, o);
         }
      }
   }
}

std::string render(Node const& x, bool json) {
   if (json) {
      std::string o;
      toJson(x, o);
      return o + "\n";
   }
   std::ostringstream o;
   toText(x, 0, o);
   return o.str();
}

char const* distCtrlName(Ldp::LdpLabelDistCtrl c) {
   return c == Ldp::orderedDistCtrl_ ? "ordered" : "independent";
}
char const* advName(Ldp::LdpLabelAdvDspl a) {
   switch (a) {
      case Ldp::unsolicitedAdvDspl_:
         return "unsolicited";
      case Ldp::downstreamOnDemandAdvDspl_:
         return "on-demand";
      default:
         return "unknown";
   }
}
char const* retentionName(Ldp::LdpLabelRetention r) {
   return r == Ldp::conservativeRetention_ ? "conservative" : "liberal";
}
char const* roleName(Ldp::LdpSessionRole r) {
   switch (r) {
      case Ldp::roleActive_:
         return "active";
      case Ldp::rolePassive_:
         return "passive";
      default:
         return "unknown";
   }
}
char const* configStateName(Ldp::ConfigState s) {
   switch (s) {
      case Ldp::configEnabled_:
         return "enabled";
      case Ldp::configDisabling_:
         return "disabling";
      case Ldp::configDisabled_:
         return "disabled";
      default:
         return "none";
   }
}
char const* operName(Interface::IntfOperStatus s) {
   switch (s) {
      case Interface::intfOperUp_:
         return "up";
      case Interface::intfOperDown_:
         return "down";
      default:
         return "unknown";
   }
}

// Seconds since a time of the agent's clock, or of the wall clock for the
// times that the session machines stamp in UTC.
double since(Vek::Seconds t) {
   Vek::Seconds now = t > 1e9 ? Vek::System::currentTimeUtc() : Vek::System::currentTime();
   return now - t;
}

std::string addrText(Nolu::IpGenAddr const& a) {
   return a.isUnspecified() ? std::string() : a.stringValue();
}

// The VRFs to show: the one asked for, or all that have a record.
std::vector<std::string> vrfsOf(ShowContext const& ctx, std::string const& only) {
   std::vector<std::string> out;
   if (!only.empty()) {
      out.push_back(only);
      return out;
   }
   for (auto it = ctx.agent->ldpProtoConfigColl()->protoConfigIter(); it; ++it)
      out.push_back(it.key());
   return out;
}

Node protocol(ShowContext const& ctx, std::string const& only) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   top.set("numStartups", U32(a->ldpAgentStatus()->numStartups()));
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::object());
      auto pc = a->ldpProtoConfigColl()->protoConfig(vrf);
      auto cfg = a->ldpConfigColl()->config(vrf);
      v.set("configured", bool(cfg));
      if (!pc) {
         v.set("runningState", "none");
         v.set("reason", "LDP is not configured in this VRF");
         continue;
      }
      v.set("runningState", runningStateName(pc->runningState()));
      v.set("reason", pc->reason());
      v.set("routerId", pc->routerId().isZero() ? std::string() : pc->routerId().stringValue());
      v.set("routerIdInterface", pc->intfId().name());
      v.set("ldpId",
            pc->ldpIdentifier().isEmpty() ? std::string() : pc->ldpIdentifier().stringValue());
      Nolu::IpGenAddr ta = pc->ipTransportAddr();
      v.set("transportAddress", ta.isV4() && ta.v4Addr().isZero() ? std::string() : addrText(ta));
      v.set("labelDistribution", distCtrlName(pc->ldpLabelDistCtrl()));
      v.set("labelAdvertisement", advName(pc->ldpLabelAdvDspl()));
      v.set("labelRetention", retentionName(pc->ldpLabelRetention()));
      v.set("loopDetection", pc->ldpLoopDetection());
      v.set("hopCountMax", U16(pc->ldpHopCountMax()));
      v.set("passwordSet", !pc->md5Password().empty());
      v.set("keepAliveTime", U16(pc->keepAliveTime()));
      if (cfg) {
         v.set("helloHoldTime", U16(cfg->helloHoldTime()));
         v.set("helloInterval", U16(cfg->helloInterval()));
         v.set("targetedHelloHoldTime", U16(cfg->targetedHelloHoldTime()));
         v.set("targetedHelloInterval", U16(cfg->targetedHelloInterval()));
      }
      v.set("linkReadyDelay", double(pc->linkReadyDelay()));
      v.set("linkReadyTimeout", double(pc->linkReadyTimeout()));
      Node& t = v.set("targetedNeighbors", Node::array());
      for (auto it = pc->staticTargetIter(); it; ++it) t.add(Node::str(addrText(it.key())));
   }
   Node& lb = top.set("labelBlock", Node::object());
   auto block = a->mplsAgentStatus()->labelBlockAllocation("ldp");
   lb.set("base", U32(block ? block->base() : 0));
   lb.set("size", U32(block ? block->size() : 0));
   return top;
}

Node discovery(ShowContext const& ctx, std::string const& only) {
   auto const* a = ctx.agent;
   Vek::Seconds now = Vek::System::currentTime();
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::object());
      auto st = a->ldpStatusColl()->status(vrf);
      Node& links = v.set("links", Node::array());
      Node& targets = v.set("targets", Node::array());
      Node& adjs = v.set("adjacencies", Node::array());
      if (!st) continue;
      auto lsc = st->ldpLinkStatusColl();
      if (auto lcc = st->ldpLinkConfigColl()) {
         for (auto it = lcc->adjLinkConfigIter(); it; ++it) {
            auto lc = it.value();
            Node& l = links.add(Node::object());
            l.set("interface", lc->intfId().name());
            l.set("address", lc->ipAddr().isZero() ? std::string() : lc->ipAddr().stringValue());
            l.set("configState", configStateName(lc->configState()));
            l.set("helloInterval", U16(lc->interval()));
            l.set("helloHoldTime", U16(lc->holdTime()));
            auto ls = lsc ? lsc->adjLinkStatus(lc->intfId()) : nullptr;
            l.set("running", ls ? ls->running() : false);
            l.set("helloTx", U32(ls ? ls->txPktCount() : 0));
            l.set("helloRx", U32(ls ? ls->rxPktCount() : 0));
            l.set("helloErrors", U32(ls ? ls->errPktCount() : 0));
         }
      }
      auto tsc = st->ldpTargetStatusColl();
      if (auto tcc = st->ldpTargetConfigColl()) {
         for (auto it = tcc->adjTargetConfigIter(); it; ++it) {
            auto tc = it.value();
            Node& t = targets.add(Node::object());
            t.set("address", tc->targetIpAddr().stringValue());
            t.set("configState", configStateName(tc->configState()));
            t.set("helloInterval", U16(tc->interval()));
            t.set("helloHoldTime", U16(tc->holdTime()));
            auto ts = tsc ? tsc->adjTargetStatus(tc->targetIpAddr()) : nullptr;
            t.set("running", ts ? ts->running() : false);
            t.set("helloTx", U32(ts ? ts->txPktCount() : 0));
            t.set("helloRx", U32(ts ? ts->rxPktCount() : 0));
         }
      }
      if (auto asc = st->ldpAdjStatusColl()) {
         for (auto it = asc->adjStatusIter(); it; ++it) {
            auto as = it.value();
            Ldp::LdpAdjId id = as->adjId();
            Node& j = adjs.add(Node::object());
            j.set("type", id.isLink() ? "link" : "targeted");
            if (id.isLink())
               j.set("interface", id.intfId().name());
            else
               j.set("target", id.targetIpAddr().stringValue());
            j.set("peerLdpId", id.ldpIdentifier().stringValue());
            j.set("peerAddress", addrText(as->peerIpAddr()));
            j.set("peerSourceAddress", addrText(as->peerSrcIpAddr()));
            j.set("peerHoldTime", U16(as->peerHoldTime()));
            j.set("holdTime", U16(as->operHoldTime()));
            Vek::Seconds left = as->adjExpireTime() - now;
            j.set("expiresIn", left > 0 ? double(left) : 0.0);
            j.set("helloRx", U32(as->rxPktCount()));
            j.set("helloErrors", U32(as->errPktCount()));
            j.set("statusCode", Ldp::ldpStatusCodeStr(as->adjStatusCode()));
         }
      }
   }
   return top;
}

Node counters(Ldp::LdpSessionStatistics const* s) {
   Node c = Node::object();
   c.set("pduRx", U64(s ? s->ldpPduRxCount() : 0));
   c.set("pduTx", U64(s ? s->ldpPduTxCount() : 0));
   c.set("pduRxErrors", U64(s ? s->ldpPduRxErrorCount() : 0));
   auto msg = [&](Ldp::LdpMsgType t, bool rx) -> U64 {
      if (!s) return 0;
      auto const* p = rx ? s->ldpMsgRxCount().find(t) : s->ldpMsgTxCount().find(t);
      return p ? *p : 0;
   };
   c.set("keepAliveRx", msg(Ldp::LdpKeepAlive_, true));
   c.set("keepAliveTx", msg(Ldp::LdpKeepAlive_, false));
   Node& rx = c.set("messagesRx", Node::object());
   Node& tx = c.set("messagesTx", Node::object());
   Node& nrx = c.set("notificationsRx", Node::object());
   Node& ntx = c.set("notificationsTx", Node::object());
   if (s) {
      for (auto it = s->ldpMsgRxCountIter(); it; ++it)
         rx.set(Ldp::ldpMsgTypeStr(it.key()), U64(it.value()));
      for (auto it = s->ldpMsgTxCountIter(); it; ++it)
         tx.set(Ldp::ldpMsgTypeStr(it.key()), U64(it.value()));
      for (auto it = s->ldpMsgNotificationRxCountIter(); it; ++it)
         nrx.set(Ldp::ldpStatusCodeStr(it.key()), U64(it.value()));
      for (auto it = s->ldpMsgNotificationTxCountIter(); it; ++it)
         ntx.set(Ldp::ldpStatusCodeStr(it.key()), U64(it.value()));
   }
   return c;
}

Node neighbors(ShowContext const& ctx, std::string const& only) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::object());
      Node& list = v.set("neighbors", Node::array());
      auto st = a->ldpStatusColl()->status(vrf);
      if (!st) continue;
      auto scc = st->ldpSessionConfigColl();
      auto ssc = st->ldpSessionStatusColl();
      auto stats = st->statistics() ? st->statistics()->sessionStatisticsColl() : nullptr;
      std::set<Ldp::LdpSessionId> ids;
      if (scc)
         for (auto it = scc->sessionConfigIter(); it; ++it) ids.insert(it.key());
      if (ssc)
         for (auto it = ssc->sessionStatusIter(); it; ++it) ids.insert(it.key());
      for (auto const& id : ids) {
         auto sc = scc ? scc->sessionConfig(id) : nullptr;
         auto ss = ssc ? ssc->sessionStatus(id) : nullptr;
         Node& n = list.add(Node::object());
         n.set("peerLdpId", id.stringValue());
         U8 state = ss ? U8(ss->sessionState()) : U8(Ldp::stateNonExistent_);
         n.set("state", sessionStateName(state));
         n.set("addressesExchanged",
               ss ? ss->sessionOpState() == Ldp::sessionOpAddrExchanged_ : false);
         n.set("role", roleName(sc ? sc->ldpSessionRole() : Ldp::roleUnknown_));
         n.set("peerAddress", addrText(ss   ? ss->peerIpAddr()
                                       : sc ? sc->peerIpAddr()
                                            : Nolu::IpGenAddr()));
         n.set("peerPort", U16(ss ? ss->peerPort() : 0));
         n.set("localAddress", addrText(ss ? ss->localIpAddr() : Nolu::IpGenAddr()));
         n.set("localPort", U16(ss ? ss->localPort() : 0));
         n.set("localLdpId", ss ? ss->localLdpIdentifier().stringValue() : std::string());
         bool up = state == Ldp::stateOperational_;
         n.set("uptime", up && ss->sessionUptime() > 0 ? since(ss->sessionUptime()) : 0.0);
         n.set("lastChangeAgo",
               ss && ss->sessionStateLastChange() > 0 ? since(ss->sessionStateLastChange()) : 0.0);
         n.set("keepAliveTime", U16(ss ? ss->operKeepAliveTime() : 0));
         n.set("keepAliveTxInterval", U16(ss ? ss->operKeepAliveTxInterval() : 0));
         n.set("peerKeepAliveTime", U16(ss ? ss->peerKeepAliveTime() : 0));
         n.set("maxPduLength", U16(ss ? ss->operMaxPduLength() : 0));
         n.set("labelAdvertisement", advName(ss ? ss->operLabelAdvDspl() : Ldp::unknownAdvDspl_));
         n.set("code", ss ? Ldp::ldpStatusCodeStr(ss->code()) : "");
         n.set("reason", ss ? ss->sessionStateReason() : sc ? sc->reason() : std::string());
         n.set("fatalRetries", U64(ss ? ss->fatalRetryCount() : 0));
         Node& h = n.set("history", Node::array());
         if (ss && ss->sessionStateLogEntryColl()) {
            for (auto it = ss->sessionStateLogEntryColl()->entryIter(); it; it.advance()) {
               auto const& e = it.value();
               Node& x = h.add(Node::object());
               x.set("ago", since(e.time));
               x.set("state", sessionStateName(e.sessionState));
               x.set("code", Ldp::ldpStatusCodeStr(e.code));
               x.set("reason", e.reason);
            }
         }
         Node& addrs = n.set("addresses", Node::array());
         if (ss)
            for (auto it = ss->peerIntfIpIter(); it; ++it) addrs.add(Node::str(addrText(it.key())));
         auto stat = stats ? stats->sessionStatistics(id) : nullptr;
         n.set("counters", counters(stat.ptr()));
      }
   }
   return top;
}

Node statistics(ShowContext const& ctx, std::string const& only) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::object());
      auto st = a->ldpStatusColl()->status(vrf);
      if (!st) continue;
      if (auto s = st->statistics()) {
         v.set("fecCountFiltered", U32(s->fecCountFiltered()));
         v.set("fecCountUnfiltered", U32(s->fecCountUnfiltered()));
         v.set("lastMessageId", U32(s->messageId()));
      }
      if (auto u = st->ldpLinkUdpPamStatus()) {
         Node& x = v.set("linkHelloChannel", Node::object());
         x.set("enabled", u->enabled());
         x.set("reason", u->reason());
         x.set("rx", U32(u->rxPktCount()));
         x.set("tx", U32(u->txPktCount()));
         x.set("errors", U32(u->errPktCount()));
      }
      if (auto t = st->ldpTargetServerStatus()) {
         Node& x = v.set("targetedHelloServer", Node::object());
         x.set("listening", t->listening());
         x.set("reason", t->reason());
         x.set("rx", U32(t->rxPktCount()));
         x.set("errors", U32(t->errPktCount()));
      }
      if (auto t = st->ldpTcpServerStatus()) {
         Node& x = v.set("tcpServer", Node::object());
         x.set("listening", t->listening());
         x.set("reason", t->reason());
      }
      Node& sessions = v.set("sessions", Node::object());
      if (auto s = st->statistics(); s && s->sessionStatisticsColl()) {
         for (auto it = s->sessionStatisticsColl()->sessionStatisticsIter(); it; ++it)
            sessions.set(it.key().stringValue(), counters(it.value().ptr()));
      }
   }
   return top;
}

// A pseudowire's message counts by type, every type a pseudowire uses.
Node pwMsgCounts(std::map<Ldp::LdpMsgType, U64> const& counts) {
   Node n = Node::object();
   for (auto t : pwMsgTypes()) {
      auto it = counts.find(t);
      n.set(Ldp::ldpMsgTypeStr(t), U64(it == counts.end() ? 0 : it->second));
   }
   return n;
}

// The pseudowires of the configuration with what LDP made of them (see
// pwView): our side, the peer's FEC for the same pw-id, the status, its
// reason, and each FEC session's label handshake.
Node pseudowires(ShowContext const& ctx, std::string const& only, std::string* error) {
   Node top = Node::object();
   Node& list = top.set("pseudowires", Node::array());
   if (!ctx.config) return top;
   auto const& pws = ctx.config->running().pseudowires;
   if (!only.empty() && !pws.count(only)) {
      *error = "no pseudowire " + only;
      return top;
   }
   for (auto const& [name, pw] : pws) {
      if (!only.empty() && name != only) continue;
      PwView v = pwView(*ctx.agent, pw);
      Node& n = list.add(Node::object());
      n.set("name", name);
      n.set("neighbor", pw.neighbor.stringValue());
      n.set("pwId", U32(pw.pwId));
      n.set("pwType", pwTypeName(pw.type));
      n.set("adminStatus", pw.shutdown ? "down" : "up");
      auto lbl = ctx.config->pwLabels().find(name);
      n.set("localLabel", U32(lbl == ctx.config->pwLabels().end() ? 0 : lbl->second));
      n.set("localMtu", U32(pw.mtu));
      n.set("controlWord", pw.controlWord);
      n.set("pwStatusTlv", pw.pwStatusTlv);
      n.set("sessionState", v.sessionState ? sessionStateName(*v.sessionState) : "none");
      n.set("localMapped", v.localMapped);
      n.set("localLabelState", v.localLabelState);
      n.set("statusMethod", v.statusMethod == Ldp::pwStatusMethodTlv_        ? "status-tlv"
                            : v.statusMethod == Ldp::pwStatusMethodWithdraw_ ? "withdraw"
                                                                             : "unknown");
      n.set("localStatusFlags", v.localStatusFlags);
      n.set("localStatusFlagsText", pwFlagsText(v.localStatusFlags));
      // What the peer advertised for this pw-id, whether or not it matches.
      auto const* r = v.remote ? &*v.remote : nullptr;
      n.set("remotePwId", r ? Node::num(pw.pwId) : Node());
      n.set("remoteLabel", r && r->label ? Node::num(*r->label) : Node());
      n.set("remoteMtu", r && r->mtu ? Node::num(r->mtu) : Node());
      n.set("remotePwType", r ? Node::str(pwTypeName(r->pwType)) : Node());
      n.set("remoteControlWord", r ? Node::boolean(r->controlWord) : Node());
      n.set("remoteGroupId", r ? Node::num(r->groupId) : Node());
      n.set("remoteStatusFlags", r ? Node::num(v.remoteStatusFlags) : Node());
      n.set("remoteStatusFlagsText", r ? Node::str(pwFlagsText(v.remoteStatusFlags)) : Node());
      n.set("remoteLabelState", r ? r->state : std::string("none"));
      n.set("status", v.status ? Node::num(*v.status) : Node());
      n.set("statusText", v.statusText);
      n.set("reason", v.reason);
      n.set("mtuMismatch", v.mtuMismatch);
      n.set("messagesRx", pwMsgCounts(v.messagesRx));
      n.set("messagesTx", pwMsgCounts(v.messagesTx));
      Node& fs = n.set("fecSessions", Node::array());
      for (auto const& f : v.fecSessions) {
         Node& x = fs.add(Node::object());
         x.set("side", f.local ? "local" : "remote");
         x.set("pwType", pwTypeName(f.pwType));
         x.set("controlWord", f.controlWord);
         x.set("groupId", f.groupId);
         x.set("mtu", f.mtu ? Node::num(f.mtu) : Node());
         x.set("label", f.label ? Node::num(*f.label) : Node());
         x.set("state", f.state);
         x.set("messagesRx", pwMsgCounts(f.messagesRx));
         x.set("messagesTx", pwMsgCounts(f.messagesTx));
      }
   }
   return top;
}

Node interfaces(ShowContext const& ctx) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   Node& list = top.set("interfaces", Node::array());
   for (auto it = a->allIntfStatusDir()->intfStatusIter(); it; ++it) {
      auto is = it.value();
      Nolu::IntfId id = it.key();
      Node& n = list.add(Node::object());
      n.set("name", id.name());
      n.set("device", is->deviceName());
      n.set("ifIndex", U32(is->ifIndex()));
      n.set("operStatus", operName(is->operStatus()));
      n.set("mtu", U32(is->mtu()));
      n.set("loopback", Ldp::isLoopbackInterface(id));
      n.set("management", Ldp::isManagementOrInternalInterface(id));
      std::string vrf, addr;
      Node sec = Node::array();
      for (auto v = a->ipStatus()->vrfIpIntfStatusIter(); v; ++v) {
         if (auto ip = v.value()->ipIntfStatus(id)) {
            vrf = v.key();
            addr = ip->activeAddrWithMask().stringValue();
            for (auto s = ip->secondaryAddrWithMaskIter(); s; ++s)
               sec.add(Node::str(s.key().stringValue()));
         }
      }
      n.set("vrf", vrf);
      n.set("address", addr);
      n.set("secondaryAddresses", std::move(sec));
      n.set("mplsEnabled", !a->mplsConfig()->mplsRoutingDisabledIntfHas(id));
      bool desired = false;
      if (!vrf.empty()) {
         if (auto root = a->ldpRootSm()->ldpRoot(vrf))
            desired = root->pamDesiredIntfDir()->intfDesiredHas(id);
      }
      n.set("ldpHellos", desired);
   }
   return top;
}

Node forwarding(ShowContext const& ctx) {
   Node top = Node::object();
   auto const* f = ctx.forwarding;
   top.set("programmed", f ? f->programmed() : false);
   top.set("reason", f ? f->reason() : std::string("the agent has no forwarding consumer"));
   top.set("platformLabels", U32(f ? f->platformLabels() : 0));
   Node& devs = top.set("mplsInput", Node::array());
   Node& routes = top.set("labelRoutes", Node::array());
   Node& ingress = top.set("ingressRoutes", Node::array());
   if (!f) return top;
   for (auto const& d : f->inputDevs()) devs.add(Node::str(d));
   auto outText = [](std::vector<U32> const& labels) {
      if (labels.empty()) return std::string("pop");
      std::string s;
      for (U32 l : labels) s += (s.empty() ? "" : "/") + std::to_string(l);
      return s;
   };
   auto errText = [](int e) { return e ? std::string(strerror(-e)) : std::string(); };
   for (auto const& [fec, e] : f->entries()) {
      if (auto const& r = e.routes.mpls) {
         Node& n = routes.add(Node::object());
         n.set("fec", fec.stringValue());
         n.set("inLabel", U32(r->inLabel));
         n.set("outLabel", outText(r->outLabels));
         n.set("nextHop", r->via.stringValue());
         n.set("interface", r->dev);
         n.set("accepted", f->programmed() && e.mplsError == 0);
         n.set("error", f->programmed() ? errText(e.mplsError) : f->reason());
      }
      if (auto const& r = e.routes.ingress) {
         Node& n = ingress.add(Node::object());
         n.set("fec", fec.stringValue());
         n.set("outLabel", outText(r->outLabels));
         n.set("nextHop", r->via.stringValue());
         n.set("interface", r->dev);
         n.set("accepted", f->programmed() && e.ingressError == 0);
         n.set("error", f->programmed() ? errText(e.ingressError) : f->reason());
      }
   }
   return top;
}

Node igpSync(ShowContext const& ctx, std::string const& only) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::object());
      Node& list = v.set("interfaces", Node::array());
      auto coll = a->ldpLinkReadyStatusVrfColl()->readyStatusVrf(vrf);
      auto root = a->ldpRootSm()->ldpRoot(vrf);
      if (!coll) continue;
      for (auto it = coll->readyStatusIter(); it; ++it) {
         Node& n = list.add(Node::object());
         n.set("interface", it.key().name());
         n.set("ready", it.value()->ready());
         Ldp::LdpLinkReadySm const* sm = nullptr;
         if (root && root->ldpLinkReadySmColl())
            sm = root->ldpLinkReadySmColl()->linkReadySm(it.key()).ptr();
         n.set("reason", sm ? sm->reason() : std::string("LDP is not running on the link"));
      }
   }
   return top;
}

}  // namespace

char const* deliveryName(Ldp::LdpFecDeliveryType t) {
   switch (t) {
   case Ldp::deliveryLocal_: return "local";
   case Ldp::deliveryRemote_: return "remote";
   case Ldp::deliveryConnected_: return "connected";
   default: return "none";
   }
}

char const* lspRoleName(Ldp::LdpFecLspRole r) {
   switch (r) {
   case Ldp::lspRoleIngress_: return "ingress";
   case Ldp::lspRoleEgress_: return "egress";
   case Ldp::lspRoleTransit_: return "transit";
   default: return "none";
   }
}

char const* filteredName(Mpls::FecFilteredState f) {
   switch (f) {
   case Mpls::fecFiltered_: return "filtered";
   case Mpls::fecUnfiltered_: return "unfiltered";
   default: return "not evaluated";
   }
}

Node fecNode(Ldp::LdpFecConfig const& c) {
   Node f = Node::object();
   f.set("prefix", c.fec().prefix().stringValue());
   f.set("deliveryType", deliveryName(c.ldpFecDeliveryType()));
   f.set("lspRole", lspRoleName(c.ldpFecLspRole()));
   Node& labels = f.set("localLabels", Node::array());
   for (auto it = c.mplsLabelIter(); it; ++it) labels.add(Node::num(it.key().value()));
   Node& vias = f.set("vias", Node::array());
   for (auto it = c.viaIter(); it; ++it) {
      Node& v = vias.add(Node::object());
      v.set("interface", it.key().intfId().name());
      v.set("nextHop", addrText(it.key().addr()));
   }
   Node& ds = f.set("downstreamLsrs", Node::array());
   for (auto it = c.downstreamLsrIter(); it; ++it) ds.add(Node::str(it.key().stringValue()));
   f.set("downstreamMappingAvailable", c.downstreamLsrMappingAvail());
   f.set("filteredState", filteredName(c.fecFilteredState()));
   Node& m = f.set("memberships", Node::array());
   static char const* const names[] = {"route", "session", "static binding", "tunnel end point"};
   for (U8 i = 0; i < 4; ++i)
      if (c.membershipHas(Ldp::LdpFecConfigMembership(i))) m.add(Node::str(names[i]));
   Node& ss = f.set("sessions", Node::array());
   for (auto it = c.sessionMemberIter(); it; ++it)
      ss.add(Node::str(it.key().ldpIdentifier().stringValue()));
   return f;
}

// The FECs of each VRF, in prefix order; one prefix alone when given.
Node fecs(ShowContext const& ctx, std::string const& only, std::string const& prefix,
          std::string* err) {
   std::optional<Nolu::Prefix> want;
   if (!prefix.empty()) {
      want = Nolu::Prefix::fromString(prefix);
      if (!want) {
         *err = "'" + prefix + "' is not an IPv4 prefix";
         return Node();
      }
   }
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::array());
      auto st = ctx.agent->ldpStatusColl()->status(vrf);
      if (!st) continue;
      auto const* coll = st->ldpFecConfigColl().ptr();
      if (want) {
         if (auto const* c = coll->fecConfigFind(Mpls::FwdEqvClass(*want))) v.add(fecNode(*c));
         continue;
      }
      std::vector<Mpls::FwdEqvClass> keys;
      for (auto it = coll->fecConfigIter(); it; ++it) keys.push_back(it.key());
      std::sort(keys.begin(), keys.end());
      for (auto const& k : keys) v.add(fecNode(*coll->fecConfigFind(k)));
   }
   return top;
}

char const* localLabelStateName(Ldp::LdpLocalLabelState st) {
   switch (st) {
      case Ldp::mappingSent_:
         return "advertised";
      case Ldp::withdrawSent_:
         return "withdrawn, release awaited";
      default:
         return "none";
   }
}

char const* peerLabelStateName(Ldp::LdpPeerLabelState st) {
   switch (st) {
      case Ldp::mappingRcvd_:
         return "in use";
      case Ldp::withdrawRcvd_:
         return "withdrawn, to release";
      case Ldp::peerLabelUnused_:
         return "not used, to release";
      default:
         return "none";
   }
}

std::string hex32(U32 v) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%08x", v);
   return buf;
}

template <class C>
Node msgCounts(C const& c) {
   Node n = Node::object();
   for (auto it = c.begin(); it; ++it) n.set(Ldp::ldpMsgTypeStr(it.key()), U32(it.value()));
   return n;
}

// One FEC's labels: the local label with the peers it went to, and each
// peer's label, with their states; detail adds message ids and counts.
Node bindingNode(Ldp::Status const& st, Ldp::LdpFecConfig const& c,
                 std::optional<Ldp::LdpIdentifier> const& neighbor, bool detail) {
   Node f = Node::object();
   f.set("prefix", c.fec().prefix().stringValue());
   Node& labels = f.set("localLabels", Node::array());
   for (auto it = c.mplsLabelIter(); it; ++it) labels.add(Node::num(it.key().value()));
   Node& adv = f.set("advertisedTo", Node::array());
   Node& remote = f.set("remoteLabels", Node::array());
   Node* det = detail ? &f.set("sessions", Node::array()) : nullptr;
   auto const* fss = st.ldpFecSessionStatusColl().ptr();
   for (auto ss = st.ldpSessionStatusColl()->sessionStatusIter(); ss; ++ss) {
      Ldp::LdpIdentifier peer = ss.key().ldpIdentifier();
      if (neighbor && !(peer == *neighbor)) continue;
      auto const* s = fss->fecSessionStatusFind(Ldp::LdpFecSessionId(c.fec(), ss.key()));
      if (!s) continue;
      for (auto it = s->localLabelStateIter(); it; ++it) {
         Node& a = adv.add(Node::object());
         a.set("peer", peer.stringValue());
         if (it.key().isValid()) a.set("label", U32(it.key().value()));
         a.set("state", localLabelStateName(it.value()));
      }
      for (auto it = s->peerLabelStateIter(); it; ++it) {
         Node& r = remote.add(Node::object());
         r.set("peer", peer.stringValue());
         if (it.key().isValid()) r.set("label", U32(it.key().value()));
         r.set("state", peerLabelStateName(it.value()));
         r.set("nextHop", s->isNexthopLsr());
      }
      if (!det) continue;
      Node& d = det->add(Node::object());
      d.set("peer", peer.stringValue());
      d.set("nextHop", s->isNexthopLsr());
      d.set("localLabelSessionState", hex32(U32(s->localLabelSessionState())));
      d.set("peerLabelSessionState", hex32(U32(s->peerLabelSessionState())));
      d.set("peerLabelRequestMsgId", s->peerLabelRequestMsgId());
      d.set("peerLabelRequestMsgIdAcked", s->peerLabelRequestMsgIdAcked());
      d.set("localLabelRequestMsgId", s->localLabelRequestMsgId());
      d.set("localLabelRequestMsgIdAcked", s->localLabelRequestMsgIdAcked());
      d.set("noRouteNotified", s->flagNoRouteNotification());
      d.set("messagesRx", msgCounts(s->ldpMsgRx()));
      d.set("messagesTx", msgCounts(s->ldpMsgTx()));
   }
   // Configured outgoing labels, in the table of the LSR that owns their next
   // hop for as long as no label learned from it takes their place.
   for (auto t = st.peerLabelBindingTableColl()->peerLabelBindingTableIter(); t; ++t) {
      Ldp::LdpIdentifier peer(t.key().rtrIdValue(), t.key().lblSpaceValue());
      if (neighbor && !(peer == *neighbor)) continue;
      auto const* b = t.value()->bindingFind(c.fec());
      if (!b || b->labelSource() != 1) continue;
      auto const* s = fss->fecSessionStatusFind(Ldp::LdpFecSessionId(c.fec(), Ldp::LdpSessionId(peer)));
      for (auto it = b->mplsLabelIter(); it; ++it) {
         Node& r = remote.add(Node::object());
         r.set("peer", peer.stringValue());
         r.set("label", U32(it.key().value()));
         r.set("state", "static");
         r.set("nextHop", s ? s->isNexthopLsr() : false);
      }
   }
   return f;
}

Node bindings(ShowContext const& ctx, std::string const& only, std::vector<std::string> const& args,
              bool detail, std::string* err) {
   std::optional<Nolu::Prefix> want;
   std::optional<Ldp::LdpIdentifier> neighbor;
   for (std::size_t i = 0; i < args.size(); ++i) {
      if (args[i] == "neighbor" || args[i] == "neighbour") {
         std::optional<Nolu::IpAddr> a;
         if (i + 1 < args.size()) a = Nolu::IpAddr::fromString(args[i + 1]);
         if (!a) {
            *err = "'neighbor' needs an LSR id A.B.C.D";
            return Node();
         }
         neighbor = Ldp::LdpIdentifier(*a, 0);
         ++i;
      } else if (auto p = Nolu::Prefix::fromString(args[i]); p && !want) {
         want = p;
      } else {
         *err = "'" + args[i] + "' is not an IPv4 prefix";
         return Node();
      }
   }
   Node top = Node::object();
   Node& vrfs = top.set("vrfs", Node::object());
   for (auto const& vrf : vrfsOf(ctx, only)) {
      Node& v = vrfs.set(vrf, Node::array());
      auto st = ctx.agent->ldpStatusColl()->status(vrf);
      if (!st) continue;
      auto const* coll = st->ldpFecConfigColl().ptr();
      if (want) {
         if (auto const* c = coll->fecConfigFind(Mpls::FwdEqvClass(*want)))
            v.add(bindingNode(*st, *c, neighbor, detail));
         continue;
      }
      std::vector<Mpls::FwdEqvClass> keys;
      for (auto it = coll->fecConfigIter(); it; ++it) keys.push_back(it.key());
      std::sort(keys.begin(), keys.end());
      for (auto const& k : keys) v.add(bindingNode(*st, *coll->fecConfigFind(k), neighbor, detail));
   }
   return top;
}

Node labelAllocation(ShowContext const& ctx) {
   auto const* a = ctx.agent;
   Node top = Node::object();
   auto block = a->mplsAgentStatus()->labelBlockAllocation("ldp");
   Node& b = top.set("block", Node::object());
   b.set("base", U32(block ? block->base() : 0));
   b.set("size", U32(block ? block->size() : 0));
   auto const* alloc = a->ldpRootSm() ? a->ldpRootSm()->numAllocator() : nullptr;
   U32 size = alloc ? alloc->range().size() : 0;
   U32 used = alloc ? alloc->allocatedCount() : 0;
   U32 quarantined = alloc ? alloc->quarantinedCount() : 0;
   top.set("inUse", used);
   top.set("quarantined", quarantined);
   top.set("free", size >= used + quarantined ? size - used - quarantined : 0);
   top.set("exhausted", alloc && alloc->status() && alloc->status()->rangeExhausted());
   auto const* g = a->ldpRootSm() ? a->ldpRootSm()->labelAllocGlobalStatus() : nullptr;
   top.set("phase", g && g->state() == Ldp::labelAllocReady_ ? "ready" : "reserve");
   return top;
}

std::string eventLineText(Ldp::LdpEventMonLog::Line const& l) {
   std::time_t secs = std::time_t(l.time);
   std::tm tm{};
   gmtime_r(&secs, &tm);
   char buf[48];
   std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tm);
   char ms[8];
   std::snprintf(ms, sizeof ms, ".%03d", int((l.time - double(secs)) * 1000) % 1000);
   return std::string(buf) + ms + "Z " + l.text;
}

char const* sessionStateName(U8 state) {
   switch (state) {
      case Ldp::stateNonExistent_:
         return "nonexistent";
      case Ldp::stateInitialized_:
         return "initialized";
      case Ldp::stateOpenSent_:
         return "openSent";
      case Ldp::stateOpenRec_:
         return "openRec";
      case Ldp::stateOperational_:
         return "operational";
      case Ldp::stateClosed_:
         return "closed";
      default:
         return "unknown";
   }
}

char const* runningStateName(U8 state) {
   switch (state) {
      case Ldp::running_:
         return "running";
      case Ldp::stopping_:
         return "stopping";
      case Ldp::disabled_:
         return "disabled";
      default:
         return "none";
   }
}

std::vector<std::string> const& showCommands() {
   static std::vector<std::string> const c = {
      "show mpls ldp [vrf NAME]",
      "show mpls ldp discovery [vrf NAME]",
      "show mpls ldp neighbor [vrf NAME]",
      "show mpls ldp statistics [vrf NAME]",
      "show mpls ldp fec [PREFIX] [vrf NAME]",
      "show mpls ldp bindings [PREFIX] [neighbor A.B.C.D] [detail] [vrf NAME]",
      "show mpls ldp label-allocation",
      "show mpls ldp pseudowires [NAME]",
      "show mpls ldp forwarding",
      "show mpls ldp igp-sync [vrf NAME]",
      "show mpls ldp events [--last N] [--follow]",
      "show interfaces",
      "show running-config",
   };
   return c;
}

bool runShow(std::vector<std::string> const& words, bool json, ShowContext const& ctx,
             std::string* out) {
   std::vector<std::string> w;
   std::string vrf;
   std::size_t last = 0;
   U64 after = 0;
   bool raw = false;
   for (std::size_t i = 0; i < words.size(); ++i) {
      if (words[i] == "--last" || words[i] == "--after") {
         unsigned long long n = 0;
         if (i + 1 >= words.size() || std::sscanf(words[i + 1].c_str(), "%llu", &n) != 1) {
            *out = "'" + words[i] + "' needs a number";
            return false;
         }
         if (words[i] == "--last") last = std::size_t(n);
         else after = n;
         ++i;
      } else if (words[i] == "--raw") {
         raw = true;
      } else if (words[i] == "vrf") {
         if (i + 1 >= words.size()) {
            *out = "'vrf' needs a VRF name";
            return false;
         }
         vrf = words[++i];
      } else {
         w.push_back(words[i]);
      }
   }
   std::string cmd;
   for (auto const& x : w) cmd += (cmd.empty() ? "" : " ") + x;
   if (cmd == "running-config") {
      std::string text = ctx.config ? renderConfig(ctx.config->running()) : std::string();
      *out = json ? "{\"config\":" + JsonWriter::quote(text) + "}\n" : text;
      return true;
   }
   if (!ctx.agent) {
      *out = "the agent is not running";
      return false;
   }
   Node n;
   if (cmd == "mpls ldp")
      n = protocol(ctx, vrf);
   else if (cmd == "mpls ldp discovery")
      n = discovery(ctx, vrf);
   else if (cmd == "mpls ldp neighbor" || cmd == "mpls ldp neighbors" || cmd == "mpls ldp session")
      n = neighbors(ctx, vrf);
   else if (cmd == "mpls ldp statistics")
      n = statistics(ctx, vrf);
   else if (w.size() >= 3 && w.size() <= 4 && w[0] == "mpls" && w[1] == "ldp" &&
            (w[2] == "pseudowires" || w[2] == "pseudowire")) {
      std::string error;
      n = pseudowires(ctx, w.size() == 4 ? w[3] : std::string(), &error);
      if (!error.empty()) {
         *out = error;
         return false;
      }
   }
   else if (cmd == "interfaces")
      n = interfaces(ctx);
   else if (w.size() >= 3 && w[0] == "mpls" && w[1] == "ldp" && w[2] == "bindings") {
      std::vector<std::string> args(w.begin() + 3, w.end());
      bool detail = false;
      args.erase(std::remove_if(args.begin(), args.end(),
                                [&](std::string const& x) { return x == "detail" && (detail = true); }),
                 args.end());
      std::string err;
      n = bindings(ctx, vrf, args, detail, &err);
      if (!err.empty()) {
         *out = err;
         return false;
      }
   }
   else if (cmd == "mpls ldp label-allocation")
      n = labelAllocation(ctx);
   else if (w.size() >= 3 && w.size() <= 4 && w[0] == "mpls" && w[1] == "ldp" && w[2] == "fec") {
      std::string err;
      n = fecs(ctx, vrf, w.size() == 4 ? w[3] : std::string(), &err);
      if (!err.empty()) {
         *out = err;
         return false;
      }
   }
   else if (cmd == "mpls ldp forwarding")
      n = forwarding(ctx);
   else if (cmd == "mpls ldp igp-sync")
      n = igpSync(ctx, vrf);
   else if (cmd == "mpls ldp events") {
      // The latest lines, or those after a number that a follower saw last;
      // raw answers start with the number to ask after next.
      auto const& lines = ctx.agent->ldpEventMonLog()->lines();
      std::size_t from = 0;
      if (last && lines.size() > last) from = lines.size() - last;
      std::string text = raw ? "next " + std::to_string(ctx.agent->ldpEventMonLog()->nextSeq() - 1) + "\n" : "";
      Node list = Node::array();
      for (std::size_t i = from; i < lines.size(); ++i) {
         if (lines[i].seq <= after) continue;
         text += eventLineText(lines[i]) + "\n";
         Node& e = list.add(Node::object());
         e.set("seq", U64(lines[i].seq));
         e.set("time", double(lines[i].time));
         e.set("text", lines[i].text);
      }
      if (!json) {
         *out = text;
         return true;
      }
      n = Node::object();
      n.set("events", std::move(list));
   }
   else {
      *out = "unknown show command 'show " + cmd + "'; the commands are:";
      for (auto const& c : showCommands()) *out += "\n  " + c;
      return false;
   }
   *out = render(n, json);
   return true;
}

}  // namespace Host

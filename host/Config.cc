#include "host/Config.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace Host {

std::string ConfigError::str() const {
   if (line == 0) return message;
   return "line " + std::to_string(line) + ": '" + text + "': " + message;
}

namespace {

std::vector<std::string> splitWords(std::string const& s) {
   std::vector<std::string> out;
   std::istringstream in(s);
   std::string w;
   while (in >> w) out.push_back(w);
   return out;
}

std::string trim(std::string const& s) {
   auto b = s.find_first_not_of(" \t\r");
   if (b == std::string::npos) return "";
   auto e = s.find_last_not_of(" \t\r");
   return s.substr(b, e - b + 1);
}

// A name of a VRF, interface or list: printable, no blanks; a VRF name also
// has no ':' since it prefixes the names of the VRF's interfaces.
bool validName(std::string const& n, bool vrf) {
   if (n.empty() || n.size() > 64) return false;
   for (char c : n) {
      if (c <= ' ' || c > '~' || c == '/' || (vrf && c == ':')) return false;
   }
   return true;
}

class Parser {
 public:
   Parser(HostConfig& cfg, std::vector<ConfigError>& errors) : cfg_(cfg), errors_(errors) {}

   void line(unsigned number, std::string const& raw) {
      lineNo_ = number;
      text_ = trim(raw);
      if (text_.empty() || text_[0] == '#') return;
      if (text_[0] == '!') {
         section_ = none_;
         return;
      }
      auto ws = splitWords(text_);
      if (ws.size() == 1 && (ws[0] == "exit" || ws[0] == "end")) {
         section_ = none_;
         return;
      }
      bool no = ws[0] == "no";
      if (no) ws.erase(ws.begin());
      if (ws.empty()) {
         error("'no' needs a statement");
         return;
      }
      if (section_ == ldp_ && ldpStatement(ws, no)) return;
      if (section_ == intf_ && intfStatement(ws, no)) return;
      if (section_ == pw_ && pwStatement(ws, no)) return;
      Section before = section_;
      section_ = none_;
      if (topStatement(ws, no)) return;
      if (before == ldp_)
         error("unknown statement in 'mpls ldp' and at the top level");
      else if (before == intf_)
         error("unknown statement in 'interface' and at the top level");
      else if (before == pw_)
         error("unknown statement in 'pseudowire' and at the top level");
      else
         error("unknown statement");
   }

 private:
   enum Section { none_, ldp_, intf_, pw_ };

   void error(std::string const& m) { errors_.push_back(ConfigError{lineNo_, text_, m}); }

   bool number(std::string const& w, U32 lo, U32 hi, U32* out, char const* what) {
      U32 v = 0;
      auto [p, ec] = std::from_chars(w.data(), w.data() + w.size(), v);
      if (ec != std::errc() || p != w.data() + w.size() || v < lo || v > hi) {
         error(std::string(what) + " must be a number from " + std::to_string(lo) + " to " +
               std::to_string(hi));
         return false;
      }
      *out = v;
      return true;
   }

   bool seconds(std::string const& w, double hi, Vek::Seconds* out, char const* what) {
      double v = 0;
      auto [p, ec] = std::from_chars(w.data(), w.data() + w.size(), v);
      if (ec != std::errc() || p != w.data() + w.size() || !std::isfinite(v) || v < 0 || v > hi) {
         error(std::string(what) + " must be a number of seconds from 0 to " +
               std::to_string(int(hi)));
         return false;
      }
      *out = v;
      return true;
   }

   bool address(std::string const& w, Nolu::IpAddr* out) {
      auto a = Nolu::IpAddr::fromString(w);
      if (!a) {
         error("'" + w + "' is not an IPv4 address");
         return false;
      }
      *out = *a;
      return true;
   }

   bool name(std::string const& w, char const* what, bool vrf = false) {
      if (validName(w, vrf)) return true;
      error(std::string("'") + w + "' is not a valid " + what + " name");
      return false;
   }

   void expect(char const* form) { error(std::string("expected '") + form + "'"); }

   bool ldpStatement(std::vector<std::string> const& ws, bool no) {
      LdpVrfConfig& l = cfg_.ldp[sectionName_];
      LdpVrfConfig const defaults;
      std::string const& k = ws[0];
      auto n = ws.size();
      if (k == "router-id") {
         if (no) {
            l.routerId = Nolu::IpAddr();
            l.routerIdIntf.clear();
         } else if (n == 2) {
            Nolu::IpAddr a;
            if (!address(ws[1], &a)) return true;
            if (a.isZero())
               error("the router id can't be 0.0.0.0");
            else
               l.routerId = a;
         } else if (n == 3 && ws[1] == "interface") {
            if (name(ws[2], "interface")) l.routerIdIntf = ws[2];
         } else {
            expect("router-id A.B.C.D' or 'router-id interface NAME");
         }
         return true;
      }
      if (k == "transport-address") {
         if (no)
            l.transportIntf.clear();
         else if (n == 3 && ws[1] == "interface") {
            if (name(ws[2], "interface")) l.transportIntf = ws[2];
         } else {
            expect("transport-address interface NAME");
         }
         return true;
      }
      if (k == "neighbor") {
         Nolu::IpAddr a;
         if (n < 2 || n > 3 || (n == 3 && ws[2] != "targeted") || (!no && n != 3)) {
            expect("neighbor A.B.C.D targeted");
            return true;
         }
         if (!address(ws[1], &a)) return true;
         if (no)
            l.targetedNeighbors.erase(a);
         else if (a.isZero() || a.isMulticast() || a.isLoopback())
            error("not a neighbour address");
         else
            l.targetedNeighbors.insert(a);
         return true;
      }
      if (k == "password") {
         if (no) {
            l.password.clear();
            return true;
         }
         std::string key = trim(text_.substr(text_.find("password") + 8));
         // The kernel takes TCP MD5 keys of at most 80 bytes.
         if (key.empty() || key.size() > 80)
            error("the password must have 1 to 80 characters");
         else
            l.password = key;
         return true;
      }
      if (k == "discovery") {
         bool link = n >= 2 && ws[1] == "hello";
         bool targeted = n >= 2 && ws[1] == "targeted-hello";
         bool hold = n >= 3 && ws[2] == "hold-time";
         bool interval = n >= 3 && ws[2] == "interval";
         if (!(link || targeted) || !(hold || interval) || n != (no ? 3u : 4u)) {
            expect("discovery hello|targeted-hello hold-time|interval SECONDS");
            return true;
         }
         U16* field = link ? (hold ? &l.helloHoldTime : &l.helloInterval)
                           : (hold ? &l.targetedHelloHoldTime : &l.targetedHelloInterval);
         U16 const* def =
            link ? (hold ? &defaults.helloHoldTime : &defaults.helloInterval)
                 : (hold ? &defaults.targetedHelloHoldTime : &defaults.targetedHelloInterval);
         U32 v = *def;
         if (!no && !number(ws[3], 1, 65535, &v, hold ? "the hold time" : "the interval"))
            return true;
         *field = U16(v);
         return true;
      }
      if (k == "session") {
         if (n < 2 || ws[1] != "keepalive" || n != (no ? 2u : 3u)) {
            expect("session keepalive SECONDS");
            return true;
         }
         U32 v = defaults.keepAliveTime;
         if (!no && !number(ws[2], 1, 65535, &v, "the keepalive time")) return true;
         l.keepAliveTime = U16(v);
         return true;
      }
      if (k == "label" && n >= 2 && ws[1] == "binding") {
         // label binding A.B.C.D/LEN local N|implicit-null
         // label binding A.B.C.D/LEN remote N|implicit-null nexthop A.B.C.D
         static char const* const usage =
            "label binding A.B.C.D/LEN local LABEL|implicit-null, or label binding "
            "A.B.C.D/LEN remote LABEL|implicit-null nexthop A.B.C.D";
         auto p = n >= 3 ? Nolu::Prefix::fromString(ws[2]) : std::nullopt;
         std::string kind = n >= 4 ? ws[3] : "";
         bool local = kind == "local", remote = kind == "remote";
         // The no form names the prefix, and optionally the kind of binding
         // with what it said.
         bool shapeOk = no ? (n == 3 || (local && (n == 4 || n == 5)) ||
                              (remote && (n == 4 || n == 5 || (n == 7 && ws[5] == "nexthop"))))
                           : ((local && n == 5) || (remote && n == 7 && ws[5] == "nexthop"));
         if (!p || !shapeOk) {
            expect(usage);
            return true;
         }
         if (no) {
            if (!remote) l.staticBindings.erase(*p);
            if (!local) l.staticRemoteBindings.erase(*p);
            return true;
         }
         U32 v = 0;
         if (local) {
            // Labels below 16 are reserved for special purposes, except Implicit Null.
            if (ws[4] == "implicit-null") v = 3;
            else if (!number(ws[4], 16, 1048575, &v, "the local label")) return true;
            l.staticBindings[*p] = v;
            return true;
         }
         // The next hop's label is whatever it gave out, reserved labels included.
         if (ws[4] == "implicit-null") v = 3;
         else if (!number(ws[4], 0, 1048575, &v, "the remote label")) return true;
         Nolu::IpAddr hop;
         if (!address(ws[6], &hop)) return true;
         if (hop.isZero() || hop.isMulticast() || hop.isLoopback()) {
            error("not a next-hop address: " + ws[6]);
            return true;
         }
         l.staticRemoteBindings[*p] = LdpVrfConfig::RemoteBinding{v, hop};
         return true;
      }
      if (k == "label" && n >= 2 && ws[1] == "allocation") {
         if (n != 3 || ws[2] != "all-prefixes")
            expect("label allocation all-prefixes");
         else
            l.allPrefixes = !no;
         return true;
      }
      if (k == "label") {
         if (n < 2) {
            expect("label distribution|advertisement|retention MODE");
            return true;
         }
         std::string const& what = ws[1];
         std::string v = n == 3 ? ws[2] : "";
         if (what == "distribution") {
            if (no && (n == 2 || n == 3))
               l.labelDistCtrl = defaults.labelDistCtrl;
            else if (!no && v == "independent")
               l.labelDistCtrl = Ldp::independentDistCtrl_;
            else if (!no && v == "ordered")
               l.labelDistCtrl = Ldp::orderedDistCtrl_;
            else
               expect("label distribution independent|ordered");
         } else if (what == "advertisement") {
            if (no && (n == 2 || n == 3))
               l.labelAdvDspl = defaults.labelAdvDspl;
            else if (!no && v == "unsolicited")
               l.labelAdvDspl = Ldp::unsolicitedAdvDspl_;
            else if (!no && v == "on-demand")
               l.labelAdvDspl = Ldp::downstreamOnDemandAdvDspl_;
            else
               expect("label advertisement unsolicited|on-demand");
         } else if (what == "retention") {
            if (no && (n == 2 || n == 3))
               l.labelRetention = defaults.labelRetention;
            else if (!no && v == "liberal")
               l.labelRetention = Ldp::liberalRetention_;
            else if (!no && v == "conservative")
               l.labelRetention = Ldp::conservativeRetention_;
            else
               expect("label retention liberal|conservative");
         } else {
            expect("label distribution|advertisement|retention|binding|allocation ...");
         }
         return true;
      }
      if (k == "loop-detection") {
         if (n != 1)
            expect("loop-detection");
         else
            l.loopDetection = !no;
         return true;
      }
      if (k == "hop-count-max") {
         if (n != (no ? 1u : 2u) && !(no && n == 2)) {
            expect("hop-count-max COUNT");
            return true;
         }
         U32 v = defaults.hopCountMax;
         if (!no && !number(ws[1], 1, 255, &v, "the hop count limit")) return true;
         l.hopCountMax = U8(v);
         return true;
      }
      if (k == "fec") {
         if (n >= 2 && ws[1] == "filter" && no && n <= 4) {
            l.fecFilterPrefixList.clear();
         } else if (!no && n == 4 && ws[1] == "filter" && ws[2] == "prefix-list") {
            if (name(ws[3], "prefix list")) l.fecFilterPrefixList = ws[3];
         } else {
            expect("fec filter prefix-list NAME");
         }
         return true;
      }
      if (k == "link-ready") {
         bool delay = n >= 2 && ws[1] == "delay";
         bool timeout = n >= 2 && ws[1] == "timeout";
         if (!(delay || timeout) || n != (no ? 2u : 3u)) {
            expect("link-ready delay|timeout SECONDS");
            return true;
         }
         if (no) {
            if (delay)
               l.linkReadyDelay = defaults.linkReadyDelay;
            else
               l.linkReadyTimeout = defaults.linkReadyTimeout;
         } else if (timeout && ws[2] == "none") {
            l.linkReadyTimeout = Vek::infinity;
         } else {
            Vek::Seconds s;
            if (seconds(ws[2], 86400, &s, delay ? "the delay" : "the time-out")) {
               if (delay)
                  l.linkReadyDelay = s;
               else
                  l.linkReadyTimeout = s;
            }
         }
         return true;
      }
      if (k == "shutdown") {
         if (n != 1)
            expect("shutdown");
         else
            l.shutdown = !no;
         return true;
      }
      return false;
   }

   bool intfStatement(std::vector<std::string> const& ws, bool no) {
      if (ws.size() == 2 && ws[0] == "mpls" && ws[1] == "ip") {
         if (no)
            cfg_.mplsDisabledIntf.insert(sectionName_);
         else
            cfg_.mplsDisabledIntf.erase(sectionName_);
         return true;
      }
      return false;
   }

   bool pwStatement(std::vector<std::string> const& ws, bool no) {
      PseudowireConfig& pw = cfg_.pseudowires[sectionName_];
      PseudowireConfig const defaults;
      std::string const& k = ws[0];
      auto n = ws.size();
      if (k == "neighbor") {
         if (no && (n == 1 || n == 4)) {
            pw.neighbor = Nolu::IpAddr();
            pw.pwId = 0;
            return true;
         }
         if (no || n != 4 || ws[2] != "pw-id") {
            expect("neighbor A.B.C.D pw-id N");
            return true;
         }
         Nolu::IpAddr a;
         U32 id;
         if (!address(ws[1], &a)) return true;
         if (a.isZero() || a.isMulticast() || a.isLoopback() || a == Nolu::IpAddr(255, 255, 255, 255)) {
            error("not a neighbour address");
            return true;
         }
         if (!number(ws[3], 1, 0xFFFFFFFFu, &id, "the PW id")) return true;
         pw.neighbor = a;
         pw.pwId = id;
         return true;
      }
      if (k == "pw-type") {
         if (no && n <= 2)
            pw.type = defaults.type;
         else if (!no && n == 2 && ws[1] == "ethernet")
            pw.type = Pseudowire::pwTypeEthernet_;
         else if (!no && n == 2 && ws[1] == "ethernet-vlan")
            pw.type = Pseudowire::pwTypeEthernetTagged_;
         else
            expect("pw-type ethernet|ethernet-vlan");
         return true;
      }
      if (k == "mtu") {
         U32 v = defaults.mtu;
         if (n != (no ? 1u : 2u) && !(no && n == 2)) {
            expect("mtu N");
            return true;
         }
         if (!no && !number(ws[1], 64, 65535, &v, "the MTU")) return true;
         pw.mtu = v;
         return true;
      }
      bool* flag = k == "control-word" ? &pw.controlWord
                   : k == "pw-status-tlv" ? &pw.pwStatusTlv
                   : k == "shutdown"      ? &pw.shutdown
                                          : nullptr;
      if (!flag) return false;
      if (n != 1)
         expect(k.c_str());
      else
         *flag = !no;
      return true;
   }

   bool topStatement(std::vector<std::string> const& ws, bool no) {
      std::string const& k = ws[0];
      auto n = ws.size();
      if (k == "mpls" && n >= 2 && ws[1] == "ldp") {
         std::string vrf = L3::defaultVrfName();
         if (n == 4 && ws[2] == "vrf") {
            if (!name(ws[3], "VRF", true)) return true;
            vrf = ws[3];
         } else if (n != 2) {
            expect("mpls ldp' or 'mpls ldp vrf NAME");
            return true;
         }
         if (no) {
            cfg_.ldp.erase(vrf);
            return true;
         }
         cfg_.ldp[vrf];
         section_ = ldp_;
         sectionName_ = vrf;
         return true;
      }
      if (k == "mpls" && n == 2 && ws[1] == "ip") {
         cfg_.mplsIp = !no;
         return true;
      }
      if (k == "mpls" && n >= 3 && ws[1] == "label" && ws[2] == "range") {
         HostConfig const defaults;
         if (no) {
            cfg_.labelRangeBase = defaults.labelRangeBase;
            cfg_.labelRangeSize = defaults.labelRangeSize;
            return true;
         }
         U32 base, size;
         if (n != 5) {
            expect("mpls label range BASE SIZE");
         } else if (number(ws[3], 16, 0xFFFFF, &base, "the first label") &&
                    number(ws[4], 1, 0xFFFFF, &size, "the size")) {
            if (base + size - 1 > 0xFFFFF)
               error("the range ends past label 1048575");
            else {
               cfg_.labelRangeBase = base;
               cfg_.labelRangeSize = size;
            }
         }
         return true;
      }
      if (k == "interface") {
         if (n != 2) {
            expect("interface NAME");
            return true;
         }
         if (!name(ws[1], "interface")) return true;
         if (no) {
            cfg_.mplsDisabledIntf.erase(ws[1]);
            return true;
         }
         section_ = intf_;
         sectionName_ = ws[1];
         return true;
      }
      if (k == "pseudowire") {
         if (n != 2) {
            expect("pseudowire NAME");
            return true;
         }
         if (!name(ws[1], "pseudowire")) return true;
         if (no) {
            cfg_.pseudowires.erase(ws[1]);
            return true;
         }
         cfg_.pseudowires[ws[1]];
         section_ = pw_;
         sectionName_ = ws[1];
         return true;
      }
      if (k == "ip" && n == 2 && ws[1] == "routing") {
         cfg_.ipRouting = !no;
         return true;
      }
      if (k == "ip" && n >= 2 && ws[1] == "prefix-list") return prefixList(ws, no);
      if (k == "management") {
         if (n != 3 || ws[1] != "interface") {
            expect("management interface NAME");
            return true;
         }
         if (!name(ws[2], "interface")) return true;
         if (no)
            cfg_.managementIntf.erase(ws[2]);
         else
            cfg_.managementIntf.insert(ws[2]);
         return true;
      }
      if (k == "vrf") {
         if (no && n == 2) {
            if (name(ws[1], "VRF", true)) cfg_.vrfNetns.erase(ws[1]);
            return true;
         }
         if (no || n != 4 || ws[2] != "netns") {
            expect("vrf NAME netns NAMESPACE");
            return true;
         }
         if (!name(ws[1], "VRF", true) || !name(ws[3], "network namespace")) return true;
         if (ws[1] == L3::defaultVrfName()) {
            error("the default VRF is the namespace the agent runs in");
            return true;
         }
         cfg_.vrfNetns[ws[1]] = ws[3];
         return true;
      }
      return false;
   }

   bool prefixList(std::vector<std::string> const& ws, bool no) {
      auto n = ws.size();
      if (n < 3 || !name(ws[2], "prefix list")) {
         if (n < 3) expect("ip prefix-list NAME seq N permit|deny A.B.C.D/LEN");
         return true;
      }
      std::string const& list = ws[2];
      if (no && n == 3) {
         cfg_.prefixLists.erase(list);
         return true;
      }
      U32 seq;
      if (n < 5 || ws[3] != "seq" || (!no && n != 7) || (no && n != 5 && n != 7)) {
         expect("ip prefix-list NAME seq N permit|deny A.B.C.D/LEN");
         return true;
      }
      if (!number(ws[4], 1, 4294967294u, &seq, "the sequence number")) return true;
      if (no) {
         auto it = cfg_.prefixLists.find(list);
         if (it == cfg_.prefixLists.end() || !it->second.erase(seq)) {
            error("prefix list " + list + " has no entry " + ws[4]);
         } else if (it->second.empty()) {
            cfg_.prefixLists.erase(it);
         }
         return true;
      }
      if (ws[5] != "permit" && ws[5] != "deny") {
         expect("permit' or 'deny");
         return true;
      }
      auto p = Nolu::Prefix::fromString(ws[6]);
      if (!p) {
         error("'" + ws[6] + "' is not an IPv4 prefix A.B.C.D/LEN");
         return true;
      }
      cfg_.prefixLists[list][seq] = PrefixListEntry{ws[5] == "permit", Nolu::IpGenPrefix(*p)};
      return true;
   }

   HostConfig& cfg_;
   std::vector<ConfigError>& errors_;
   Section section_ = none_;
   std::string sectionName_;
   unsigned lineNo_ = 0;
   std::string text_;
};

std::string secondsText(Vek::Seconds s) {
   std::ostringstream os;
   os << s;
   return os.str();
}

}  // namespace

U32 pseudowireLabelCount(U32 rangeSize) { return rangeSize >= 4096 ? 1024 : rangeSize / 4; }

void validateConfig(HostConfig const& cfg, std::vector<ConfigError>& errors) {
   auto err = [&](std::string m) { errors.push_back(ConfigError{0, "", std::move(m)}); };
   std::map<std::pair<Nolu::IpAddr, U32>, std::string> pwByKey;
   for (auto const& [name, pw] : cfg.pseudowires) {
      if (pw.neighbor.isZero()) {
         err("pseudowire " + name + ": no 'neighbor A.B.C.D pw-id N'");
         continue;
      }
      auto [it, fresh] = pwByKey.emplace(std::make_pair(pw.neighbor, pw.pwId), name);
      if (!fresh)
         err("pseudowire " + name + ": neighbor " + pw.neighbor.stringValue() + " pw-id " +
             std::to_string(pw.pwId) + " is pseudowire " + it->second + " already");
   }
   U32 pwLabels = pseudowireLabelCount(cfg.labelRangeSize);
   if (cfg.pseudowires.size() > pwLabels)
      err(std::to_string(cfg.pseudowires.size()) + " pseudowires, but the label range keeps " +
          std::to_string(pwLabels) + " labels for pseudowires (mpls label range BASE SIZE)");
   std::map<std::string, std::string> byNs;
   for (auto const& [vrf, ns] : cfg.vrfNetns) {
      auto [it, fresh] = byNs.emplace(ns, vrf);
      if (!fresh) err("vrf " + vrf + ": namespace " + ns + " is already VRF " + it->second + "'s");
   }
   for (auto const& [vrf, l] : cfg.ldp) {
      std::string where = vrf == L3::defaultVrfName() ? "mpls ldp" : "mpls ldp vrf " + vrf;
      if (vrf != L3::defaultVrfName() && !cfg.vrfNetns.count(vrf))
         err(where + ": VRF " + vrf + " is not defined (vrf " + vrf + " netns NAMESPACE)");
      if (!l.fecFilterPrefixList.empty() && !cfg.prefixLists.count(l.fecFilterPrefixList))
         err(where + ": fec filter names prefix list " + l.fecFilterPrefixList +
             ", which is not defined");
      if (l.helloInterval >= l.helloHoldTime)
         err(where + ": the hello interval " + std::to_string(l.helloInterval) +
             " must be below the hello hold time " + std::to_string(l.helloHoldTime));
      if (l.targetedHelloInterval >= l.targetedHelloHoldTime)
         err(where + ": the targeted hello interval " + std::to_string(l.targetedHelloInterval) +
             " must be below the targeted hello hold time " +
             std::to_string(l.targetedHelloHoldTime));
   }
}

bool parseConfig(std::string const& text, HostConfig& cfg, std::vector<ConfigError>& errors) {
   HostConfig work = cfg;
   std::size_t before = errors.size();
   Parser p(work, errors);
   std::istringstream in(text);
   std::string line;
   unsigned no = 0;
   while (std::getline(in, line)) p.line(++no, line);
   if (errors.size() == before) validateConfig(work, errors);
   if (errors.size() != before) return false;
   cfg = std::move(work);
   return true;
}

std::string renderConfig(HostConfig const& cfg) {
   HostConfig const d;
   LdpVrfConfig const ld;
   std::ostringstream os;
   for (auto const& [vrf, ns] : cfg.vrfNetns) os << "vrf " << vrf << " netns " << ns << "\n";
   if (!cfg.ipRouting) os << "no ip routing\n";
   if (!cfg.mplsIp) os << "no mpls ip\n";
   if (cfg.labelRangeBase != d.labelRangeBase || cfg.labelRangeSize != d.labelRangeSize)
      os << "mpls label range " << cfg.labelRangeBase << " " << cfg.labelRangeSize << "\n";
   for (auto const& m : cfg.managementIntf) os << "management interface " << m << "\n";
   for (auto const& [name, entries] : cfg.prefixLists) {
      for (auto const& [seq, e] : entries) {
         os << "ip prefix-list " << name << " seq " << seq << (e.permit ? " permit " : " deny ")
            << e.prefix.v4Prefix() << "\n";
      }
   }
   for (auto const& intf : cfg.mplsDisabledIntf)
      os << "interface " << intf << "\n   no mpls ip\n!\n";
   for (auto const& [name, pw] : cfg.pseudowires) {
      os << "pseudowire " << name << "\n";
      if (!pw.neighbor.isZero())
         os << "   neighbor " << pw.neighbor << " pw-id " << pw.pwId << "\n";
      if (pw.type == Pseudowire::pwTypeEthernetTagged_) os << "   pw-type ethernet-vlan\n";
      if (pw.mtu != PseudowireConfig().mtu) os << "   mtu " << pw.mtu << "\n";
      if (pw.controlWord) os << "   control-word\n";
      if (!pw.pwStatusTlv) os << "   no pw-status-tlv\n";
      if (pw.shutdown) os << "   shutdown\n";
      os << "!\n";
   }
   for (auto const& [vrf, l] : cfg.ldp) {
      os << "mpls ldp";
      if (vrf != L3::defaultVrfName()) os << " vrf " << vrf;
      os << "\n";
      if (!l.routerId.isZero()) os << "   router-id " << l.routerId << "\n";
      if (!l.routerIdIntf.empty()) os << "   router-id interface " << l.routerIdIntf << "\n";
      if (!l.transportIntf.empty())
         os << "   transport-address interface " << l.transportIntf << "\n";
      for (auto const& n : l.targetedNeighbors) os << "   neighbor " << n << " targeted\n";
      if (!l.password.empty()) os << "   password " << l.password << "\n";
      if (l.helloHoldTime != ld.helloHoldTime)
         os << "   discovery hello hold-time " << l.helloHoldTime << "\n";
      if (l.helloInterval != ld.helloInterval)
         os << "   discovery hello interval " << l.helloInterval << "\n";
      if (l.targetedHelloHoldTime != ld.targetedHelloHoldTime)
         os << "   discovery targeted-hello hold-time " << l.targetedHelloHoldTime << "\n";
      if (l.targetedHelloInterval != ld.targetedHelloInterval)
         os << "   discovery targeted-hello interval " << l.targetedHelloInterval << "\n";
      if (l.keepAliveTime != ld.keepAliveTime)
         os << "   session keepalive " << l.keepAliveTime << "\n";
      if (l.labelDistCtrl == Ldp::orderedDistCtrl_) os << "   label distribution ordered\n";
      if (l.labelAdvDspl == Ldp::downstreamOnDemandAdvDspl_)
         os << "   label advertisement on-demand\n";
      if (l.labelRetention == Ldp::conservativeRetention_)
         os << "   label retention conservative\n";
      if (l.loopDetection) os << "   loop-detection\n";
      if (l.hopCountMax != ld.hopCountMax)
         os << "   hop-count-max " << unsigned(l.hopCountMax) << "\n";
      for (auto const& [p, label] : l.staticBindings)
         os << "   label binding " << p << " local "
            << (label == 3 ? std::string("implicit-null") : std::to_string(label)) << "\n";
      for (auto const& [p, rb] : l.staticRemoteBindings)
         os << "   label binding " << p << " remote "
            << (rb.label == 3 ? std::string("implicit-null") : std::to_string(rb.label))
            << " nexthop " << rb.nexthop << "\n";
      if (l.allPrefixes) os << "   label allocation all-prefixes\n";
      if (!l.fecFilterPrefixList.empty())
         os << "   fec filter prefix-list " << l.fecFilterPrefixList << "\n";
      if (l.linkReadyDelay != ld.linkReadyDelay)
         os << "   link-ready delay " << secondsText(l.linkReadyDelay) << "\n";
      if (l.linkReadyTimeout != ld.linkReadyTimeout)
         os << "   link-ready timeout " << secondsText(l.linkReadyTimeout) << "\n";
      if (l.shutdown) os << "   shutdown\n";
      os << "!\n";
   }
   return os.str();
}

}  // namespace Host

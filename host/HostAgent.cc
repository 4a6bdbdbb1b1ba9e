#include "host/HostAgent.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "host/Show.h"
#include "runtime/vek/EventLog.h"
#include "runtime/vek/Trace.h"

namespace Host {

namespace {

std::vector<std::string> splitWords(std::string const& s) {
   std::vector<std::string> out;
   std::istringstream in(s);
   std::string w;
   while (in >> w) out.push_back(w);
   return out;
}

bool readFile(std::string const& path, std::string* text, std::string* reason) {
   std::ifstream in(path);
   if (!in) {
      *reason = "can't read " + path + ": " + strerror(errno);
      return false;
   }
   std::ostringstream os;
   os << in.rdbuf();
   *text = os.str();
   return true;
}

std::string errorsText(std::vector<ConfigError> const& errors, std::string const& where) {
   std::string out;
   for (auto const& e : errors) out += where + e.str() + "\n";
   return out;
}

}  // namespace

std::string agentUsage() {
   return "usage: ldp-agent --config FILE [--socket PATH] [--state-dir DIR] [--trace FILE]\n"
          "                 [--trace-level MODULE=N ...] [--event-log FILE [--event-log-size BYTES]]\n"
          "  --config FILE        the configuration (see examples/ldp.conf)\n"
          "  --socket PATH        the control socket of ldpctl (default " +
          std::string(defaultSocketPath) +
          ")\n"
          "  --state-dir DIR      what survives a restart (default " +
          std::string(defaultStateDir) +
          ")\n"
          "  --trace FILE         the text trace ('-' for standard error)\n"
          "  --trace-level M=N    trace level 0-9 of module M ('*' for all)\n"
          "  --event-log FILE     the event monitor's lines, rotated to FILE.1 by size\n"
          "  --event-log-size N   the size at which the event log rotates (default 1 MiB)\n";
}

bool parseAgentOptions(std::vector<std::string> const& args, AgentOptions* opts,
                       std::string* error) {
   for (std::size_t i = 0; i < args.size(); ++i) {
      std::string const& a = args[i];
      auto value = [&](std::string* out) {
         if (i + 1 >= args.size() || args[i + 1].empty()) {
            *error = a + " needs a value";
            return false;
         }
         *out = args[++i];
         return true;
      };
      if (a == "--config") {
         if (!value(&opts->configFile)) return false;
      } else if (a == "--socket") {
         if (!value(&opts->socketPath)) return false;
      } else if (a == "--state-dir") {
         if (!value(&opts->stateDir)) return false;
      } else if (a == "--trace") {
         if (!value(&opts->traceFile)) return false;
      } else if (a == "--event-log") {
         if (!value(&opts->eventLogFile)) return false;
      } else if (a == "--event-log-size") {
         std::string v;
         if (!value(&v)) return false;
         std::size_t n = 0;
         auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), n);
         if (ec != std::errc() || p != v.data() + v.size() || n < 1024) {
            *error = "--event-log-size takes a number of bytes of at least 1024, not '" + v + "'";
            return false;
         }
         opts->eventLogMaxBytes = n;
      } else if (a == "--trace-level") {
         std::string v;
         if (!value(&v)) return false;
         auto eq = v.find('=');
         int level = -1;
         if (eq != std::string::npos && eq > 0) {
            auto [p, ec] = std::from_chars(v.data() + eq + 1, v.data() + v.size(), level);
            if (ec != std::errc() || p != v.data() + v.size()) level = -1;
         }
         if (level < 0 || level > 9) {
            *error = "--trace-level takes MODULE=N with N from 0 to 9, not '" + v + "'";
            return false;
         }
         opts->traceLevels.emplace_back(v.substr(0, eq), level);
      } else {
         *error = "unknown option '" + a + "'";
         return false;
      }
   }
   if (opts->configFile.empty()) {
      *error = "--config FILE is required";
      return false;
   }
   return true;
}

// ---- Event log file ----

RotatingFile::~RotatingFile() {
   if (f_) std::fclose(f_);
}

bool RotatingFile::open(std::string* reason) {
   f_ = std::fopen(path_.c_str(), "a");
   if (!f_) {
      *reason = "can't open the event log " + path_ + ": " + strerror(errno);
      return false;
   }
   std::setvbuf(f_, nullptr, _IOLBF, 0);
   struct stat st;
   size_ = ::stat(path_.c_str(), &st) == 0 ? std::size_t(st.st_size) : 0;
   return true;
}

void RotatingFile::line(std::string const& text) {
   if (!f_) return;
   if (size_ > 0 && size_ + text.size() + 1 > maxBytes_) {
      std::fclose(f_);
      ::rename(path_.c_str(), (path_ + ".1").c_str());
      f_ = std::fopen(path_.c_str(), "w");
      size_ = 0;
      if (!f_) return;
      std::setvbuf(f_, nullptr, _IOLBF, 0);
   }
   std::fputs(text.c_str(), f_);
   std::fputc('\n', f_);
   size_ += text.size() + 1;
}

// ---- State directory ----

bool StateDir::open(std::string* reason) {
   if (::mkdir(dir_.c_str(), 0700) != 0 && errno != EEXIST) {
      *reason = "can't make the state directory " + dir_ + ": " + strerror(errno);
      return false;
   }
   return true;
}

U32 StateDir::numStartups() const {
   std::ifstream in(dir_ + "/agent-status");
   std::string key;
   U32 n = 0;
   while (in >> key) {
      if (key == "numStartups") in >> n;
   }
   return n;
}

bool StateDir::numStartupsIs(U32 n, std::string* reason) const {
   // Written whole or not at all: a new file moved over the old one.
   std::string tmp = dir_ + "/agent-status.new";
   {
      std::ofstream out(tmp, std::ios::trunc);
      out << "numStartups " << n << "\n";
      if (!out) {
         *reason = "can't write " + tmp;
         return false;
      }
   }
   if (::rename(tmp.c_str(), (dir_ + "/agent-status").c_str()) != 0) {
      *reason = "can't replace the agent status: " + std::string(strerror(errno));
      return false;
   }
   return true;
}

// One line per labelled FEC of the default VRF: what the FEC database held of
// it (delivery type, memberships, filtered state, vias) and its local labels,
// so that a restarted agent finds the FEC asking for the labels it had.
//   fec PREFIX TYPE MEMBERSHIPS FILTERED LABELS VIAS
// with LABELS and VIAS lists joined by commas, a via as INTF@ADDR.
void StateDir::saveLabelState(Ombra::Store const& store) const {
   auto coll = store.get<Ldp::LdpStatusColl>("mpls/ldp/ldpStatusColl");
   auto st = coll ? coll->status(L3::defaultVrfName()) : nullptr;
   std::string tmp = dir_ + "/labels.new";
   {
      std::ofstream out(tmp, std::ios::trunc);
      if (st && st->localLabelAllocTable() && st->ldpFecConfigColl()) {
         auto const* fecs = st->ldpFecConfigColl().ptr();
         for (auto it = st->localLabelAllocTable()->bindingIter(); it; ++it) {
            auto const* c = fecs->fecConfigFind(it.key());
            if (!c || it.value().mplsLabelSize() == 0 || it.key().af() != Nolu::ipv4_) continue;
            U32 members = 0;
            for (U8 m = 0; m < 4; ++m)
               if (c->membershipHas(Ldp::LdpFecConfigMembership(m))) members |= 1u << m;
            out << "fec " << it.key().prefix() << " " << int(c->ldpFecDeliveryType()) << " "
                << members << " " << int(c->fecFilteredState()) << " ";
            char const* sep = "";
            for (auto l = it.value().mplsLabelIter(); l; ++l, sep = ",") out << sep << l.key().value();
            out << " ";
            sep = "";
            for (auto v = c->viaIter(); v; ++v, sep = ",")
               out << sep << v.key().intfId().name() << "@" << v.key().addr();
            out << (c->viaSize() ? "" : "-") << "\n";
         }
      }
      if (!out) return;
   }
   ::rename(tmp.c_str(), (dir_ + "/labels").c_str());
}

void StateDir::loadLabelState(Ombra::Store& store) const {
   std::ifstream in(dir_ + "/labels");
   if (!in) return;
   auto coll = Vek::Ptr<Ldp::LdpStatusColl>(dynamic_cast<Ldp::LdpStatusColl*>(
      store.entityFindOrNew("mpls/ldp/ldpStatusColl", "Ldp::LdpStatusColl").ptr()));
   if (!coll) return;
   // The children by the names the agent gives them, so that it takes them on.
   auto st = coll->statusIs(L3::defaultVrfName());
   Mpls::RouterId ldpRouter(0, 0);
   auto fecs = st->ldpFecConfigCollIs("lfcc");
   auto requests = st->labelAllocRequestTableIs("lart");
   auto labels = st->localLabelAllocTableIs("llat", ldpRouter);
   std::string line;
   while (std::getline(in, line)) {
      std::istringstream ls(line);
      std::string word, prefix, labelList, viaList;
      int type = 0, filtered = 0;
      U32 members = 0;
      if (!(ls >> word >> prefix >> type >> members >> filtered >> labelList >> viaList)) continue;
      auto p = Nolu::Prefix::fromString(prefix);
      if (word != "fec" || !p || type < 1 || type > 3 || filtered < 0 || filtered > 2) continue;
      Mpls::FwdEqvClass fec(*p);
      auto c = fecs->fecConfigIs(fec);
      c->ldpFecDeliveryTypeIs(Ldp::LdpFecDeliveryType(type));
      c->fecFilteredStateIs(Mpls::FecFilteredState(filtered));
      for (U8 m = 0; m < 4; ++m)
         if (members & (1u << m)) c->membershipIs(Ldp::LdpFecConfigMembership(m), true);
      std::istringstream vs(viaList == "-" ? std::string() : viaList);
      for (std::string v; std::getline(vs, v, ',');) {
         auto at = v.find('@');
         auto addr = at == std::string::npos ? std::nullopt
                                             : Nolu::IpGenAddr::fromString(v.substr(at + 1));
         if (addr) c->viaIs(Ldp::Via(*addr, Nolu::IntfId(v.substr(0, at))), true);
      }
      auto r = requests->labelBindingRequestIs(fec);
      r->numLabelsRequestedIs(1);
      r->ldpFecDeliveryTypeIs(Ldp::LdpFecDeliveryType(type));
      auto b = labels->bindingIs(fec);
      std::istringstream lsv(labelList);
      for (std::string l; std::getline(lsv, l, ',');) {
         U32 v = 0;
         auto [e, ec] = std::from_chars(l.data(), l.data() + l.size(), v);
         if (ec == std::errc() && e == l.data() + l.size() && v <= Nolu::MplsLabel::max)
            b->mplsLabelIs(Nolu::MplsLabel(v), true);
      }
      if (b->mplsLabelSize() == 0) labels->bindingDel(fec);
   }
}

// ---- VRFs ----

HostVrfManager::HostVrfManager(Vek::Ptr<Ombra::Store> const& store, KernelTargets defaultTargets)
   : store_(store), default_(std::move(defaultTargets)) {
   allVrf_ = Vek::Ptr<Ip::AllVrfStatusLocal>(dynamic_cast<Ip::AllVrfStatusLocal*>(
      store_->entityFindOrNew(Cell::path("ip/vrf/status/local"), "Ip::AllVrfStatusLocal").ptr()));
}

HostVrfManager::~HostVrfManager() {
   Vek::activityManager()->timerStop(this);
   for (auto& [name, v] : vrfs_) {
      if (v.watcher) v.watcher->writer()->clear();
   }
}

bool HostVrfManager::startDefault(std::string* reason) {
   defaultWatcher_ = std::make_unique<KernelWatcher>(
      Nolu::NamespaceName(), std::make_unique<KernelStateWriter>(L3::defaultVrfName(), default_));
   if (!defaultWatcher_->start(reason)) return false;
   defaultWatcher_->syncInitial(3.0);
   return true;
}

KernelWatcher* HostVrfManager::watcher(std::string const& vrf) const {
   if (vrf == L3::defaultVrfName()) return defaultWatcher_.get();
   auto it = vrfs_.find(vrf);
   return it == vrfs_.end() ? nullptr : it->second.watcher.get();
}

bool HostVrfManager::tryStart(std::string const& name, Vrf& v) {
   KernelTargets t;
   t.kni = default_.kni;
   t.ipStatus = default_.ipStatus;
   t.routeStatus = Vek::Ptr<Tesh::Fib::RouteStatus>(dynamic_cast<Tesh::Fib::RouteStatus*>(
      store_->entityFindOrNew("routing/vrf/status/" + name, "Tesh::Fib::RouteStatus").ptr()));
   t.forwardingStatus =
      Vek::Ptr<Tesh::Fib::ForwardingStatus>(dynamic_cast<Tesh::Fib::ForwardingStatus*>(
         store_->entityFindOrNew("forwarding/vrf/status/" + name, "Tesh::Fib::ForwardingStatus")
            .ptr()));
   auto w = std::make_unique<KernelWatcher>(
      Nolu::NamespaceName(v.netns), std::make_unique<KernelStateWriter>(name, t, v.slot << 24));
   std::string reason;
   auto vs = allVrf_->vrfIs(name);
   vs->netNsIs(Nolu::NamespaceName(v.netns));
   if (!w->start(&reason)) {
      vs->stateIs(Ip::vrfInactive_);
      return false;
   }
   w->syncInitial(3.0);
   v.watcher = std::move(w);
   vs->stateIs(Ip::vrfActive_);
   return true;
}

void HostVrfManager::vrfNetnsIs(std::map<std::string, std::string> const& vrfNetns) {
   for (auto it = vrfs_.begin(); it != vrfs_.end();) {
      auto n = vrfNetns.find(it->first);
      if (n != vrfNetns.end() && n->second == it->second.netns) {
         ++it;
         continue;
      }
      // Gone, or moved to another namespace: everything of it goes.
      allVrf_->vrfDel(it->first);
      if (it->second.watcher) it->second.watcher->writer()->clear();
      it = vrfs_.erase(it);
   }
   bool pending = false;
   for (auto const& [name, ns] : vrfNetns) {
      if (vrfs_.count(name)) {
         pending |= !vrfs_[name].watcher;
         continue;
      }
      Vrf& v = vrfs_[name];
      v.netns = ns;
      v.slot = nextSlot_++;
      pending |= !tryStart(name, v);
   }
   if (pending && !timedArmed())
      Vek::activityManager()->timerArm(this, Vek::System::currentTime() + retryInterval);
}

void HostVrfManager::timedRun() {
   bool pending = false;
   for (auto& [name, v] : vrfs_) {
      if (!v.watcher) pending |= !tryStart(name, v);
   }
   if (pending) Vek::activityManager()->timerArm(this, Vek::System::currentTime() + retryInterval);
}

// ---- The daemon ----

namespace {

// Ends the reserve phase of label allocation once the default VRF's root has
// claimed the labels of the last run from its label block (or, without LDP in
// it or without a block, after a while),
// and keeps the label state on disk every half minute.
class LabelStateKeeper : private Vek::Timed {
 public:
   LabelStateKeeper(Ldp::Agent* agent, StateDir const* state, Ombra::Store const* store)
      : agent_(agent), state_(state), store_(store), start_(Vek::System::currentTime()) {
      Vek::activityManager()->timerArm(this, start_ + 0.1);
   }
   ~LabelStateKeeper() override { Vek::activityManager()->timerStop(this); }

 private:
   void timedRun() override {
      Vek::Seconds now = Vek::System::currentTime();
      auto rs = agent_->ldpRootSm();
      auto root = rs ? rs->ldpRoot(L3::defaultVrfName()) : nullptr;
      // The labels are claimed once the root's allocator has its block.
      bool claimed = root && root->ldpLabelAllocSm() && root->ldpLabelAllocSm()->allocReady();
      if (!ended_ && rs && (claimed || now - start_ > maxHold)) {
         rs->reservePhaseEnd();
         ended_ = true;
         lastSave_ = now;
      }
      if (ended_ && now - lastSave_ >= saveInterval) {
         state_->saveLabelState(*store_);
         lastSave_ = now;
      }
      Vek::activityManager()->timerArm(this, now + (ended_ ? saveInterval : 0.1));
   }
   static constexpr Vek::Seconds maxHold = 10.0;
   static constexpr Vek::Seconds saveInterval = 30.0;
   Ldp::Agent* agent_;
   StateDir const* state_;
   Ombra::Store const* store_;
   Vek::Seconds start_;
   Vek::Seconds lastSave_ = 0.0;
   bool ended_ = false;
};

// The daemon's parts and its answers to ldpctl.
class AgentHost {
 public:
   explicit AgentHost(AgentOptions const& o) : opts_(o) {}
   int run();

 private:
   ControlReply handle(std::string const& command, std::string const& text);
   ControlReply clear(std::vector<std::string> const& w);
   ControlReply write();
   Ldp::Agent const* agent() const { return agent_.ptr(); }

   AgentOptions opts_;
   Vek::Ptr<Ombra::Store> store_;
   std::unique_ptr<AgentBase::AgentRunner> runner_;
   Vek::Ptr<Ldp::Agent> agent_;
   Vek::Ptr<LabelBlockResponderSm> responder_;
   std::unique_ptr<ConfigApplier> applier_;
   std::unique_ptr<HostVrfManager> vrfs_;
   std::unique_ptr<ControlServer> control_;
   Vek::Ptr<MplsForwardingSm> forwarding_;
   std::unique_ptr<RotatingFile> eventLog_;
   U64 commandId_ = 0;
};

class SignalWatcher : public Vek::FdHandler {
 public:
   bool start() {
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, SIGTERM);
      sigaddset(&set, SIGINT);
      if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) return false;
      fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
      if (fd_ < 0) return false;
      Vek::activityManager()->fdIs(fd_, this, true, false);
      return true;
   }
   ~SignalWatcher() override {
      if (fd_ >= 0) {
         Vek::activityManager()->fdDel(fd_);
         ::close(fd_);
      }
   }
   void onFdEvent(U32) override {
      signalfd_siginfo si;
      while (::read(fd_, &si, sizeof(si)) == sizeof(si)) {
         signo = int(si.ssi_signo);
         Vek::activityManager()->stop();
      }
   }
   int signo = 0;

 private:
   int fd_ = -1;
};

int syslogPriority(Vek::EventLogSeverity s) {
   switch (s) {
      case Vek::EventLogSeverity::error:
         return LOG_ERR;
      case Vek::EventLogSeverity::warning:
         return LOG_WARNING;
      case Vek::EventLogSeverity::notice:
         return LOG_NOTICE;
      default:
         return LOG_INFO;
   }
}

ControlReply AgentHost::clear(std::vector<std::string> const& w) {
   std::string vrf = L3::defaultVrfName();
   std::vector<std::string> a;
   for (std::size_t i = 1; i < w.size(); ++i) {
      if (w[i] == "vrf" && i + 1 < w.size())
         vrf = w[++i];
      else
         a.push_back(w[i]);
   }
   auto cfg = applier_->targets().ldpConfigColl->config(vrf);
   if (!cfg) return {false, "LDP is not configured in VRF " + vrf + "\n"};
   Vek::Seconds now = Vek::System::currentTime();
   if (a.size() == 2 && a[0] == "neighbor") {
      auto id = Ldp::LdpIdentifier::fromString(a[1]);
      if (!id) {
         if (auto ip = Nolu::IpAddr::fromString(a[1])) id = Ldp::LdpIdentifier(*ip, 0);
      }
      if (!id) return {false, "'" + a[1] + "' is not an LDP id A.B.C.D or A.B.C.D:N\n"};
      cfg->ldpNeighborClearRequestIs(*id, now);
      return {true, "clearing neighbor " + id->stringValue() + "\n"};
   }
   if (a.size() == 1 && a[0] == "router-id") {
      cfg->forceRouterIdIs(now);
      return {true, "router id of VRF " + vrf + " chosen again\n"};
   }
   return {false, "usage: clear neighbor A.B.C.D [vrf NAME] | clear router-id [vrf NAME]\n"};
}

// Saves the running configuration over the file that the agent started with,
// so that changes made with ldpctl survive a restart.
ControlReply AgentHost::write() {
   std::string tmp = opts_.configFile + ".new";
   {
      std::ofstream out(tmp, std::ios::trunc);
      out << renderConfig(applier_->running());
      if (!out) return {false, "can't write " + tmp + "\n"};
   }
   if (::rename(tmp.c_str(), opts_.configFile.c_str()) != 0)
      return {false, "can't replace " + opts_.configFile + ": " + strerror(errno) + "\n"};
   return {true, "configuration saved to " + opts_.configFile + "\n"};
}

ControlReply AgentHost::handle(std::string const& command, std::string const& text) {
   auto w = splitWords(command);
   bool json = false;
   std::erase_if(w, [&](std::string const& x) { return x == "--json" ? (json = true) : false; });
   if (w.empty()) return {false, "empty command\n"};
   std::string const& verb = w[0];
   if (verb == "ping") return {true, "pong\n"};
   if (verb == "show") {
      ShowContext ctx{agent(), applier_.get(), forwarding_.ptr()};
      std::string out;
      bool ok = runShow(std::vector<std::string>(w.begin() + 1, w.end()), json, ctx, &out);
      if (!ok) out += "\n";
      return {ok, out};
   }
   if (verb == "config" || verb == "apply") {
      std::vector<ConfigError> errors;
      if (!applier_->applyText(text, verb == "apply", errors))
         return {false, errorsText(errors, "") + "nothing was changed\n"};
      return {true, ""};
   }
   if (verb == "clear") return clear(w);
   if (verb == "write") return write();
   if (verb == "DUMP_SCHEDSTATS") {
      auto* dir = agent_->ldpRootSm()->cliRequestDirSm();
      if (!dir) return {false, "the agent has no command directory\n"};
      return {true, dir->doCommand(std::to_string(++commandId_), command) + "\n"};
   }
   return {false, "unknown command '" + verb +
                     "'; the commands are show, config, apply, write, clear, DUMP_SCHEDSTATS\n"};
}

int AgentHost::run() {
   std::string reason;
   std::string text;
   if (!readFile(opts_.configFile, &text, &reason)) {
      std::cerr << "ldp-agent: " << reason << "\n";
      return 2;
   }
   {
      HostConfig probe;
      std::vector<ConfigError> errors;
      if (!parseConfig(text, probe, errors)) {
         std::cerr << errorsText(errors, opts_.configFile + ": ");
         return 2;
      }
   }
   StateDir state(opts_.stateDir);
   if (!state.open(&reason)) {
      std::cerr << "ldp-agent: " << reason << "\n";
      return 2;
   }

   Vek::ActivityManager am(Vek::ActivityManager::realTime);
   Vek::activityManagerIs(&am);
   std::FILE* traceFile = nullptr;
   if (!opts_.traceFile.empty()) {
      traceFile = opts_.traceFile == "-" ? stderr : std::fopen(opts_.traceFile.c_str(), "a");
      if (!traceFile) {
         std::cerr << "ldp-agent: can't open the trace " << opts_.traceFile << "\n";
         return 2;
      }
      // Line by line, so that the trace is readable while the agent runs.
      std::setvbuf(traceFile, nullptr, _IOLBF, 0);
      Vek::traceFileIs(traceFile);
   }
   for (auto const& [module, level] : opts_.traceLevels) {
      if (!Vek::traceLevelIs(module, level)) {
         std::cerr << "ldp-agent: no trace module '" << module << "'; the modules are:";
         for (auto* h : Vek::traceHandles()) std::cerr << " " << h->module();
         std::cerr << "\n";
         return 2;
      }
   }
   ::openlog("ldp-agent", LOG_PID, LOG_DAEMON);
   Vek::eventLogSinkIs([](Vek::EventLogRecord const& r) {
      ::syslog(syslogPriority(r.severity), "%%%s: %s", r.name.c_str(), r.text.c_str());
      Vek::eventLogToStderr(r);
   });
   ::signal(SIGPIPE, SIG_IGN);

   // The store keeps the start count of the last run, so that the agent knows
   // this is a restart.
   Ldp::entityTypesRegister();
   store_ = new Ombra::Store;
   auto agentStatus = Vek::Ptr<Ldp::LdpAgentStatus>(dynamic_cast<Ldp::LdpAgentStatus*>(
      store_->entityFindOrNew("mpls/ldp/ldpAgentStatus", "Ldp::LdpAgentStatus").ptr()));
   agentStatus->numStartupsIs(state.numStartups());
   state.loadLabelState(*store_);

   // The reserve phase lasts until the configuration and the routes are in
   // and the default VRF's root has claimed the labels of the last run.
   Ldp::Agent::holdReservePhaseIs(true);
   runner_ = std::make_unique<AgentBase::AgentRunner>(store_);
   if (!runner_->start(Ldp::agentFactory, "LdpAgent")) {
      std::cerr << "ldp-agent: the agent's mounts failed\n";
      return 1;
   }
   agent_ = Vek::ptr_cast<Ldp::Agent>(runner_->agent());
   if (!opts_.eventLogFile.empty()) {
      eventLog_ = std::make_unique<RotatingFile>(opts_.eventLogFile, opts_.eventLogMaxBytes);
      if (!eventLog_->open(&reason)) {
         std::cerr << "ldp-agent: " << reason << "\n";
         return 2;
      }
      // What the monitor wrote while the agent started, then every line.
      for (auto const& l : agent_->ldpEventMonLog()->lines()) eventLog_->line(eventLineText(l));
      RotatingFile* f = eventLog_.get();
      agent_->ldpEventMonLog()->sinkIs(
         [f](Ldp::LdpEventMonLog::Line const& l) { f->line(eventLineText(l)); });
   }
   if (!state.numStartupsIs(agent_->ldpAgentStatus()->numStartups(), &reason))
      std::cerr << "ldp-agent: " << reason << "\n";

   // The kernel's view of the namespace we run in: the default VRF.
   KernelTargets def;
   def.kni = Vek::ptr_const_cast<KernelNetInfo::Status>(agent_->kniStatus());
   def.ipStatus = Vek::ptr_const_cast<Ip::Status>(agent_->ipStatus());
   def.routeStatus = Vek::ptr_const_cast<Tesh::Fib::RouteStatus>(agent_->routeStatus());
   def.forwardingStatus =
      Vek::ptr_const_cast<Tesh::Fib::ForwardingStatus>(agent_->forwardingStatus());
   vrfs_ = std::make_unique<HostVrfManager>(store_, def);
   if (!vrfs_->startDefault(&reason)) {
      std::cerr << "ldp-agent: can't watch the kernel: " << reason << "\n";
      return 1;
   }

   responder_ = LabelBlockResponderSm::LabelBlockResponderSmIs(
      "ldp", agent_->mplsLabelRequest(),
      Vek::ptr_const_cast<Mpls::Api::Status>(agent_->mplsAgentStatus()));
   ConfigTargets targets = ConfigTargets::fromStore(store_);
   targets.labelBlockResponder = responder_;
   HostVrfManager* vm = vrfs_.get();
   targets.vrfNetnsIs = [vm](std::map<std::string, std::string> const& m) { vm->vrfNetnsIs(m); };
   applier_ = std::make_unique<ConfigApplier>(targets);
   forwarding_ = Vek::Ptr<MplsForwardingSm>(new MplsForwardingSm(store_, agent_.ptr()));
   std::vector<ConfigError> errors;
   applier_->applyText(text, true, errors);

   control_ = std::make_unique<ControlServer>(
      [this](std::string const& c, std::string const& t) { return handle(c, t); });
   if (!control_->start(opts_.socketPath, &reason)) {
      std::cerr << "ldp-agent: " << reason << "\n";
      return 1;
   }
   auto keeper = std::make_unique<LabelStateKeeper>(agent_.ptr(), &state, store_.ptr());
   SignalWatcher signals;
   if (!signals.start()) {
      std::cerr << "ldp-agent: can't watch signals: " << strerror(errno) << "\n";
      return 1;
   }
   std::cerr << "ldp-agent: running, start " << agent_->ldpAgentStatus()->numStartups()
             << ", control socket " << opts_.socketPath << "\n";
   runner_->run();

   std::cerr << "ldp-agent: " << (signals.signo ? strsignal(signals.signo) : "stopped")
             << ", exiting\n";
   control_.reset();
   keeper.reset();
   // The kernel keeps no label route of a stopped agent.
   forwarding_->removeAll();
   forwarding_ = nullptr;
   agent_->ldpEventMonLog()->sinkIs(nullptr);
   state.saveLabelState(*store_);
   responder_ = nullptr;
   agent_ = nullptr;
   runner_->stop();
   vrfs_.reset();
   runner_.reset();
   ::closelog();
   Vek::eventLogSinkIs(Vek::eventLogToStderr);
   if (traceFile && traceFile != stderr) {
      Vek::traceFileIs(nullptr);
      std::fclose(traceFile);
   }
   Vek::activityManagerIs(nullptr);
   return 0;
}

}  // namespace

int runAgent(AgentOptions const& opts) {
   AgentHost host(opts);
   return host.run();
}

}  // namespace Host

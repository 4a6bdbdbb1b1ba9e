// Our agent against FRR's ldpd, on the same machine, in the same run, on the
// same work. Each scenario has three network namespaces: the LSR under test,
// its neighbour (FRR's ldpd and zebra, always), and a sink behind each of them
// that the routes point at. The LSR under test is our ldp-agent for one column
// and a second FRR (ldpd and zebra) for the other; nothing else changes.
//
// Times come from what the neighbour receives: a capture on its side of the
// link (dumpcap), read back by LdpCapture, or its own counters. Memory is the
// resident memory of the LSR under test's processes: all of ldpd's three, and
// zebra, through which FRR's routes reach it, in a column of its own.
//
// Rows:
//   1. route burst: N host routes added to the kernel at once with the session
//      up; the time from the end of the burst to the last Label Mapping of
//      them received, and how many of them were received.
//   2. session restart: with N FECs labelled, the session is cleared; the time
//      from the new session's first KeepAlive after Initialization to the PDU
//      with the last Label Mapping, from the capture.
//   3. receiving: the neighbour advertises N mappings; after the session is
//      cleared, the time from the new session's first KeepAlive to the LSR
//      under test holding all of them again (its show output), and its memory
//      growth from the first delivery.
//   4. memory at rest: resident memory growth with N FECs and one session,
//      per FEC.
//   5. sessions: bench_sessions (our agent alone, on virtual time), read from
//      its JSON output.
//
// Each figure comes from --runs runs: times the least (the machine is shared),
// counts the most, memory the median.
#include <sys/wait.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <set>

#include "bench/HostBench.h"
#include "bench/LdpCapture.h"
#include "tests/host/FrrHarness.h"

using namespace HostTest;

namespace {

// ---- Options ----

struct Options {
   std::vector<unsigned> sizes{10000, 100000};
   std::set<int> rows{1, 2, 3, 4, 5};
   int runs = 3;
   bool json = false;
   bool ours = true;
   bool frr = true;
   double stall = 15.0;  // no new mapping for this long: the neighbour has all it will get
   bool verbose = false;
};

int usage() {
   std::fprintf(stderr,
                "usage: ldp_vs_frr [--rows 1,2,3,4,5] [--n 10000,100000] [--runs N] [--json]\n"
                "                  [--only ours|frr] [--stall SECONDS] [--verbose]\n"
                "Runs as root; uses build/ldp-agent, build/ldpctl, build/bench/bench_sessions,\n"
                "FRR's zebra and ldpd, vtysh, ip and dumpcap. Builds nothing.\n");
   return 2;
}

Options opt;

void note(char const* fmt, std::string const& a = "", double x = 0.0) {
   if (!opt.verbose) return;
   std::fprintf(stderr, fmt, a.c_str(), x);
   std::fputc('\n', stderr);
}

void pause(double s) { std::this_thread::sleep_for(std::chrono::milliseconds(long(s * 1000))); }

// ---- Processes in a namespace and their memory ----

struct Memory {
   double ldp = 0;    // bytes resident: our agent, or ldpd's processes
   double zebra = 0;  // FRR's zebra, when it is there
};

Memory memoryOf(std::string const& ns) {
   Memory m;
   for (auto const& p : netnsProcesses(ns)) {
      if (p.comm == "ldpd" || p.comm == "ldp-agent")
         m.ldp += p.resident;
      else if (p.comm == "zebra")
         m.zebra += p.resident;
   }
   return m;
}

// ---- A capture on the neighbour's side ----

class Capture {
 public:
   Capture(std::string ns, std::string intf, std::string path)
      : ns_(std::move(ns)), intf_(std::move(intf)), path_(std::move(path)) {}
   ~Capture() { stop(); }
   bool start() {
      unlink(path_.c_str());
      pid_ = fork();
      if (pid_ == 0) {
         int null = open("/dev/null", O_WRONLY);
         dup2(null, 1);
         dup2(null, 2);
         execlp("ip", "ip", "netns", "exec", ns_.c_str(), "dumpcap", "-q", "-P", "-i",
                intf_.c_str(), "-f", "tcp port 646", "-B", "64", "-w", path_.c_str(),
                static_cast<char*>(nullptr));
         _exit(127);
      }
      // dumpcap writes the file's header once it captures.
      bool ok = waitFor([&] { return slurp(path_).size() >= 24; }, 10.0);
      pause(0.3);
      return ok;
   }
   void stop() {
      if (pid_ <= 0) return;
      pause(0.3);  // what is on its way
      kill(pid_, SIGTERM);
      int st;
      waitpid(pid_, &st, 0);
      pid_ = -1;
   }
   Bench::LdpCapture read() {
      stop();
      Bench::LdpCapture c;
      c.read(path_);
      return c;
   }

 private:
   std::string ns_, intf_, path_;
   pid_t pid_ = -1;
};

// ---- The topology ----

constexpr char kLut[] = "ldpb-lut";
constexpr char kNb[] = "ldpb-nb";
constexpr char kSinkL[] = "ldpb-sl";
constexpr char kSinkN[] = "ldpb-sn";
constexpr uint32_t kLutId = 0x01010101;  // 1.1.1.1, below the neighbour: passive
constexpr char kLutIdStr[] = "1.1.1.1";
constexpr char kNbIdStr[] = "2.2.2.2";

// The host routes of a scenario: base + i, /32.
uint32_t routeAddr(uint32_t base, unsigned i) { return base + i; }
constexpr uint32_t kLutRoutes = 30u << 24;  // behind the LSR under test
constexpr uint32_t kNbRoutes = 40u << 24;   // behind the neighbour

struct Topology {
   Netns lut{kLut}, nb{kNb}, sinkL{kSinkL}, sinkN{kSinkN};
   bool ok = false;
   Topology() {
      ok = lut.ok() && nb.ok() && sinkL.ok() && sinkN.ok() &&
           lut.ip(std::string("link add va type veth peer name vb netns ") + kNb) &&
           lut.ip(std::string("link add vx type veth peer name vy netns ") + kSinkL) &&
           nb.ip(std::string("link add vz type veth peer name vw netns ") + kSinkN) &&
           lut.ip("addr add 1.1.1.1/32 dev lo") && nb.ip("addr add 2.2.2.2/32 dev lo") &&
           lut.ip("addr add 10.0.0.1/24 dev va") && nb.ip("addr add 10.0.0.2/24 dev vb") &&
           lut.ip("addr add 10.9.0.1/24 dev vx") && sinkL.ip("addr add 10.9.0.2/24 dev vy") &&
           nb.ip("addr add 10.8.0.1/24 dev vz") && sinkN.ip("addr add 10.8.0.2/24 dev vw") &&
           lut.ip("link set va up") && nb.ip("link set vb up") && lut.ip("link set vx up") &&
           sinkL.ip("link set vy up") && nb.ip("link set vz up") && sinkN.ip("link set vw up") &&
           lut.ip("route add 2.2.2.2/32 via 10.0.0.2") && nb.ip("route add 1.1.1.1/32 via 10.0.0.1");
   }
};

std::string frrConfig(char const* id, char const* intf) {
   return std::string("hostname frr\nmpls ldp\n router-id ") + id +
          "\n address-family ipv4\n  discovery transport-address " + id + "\n  interface " + intf +
          "\n  !\n exit-address-family\n !\n!\n";
}

// FRR's counter of messages of a kind received from or sent to a neighbour,
// or -1 without a session.
long frrCounter(FrrRouter const& r, char const* neighbour, char const* dir, char const* kind) {
   Json j = r.show("show mpls ldp neighbor detail json");
   Json const& n = j[neighbour];
   if (n.isNull()) return -1;
   for (auto const& e : n[dir].a)
      if (!e[kind].isNull()) return long(e[kind].n);
   return -1;
}

// ---- The LSR under test ----

class Lut {
 public:
   virtual ~Lut() = default;
   virtual bool start(std::string const& dir) = 0;
   virtual bool clearSession() = 0;
   // Label Mappings received on the current session, or -1 without one.
   virtual long mappingsRx() = 0;
   // Whether it holds the neighbour's label for the prefix.
   virtual bool holds(std::string const& prefix) = 0;
   // Whether the counter of mappings goes on across sessions.
   virtual bool countersAccumulate() const = 0;
   // FECs with a local label, or -1 where it can't say cheaply.
   virtual long labelledFecs() { return -1; }
};

class OurLut : public Lut {
 public:
   bool start(std::string const& dir) override {
      agent_ = std::make_unique<AgentProc>(kLut, dir, "ours");
      agent_->configIs(
         "mpls label range 100000 400000\n"
         "mpls ldp\n   router-id interface lo\n!\ninterface vx\n   no mpls ip\n!\n");
      return agent_->start();
   }
   bool clearSession() override {
      return agent_->ctl({"clear", "neighbor", kNbIdStr}).code == 0;
   }
   long mappingsRx() override {
      Json j = agent_->show({"mpls", "ldp", "neighbor"});
      for (auto const& n : j["vrfs"]["default"]["neighbors"].a)
         if (n["peerLdpId"].str() == std::string(kNbIdStr) + ":0" &&
             n["state"].str() == "operational")
            return long(n["counters"]["messagesRx"]["LdpLabelMapping"].n);
      return -1;
   }
   bool holds(std::string const& prefix) override {
      // The peer's labels of a FEC, where the agent shows them; an agent
      // without the command has only its counter to say it.
      RunResult r = agent_->ctl({"show", "mpls", "ldp", "bindings", prefix, "--json"});
      if (r.code != 0) return true;
      for (auto const& b : parseJson(r.out)["vrfs"]["default"].a)
         for (auto const& l : b["remoteLabels"].a)
            if (l["peer"].str().rfind(kNbIdStr, 0) == 0 && !l["label"].isNull()) return true;
      return false;
   }
   // A session's statistics live as long as its peer: a cleared session
   // counts on.
   bool countersAccumulate() const override { return true; }
   long labelledFecs() override {
      Json j = agent_->show({"mpls", "ldp", "label-allocation"});
      return j["inUse"].isNull() ? -1 : long(j["inUse"].n);
   }

 private:
   std::unique_ptr<AgentProc> agent_;
};

class FrrLut : public Lut {
 public:
   bool start(std::string const& dir) override {
      frr_ = std::make_unique<FrrRouter>(kLut, dir + "/frr-lut");
      return frr_->start(frrConfig(kLutIdStr, "va"));
   }
   bool clearSession() override {
      return run({"vtysh", "--vty_socket", dir(), "-c",
                  std::string("clear mpls ldp neighbor ") + kNbIdStr},
                 "/tmp")
                .code == 0;
   }
   long mappingsRx() override {
      return frrCounter(*frr_, kNbIdStr, "receivedMessages", "labelMapping");
   }
   bool holds(std::string const& prefix) override {
      Json j = frr_->show("show mpls ldp binding " + prefix + " json");
      for (auto const& b : j["bindings"].a)
         if (b["neighborId"].str() == kNbIdStr && b["remoteLabel"].str() != "-" &&
             !b["remoteLabel"].str().empty())
            return true;
      return false;
   }
   bool countersAccumulate() const override { return true; }
   std::string dir() const { return dirPath_; }
   FrrRouter& router() { return *frr_; }

 private:
   std::unique_ptr<FrrRouter> frr_;
   std::string dirPath_;

 public:
   void dirIs(std::string const& d) { dirPath_ = d + "/frr-lut"; }
};

std::unique_ptr<Lut> makeLut(bool ours, std::string const& dir) {
   if (ours) return std::make_unique<OurLut>();
   auto f = std::make_unique<FrrLut>();
   f->dirIs(dir);
   return f;
}

// ---- Figures ----

// One measured figure, or why there is none.
struct Fig {
   std::optional<double> v;
   std::string why;
};

struct RunFigures {
   std::map<std::string, Fig> f;
   void set(std::string const& k, double v) { f[k].v = v; }
   void fail(std::string const& k, std::string const& why) {
      if (!f[k].v) f[k].why = why;
   }
};

// How the runs' values of a row make its figure: times take the least (the
// machine is shared, and other work only adds), counts the most, memory the
// median.
enum class Agg { least, most, median };

// The runs' figure; the reason of the first run without one.
Fig aggregate(std::vector<RunFigures> const& runs, std::string const& k, Agg agg) {
   Fig out;
   std::vector<double> vs;
   for (auto const& r : runs) {
      auto it = r.f.find(k);
      if (it == r.f.end()) continue;
      if (it->second.v)
         vs.push_back(*it->second.v);
      else if (out.why.empty())
         out.why = it->second.why;
   }
   if (vs.empty()) return out;
   std::sort(vs.begin(), vs.end());
   out.v = agg == Agg::least ? vs.front() : agg == Agg::most ? vs.back() : vs[vs.size() / 2];
   return out;
}

// The neighbour and the LSR under test with their session up.
struct Rig {
   TempDir dir;
   Topology topo;
   FrrRouter nb{kNb, dir.path() + "/frr-nb"};
   std::unique_ptr<Lut> lut;
   std::string why;

   explicit Rig(bool ours) {
      if (!topo.ok) {
         why = "cannot make the namespaces";
         return;
      }
      sh("chmod 755 " + dir.path());
      lut = makeLut(ours, dir.path());
      if (!nb.start(frrConfig(kNbIdStr, "vb"))) {
         why = "FRR neighbour did not start";
         return;
      }
      if (!lut->start(dir.path())) {
         why = "LSR under test did not start";
         return;
      }
      if (!waitFor([&] { return nb.neighborState(kLutIdStr) == "OPERATIONAL"; }, 60.0)) {
         why = "no session";
         return;
      }
      pause(2.0);
   }
   long nbMappingsRx() { return frrCounter(nb, kLutIdStr, "receivedMessages", "labelMapping"); }
   // Waits until a counter stops growing for `stall` seconds or reaches
   // `target`; its last value.
   long settle(std::function<long()> const& counter, long target, double stall, double limit) {
      double end = wallNow() + limit, last = wallNow();
      long v = counter();
      while (wallNow() < end) {
         if (target >= 0 && v >= target) break;
         pause(0.1);
         long w = counter();
         if (w != v) {
            v = w;
            last = wallNow();
         } else if (wallNow() - last > stall)
            break;
      }
      return v;
   }
};

// The mappings from the LSR under test of the given route set, per connection.
struct Delivery {
   std::size_t distinct = 0;
   double last = 0.0;  // the time of the last one that was new
};

Delivery deliveryOf(Bench::LdpCapture const& c, std::size_t conn, uint32_t base, unsigned n) {
   std::vector<bool> seen(n);
   Delivery d;
   for (auto const& m : c.messages()) {
      if (m.type != 0x0400 || m.src != kLutId || (conn && m.conn != conn)) continue;
      for (uint64_t p : m.prefixes) {
         uint32_t a = uint32_t(p >> 8);
         if ((p & 255) != 32 || a < base || a >= base + n || seen[a - base]) continue;
         seen[a - base] = true;
         ++d.distinct;
         d.last = m.time;
      }
   }
   return d;
}

// The first KeepAlive after the last Initialization of the connection: the
// session becomes operational there.
std::optional<double> operationalAt(Bench::LdpCapture const& c, std::size_t conn) {
   std::optional<double> init, ka;
   for (auto const& m : c.messages()) {
      if (m.conn != conn) continue;
      if (m.type == 0x0200) init = m.time, ka.reset();
      if (m.type == 0x0201 && init && !ka) ka = m.time;
   }
   return ka;
}

constexpr char kNotBuilt[] = "no mappings sent (label distribution not built)";

// Rows 1, 4 and 2 on one rig: the burst, memory at rest, then the restart.
RunFigures runBurst(bool ours, unsigned n) {
   RunFigures f;
   std::string tag = "." + std::to_string(n);
   Rig rig(ours);
   if (!rig.why.empty()) {
      for (char const* k : {"burst", "restart", "rest"}) f.fail(k + tag, rig.why);
      return f;
   }
   // A working LSR advertises its loopback and link at once.
   bool sends = rig.nbMappingsRx() > 0;
   Memory before = memoryOf(kLut);
   std::string file = routeFile(rig.dir.path(), kLutRoutes, 0, n, "10.9.0.2");
   Capture cap(kNb, "vb", rig.dir.path() + "/burst.pcap");
   if (!cap.start()) {
      f.fail("burst" + tag, "dumpcap did not start");
      return f;
   }
   long base = rig.nbMappingsRx();
   double t0 = wallNow();
   sh("ip -n " + std::string(kLut) + " -batch " + file);
   double t1 = wallNow();
   note("burst of %s routes took %.3f s", std::to_string(n), t1 - t0);
   if (sends) {
      long got = rig.settle([&] { return rig.nbMappingsRx(); }, base + long(n), opt.stall, 180.0);
      note("neighbour counted %s mappings, %.0f of the burst", std::to_string(got), double(got - base));
   } else {
      // Nothing to wait for on the wire: the labels are the LSR's own.
      rig.settle([&] { return rig.lut->labelledFecs(); }, long(n), 5.0, 60.0);
   }
   Bench::LdpCapture c = cap.read();
   Delivery d = deliveryOf(c, 0, kLutRoutes, n);
   f.set("burst.end" + tag, t1 - t0);
   if (!sends || d.distinct == 0) {
      f.fail("burst" + tag, ours ? kNotBuilt : "no mappings received");
      f.fail("burst.count" + tag, ours ? kNotBuilt : "no mappings received");
   } else {
      f.set("burst.count" + tag, double(d.distinct));
      f.set("burst.start" + tag, d.last - t0);
      if (d.distinct == n)
         f.set("burst" + tag, d.last - t1);
      else
         f.fail("burst" + tag, "only " + std::to_string(d.distinct) + " of " + std::to_string(n) +
                                  " received");
   }

   // At rest: the FECs of the burst and one session. Per FEC that the LSR
   // has: FRR's may have lost some of the burst.
   pause(2.0);
   Memory after = memoryOf(kLut);
   long fecs = rig.lut->labelledFecs();
   double per = fecs > 0 ? double(std::min<long>(fecs, n)) : d.distinct ? double(d.distinct) : n;
   f.set("rest.total" + tag, after.ldp);
   f.set("rest" + tag, (after.ldp - before.ldp) / per);
   f.set("rest.zebra" + tag, (after.zebra - before.zebra) / per);

   // The session cleared: everything again on the new one.
   if (!sends) {
      f.fail("restart" + tag, ours ? kNotBuilt : "no mappings received");
      return f;
   }
   Capture cap2(kNb, "vb", rig.dir.path() + "/restart.pcap");
   if (!cap2.start() || !rig.lut->clearSession()) {
      f.fail("restart" + tag, "could not clear the session");
      return f;
   }
   waitFor([&] { return rig.nb.neighborState(kLutIdStr) != "OPERATIONAL"; }, 5.0);
   waitFor([&] { return rig.nb.neighborState(kLutIdStr) == "OPERATIONAL"; }, 60.0);
   rig.settle([&] { return rig.nbMappingsRx(); }, -1, 3.0, 120.0);
   Bench::LdpCapture c2 = cap2.read();
   std::size_t conn = c2.connections();
   auto op = operationalAt(c2, conn);
   Delivery d2 = deliveryOf(c2, conn, kLutRoutes, n);
   if (!op || d2.distinct == 0)
      f.fail("restart" + tag, "no new session in the capture");
   else {
      f.set("restart.count" + tag, double(d2.distinct));
      if (d2.distinct == d.distinct)
         f.set("restart" + tag, d2.last - *op);
      else
         f.fail("restart" + tag, "only " + std::to_string(d2.distinct) + " of " +
                                    std::to_string(d.distinct) + " again");
   }
   return f;
}

// Row 3: the neighbour advertises N mappings.
RunFigures runReceive(bool ours, unsigned n) {
   RunFigures f;
   std::string tag = "." + std::to_string(n);
   Rig rig(ours);
   if (!rig.why.empty()) {
      f.fail("receive" + tag, rig.why);
      return f;
   }
   Memory before = memoryOf(kLut);
   long base = rig.lut->mappingsRx();
   // In chunks, so that the neighbour's zebra loses none of them.
   constexpr unsigned chunk = 5000;
   for (unsigned from = 0; from < n; from += chunk) {
      std::string file = routeFile(rig.dir.path(), kNbRoutes, from, std::min(n, from + chunk),
                                   "10.8.0.2");
      sh("ip -n " + std::string(kNb) + " -batch " + file);
      pause(0.2);
   }
   long got = rig.settle([&] { return rig.lut->mappingsRx(); }, base + long(n), opt.stall, 300.0);
   pause(2.0);
   Memory after = memoryOf(kLut);
   f.set("receive.mem" + tag, (after.ldp - before.ldp) / n);
   f.set("receive.zebra" + tag, (after.zebra - before.zebra) / n);
   if (got - base < long(n)) {
      f.fail("receive" + tag, "first delivery: " + std::to_string(got - base) + " of " +
                                 std::to_string(n) + " mappings");
      return f;
   }
   std::string lastPrefix = ipStr(routeAddr(kNbRoutes, n - 1)) + "/32";
   // Cleared from the neighbour's side, so that both columns see the same.
   Capture cap(kNb, "vb", rig.dir.path() + "/receive.pcap");
   if (!cap.start() || run({"vtysh", "--vty_socket", rig.dir.path() + "/frr-nb", "-c",
                            std::string("clear mpls ldp neighbor ") + kLutIdStr},
                           "/tmp")
                             .code != 0) {
      f.fail("receive" + tag, "could not clear the session");
      return f;
   }
   // The session goes (the counter with it) and comes back.
   waitFor([&] { return rig.lut->mappingsRx() < 0; }, 5.0);
   // The new session brings everything the first brought, the link and
   // loopback FECs with the routes.
   long total = rig.lut->countersAccumulate() ? 2 * got : got;
   // Every 20 ms: the counter first, then the last prefix held.
   double done = 0;
   double end = wallNow() + 300.0;
   long now = -1;
   while (wallNow() < end) {
      now = rig.lut->mappingsRx();
      if (now >= total && rig.lut->holds(lastPrefix)) {
         done = wallNow();
         break;
      }
      pause(0.02);
   }
   Bench::LdpCapture c = cap.read();
   auto op = operationalAt(c, c.connections());
   // A failure says how far the second delivery got, to tell a lost
   // mapping from a counter that started over.
   if (!done)
      f.fail("receive" + tag, "not all held again: " + std::to_string(now) + " of " +
                                 std::to_string(total) + " mappings counted, last prefix " +
                                 (rig.lut->holds(lastPrefix) ? "held" : "not held"));
   else if (!op)
      f.fail("receive" + tag, "no new session in the capture");
   else
      f.set("receive" + tag, done - *op);
   return f;
}

// Row 5 from the simulation benchmark's JSON.
RunFigures runSessions() {
   RunFigures f;
   std::string bin = selfDir() + "/bench_sessions";
   if (access(bin.c_str(), X_OK) != 0) {
      f.fail("sessions.up", "needs " + bin);
      return f;
   }
   RunResult r = run({bin, "--benchmark_format=json"}, "/tmp");
   Json j = parseJson(r.out);
   for (auto const& b : j["benchmarks"].a) {
      if (b["run_type"].str() == "aggregate") continue;
      for (char const* k : {"up_s", "bytes_per_session", "steady_cpu_pct", "sessions"}) {
         if (b[k].isNull()) continue;
         f.set(std::string("sessions.") + k + "#" + std::to_string(f.f.size()), b[k].n);
      }
   }
   // The least of the repetitions of each counter.
   RunFigures out;
   for (char const* k : {"up_s", "bytes_per_session", "steady_cpu_pct", "sessions"}) {
      std::optional<double> m;
      for (auto const& [key, v] : f.f)
         if (key.rfind(std::string("sessions.") + k + "#", 0) == 0 && v.v)
            m = m ? std::min(*m, *v.v) : *v.v;
      if (m)
         out.set(std::string("sessions.") + k, *m);
      else
         out.fail(std::string("sessions.") + k, "bench_sessions gave no figure");
   }
   return out;
}

// ---- The table ----

struct Row {
   std::string name, unit, key;
   double scale;  // figure to unit
   bool lowerIsBetter = true;
   std::string target;
   Agg agg() const {
      if (!lowerIsBetter) return Agg::most;
      return unit == "ms" || unit == "s" ? Agg::least : Agg::median;
   }
};

std::string fmt(Fig const& f, double scale) {
   if (!f.v) return f.why.empty() ? "-" : f.why;
   char b[64];
   double v = *f.v * scale;
   std::snprintf(b, sizeof b, std::fabs(v) >= 100 ? "%.0f" : std::fabs(v) >= 10 ? "%.1f" : "%.3g",
                 v);
   return b;
}

// How many times better ours is: FRR's over ours where less is better, ours
// over FRR's where more is.
std::optional<double> ratioOf(Row const& row, Fig const& o, Fig const& fr) {
   if (!o.v || !fr.v || *o.v <= 0 || *fr.v <= 0) return std::nullopt;
   return row.lowerIsBetter ? *fr.v / *o.v : *o.v / *fr.v;
}

std::string jsonStr(std::string const& s) {
   std::string o = "\"";
   for (char c : s) {
      if (c == '"' || c == '\\') o += '\\';
      o += c;
   }
   return o + "\"";
}

}  // namespace

int main(int argc, char** argv) {
   for (int i = 1; i < argc; ++i) {
      std::string a = argv[i];
      auto next = [&]() -> std::string { return i + 1 < argc ? argv[++i] : ""; };
      if (a == "--rows") {
         opt.rows.clear();
         for (auto const& w : split(next(), ',')) opt.rows.insert(std::atoi(w.c_str()));
      } else if (a == "--n") {
         opt.sizes.clear();
         for (auto const& w : split(next(), ',')) opt.sizes.push_back(unsigned(std::atol(w.c_str())));
      } else if (a == "--runs")
         opt.runs = std::max(1, std::atoi(next().c_str()));
      else if (a == "--json")
         opt.json = true;
      else if (a == "--verbose")
         opt.verbose = true;
      else if (a == "--stall")
         opt.stall = std::atof(next().c_str());
      else if (a == "--only") {
         std::string w = next();
         opt.ours = w == "ours";
         opt.frr = w == "frr";
      } else
         return usage();
   }
   std::string why = frrUnavailable();
   if (why.empty() && sh("which dumpcap") != 0) why = "needs dumpcap (apt-get install tshark)";
   if (!why.empty()) {
      std::fprintf(stderr, "ldp_vs_frr: %s\n", why.c_str());
      return 1;
   }

   // Figures per column: key -> runs.
   std::map<bool, std::vector<RunFigures>> runs;
   for (int r = 0; r < opt.runs; ++r) {
      for (bool ours : {true, false}) {
         if ((ours && !opt.ours) || (!ours && !opt.frr)) continue;
         RunFigures all;
         for (unsigned n : opt.sizes) {
            if (opt.rows.count(1) || opt.rows.count(2) || opt.rows.count(4)) {
               note("run: burst, restart and rest, %s", ours ? "ours" : "frr", 0);
               for (auto& [k, v] : runBurst(ours, n).f) all.f[k] = v;
            }
            if (opt.rows.count(3)) {
               note("run: receive, %s", ours ? "ours" : "frr", 0);
               for (auto& [k, v] : runReceive(ours, n).f) all.f[k] = v;
            }
         }
         runs[ours].push_back(all);
      }
   }
   std::vector<RunFigures> sessionRuns;
   if (opt.rows.count(5) && opt.ours) sessionRuns.push_back(runSessions());

   std::vector<Row> table;
   for (unsigned n : opt.sizes) {
      std::string t = "." + std::to_string(n), ns = std::to_string(n / 1000) + "k";
      if (opt.rows.count(1)) {
         table.push_back({"1 route burst " + ns + ": last mapping after the burst", "ms", "burst" + t,
                          1e3, true, n >= 100000 ? "all, within 1000 ms" : ""});
         table.push_back({"1 route burst " + ns + ": mappings received", "FECs",
                          "burst.count" + t, 1, false, ""});
         table.push_back({"1 route burst " + ns + ": the burst itself (ip -batch)", "ms",
                          "burst.end" + t, 1e3, true, ""});
      }
      if (opt.rows.count(2))
         table.push_back({"2 session restart " + ns + ": Operational to last mapping", "ms",
                          "restart" + t, 1e3, true, n >= 100000 ? "within 50 ms" : ""});
      if (opt.rows.count(3)) {
         table.push_back({"3 receiving " + ns + ": Operational to all held", "ms", "receive" + t,
                          1e3, true, "3x faster"});
         table.push_back({"3 receiving " + ns + ": memory growth per mapping", "B",
                          "receive.mem" + t, 1, true, ""});
         table.push_back({"3 receiving " + ns + ": zebra's growth per mapping", "B",
                          "receive.zebra" + t, 1, true, ""});
      }
      if (opt.rows.count(4)) {
         table.push_back({"4 at rest " + ns + ": resident growth per FEC", "B", "rest" + t, 1, true,
                          "half of FRR's"});
         table.push_back({"4 at rest " + ns + ": zebra's growth per FEC", "B", "rest.zebra" + t, 1,
                          true, ""});
         table.push_back({"4 at rest " + ns + ": resident in all", "MB", "rest.total" + t, 1e-6,
                          true, ""});
      }
   }
   if (opt.rows.count(5)) {
      table.push_back({"5 sessions: 500 up (virtual time)", "s", "sessions.up_s", 1, true,
                       "within 10 s"});
      table.push_back({"5 sessions: memory per session", "KB", "sessions.bytes_per_session",
                       1e-3, true, ""});
      table.push_back({"5 sessions: CPU in steady state", "% of a core",
                       "sessions.steady_cpu_pct", 1, true, "under 1%"});
   }

   if (opt.json) {
      std::printf("{\n  \"runs\": %d,\n  \"rows\": [\n", opt.runs);
      for (std::size_t i = 0; i < table.size(); ++i) {
         Row const& row = table[i];
         bool sess = row.key.rfind("sessions.", 0) == 0;
         Fig o = aggregate(sess ? sessionRuns : runs[true], row.key, row.agg());
         Fig fr = sess ? Fig{} : aggregate(runs[false], row.key, row.agg());
         auto val = [&](Fig const& f) {
            return f.v ? std::to_string(*f.v * row.scale) : "null";
         };
         std::printf("    {\"row\": %s, \"unit\": %s, \"ours\": %s, \"frr\": %s, \"oursWhy\": %s, "
                     "\"frrWhy\": %s, \"ratio\": %s, \"target\": %s}%s\n",
                     jsonStr(row.name).c_str(), jsonStr(row.unit).c_str(), val(o).c_str(),
                     val(fr).c_str(), jsonStr(o.why).c_str(), jsonStr(fr.why).c_str(),
                     ratioOf(row, o, fr) ? std::to_string(*ratioOf(row, o, fr)).c_str() : "null",
                     jsonStr(row.target).c_str(), i + 1 < table.size() ? "," : "");
      }
      std::printf("  ]\n}\n");
      return 0;
   }
   std::printf("%d run(s): times the least, counts the most, memory the median; ratio: how many\n"
               "times better ours is\n\n",
               opt.runs);
   std::printf("%-52s %-12s %12s %12s %8s  %s\n", "row", "unit", "ours", "FRR", "ratio", "target");
   for (Row const& row : table) {
      bool sess = row.key.rfind("sessions.", 0) == 0;
      Fig o = aggregate(sess ? sessionRuns : runs[true], row.key, row.agg());
      Fig fr = sess ? Fig{} : aggregate(runs[false], row.key, row.agg());
      std::string ratio = "-";
      if (auto q = ratioOf(row, o, fr)) {
         char b[32];
         std::snprintf(b, sizeof b, "%.2f", *q);
         ratio = b;
      }
      std::string os = fmt(o, row.scale), fs = sess ? "n/a" : fmt(fr, row.scale);
      std::printf("%-52s %-12s %12s %12s %8s  %s\n", row.name.c_str(), row.unit.c_str(),
                  os.size() <= 12 ? os.c_str() : "(see below)",
                  fs.size() <= 12 ? fs.c_str() : "(see below)", ratio.c_str(), row.target.c_str());
      if (os.size() > 12) std::printf("    ours: %s\n", os.c_str());
      if (fs.size() > 12) std::printf("    FRR: %s\n", fs.c_str());
   }
   return 0;
}

// The agent alone on a Linux host, no neighbour: N host routes go into the
// kernel at once (`ip -batch` in a network namespace), and the agent labels
// them. It prints, per N, how long the burst itself took, the time from its
// end until every route had its local label (the agent's count of labels in
// use, polled every 20 ms), how many were labelled, and the agent's resident
// growth per FEC over the burst, its copy of the routes included. Needs root
// and the agent built; builds nothing.
//
//    ldp_fec_burst [--n 10000,100000] [--runs 3]
#include <algorithm>
#include <cstdio>
#include <thread>

#include "bench/HostBench.h"

using namespace HostTest;

namespace {

// The agent's resident memory in bytes.
double agentResident(std::string const& ns) {
   double bytes = 0;
   for (auto const& p : netnsProcesses(ns))
      if (p.comm == "ldp-agent") bytes += p.resident;
   return bytes;
}

struct Figures {
   double burst = 0;     // seconds that `ip -batch` took
   double labelled = -1; // seconds from its end to every FEC labelled, or -1
   long count = 0;       // FECs labelled by the burst
   double perFec = 0;    // resident growth per FEC, bytes
};

long inUse(AgentProc& a) {
   Json j = a.show({"mpls", "ldp", "label-allocation"});
   return j["inUse"].isNull() ? -1 : long(j["inUse"].n);
}

bool runOnce(unsigned n, Figures& f) {
   TempDir dir;
   Netns ns("ldpfecburst");
   if (!ns.ok() || !ns.ip("link add d0 type veth peer name d1") || !ns.ip("link set d0 up") ||
       !ns.ip("link set d1 up") || !ns.ip("addr add 1.1.1.1/32 dev lo") ||
       !ns.ip("addr add 10.9.0.1/24 dev d0"))
      return false;
   AgentProc agent(ns.name(), dir.path(), "lsr");
   agent.configIs("mpls label range 100000 400000\nmpls ldp\n   router-id interface lo\n!\n");
   if (!agent.start()) return false;
   // Settled: the label block is there, and a second more lets the start-up
   // finish before the baseline is read.
   waitFor([&] { return inUse(agent) >= 0; }, 10.0);
   std::this_thread::sleep_for(std::chrono::seconds(1));
   long const base = inUse(agent);
   double before = agentResident(ns.name());

   std::string file = routeFile(dir.path(), 0x0b000000u, 0, n, "10.9.0.2");
   double t0 = wallNow();
   if (sh("ip -n " + ns.name() + " -batch " + file) != 0) return false;
   double t1 = wallNow();
   f.burst = t1 - t0;
   long now = base;
   for (double end = t1 + 60.0; wallNow() < end;) {
      now = inUse(agent);
      if (now >= base + long(n)) {
         f.labelled = wallNow() - t1;
         break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
   }
   f.count = now - base;
   std::this_thread::sleep_for(std::chrono::seconds(2));
   f.perFec = (agentResident(ns.name()) - before) / double(std::max<long>(1, f.count));
   agent.stop();
   return true;
}

}  // namespace

int main(int argc, char** argv) {
   std::vector<unsigned> sizes = {10000, 100000};
   int runs = 3;
   for (int i = 1; i < argc; ++i) {
      std::string a = argv[i];
      if (a == "--n" && i + 1 < argc) {
         sizes.clear();
         for (auto const& w : split(argv[++i], ',')) sizes.push_back(unsigned(std::atol(w.c_str())));
      } else if (a == "--runs" && i + 1 < argc) {
         runs = std::max(1, std::atoi(argv[++i]));
      } else {
         std::fprintf(stderr, "usage: ldp_fec_burst [--n 10000,100000] [--runs 3]\n");
         return 2;
      }
   }
   std::string why = realHostUnavailable();
   if (!why.empty()) {
      std::fprintf(stderr, "ldp_fec_burst: %s\n", why.c_str());
      return 1;
   }
   std::printf("%d run(s): times the least, counts the least, memory the median\n\n", runs);
   std::printf("%10s %14s %22s %14s %22s\n", "routes", "burst (ms)", "all labelled after (ms)",
               "labelled", "resident per FEC (B)");
   for (unsigned n : sizes) {
      std::vector<Figures> fs;
      for (int r = 0; r < runs; ++r) {
         Figures f;
         if (!runOnce(n, f)) {
            std::fprintf(stderr, "ldp_fec_burst: the namespace or the agent did not start\n");
            return 1;
         }
         fs.push_back(f);
      }
      double burst = 1e9, labelled = 1e9;
      long count = long(n);
      std::vector<double> mem;
      bool all = true;
      for (auto const& f : fs) {
         burst = std::min(burst, f.burst);
         if (f.labelled < 0) all = false;
         else labelled = std::min(labelled, f.labelled);
         count = std::min(count, f.count);
         mem.push_back(f.perFec);
      }
      std::sort(mem.begin(), mem.end());
      char lab[32];
      if (all) std::snprintf(lab, sizeof lab, "%.0f", labelled * 1e3);
      else std::snprintf(lab, sizeof lab, "not all in 60 s");
      std::printf("%10u %14.0f %22s %14ld %22.0f\n", n, burst * 1e3, lab, count,
                  mem[mem.size() / 2]);
   }
   return 0;
}

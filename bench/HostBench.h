#pragma once
// What the benchmarks on a Linux host share beyond the host tests' harness:
// the wall clock, route files for `ip -batch`, and the resident memory of a
// network namespace's processes.
#include <time.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/host/HostHarness.h"

namespace HostTest {

// Wall-clock seconds, comparable with a capture's timestamps.
inline double wallNow() {
   timespec t;
   clock_gettime(CLOCK_REALTIME, &t);
   return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// The non-empty words of s between the separators c.
inline std::vector<std::string> split(std::string const& s, char c) {
   std::vector<std::string> out;
   std::stringstream in(s);
   std::string w;
   while (std::getline(in, w, c))
      if (!w.empty()) out.push_back(w);
   return out;
}

inline std::string ipStr(uint32_t a) {
   return std::to_string(a >> 24) + "." + std::to_string((a >> 16) & 255) + "." +
          std::to_string((a >> 8) & 255) + "." + std::to_string(a & 255);
}

// Writes an `ip -batch` file in dir that adds the host routes base + i (/32)
// for i in [from, to) through the next hop via; returns its path.
inline std::string routeFile(std::string const& dir, uint32_t base, unsigned from, unsigned to,
                             char const* via) {
   std::string path = dir + "/routes-" + ipStr(base) + "-" + std::to_string(from) + "-" +
                      std::to_string(to) + ".txt";
   std::ofstream out(path);
   for (unsigned i = from; i < to; ++i)
      out << "route add " << ipStr(base + i) << "/32 via " << via << "\n";
   return path;
}

// The processes of a network namespace, each with its command name and its
// resident memory in bytes (VmRSS).
struct ProcMemory {
   std::string comm;
   double resident = 0;
};
inline std::vector<ProcMemory> netnsProcesses(std::string const& ns) {
   std::vector<ProcMemory> out;
   RunResult r = run({"ip", "netns", "pids", ns}, "/tmp");
   std::stringstream in(r.out);
   std::string pid;
   while (in >> pid) {
      ProcMemory p;
      p.comm = slurp("/proc/" + pid + "/comm");
      while (!p.comm.empty() && isspace(static_cast<unsigned char>(p.comm.back()))) p.comm.pop_back();
      std::stringstream st(slurp("/proc/" + pid + "/status"));
      std::string line;
      while (std::getline(st, line))
         if (line.rfind("VmRSS:", 0) == 0) p.resident = std::atof(line.c_str() + 6) * 1024;
      out.push_back(p);
   }
   return out;
}

}  // namespace HostTest

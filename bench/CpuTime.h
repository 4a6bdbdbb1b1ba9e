#pragma once
// The process's CPU time in seconds, for benchmarks that time a run of the
// simulated network rather than a loop Google Benchmark repeats.
#include <time.h>

inline double cpuSeconds() {
   timespec t;
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
   return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

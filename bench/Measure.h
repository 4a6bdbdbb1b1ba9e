#pragma once
// What the benchmarks that run the simulated network measure, rather than a
// loop Google Benchmark repeats: the process's CPU time in seconds, and the
// bytes the heap holds, read from the allocator (its overhead included).
#include <malloc.h>
#include <time.h>

#include <cstddef>

inline double cpuSeconds() {
   timespec t;
   clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
   return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

inline std::size_t heapBytes() {
   auto m = mallinfo2();
   return m.uordblks + m.hblkhd;  // small chunks and mmapped ones
}

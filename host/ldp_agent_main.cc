// ldp-agent: the LDP agent as a daemon on a Linux host.
#include <iostream>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "host/HostAgent.h"

int main(int argc, char** argv) {
#ifdef __GLIBC__
   // The tables of routes and FECs grow by doubling their slot arrays. A
   // fixed threshold keeps every large array in its own mapping, given back
   // when the table outgrows it; glibc's default raises the threshold after
   // the first such free, and the old arrays then stay behind as holes in the
   // heap (a third of the resident memory at 100,000 FECs).
   mallopt(M_MMAP_THRESHOLD, 64 * 1024);
   mallopt(M_TRIM_THRESHOLD, 256 * 1024);
#endif
   std::vector<std::string> args(argv + 1, argv + argc);
   if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
      std::cout << Host::agentUsage();
      return 0;
   }
   Host::AgentOptions opts;
   std::string error;
   if (!Host::parseAgentOptions(args, &opts, &error)) {
      std::cerr << "ldp-agent: " << error << "\n" << Host::agentUsage();
      return 2;
   }
   return Host::runAgent(opts);
}

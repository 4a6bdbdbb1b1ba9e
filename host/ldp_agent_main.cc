// ldp-agent: the LDP agent as a daemon on a Linux host.
#include <iostream>

#include "host/HostAgent.h"

int main(int argc, char** argv) {
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

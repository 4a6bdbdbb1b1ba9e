#pragma once
// ldpctl: the operator's command-line tool for a running ldp-agent.
#include <ostream>
#include <string>
#include <vector>

namespace Host {

std::string ctlUsage();
// Runs one ldpctl command line (without the program name); the exit code:
// 0 done, 1 the agent refused or failed, 2 bad usage, 3 no agent to talk to.
int runCtl(std::vector<std::string> const& args, std::ostream& out, std::ostream& err);

}  // namespace Host

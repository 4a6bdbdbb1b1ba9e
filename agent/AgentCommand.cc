#include "agent/AgentCommand.h"

#include <sstream>

namespace Agent {

Vek::Ptr<AgentCommandRequestDirSm> AgentCommandRequestDirSm::AgentCommandRequestDirSmIs(
   Vek::Ptr<Vek::Dir const> const& requestDir) {
   return Vek::makeSm<AgentCommandRequestDirSm>(requestDir);
}

AgentCommandRequestDirSm::AgentCommandRequestDirSm(Vek::Ptr<Vek::Dir const> const& requestDir)
   : requestDir_(requestDir) {
   handleInitialized();
}

std::string AgentCommandRequestDirSm::doCommand(std::string const& requestId,
                                                std::string const& command) {
   std::ostringstream out;
   // Hold the callback: it may replace itself.
   Vek::Ptr<AgentCommandCallback> cb = callback_;
   if (cb) cb->handleCommand(out, command);
   else out << "Unknown command " << command;
   responses_[requestId] = out.str();
   return out.str();
}

std::string AgentCommandRequestDirSm::response(std::string const& requestId) const {
   auto it = responses_.find(requestId);
   return it == responses_.end() ? std::string() : it->second;
}

}  // namespace Agent

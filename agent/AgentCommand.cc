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

void AgentCommandRequestDirSm::commandCallbackIs(std::string const& command, Callback cb) {
   callbacks_[command] = std::move(cb);
}

void AgentCommandRequestDirSm::commandCallbackDel(std::string const& command) {
   callbacks_.erase(command);
}

std::string AgentCommandRequestDirSm::doCommand(std::string const& requestId,
                                                std::string const& command,
                                                std::vector<std::string> const& options) {
   std::ostringstream out;
   auto it = callbacks_.find(command);
   if (it == callbacks_.end()) {
      out << "Unknown command: " << command << "\n";
   } else {
      // Hold the callback: it may replace itself.
      Callback cb = it->second;
      cb(options, out);
   }
   responses_[requestId] = out.str();
   return out.str();
}

std::string AgentCommandRequestDirSm::response(std::string const& requestId) const {
   auto it = responses_.find(requestId);
   return it == responses_.end() ? std::string() : it->second;
}

}  // namespace Agent

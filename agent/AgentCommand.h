#pragma once
// Commands that an operator sends to the agent through its command request
// directory. Each command name has a callback that gets the options and
// writes its output; the answer of the last request is kept for the asker.
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/vek/Entity.h"
#include "runtime/vek/Sm.h"

namespace Agent {

class AgentCommandRequestDirSm : public Vek::Sm {
 public:
   using Callback = std::function<void(std::vector<std::string> const& options, std::ostream& out)>;

   static Vek::Ptr<AgentCommandRequestDirSm> AgentCommandRequestDirSmIs(
      Vek::Ptr<Vek::Dir const> const& requestDir);
   explicit AgentCommandRequestDirSm(Vek::Ptr<Vek::Dir const> const& requestDir);
   void handleInitialized() { initialized_ = true; }

   void commandCallbackIs(std::string const& command, Callback cb);
   void commandCallbackDel(std::string const& command);
   bool hasCommand(std::string const& command) const { return callbacks_.count(command) != 0; }

   // Runs a request: the callback's output, or a refusal for an unknown
   // command. The request id names the answer.
   std::string doCommand(std::string const& requestId, std::string const& command,
                         std::vector<std::string> const& options);
   std::string response(std::string const& requestId) const;
   Vek::Ptr<Vek::Dir const> const& requestDir() const { return requestDir_; }

 private:
   Vek::Ptr<Vek::Dir const> requestDir_;
   std::map<std::string, Callback> callbacks_;
   std::map<std::string, std::string> responses_;
};

}  // namespace Agent

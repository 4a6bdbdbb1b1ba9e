#pragma once
// Commands that an operator sends to the agent through its command request
// directory. The agent gives the directory one callback that reads the whole
// command text and writes its answer; the answer of each request is kept for
// the asker.
#include <map>
#include <ostream>
#include <string>

#include "runtime/vek/Entity.h"
#include "runtime/vek/Sm.h"

namespace Agent {

class AgentCommandCallback : public Vek::PtrInterface {
 public:
   explicit AgentCommandCallback(std::string name) : name_(std::move(name)) {}
   std::string const& name() const { return name_; }
   // Reads the command text and writes the answer to socket.
   virtual void handleCommand(std::ostream& socket, std::string const& command) = 0;

 private:
   std::string name_;
};

class AgentCommandRequestDirSm : public Vek::Sm {
 public:
   static Vek::Ptr<AgentCommandRequestDirSm> AgentCommandRequestDirSmIs(
      Vek::Ptr<Vek::Dir const> const& requestDir);
   explicit AgentCommandRequestDirSm(Vek::Ptr<Vek::Dir const> const& requestDir);
   void handleInitialized() { initialized_ = true; }

   Vek::Ptr<AgentCommandCallback> const& agentCommandCallback() const { return callback_; }
   void agentCommandCallbackIs(Vek::Ptr<AgentCommandCallback> const& cb) { callback_ = cb; }

   // Runs a request through the callback; the request id names the answer.
   std::string doCommand(std::string const& requestId, std::string const& command);
   std::string response(std::string const& requestId) const;
   Vek::Ptr<Vek::Dir const> const& requestDir() const { return requestDir_; }

 private:
   Vek::Ptr<Vek::Dir const> requestDir_;
   Vek::Ptr<AgentCommandCallback> callback_;
   std::map<std::string, std::string> responses_;
};

}  // namespace Agent

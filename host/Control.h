#pragma once
// The agent's control socket: a Unix stream socket on the event loop. A client
// connects, writes one request and closes its sending side; the agent answers
// and closes. A request's first line is the command, the lines after it its
// text (configuration statements); an answer's first line is "ok" or "error",
// the rest its body.
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "runtime/vek/Activity.h"

namespace Host {

// Where the agent listens when told nothing else.
constexpr char defaultSocketPath[] = "/run/ldp-agent.sock";

struct ControlReply {
   bool ok = true;
   std::string body;
};

using ControlHandler =
   std::function<ControlReply(std::string const& command, std::string const& text)>;

class ControlServer : public Vek::FdHandler {
 public:
   explicit ControlServer(ControlHandler handler) : handler_(std::move(handler)) {}
   ~ControlServer() override;
   // Listens at path, replacing a socket file left by an agent that died.
   bool start(std::string const& path, std::string* reason);
   void onFdEvent(U32 events) override;

 private:
   // A connection whose request is still being read.
   struct Conn : Vek::FdHandler {
      ControlServer* server = nullptr;
      int fd = -1;
      std::string in;
      void onFdEvent(U32 events) override;
   };
   void finish(int fd, bool answer);
   ControlHandler handler_;
   std::string path_;
   int fd_ = -1;
   std::map<int, std::unique_ptr<Conn>> conns_;
};

// The client side: sends a request and waits for the answer; false with a
// reason when the agent can't be reached.
bool controlRequest(std::string const& path, std::string const& command, std::string const& text,
                    ControlReply* reply, std::string* reason);

// Largest request that the agent reads.
constexpr std::size_t maxControlRequest = 1 << 20;

}  // namespace Host

#pragma once
// The agent on a Linux host: the LDP agent over the embedded state database on
// real time, with what the platform's other agents would give it - the
// kernel's interfaces, addresses, VRFs and routes, a label block, the
// operator's configuration - plus the control socket of ldpctl, the event log
// to syslog and standard error, and the state that survives a restart.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/LdpAgent.h"
#include "host/ConfigApplier.h"
#include "host/Control.h"
#include "host/KernelState.h"
#include "host/LabelBlockResponder.h"

namespace Host {

constexpr char defaultStateDir[] = "/var/lib/ldp-agent";

struct AgentOptions {
   std::string configFile;
   std::string socketPath = defaultSocketPath;
   std::string stateDir = defaultStateDir;
   std::string traceFile;
   std::vector<std::pair<std::string, int>> traceLevels;
   // The event monitor's lines, in a file rotated (to FILE.1) by size.
   std::string eventLogFile;
   std::size_t eventLogMaxBytes = 1 << 20;
};

// Appends lines to a file, moving it to FILE.1 when it would grow past its
// size, so that two files of at most the size are kept.
class RotatingFile {
 public:
   RotatingFile(std::string path, std::size_t maxBytes)
      : path_(std::move(path)), maxBytes_(maxBytes) {}
   ~RotatingFile();
   bool open(std::string* reason);
   void line(std::string const& text);

 private:
   std::string path_;
   std::size_t maxBytes_;
   std::FILE* f_ = nullptr;
   std::size_t size_ = 0;
};

// Reads the command line of ldp-agent; false with a message for bad usage.
bool parseAgentOptions(std::vector<std::string> const& args, AgentOptions* opts,
                       std::string* error);
std::string agentUsage();

// What must survive a restart of the process, kept in files of the state
// directory: the agent's start count, which tells the agent that it was
// restarted, and the labels it gave out, which a restart claims again
// (saveLabelState/loadLabelState).
class StateDir {
 public:
   explicit StateDir(std::string dir) : dir_(std::move(dir)) {}
   // Makes the directory if absent; false with a reason.
   bool open(std::string* reason);
   // The start count of the last run, 0 for a first start.
   U32 numStartups() const;
   bool numStartupsIs(U32 n, std::string* reason) const;
   // The labelled FECs of the default VRF: written every half minute and at
   // exit, read back into the store before the agent starts.
   void saveLabelState(Ombra::Store const& store) const;
   void loadLabelState(Ombra::Store& store) const;
   std::string const& dir() const { return dir_; }

 private:
   std::string dir_;
};

// The VRFs of the configuration and the namespaces where they live: one
// kernel watcher per VRF, and the VRF's state in Ip::AllVrfStatusLocal
// (active while its namespace can be watched). A namespace that doesn't exist
// yet is tried again every few seconds.
class HostVrfManager : public Vek::Timed {
 public:
   HostVrfManager(Vek::Ptr<Ombra::Store> const& store, KernelTargets defaultTargets);
   ~HostVrfManager() override;
   // Watches the namespace the agent runs in, as the default VRF.
   bool startDefault(std::string* reason);
   void vrfNetnsIs(std::map<std::string, std::string> const& vrfNetns);
   KernelWatcher* watcher(std::string const& vrf) const;
   static constexpr Vek::Seconds retryInterval = 2.0;

 private:
   struct Vrf {
      std::string netns;
      U32 slot = 0;
      std::unique_ptr<KernelWatcher> watcher;
   };
   void timedRun() override;
   bool tryStart(std::string const& name, Vrf& v);
   Vek::Ptr<Ombra::Store> store_;
   KernelTargets default_;
   Vek::Ptr<Ip::AllVrfStatusLocal> allVrf_;
   std::unique_ptr<KernelWatcher> defaultWatcher_;
   std::map<std::string, Vrf> vrfs_;
   U32 nextSlot_ = 1;
};

// Runs ldp-agent until SIGTERM or SIGINT; the process's exit code.
int runAgent(AgentOptions const& opts);

}  // namespace Host

#pragma once
// The operator's show commands over the agent's state: the protocol state of
// each VRF, discovery (links, targets, adjacencies), neighbours and their
// sessions, statistics, the interfaces that the host reported and the running
// configuration. Each answers as text, or as JSON with the fields that the
// README lists.
#include <string>
#include <vector>

#include "agent/LdpAgent.h"
#include "host/ConfigApplier.h"
#include "host/MplsForwarding.h"

namespace Host {

struct ShowContext {
   Ldp::Agent const* agent = nullptr;
   ConfigApplier const* config = nullptr;
   MplsForwardingSm const* forwarding = nullptr;
};

// An event monitor line as the operator reads it: UTC time, then the text.
std::string eventLineText(Ldp::LdpEventMonLog::Line const& l);

// The words after "show", with an optional "vrf NAME" anywhere; false with a
// message in *out for a command that doesn't exist.
bool runShow(std::vector<std::string> const& words, bool json, ShowContext const& ctx,
             std::string* out);

// The commands, for help texts.
std::vector<std::string> const& showCommands();

char const* sessionStateName(U8 state);
char const* runningStateName(U8 state);

}  // namespace Host

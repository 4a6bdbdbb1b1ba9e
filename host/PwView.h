#pragma once
// What an operator sees of one configured pseudowire: our side from the
// configuration and the local FEC session, the peer's side from what it
// advertised for the same neighbour and pw-id (matching ours or not), the
// response's status with the status and its reason in words, the label
// handshakes in progress and the pseudowire's message counts.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/LdpAgent.h"
#include "host/Config.h"

namespace Host {

// One FEC session of the pseudowire: one FEC (PW type, group, C bit) in one
// direction of label flow on the LDP session to the neighbour.
struct PwFecSessionView {
   bool local = false;  // our label (local) or the peer's (remote)
   Pseudowire::PseudowireType pwType = Pseudowire::pwTypeNone_;
   bool controlWord = false;
   U32 groupId = 0;
   U32 mtu = 0;                // from the FEC's interface parameters; 0 when not given
   std::optional<U32> label;   // advertised (ours) or held (the peer's)
   std::string state;          // the label's place in the Mapping/Withdraw/Release handshake
   std::map<Ldp::LdpMsgType, U64> messagesRx, messagesTx;
};

struct PwView {
   // The LDP session to the neighbour: its state, or none.
   std::optional<Ldp::SessionState> sessionState;
   bool ldpRunning = false;
   // Our side.
   bool localMapped = false;
   Ldp::PwStatusMethod statusMethod = Ldp::pwStatusMethodUnknown_;
   U32 localStatusFlags = 0;
   std::string localLabelState = "not advertised";
   // The peer's FEC for this pw-id: the one that matches ours, else one that
   // holds a label, else any; none when the peer advertised nothing.
   std::optional<PwFecSessionView> remote;
   U32 remoteStatusFlags = 0;
   // The response's status (26 up, ...), the status in words, and why.
   std::optional<int> status;
   std::string statusText;
   std::string reason;
   bool mtuMismatch = false;
   // Summed over the FEC sessions below.
   std::map<Ldp::LdpMsgType, U64> messagesRx, messagesTx;
   std::vector<PwFecSessionView> fecSessions;
};

PwView pwView(Ldp::Agent const& agent, PseudowireConfig const& pw);

// "ethernet", "ethernet-vlan", "other", or empty for none.
char const* pwTypeName(Pseudowire::PseudowireType t);
// The PW Status bits by name ("forwarding" for none).
std::string pwFlagsText(U32 flags);
// The label message types that a pseudowire counts, in the order shown.
std::vector<Ldp::LdpMsgType> const& pwMsgTypes();

}  // namespace Host

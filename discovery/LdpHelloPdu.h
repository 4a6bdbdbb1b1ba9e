#pragma once
// The Hello PDU that a link or target machine sends, built once into its
// packet and sent again at every interval with a fresh message id.
#include "discovery/LdpHelloParam.h"
#include "runtime/vek/Trace.h"
#include "wire/LdpMsgGen.h"

namespace Ldp {

// Builds the PDU into pkt (made or emptied here); targeted Hellos set the T and
// R flags; the transport address is IPv4. Returns the generator that holds the PDU.
Vek::Ptr<LdpMsgGen> ldpHelloPduBuild(Vek::Ptr<Nolu::Pkt>& pkt, LdpIdentifier const& ldpId,
                                     U32 msgId, U16 holdTime, bool targeted,
                                     Nolu::IpGenAddr const& transportAddr, U32 configSeqNum,
                                     LdpProtoParamConfig const& pp);

// Checks a received datagram: a valid PDU of one Hello message in label space
// 0. On success gives the message's offset and the sender's identifier; on
// failure traces the reason on th and returns false.
bool ldpHelloPduCheck(Vek::Ptr<Nolu::Pkt> const& pkt, Vek::TraceHandle const& th, U32 instId,
                      U32* offset, LdpIdentifier* ldpId);

}  // namespace Ldp

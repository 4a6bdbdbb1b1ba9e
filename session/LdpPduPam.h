#pragma once
// An accepted or connected TCP socket that frames LDP PDUs. It exists before
// anyone knows which session it serves: its first whole PDU names the peer
// (ldpIdentifier), and the session layer then assigns it to a session or
// rejects it.
#include "entities/Identifiers.h"
#include "runtime/nolu/Pam.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

enum LdpPduPamState : U8 {
   pamNone = 0,
   pamReady = 1,
   pamOperational = 2,
   pamShutdown = 3,
   pamDestroy = 4,
};
char const* ldpPduPamStateStr(LdpPduPamState s);
std::ostream& operator<<(std::ostream& os, LdpPduPamState s);

class LdpPduPam : public Nolu::TcpPduPam {
 public:
   static constexpr U8 kNotifieeDepth = 2;
   class NotifieeConst;
   template <class S> class ChannelReactor;

   LdpPduPam(Vek::Ptr<Nolu::TcpConnSocket> const& conn, bool isClient)
      : Nolu::TcpPduPam(conn), isClient_(isClient) {}

   // This end opened the connection.
   bool isClient() const { return isClient_; }
   // A machine asks for the channel to go.
   bool destroyRequest() const { return destroyRequest_; }
   void destroyRequestIs(bool b);
   Nolu::IpAddr peerIpAddr() const { return peerIpAddr_; }
   void peerIpAddrIs(Nolu::IpAddr a);
   // The peer; 0:0 until the first whole PDU is in.
   LdpIdentifier const& ldpIdentifier() const { return ldpIdentifier_; }
   void ldpIdentifierIs(LdpIdentifier const& id);
   LdpPduPamState state() const { return state_; }
   void stateIs(LdpPduPamState s);

   // The size of the PDU that starts the buffer: the 10-byte header at least,
   // else the PDU Length plus the 4 bytes that it doesn't count.
   U32 getPduSize(Nolu::Pkt const* pkt) override;

 private:
   template <class F>
   void notifyLdp(F const& f) const;

   bool isClient_;
   bool destroyRequest_ = false;
   Nolu::IpAddr peerIpAddr_;
   LdpIdentifier ldpIdentifier_;
   LdpPduPamState state_ = pamReady;
};

class LdpPduPam::NotifieeConst : public Nolu::TcpPduPam::NotifieeConst {
 public:
   using Notifier = LdpPduPam;
   NotifieeConst() : Nolu::TcpPduPam::NotifieeConst(kNotifieeDepth) {}
   Vek::Ptr<LdpPduPam const> notifier() const {
      return static_cast<LdpPduPam const*>(notifierBase());
   }
   virtual void onDestroyRequest() {}
   virtual void onPeerIpAddr() {}
   virtual void onLdpIdentifier() {}
   virtual void onState() {}
};

template <class F>
void LdpPduPam::notifyLdp(F const& f) const {
   notify<NotifieeConst>(kNotifieeDepth, f);
}

// The reactor of one channel kept by a machine: the changes that decide the
// channel's fate (destroyRequest, ldpIdentifier, rxErrors, state, txErrors)
// go to one handler with the descriptor, and a PDU to read to another. A null
// handler ignores its kind of change.
template <class S>
class LdpPduPam::ChannelReactor : public LdpPduPam::NotifieeConst {
 public:
   using Handler = void (S::*)(int const&);
   ChannelReactor(S* sm, Vek::Ptr<LdpPduPam const> const& n, int sd, Handler change,
                  Handler readable)
      : sm_(sm), sd_(sd), change_(change), readable_(readable) {
      this->ownerIs(sm);
      this->notifierBaseIs(n);
   }
   int sd() const { return sd_; }
   void onDestroyRequest() override { fire(change_); }
   void onLdpIdentifier() override { fire(change_); }
   void onRxErrors() override { fire(change_); }
   void onTxErrors() override { fire(change_); }
   void onState() override { fire(change_); }
   void onReadableCount() override { fire(readable_); }

 private:
   void fire(Handler h) {
      if (!h) return;
      S* sm = sm_;
      int sd = sd_;
      Vek::Sm::run(sm, [sm, h, sd] { (sm->*h)(sd); });
   }
   S* sm_;
   int sd_;
   Handler change_;
   Handler readable_;
};

inline Vek::Ptr<LdpPduPam> ldpPduPamFactory(Vek::Ptr<Nolu::TcpConnSocket> const& conn,
                                            bool isClient) {
   return Vek::Ptr<LdpPduPam>(new LdpPduPam(Vek::validPtr(conn), isClient));
}

}  // namespace Ldp

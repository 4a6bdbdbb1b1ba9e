#pragma once
// Forwarding mode services of the routing library: the mode in which
// forwarding entries are published (1 split, 2 unified) and the watch on a
// change of it after start-up; and the mounter of the IP status tables.
#include "entities/EntityTypes.h"
#include "runtime/ombra/Ombra.h"
#include "runtime/vek/Reactor.h"

namespace Ruvo {

// Works out the forwarding mode from the L3 configuration: unified when
// configured so, split otherwise.
class FecModeSm : public Vek::Sm {
 public:
   static Vek::Ptr<FecModeSm> FecModeSmIs(Vek::Ptr<L3::Config const> const& l3Config,
                                          Vek::Ptr<Tesh::Fib::FecModeStatus> const& status);
   FecModeSm(Vek::Ptr<L3::Config const> const& l3Config,
             Vek::Ptr<Tesh::Fib::FecModeStatus> const& status);
   void handleInitialized();
   void handleUnifiedForwarding();

 private:
   void computeFecMode();
   Vek::Ptr<Tesh::Fib::FecModeStatus> fecModeStatus_;
   Vek::Input<L3::Config::Reactor<FecModeSm>> l3Config_;
};

// Watches the published mode; a change after the first value needs the
// forwarding tables mounted anew, which takes a restart of the agent: the
// machine counts it and raises restartRequired.
class FecModeRestartSm : public Vek::Sm {
 public:
   static Vek::Ptr<FecModeRestartSm> FecModeRestartSmIs(
      Vek::Ptr<Tesh::Fib::FecModeStatus> const& status);
   explicit FecModeRestartSm(Vek::Ptr<Tesh::Fib::FecModeStatus> const& status);
   void handleInitialized();
   void handleFecMode();
   bool restartRequired() const { return restartRequired_; }
   Tesh::Fib::FecMode startMode() const { return startMode_; }

 private:
   Vek::Ptr<Tesh::Fib::FecModeStatus> fecModeStatus_;
   Vek::Input<Tesh::Fib::FecModeStatus::Reactor<FecModeRestartSm>> input_;
   Tesh::Fib::FecMode startMode_ = Tesh::Fib::fecModeUnknown_;
   bool restartRequired_ = false;
};

// Adds the mounts of the IP status tables to a mount group. On this host the
// per-VRF interface addresses live whole in the "ip/status" entity that the
// agent mounts itself, so there is nothing to add.
class RuvoIpStatusMounter {
 public:
   static void doMountEntities(Vek::Ptr<Ombra::MountGroup> const& mountGroup, bool readOnly,
                               bool includeV6) {}
};

}  // namespace Ruvo

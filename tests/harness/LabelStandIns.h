#pragma once
// The label layer as far as the session meets it, played by tests, the
// session fuzzer and the benchmarks: readers of message pipes, and the FEC
// machinery that makes a pipe and its reader for every FEC that becomes known.
#include <map>
#include <vector>

#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace LdpTest {

// A label machine of one FEC or pseudowire: it reads a
// pipe and keeps what it read, from what waited for it on.
class PipeReader : public Ldp::LdpSm {
 public:
   explicit PipeReader(Vek::Ptr<Ldp::LdpMsgPipe> const& p) : LdpSm(0), pipe_(p) {
      reactor_.init(this, p);
      initialized_ = true;
      handleReadableCount();
   }
   void handleReadableCount() {
      if (!initialized_) return;
      while (auto m = pipe_->rxMsg()) msgs.push_back(m);
   }
   std::vector<Vek::Ptr<Ldp::LdpMsg>> msgs;

 private:
   Vek::Ptr<Ldp::LdpMsgPipe> pipe_;
   Vek::Input<Ldp::LdpMsgPipe::Reactor<PipeReader>> reactor_;
};

// The label layer's FEC machinery as far as the session meets it: for every
// FEC that becomes known, a pipe and its reader, made at once or a moment
// later. Readers keep the messages they read, or only count them.
class FecPipes : public Ldp::LdpSm {
 public:
   FecPipes(Vek::Ptr<Ldp::LdpFecConfigColl const> const& fecs,
            Vek::Ptr<Ldp::LdpFecMsgPipeColl> const& pipes,
            Vek::Ptr<Hesk::TaskScheduler> const& sched, double delay = 0.0, bool keep = true)
       : LdpSm(0), pipes_(pipes), delay_(delay), keep_(keep) {
      timer_ = Hesk::timerTaskIs(this, &FecPipes::handleTimer, sched, 2, "FecPipes");
      fecsReactor_.init(this, fecs);
      initialized_ = true;
   }
   void handleFecConfig(Mpls::FwdEqvClass const& fec) {
      if (!initialized_ || readers.count(fec)) return;
      if (delay_ == 0.0) return make(fec);
      due_.push_back(fec);
      timer_->scheduleTaskLowestDelay(delay_);
   }
   void handleTimer() {
      auto due = std::move(due_);
      due_.clear();
      for (auto const& f : due) make(f);
   }
   class Reader : public Ldp::LdpSm {
    public:
      Reader(Vek::Ptr<Ldp::LdpMsgPipe> const& p, FecPipes* owner)
          : LdpSm(0), pipe_(p), owner_(owner) {
         reactor_.init(this, p);
         initialized_ = true;
         handleReadableCount();
      }
      void handleReadableCount() {
         if (!initialized_) return;
         while (auto m = pipe_->rxMsg()) {
            ++owner_->count;
            if (owner_->keep_) msgs.push_back(m);
         }
      }
      std::vector<Vek::Ptr<Ldp::LdpMsg>> msgs;

    private:
      Vek::Ptr<Ldp::LdpMsgPipe> pipe_;
      FecPipes* owner_;
      Vek::Input<Ldp::LdpMsgPipe::Reactor<Reader>> reactor_;
   };
   std::map<Mpls::FwdEqvClass, Vek::Ptr<Reader>> readers;
   U64 count = 0;

 private:
   void make(Mpls::FwdEqvClass const& fec) {
      auto pipe = Ldp::ldpMsgPipeFactory(fec.stringValue());
      // The pipe first, its reader after, as the FEC machinery makes them.
      pipes_->msgPipeIs(fec, pipe);
      readers[fec] = Vek::makeSm<Reader>(pipe, this);
   }
   Vek::Ptr<Ldp::LdpFecMsgPipeColl> pipes_;
   double delay_;
   bool keep_;
   std::vector<Mpls::FwdEqvClass> due_;
   Vek::Ptr<Hesk::TimerTask> timer_;
   Vek::Input<Ldp::LdpFecConfigColl::Reactor<FecPipes>> fecsReactor_;
};

}  // namespace LdpTest

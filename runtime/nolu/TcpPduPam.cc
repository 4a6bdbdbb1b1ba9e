#include <errno.h>
#include <string.h>

#include <algorithm>

#include "runtime/nolu/Pam.h"
#include "runtime/vek/Activity.h"

namespace Nolu {

// Reading again after a pause happens on the loop, not inside the reader's
// call that made room: the reader must not be re-entered from rxPkt().
void TcpPduPam::ResumeTimer::arm() {
   Vek::activityManager()->timerArm(this, Vek::activityManager()->now());
}

void TcpPduPam::ResumeTimer::timedRun() {
   Vek::Ptr<TcpPduPam> keep(p_);
   p_->readSome();
}

class TcpPduPam::SinkImpl : public StreamBackend::Sink {
 public:
   explicit SinkImpl(TcpPduPam* p) : p_(p) {}
   void onStreamReadable() override {
      Vek::Ptr<TcpPduPam> keep(p_);
      p_->readSome();
   }
   void onStreamWritable() override {
      Vek::Ptr<TcpPduPam> keep(p_);
      p_->flush();
   }

 private:
   TcpPduPam* p_;
};

TcpPduPam::~TcpPduPam() {
   if (backend_) backend_->sinkIs(nullptr);
   backend_.reset();
}

int TcpPduPam::fileDescriptor() const {
   return fd_ >= 0 ? fd_ : connSocket() ? connSocket()->fd() : -1;
}

void TcpPduPam::enabledIs(bool b) {
   if (b && !backend_ && connSocket() && !connSocket()->taken()) {
      backend_ = connSocket()->takeBackend();
      fd_ = backend_->fd();
      if (!connSocket()->tcpOptErrorReason().empty()) {
         tcpOptErrorsInc(1);
         tcpOptErrorReasonIs(connSocket()->tcpOptErrorReason());
      }
   }
   if (b == enabled()) return;
   if (b && !backend_) return;
   if (!sink_) sink_ = std::make_unique<SinkImpl>(this);
   Vek::Ptr<TcpPduPam> keep(this);
   backend_->sinkIs(b ? sink_.get() : nullptr);
   enabled_ = b;
   if (b) {
      writableCountInc(1);
      readSome();
   }
}

U32 TcpPduPam::getPduSize(Pkt const* pkt) {
   U32 have = pkt->dataBytes();
   if (have < 4) return 4;
   return U32(readU16(pkt->readPtr(2))) + 4;
}

void TcpPduPam::failRx(std::string const& reason) {
   if (backend_) backend_->sinkIs(nullptr);
   rxCur_ = nullptr;
   rxHead_ = rxTail_ = 0;
   rxErrorReasonIs(reason);
   rxErrorsInc(1);
}

void TcpPduPam::failTx(std::string const& reason) {
   txQueue_.clear();
   writeLengthIs(0);
   txErrorReasonIs(reason);
   txErrorsInc(1);
}

void TcpPduPam::rxPause() {
   if (rxPaused_) return;
   rxPaused_ = true;
   rxPausesInc(1);
   if (backend_) backend_->readInterestIs(false);
}

void TcpPduPam::rxResume() {
   if (!rxPaused_) return;
   rxPaused_ = false;
   if (!backend_) return;
   backend_->readInterestIs(true);
   if (!resume_) resume_ = std::make_unique<ResumeTimer>(this);
   resume_->arm();
}

void TcpPduPam::readSome() {
   Vek::Ptr<TcpPduPam> keep(this);
   while (backend_ && enabled() && !rxHalted()) {
      if (rxQueue_.size() >= rxQueueMax()) {
         // The reader is behind: what is in the socket stays there.
         rxPause();
         return;
      }
      if (!rxCur_) rxCur_ = globalPktManager()->newPkt();
      U32 have = rxCur_->dataBytes();
      U32 size = std::max<U32>(getPduSize(rxCur_.ptr()), 1);
      if (size > maxPduLength() + 4) {
         // The reader hears of the PDU through its header, and answers it;
         // nothing behind it can be framed.
         rxHaltedIs(true);
         rxErrorReasonIs("PDU length " + std::to_string(size - 4) + " exceeds the maximum " +
                         std::to_string(maxPduLength()));
         backend_->readInterestIs(false);
         rxHead_ = rxTail_ = 0;
         rxQueue_.push_back(std::move(rxCur_));
         rxCur_ = nullptr;
         rxPduCountInc(1);
         readableIs(true);
         readableCountInc(1);
         return;
      }
      if (have >= size) {
         // A whole PDU: hand it over; one notification per PDU.
         rxQueue_.push_back(std::move(rxCur_));
         rxQueueHighWater_ = std::max(rxQueueHighWater_, rxQueue_.size());
         rxCur_ = nullptr;
         rxPduCountInc(1);
         readableIs(true);
         readableCountInc(1);
         continue;
      }
      U32 need = size - have;
      if (rxCur_->totalTailRoom() < need) {
         Vek::Ptr<Pkt> bigger = globalPktManager()->newPkt(size);
         bigger->appendData(rxCur_->readPtr(0), have);
         rxCur_ = bigger;
      }
      // Bytes read ahead come first; a socket read fills the read-ahead
      // buffer, so that a stream of small PDUs costs one read per buffer and
      // not two per PDU. A large remainder is read straight into the packet.
      std::size_t buffered = rxTail_ - rxHead_;
      if (buffered) {
         U32 k = U32(std::min<std::size_t>(need, buffered));
         rxCur_->appendData(rxBuf_.data() + rxHead_, k);
         rxHead_ += k;
         if (rxHead_ == rxTail_) rxHead_ = rxTail_ = 0;
         continue;
      }
      long n;
      if (need >= rxBufSize) {
         U8* p = rxCur_->newSharedTailData(need);
         n = backend_->read(p, need);
         rxCur_->delSharedTailData(n > 0 ? need - U32(n) : need);
      } else {
         if (rxBuf_.size() < rxBufSize) rxBuf_.resize(rxBufSize);
         n = backend_->read(rxBuf_.data(), rxBufSize);
         if (n > 0) rxTail_ = std::size_t(n);
      }
      if (n > 0) continue;
      if (n == -EAGAIN || n == -EWOULDBLOCK || n == -EINTR) return;
      failRx(n == 0 ? "Connection closed by peer" : std::string(strerror(int(-n))));
      return;
   }
}

Vek::Ptr<Pkt> TcpPduPam::doGetRxPkt() {
   if (rxQueue_.empty()) return nullptr;
   Vek::Ptr<Pkt> p = std::move(rxQueue_.front());
   rxQueue_.pop_front();
   if (rxQueue_.empty()) readableIs(false);
   // Half the queue free again: reading resumes.
   if (rxPaused_ && rxQueue_.size() <= rxQueueMax() / 2) rxResume();
   return p;
}

bool TcpPduPam::write(U8 const* p, std::size_t n) {
   if (!backend_) {
      failTx("Channel is closed");
      return false;
   }
   if (txQueue_.empty()) {
      long w = backend_->write(p, n);
      if (w < 0 && w != -EAGAIN && w != -EWOULDBLOCK && w != -EINTR) {
         failTx(strerror(int(-w)));
         return false;
      }
      std::size_t done = w > 0 ? std::size_t(w) : 0;
      p += done;
      n -= done;
      if (n == 0) return true;
      backend_->writeInterestIs(true);
      writableIs(false);
   }
   txQueue_.insert(txQueue_.end(), p, p + n);
   writeLengthIs(txQueue_.size());
   return true;
}

void TcpPduPam::flush() {
   if (!backend_) return;
   while (!txQueue_.empty()) {
      U8 chunk[16384];
      std::size_t k = std::min(sizeof chunk, txQueue_.size());
      std::copy(txQueue_.begin(), txQueue_.begin() + long(k), chunk);
      long w = backend_->write(chunk, k);
      if (w == -EAGAIN || w == -EWOULDBLOCK || w == -EINTR) break;
      if (w < 0) {
         failTx(strerror(int(-w)));
         break;
      }
      txQueue_.erase(txQueue_.begin(), txQueue_.begin() + w);
   }
   writeLengthIs(txQueue_.size());
   if (txQueue_.empty()) {
      backend_->writeInterestIs(false);
      writableIs(true);
      writableCountInc(1);
   }
}

bool TcpPduPam::sendPkt(Vek::Ptr<Pkt> const& pkt) {
   if (!pkt) return false;
   if (!write(pkt->readPtr(0), pkt->dataBytes())) return false;
   txPduCountInc(1);
   return true;
}

void TcpPduPam::txPktIs(Vek::Ptr<Pkt> const& pkt) { sendPkt(pkt); }

bool TcpPduPam::sendIov(iovec const* vec, int count) {
   std::vector<U8> all;
   for (int i = 0; i < count; ++i) {
      auto const* b = static_cast<U8 const*>(vec[i].iov_base);
      all.insert(all.end(), b, b + vec[i].iov_len);
   }
   if (!write(all.data(), all.size())) return false;
   txPduCountInc(1);
   return true;
}

void TcpPduPam::cleanup() {
   if (!backend_) return;
   flush();
   backend_->sinkIs(nullptr);
   backend_.reset();
   txQueue_.clear();
   rxCur_ = nullptr;
   rxHead_ = rxTail_ = 0;
   enabled_ = false;
}

}  // namespace Nolu

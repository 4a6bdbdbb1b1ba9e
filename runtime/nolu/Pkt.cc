#include "runtime/nolu/Pkt.h"

#include <cstring>

namespace Nolu {

Pkt::Pkt(PktManager* manager, U32 bufferSize, U32 headRoom)
   : manager_(manager), defaultHeadRoom_(headRoom) {
   SharedBuffer& b = iov_[0];
   b.size_ = bufferSize + headRoom;
   b.buffer_ = new U8[b.size_];
   b.data_ = b.buffer_ + headRoom;
   b.dataBytes_ = 0;
   firstIoVec_ = 0;
   sharedBuffer_ = &iov_[0];
}

Pkt::~Pkt() {
   for (auto& b : iov_) delete[] b.buffer_;
}

void Pkt::handleZeroRef() {
   if (references() != 0) return;
   if (manager_) manager_->pktReleased(this);
   else delete this;
}

U8* Pkt::newSharedTailData(U32 n) {
   SharedBuffer& b = buf();
   VEK_ASSERT(n <= totalTailRoom());
   U8* p = b.data_ + b.dataBytes_;
   b.dataBytes_ += n;
   b.checkInvariants();
   return p;
}

void Pkt::delSharedTailData(U32 n) {
   SharedBuffer& b = buf();
   VEK_ASSERT(n <= b.dataBytes_);
   b.dataBytes_ -= n;
   b.checkInvariants();
}

U8* Pkt::newSharedHeadData(U32 n) {
   SharedBuffer& b = buf();
   U32 head = headRoom();
   if (head < n) {
      // Move the data to a buffer that is n bytes larger, leaving the old
      // head room in front of the new head bytes.
      U32 newSize = b.size_ + n;
      U8* nb = new U8[newSize];
      U8* nd = nb + head + n;
      std::memcpy(nd, b.data_, b.dataBytes_);
      delete[] b.buffer_;
      b.buffer_ = nb;
      b.size_ = newSize;
      b.data_ = nd;
   }
   b.data_ -= n;
   b.dataBytes_ += n;
   b.checkInvariants();
   return b.data_;
}

void Pkt::delSharedHeadData(U32 n) {
   SharedBuffer& b = buf();
   VEK_ASSERT(n <= b.dataBytes_);
   b.data_ += n;
   b.dataBytes_ -= n;
   b.checkInvariants();
}

void Pkt::dataDelAll() {
   SharedBuffer& b = buf();
   U32 head = defaultHeadRoom_ <= b.size_ ? defaultHeadRoom_ : 0;
   b.data_ = b.buffer_ + head;
   b.dataBytes_ = 0;
   b.checkInvariants();
}

bool Pkt::appendData(void const* p, U32 n) {
   if (n > totalTailRoom()) return false;
   if (n) std::memcpy(newSharedTailData(n), p, n);
   return true;
}

PktManager::~PktManager() {
   for (Pkt* p : free_) delete p;
}

Vek::Ptr<Pkt> PktManager::newPkt(U32 minTailRoom) {
   U32 want = minTailRoom > defaultBufferSize_ ? minTailRoom : defaultBufferSize_;
   while (!free_.empty()) {
      Pkt* p = free_.back();
      free_.pop_back();
      if (p->bufferSize() >= want + defaultHeadRoom) {
         p->dataDelAll();
         return Vek::Ptr<Pkt>(p);
      }
      delete p;
   }
   ++allocated_;
   return Vek::Ptr<Pkt>(new Pkt(this, want, defaultHeadRoom));
}

void PktManager::maxFreePktsIs(std::size_t n) {
   maxFreePkts_ = n;
   while (free_.size() > maxFreePkts_) {
      delete free_.back();
      free_.pop_back();
   }
}

void PktManager::pktReleased(Pkt* pkt) {
   // Packets whose buffer grew past the usual size, or that are smaller than
   // the present default, are not kept.
   if (free_.size() >= maxFreePkts_ || pkt->bufferSize() < defaultBufferSize_ + defaultHeadRoom ||
       pkt->bufferSize() > 2 * (defaultBufferSize_ + defaultHeadRoom)) {
      delete pkt;
      return;
   }
   free_.push_back(pkt);
}

PktManager* globalPktManager() {
   // Never destroyed: packets may outlive static destruction.
   static PktManager* manager = new PktManager;
   return manager;
}

}  // namespace Nolu

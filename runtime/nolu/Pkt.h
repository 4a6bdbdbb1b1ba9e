#pragma once
// Packets: reference-counted byte buffers with head and tail room, so that
// headers can be added in front and data at the back without copying. A
// packet's data is always contiguous, which lets parsers read it in place.
#include <vector>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Ptr.h"
#include "runtime/vek/Types.h"

namespace Nolu {

class PktManager;

// True when p lies in [base, base + size]; the end itself counts as inside,
// since an empty region or a full buffer ends there.
inline bool ptrWithinRegion(U8 const* p, U8 const* base, U32 size) {
   return p >= base && p <= base + size;
}

class Pkt : public Vek::PtrInterface {
 public:
   // One buffer: the allocation, its size, and the data window inside it.
   struct SharedBuffer {
      U8* buffer_ = nullptr;
      U32 size_ = 0;
      U8* data_ = nullptr;
      U32 dataBytes_ = 0;

      void checkInvariants() const {
         VEK_ASSERT(ptrWithinRegion( data_, buffer_, size_ ));
         VEK_ASSERT(ptrWithinRegion( data_ + dataBytes_, buffer_, size_ ));
      }
   };
   // A packet holds a single buffer, so its data is contiguous.
   static constexpr U32 maxIovecs_ = 1;

   // Bytes of data in the packet.
   U32 frontBytes() const { return buf().dataBytes_; }
   U32 dataBytes() const { return buf().dataBytes_; }
   // Bytes that can still be added at the tail, and at the head without
   // reallocating.
   U32 totalTailRoom() const {
      SharedBuffer const& b = buf();
      return U32(b.buffer_ + b.size_ - (b.data_ + b.dataBytes_));
   }
   U32 headRoom() const { return U32(buf().data_ - buf().buffer_); }
   U32 bufferSize() const { return buf().size_; }

   // Pointer to the data byte at offset; offset may equal frontBytes().
   U8 const* readPtr(U32 offset = 0) const {
      VEK_ASSERT(offset <= buf().dataBytes_);
      return buf().data_ + offset;
   }
   U8* writePtr(U32 offset = 0) {
      VEK_ASSERT(offset <= buf().dataBytes_);
      return buf().data_ + offset;
   }

   // Extends the data by n bytes at the tail and returns them. The caller has
   // checked totalTailRoom() first.
   U8* newSharedTailData(U32 n);
   // Gives n bytes back from the tail.
   void delSharedTailData(U32 n);
   // Extends the data by n bytes at the head; with too little head room the
   // data moves to a new buffer of the old size plus n.
   U8* newSharedHeadData(U32 n);
   // Drops n bytes from the head.
   void delSharedHeadData(U32 n);
   // Empties the packet and keeps its buffer, with the usual head room.
   void dataDelAll();
   // Copies n bytes to the tail; false, and no change, without the room.
   bool appendData(void const* p, U32 n);

 private:
   friend class PktManager;
   Pkt(PktManager* manager, U32 bufferSize, U32 headRoom);
   ~Pkt() override;
   void handleZeroRef() override;
   SharedBuffer const& buf() const {
      VEK_ASSERT(firstIoVec_ != maxIovecs_);
      VEK_ASSERT(sharedBuffer_ != 0);
      return *sharedBuffer_;
   }
   SharedBuffer& buf() {
      VEK_ASSERT(firstIoVec_ != maxIovecs_);
      VEK_ASSERT(sharedBuffer_ != 0);
      return *sharedBuffer_;
   }

   SharedBuffer iov_[maxIovecs_];
   U32 firstIoVec_ = maxIovecs_;
   SharedBuffer* sharedBuffer_ = nullptr;
   PktManager* manager_;
   U32 defaultHeadRoom_;
};

// Makes packets and keeps released ones on a free list for reuse.
class PktManager {
 public:
   static constexpr U32 minBufferSize = 4096;
   static constexpr U32 defaultHeadRoom = 64;

   PktManager() = default;
   PktManager(PktManager const&) = delete;
   PktManager& operator=(PktManager const&) = delete;
   ~PktManager();

   // A new empty packet with at least max(defaultBufferSize(), minTailRoom)
   // bytes of tail room and defaultHeadRoom bytes of head room.
   Vek::Ptr<Pkt> newPkt(U32 minTailRoom = 0);

   // Tail room of a new packet. Never below 4096, the largest PDU before a
   // session has agreed on its own maximum.
   U32 defaultBufferSize() const { return defaultBufferSize_; }
   void defaultBufferSizeIs(U32 n) { defaultBufferSize_ = n < minBufferSize ? minBufferSize : n; }

   std::size_t freePktCount() const { return free_.size(); }
   U64 allocatedPktCount() const { return allocated_; }
   std::size_t maxFreePkts() const { return maxFreePkts_; }
   void maxFreePktsIs(std::size_t n);

 private:
   friend class Pkt;
   void pktReleased(Pkt* pkt);

   U32 defaultBufferSize_ = minBufferSize + defaultHeadRoom;
   std::vector<Pkt*> free_;
   std::size_t maxFreePkts_ = 1024;
   U64 allocated_ = 0;
};

// The process-wide packet manager.
PktManager* globalPktManager();

}  // namespace Nolu

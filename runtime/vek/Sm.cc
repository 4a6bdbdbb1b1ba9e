#include "runtime/vek/Sm.h"

namespace Vek {

Sm::~Sm() {
   // Parts may outlive the base by a moment (members of the derived class are
   // gone already); make sure none points back at us.
   for (SmPart* p : parts_)
      if (p) p->owner_ = nullptr;
}

void Sm::hasNotificationActiveIs(bool b) {
   PtrInterface::hasNotificationActiveIs(b);
   if (markedForDeletion()) return;
   // A part may add or remove parts while we walk; walk by index.
   for (std::size_t i = 0; i < parts_.size(); ++i) parts_[i]->partNotificationActiveIs(b);
}

void Sm::markForDeletion() {
   if (dying_) return;
   dying_ = true;
   markedForDeletionIs();
   for (std::size_t i = 0; i < parts_.size(); ++i) parts_[i]->partMarkForDeletion();
}

void Sm::handleZeroRef() {
   if (deletePending_) return;
   if (!deleteHandled_) {
      // handleDelete() runs exactly once, also for a child that its dying
      // parent marked already. Keep a reference while it runs, since it may
      // take and drop references of its own.
      deleteHandled_ = true;
      newRef();
      handleDelete();
      markForDeletion();
      if ((references() - 1) != 0) {
         // Referenced again meanwhile: keep living, dead.
         delRefNoDelete();
         return;
      }
      delRefNoDelete();
   }
   if (handlerDepth_ > 0) {
      deletePending_ = true;
      return;
   }
   delete this;
}

void Sm::partAdd(SmPart* p) {
   p->partSlot_ = static_cast<U32>(parts_.size());
   parts_.push_back(p);
   if (dying_) p->partMarkForDeletion();
}

void Sm::partDel(SmPart* p) {
   SmPart* last = parts_.back();
   parts_[p->partSlot_] = last;
   last->partSlot_ = p->partSlot_;
   parts_.pop_back();
}

}  // namespace Vek

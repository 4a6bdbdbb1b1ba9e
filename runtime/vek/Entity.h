#pragma once
// Entities hold named state; notifiees (reactors) subscribe to them. A mutator
// stores the new value and then calls every registered notifiee before it
// returns. The notifiee list tolerates registrations and removals during a
// walk, and the entity is kept alive while it notifies.
#include <ostream>
#include <string>
#include <vector>

#include "runtime/vek/Ptr.h"

namespace Vek {

class Entity;
class Sm;

// A part of a state machine that must die with it: reactors, timer tasks and
// holders of child machines. The machine marks its parts depth first when it
// starts to die and switches their notification on and off with its own.
class SmPart {
 public:
   SmPart() = default;
   SmPart(SmPart const&) = delete;
   SmPart& operator=(SmPart const&) = delete;
   virtual ~SmPart();

   Sm* owner() const { return owner_; }
   virtual void partMarkForDeletion() = 0;
   virtual void partNotificationActiveIs(bool) = 0;

 protected:
   void ownerIs(Sm* sm);

 private:
   friend class Sm;
   Sm* owner_ = nullptr;
   U32 partSlot_ = 0;
};

class NotifieeBase : public SmPart {
 public:
   NotifieeBase() = default;
   ~NotifieeBase() override;

   bool isRegisteredNotifiee() const { return registered_; }
   void isRegisteredNotifieeIs(bool b) {
      registered_ = b;
      sync();
   }
   bool hasNotificationActive() const { return active_; }
   void hasNotificationActiveIs(bool b) {
      active_ = b;
      sync();
   }
   bool markedForDeletion() const { return marked_; }
   void markedForDeletionIs() {
      marked_ = true;
      active_ = false;
      sync();
   }
   void partMarkForDeletion() override { markedForDeletionIs(); }
   void partNotificationActiveIs(bool b) override { hasNotificationActiveIs(b); }

   // The depth of the notifiee's entity type in its inheritance chain; a
   // notification of an attribute declared at depth d reaches notifiees of
   // depth d or more only.
   U8 notifieeDepth() const { return depth_; }

 protected:
   explicit NotifieeBase(U8 depth) : depth_(depth) {}
   Entity const* notifierBase() const { return notifier_.ptr(); }
   // Replaces the notifier; registration moves with it.
   void notifierBaseIs(Ptr<Entity const> const& e);

 private:
   friend class Entity;
   void sync();
   Ptr<Entity const> notifier_;
   U32 slot_ = 0;
   U8 depth_ = 0;
   bool registered_ = true;
   bool active_ = true;
   bool marked_ = false;
   bool listed_ = false;
};

// An entity is 32 bytes of its own: the reference word, its parent, the
// name of the parent's attribute that holds it (by number, in the room the
// reference word leaves), and its notifiee list, made when the first notifiee
// registers.
class Entity : public PtrInterface {
 public:
   Entity() = default;
   ~Entity() override;

   // The entity's name: for a keyed member the text of its key, for a single
   // child the name of the attribute that holds it.
   virtual std::string entityName() const { return parentAttrName(); }
   std::string fullName() const;
   Entity const* parent() const { return parent_; }
   char const* parentAttrName() const;
   void parentIs(Entity const* p, char const* attr);
   std::size_t notifieeCount() const { return list_ ? list_->live : 0; }

 protected:
   // Calls f on each notifiee of depth at least d. Notifiees added during the
   // walk are not called for this change; removed ones are skipped.
   template <class N, class F>
   void notify(U8 d, F&& f) const {
      if (!list_ || list_->live == 0) return;
      Ptr<Entity const> keep(this);
      List* l = list_;
      ++l->walking;
      std::size_t n = l->v.size();
      for (std::size_t i = 0; i < n; ++i) {
         NotifieeBase* p = l->v[i];
         if (p && p->depth_ >= d) f(static_cast<N*>(p));
      }
      if (--l->walking == 0 && l->holes) compact();
   }

 private:
   friend class NotifieeBase;
   struct List {
      std::vector<NotifieeBase*> v;
      std::size_t live = 0;
      U32 walking = 0;
      bool holes = false;
   };
   void notifieeAdd(NotifieeBase* n) const;
   void notifieeDel(NotifieeBase* n) const;
   void compact() const;

   U16 parentAttr_ = 0;
   Entity const* parent_ = nullptr;
   mutable List* list_ = nullptr;
};

// An entity that only holds named children of any type.
class Dir : public Entity {
 public:
   Dir() = default;
   explicit Dir(std::string name) : name_(std::move(name)) {}
   std::string entityName() const override { return name_; }

 private:
   std::string name_;
};

}  // namespace Vek

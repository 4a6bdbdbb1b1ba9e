#include "runtime/vek/Entity.h"

#include <deque>
#include <unordered_map>

#include "runtime/vek/Sm.h"

namespace Vek {

namespace {

// The names of the attributes that hold entities, by number; 0 is no name.
struct AttrNames {
   std::deque<char const*> names{""};
   std::unordered_map<std::string, U16> ids;
   std::unordered_map<char const*, U16> byPointer;
   U16 id(char const* name) {
      if (!name || !*name) return 0;
      if (auto p = byPointer.find(name); p != byPointer.end()) return p->second;
      auto [it, fresh] = ids.try_emplace(name, U16(names.size()));
      byPointer.emplace(name, it->second);
      if (fresh) {
         VEK_ASSERT(names.size() < 0xffff && "Internal Error: too many attribute names");
         names.push_back(name);
      }
      return it->second;
   }
};

AttrNames& attrNames() {
   static AttrNames n;
   return n;
}

}  // namespace

SmPart::~SmPart() {
   if (owner_) owner_->partDel(this);
}

void SmPart::ownerIs(Sm* sm) {
   if (owner_ == sm) return;
   if (owner_) owner_->partDel(this);
   owner_ = sm;
   if (owner_) owner_->partAdd(this);
}

NotifieeBase::~NotifieeBase() {
   if (listed_) notifier_->notifieeDel(this);
}

void NotifieeBase::notifierBaseIs(Ptr<Entity const> const& e) {
   if (e == notifier_) return;
   if (listed_) {
      notifier_->notifieeDel(this);
      listed_ = false;
   }
   notifier_ = e;
   sync();
}

void NotifieeBase::sync() {
   bool want = registered_ && active_ && !marked_ && notifier_;
   if (want == listed_) return;
   if (want) notifier_->notifieeAdd(this);
   else notifier_->notifieeDel(this);
   listed_ = want;
}

Entity::~Entity() {
   // Notifiees hold a reference to their notifier, so none can be listed here.
   delete list_;
}

char const* Entity::parentAttrName() const { return attrNames().names[parentAttr_]; }

void Entity::parentIs(Entity const* p, char const* attr) {
   parent_ = p;
   parentAttr_ = attrNames().id(attr);
}

std::string Entity::fullName() const {
   std::string n = entityName();
   for (Entity const* p = parent_; p; p = p->parent_) {
      std::string pn = p->entityName();
      if (!pn.empty()) n = pn + "/" + n;
   }
   return n;
}

void Entity::notifieeAdd(NotifieeBase* n) const {
   if (!list_) list_ = new List;
   n->slot_ = static_cast<U32>(list_->v.size());
   list_->v.push_back(n);
   ++list_->live;
}

void Entity::notifieeDel(NotifieeBase* n) const {
   List* l = list_;
   --l->live;
   if (l->walking) {
      // A walk is under way: leave a hole so that no member moves under it.
      l->v[n->slot_] = nullptr;
      l->holes = true;
      return;
   }
   NotifieeBase* last = l->v.back();
   l->v[n->slot_] = last;
   last->slot_ = n->slot_;
   l->v.pop_back();
}

void Entity::compact() const {
   List* l = list_;
   std::size_t j = 0;
   for (std::size_t i = 0; i < l->v.size(); ++i) {
      if (NotifieeBase* p = l->v[i]) {
         p->slot_ = static_cast<U32>(j);
         l->v[j++] = p;
      }
   }
   l->v.resize(j);
   l->holes = false;
}

}  // namespace Vek

#include "runtime/ombra/Ombra.h"

#include "runtime/vek/Exception.h"

namespace Ombra {

char const* mountStatusStr(MountStatus s) {
   switch (s) {
      case mountSuccess_: return "mountSuccess_";
      case mountFailure_: return "mountFailure_";
      case mountPending_: return "mountPending_";
   }
   return "unknown";
}

TypeRegistry& TypeRegistry::instance() {
   static TypeRegistry r;
   return r;
}

void TypeRegistry::typeIs(std::string const& typeName, EntityFactory f) {
   types_[typeName] = std::move(f);
}

Vek::Ptr<Vek::Entity> TypeRegistry::newEntity(std::string const& typeName,
                                              std::string const& name) const {
   auto it = types_.find(typeName);
   if (it == types_.end()) return nullptr;
   return it->second(name);
}

std::string pathLeaf(std::string const& path) {
   auto pos = path.rfind('/');
   return pos == std::string::npos ? path : path.substr(pos + 1);
}

Vek::Ptr<Vek::Entity> Store::entity(std::string const& path) const {
   auto it = slots_.find(path);
   return it == slots_.end() ? nullptr : it->second.entity;
}

std::string Store::typeName(std::string const& path) const {
   auto it = slots_.find(path);
   return it == slots_.end() ? std::string() : it->second.typeName;
}

void Store::entityIs(std::string const& path, std::string const& typeName,
                     Vek::Ptr<Vek::Entity> const& e) {
   slots_[path] = Slot{typeName, e};
}

Vek::Ptr<Vek::Entity> Store::entityFindOrNew(std::string const& path,
                                             std::string const& typeName) {
   auto it = slots_.find(path);
   if (it != slots_.end()) return it->second.typeName == typeName ? it->second.entity : nullptr;
   auto e = TypeRegistry::instance().newEntity(typeName, pathLeaf(path));
   if (!e) return nullptr;
   slots_[path] = Slot{typeName, e};
   return e;
}

void Store::entityDel(std::string const& path) {
   auto it = slots_.find(path);
   if (it == slots_.end()) return;
   // The entity goes after the map is consistent again.
   Vek::Ptr<Vek::Entity> dead = std::move(it->second.entity);
   slots_.erase(it);
}

void MountGroup::doMount(Mount const& m) {
   VEK_ASSERT(!closed_ && "Internal Error: mount on a closed mount group");
   mounts_.push_back(m);
}

void MountGroup::doClose(bool, std::string const&, Vek::Seconds) { closed_ = true; }

MountStatus MountGroup::complete() {
   if (status_ != mountPending_) return status_;
   VEK_ASSERT(closed_ && "Internal Error: mount group completed before it was closed");
   status_ = mountSuccess_;
   for (auto const& m : mounts_) {
      if (!em_->store_->entityFindOrNew(m.path, m.typeName)) {
         status_ = mountFailure_;
         failure_ = "cannot mount " + m.path + " as " + m.typeName;
         if (!em_->store_->typeName(m.path).empty()) {
            failure_ += ": the path holds " + em_->store_->typeName(m.path);
         }
         return status_;
      }
      em_->mounted_.insert_or_assign(m.path, m);
   }
   return status_;
}

EntityManager::EntityManager(Vek::Ptr<Store> const& store) : store_(Vek::validPtr(store)) {}

Vek::Ptr<MountGroup> EntityManager::getMountGroup(Mounter* mounter) {
   Vek::Ptr<MountGroup> g(new MountGroup(this, mounter));
   groups_.push_back(g);
   return g;
}

Vek::Ptr<Vek::Entity> EntityManager::getEntity(std::string const& path) const {
   if (auto it = local_.find(path); it != local_.end()) return it->second;
   if (!mounted_.count(path)) return nullptr;
   return store_->entity(path);
}

Vek::Ptr<Vek::Entity> EntityManager::createLocalEntity(std::string const& name,
                                                       std::string const& typeName,
                                                       std::string const& path) {
   auto e = TypeRegistry::instance().newEntity(typeName, name);
   if (e) local_[path] = e;
   return e;
}

}  // namespace Ombra

namespace Cell {

namespace {
U32 theCellId = 1;
}

U32 cellId() { return theCellId; }
void cellIdIs(U32 id) { theCellId = id; }
std::string path(std::string const& name) {
   return "cell/" + std::to_string(theCellId) + "/" + name;
}

}  // namespace Cell

namespace VekTesh {

bool Mount::doMount(std::string const& path, std::string const& typeName, MountInfo const&) {
   if (!store_->entityFindOrNew(path, typeName)) return false;
   mounted_[path] = typeName;
   log_.emplace_back(path, typeName, "tesh");
   return true;
}

Vek::Ptr<Vek::Entity> Mount::getEntity(std::string const& path) const {
   if (!mounted_.count(path)) return nullptr;
   return store_->entity(path);
}

void Mount::doUnmount(std::string const& path) { mounted_.erase(path); }

void Mount::cleanup(std::string const& path) {
   mounted_.erase(path);
   store_->entityDel(path);
}

}  // namespace VekTesh

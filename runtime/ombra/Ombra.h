#pragma once
// The state database, embedded in the process: a store of entities by path
// that outlives the agents working over it. An agent mounts the paths that it
// needs in a mount group; closing the group creates, by type name, the
// entities that don't exist yet, and checks that those that exist have the
// type asked for. Other agents (host adapters, tests) write the entities
// directly through the same store.
#include <functional>
#include <map>
#include <type_traits>
#include <string>
#include <vector>

#include "runtime/vek/Entity.h"
#include "runtime/vek/Ptr.h"
#include "runtime/vek/Types.h"

namespace Ombra {

enum MountStatus : U8 {
   mountSuccess_ = 0,
   mountFailure_ = 1,
   mountPending_ = 2,
};
char const* mountStatusStr(MountStatus s);

// Makes an entity of a type given by name; the argument is the entity's name,
// the last part of its path.
using EntityFactory = std::function<Vek::Ptr<Vek::Entity>(std::string const& name)>;

// Type name -> factory. Entity code registers its types once at start.
class TypeRegistry {
 public:
   static TypeRegistry& instance();
   void typeIs(std::string const& typeName, EntityFactory f);
   bool hasType(std::string const& typeName) const { return types_.count(typeName) != 0; }
   // Null when the type is unknown.
   Vek::Ptr<Vek::Entity> newEntity(std::string const& typeName, std::string const& name) const;

 private:
   std::map<std::string, EntityFactory> types_;
};

// Registers T under typeName, made from its name when T takes one, else
// default constructed.
template <class T>
void typeRegister(std::string const& typeName) {
   TypeRegistry::instance().typeIs(typeName, [](std::string const& name) -> Vek::Ptr<Vek::Entity> {
      if constexpr (std::is_constructible_v<T, std::string const&>) return Vek::Ptr<T>(new T(name));
      else return Vek::Ptr<T>(new T());
   });
}

// The last part of a path: "a/b/c" -> "c".
std::string pathLeaf(std::string const& path);

// The entities by path, with the type name that each was made as.
class Store : public Vek::PtrInterface {
 public:
   struct Slot {
      std::string typeName;
      Vek::Ptr<Vek::Entity> entity;
   };
   Vek::Ptr<Vek::Entity> entity(std::string const& path) const;
   std::string typeName(std::string const& path) const;
   // Puts an entity at path, replacing any there.
   void entityIs(std::string const& path, std::string const& typeName,
                 Vek::Ptr<Vek::Entity> const& e);
   // The entity at path, made by type if absent; null if the path holds
   // another type or the type is unknown.
   Vek::Ptr<Vek::Entity> entityFindOrNew(std::string const& path, std::string const& typeName);
   void entityDel(std::string const& path);
   std::size_t size() const { return slots_.size(); }
   std::map<std::string, Slot> const& slots() const { return slots_; }

   // Typed access for the writers outside the agent.
   template <class T>
   Vek::Ptr<T> get(std::string const& path) const {
      return Vek::Ptr<T>(dynamic_cast<T*>(entity(path).ptr()));
   }

 private:
   std::map<std::string, Slot> slots_;
};

// One mount: a path, the entity type there and the mode: "r" read only, "rw"
// read and write, "wc" write and create, "ri" read, for a directory.
struct Mount {
   Mount(std::string p, std::string t, std::string m)
      : path(std::move(p)), typeName(std::move(t)), mode(std::move(m)) {}
   std::string path;
   std::string typeName;
   std::string mode;
   bool operator==(Mount const& o) const = default;
};

class EntityManager;

// An entity that mounts paths: the agent.
class Mounter : public Vek::Dir {
 public:
   using Vek::Dir::Dir;
};

class MountGroup : public Vek::PtrInterface {
 public:
   MountGroup(EntityManager* em, Mounter* mounter) : em_(em), mounter_(mounter) {}
   void doMount(Mount const& m);
   // Ends the group: mounting begins. The arguments (wait for a peer, its
   // name, a timeout) have no use in an embedded store.
   void doClose(bool waitForPeer = false, std::string const& peer = "", Vek::Seconds timeout = 0.0);
   bool closed() const { return closed_; }
   // Makes the group's entities that are absent; the result is the group's
   // status. Runs once, after doClose().
   MountStatus complete();
   MountStatus status() const { return status_; }
   std::vector<Mount> const& mounts() const { return mounts_; }
   Mounter* mounter() const { return mounter_; }
   // Why the group failed, when it did.
   std::string const& failure() const { return failure_; }

 private:
   EntityManager* em_;
   Mounter* mounter_;
   std::vector<Mount> mounts_;
   bool closed_ = false;
   MountStatus status_ = mountPending_;
   std::string failure_;
};

// An agent's view of the store: its mount groups, and the entities of
// completed groups by path.
class EntityManager : public Vek::PtrInterface {
 public:
   explicit EntityManager(Vek::Ptr<Store> const& store);
   Vek::Ptr<Store> const& store() const { return store_; }

   Vek::Ptr<MountGroup> getMountGroup(Mounter* mounter);
   // The entity at a path of a completed group, or a local entity; null
   // otherwise.
   Vek::Ptr<Vek::Entity> getEntity(std::string const& path) const;
   template <class T>
   Vek::Ptr<T> getEntity(std::string const& path) const {
      return Vek::Ptr<T>(dynamic_cast<T*>(getEntity(path).ptr()));
   }
   bool isMounted(std::string const& path) const { return mounted_.count(path) != 0; }

   // An entity that lives in the agent only, not in the store.
   Vek::Ptr<Vek::Entity> createLocalEntity(std::string const& name, std::string const& typeName,
                                           std::string const& path);
   std::vector<Vek::Ptr<MountGroup>> const& mountGroups() const { return groups_; }

 private:
   friend class MountGroup;
   Vek::Ptr<Store> store_;
   std::vector<Vek::Ptr<MountGroup>> groups_;
   std::map<std::string, Mount> mounted_;
   std::map<std::string, Vek::Ptr<Vek::Entity>> local_;
};

}  // namespace Ombra

namespace Cell {
// The cell of this process; per-cell entities live under "cell/<id>/".
U32 cellId();
void cellIdIs(U32 id);
std::string path(std::string const& name);
}  // namespace Cell

namespace VekTesh {

// What a shared-memory mount is given; the tables of this agent take the
// empty default.
struct MountInfo {
   bool writer = false;
};

// Shared-memory tables, kept in the same store as the state database.
class Mount : public Vek::PtrInterface {
 public:
   explicit Mount(Vek::Ptr<Ombra::Store> const& store) : store_(store) {}
   // Makes the table if absent; false when the path holds another type or the
   // type is unknown.
   bool doMount(std::string const& path, std::string const& typeName, MountInfo const& info = {});
   Vek::Ptr<Vek::Entity> getEntity(std::string const& path) const;
   template <class T>
   Vek::Ptr<T> getEntity(std::string const& path) const {
      return Vek::Ptr<T>(dynamic_cast<T*>(getEntity(path).ptr()));
   }
   // Forgets the mount; the table stays in the store.
   void doUnmount(std::string const& path);
   // Removes the table from the store, as its writer does when it goes.
   void cleanup(std::string const& path);
   std::vector<Ombra::Mount> const& mounts() const { return log_; }
   bool isMounted(std::string const& path) const { return mounted_.count(path) != 0; }

 private:
   Vek::Ptr<Ombra::Store> store_;
   std::map<std::string, std::string> mounted_;
   std::vector<Ombra::Mount> log_;
};

}  // namespace VekTesh

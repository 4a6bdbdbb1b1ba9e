#pragma once
// The generic agent runner: an agent is a mounter of the state database with
// two steps of its own, doInit() and doMountsComplete(). The runner makes or
// takes the store, calls doInit(), completes the mount groups, calls
// doMountsComplete() and runs the event loop.
#include <functional>
#include <string>

#include "runtime/ombra/Ombra.h"
#include "runtime/vek/Activity.h"

namespace AgentBase {

class CAgent : public Ombra::Mounter {
 public:
   explicit CAgent(std::string const& name) : Ombra::Mounter(name), agentName_(name) {}
   std::string const& agentName() const { return agentName_; }

   virtual void doInit() = 0;
   virtual void doMountsComplete(Ombra::MountStatus mountStatus,
                                 Vek::Ptr<Ombra::EntityManager> const& entityManager) = 0;

   Vek::Ptr<Ombra::EntityManager> const& entityManager() const { return entityManager_; }
   void entityManagerIs(Vek::Ptr<Ombra::EntityManager> const& em) { entityManager_ = em; }

   // Makes an entity that lives in the agent only.
   Vek::Ptr<Vek::Entity> createLocalEntity(std::string const& name, std::string const& typeName,
                                           std::string const& path);
   bool localEntitiesCreated() const { return localEntitiesCreated_; }
   void localEntitiesCreatedIs(bool b) { localEntitiesCreated_ = b; }

 private:
   std::string agentName_;
   Vek::Ptr<Ombra::EntityManager> entityManager_;
   bool localEntitiesCreated_ = false;
};

using AgentFactory = std::function<Vek::Ptr<CAgent>(std::string const& name)>;

// Runs one agent over a store. The store may be given, so that a new agent
// sees what an earlier one wrote.
class AgentRunner {
 public:
   explicit AgentRunner(Vek::Ptr<Ombra::Store> store = nullptr);
   ~AgentRunner();
   Vek::Ptr<Ombra::Store> const& store() const { return store_; }

   // doInit(), the mounts, doMountsComplete(); false when a mount failed, in
   // which case doMountsComplete() was called with the failure.
   bool start(Vek::Ptr<CAgent> const& agent);
   bool start(AgentFactory const& factory, std::string const& name) {
      return start(factory(name));
   }
   Vek::Ptr<CAgent> const& agent() const { return agent_; }
   Vek::Ptr<Ombra::EntityManager> const& entityManager() const { return entityManager_; }
   // Real time: runs the event loop until it is stopped.
   void run();
   // Destroys the agent; the store stays.
   void stop();

 private:
   Vek::Ptr<Ombra::Store> store_;
   Vek::Ptr<Ombra::EntityManager> entityManager_;
   Vek::Ptr<CAgent> agent_;
};

}  // namespace AgentBase

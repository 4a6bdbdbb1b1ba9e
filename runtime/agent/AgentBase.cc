#include "runtime/agent/AgentBase.h"

#include "runtime/vek/Exception.h"

namespace AgentBase {

Vek::Ptr<Vek::Entity> CAgent::createLocalEntity(std::string const& name,
                                                std::string const& typeName,
                                                std::string const& path) {
   VEK_ASSERT(entityManager_ && "Internal Error: no entity manager");
   return entityManager_->createLocalEntity(name, typeName, path);
}

AgentRunner::AgentRunner(Vek::Ptr<Ombra::Store> store)
   : store_(store ? store : Vek::Ptr<Ombra::Store>(new Ombra::Store)) {}

AgentRunner::~AgentRunner() { stop(); }

bool AgentRunner::start(Vek::Ptr<CAgent> const& agent) {
   agent_ = Vek::validPtr(agent);
   entityManager_ = Vek::Ptr<Ombra::EntityManager>(new Ombra::EntityManager(store_));
   agent_->entityManagerIs(entityManager_);
   agent_->doInit();
   Ombra::MountStatus status = Ombra::mountSuccess_;
   for (auto const& g : entityManager_->mountGroups()) {
      if (!g->closed()) continue;
      if (g->complete() != Ombra::mountSuccess_) status = Ombra::mountFailure_;
   }
   agent_->doMountsComplete(status, entityManager_);
   return status == Ombra::mountSuccess_;
}

void AgentRunner::run() { Vek::activityManager()->run(); }

void AgentRunner::stop() {
   Vek::Ptr<CAgent> dead = std::move(agent_);
   dead = nullptr;
   entityManager_ = nullptr;
}

}  // namespace AgentBase

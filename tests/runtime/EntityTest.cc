// Entities, reactors and the life of a state machine.
#include <gtest/gtest.h>

#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"
#include "tests/runtime/TestEntities.h"

using namespace VekTest;
using Vek::Ptr;

namespace {

class Watcher : public Ldp::LdpSm {
 public:
   static Ptr<Watcher> WatcherIs(Ptr<Tree> const& t) { return Vek::makeSm<Watcher>(t); }
   explicit Watcher(Ptr<Tree> const& t) : LdpSm(7), leafReactors_(), tree_() {
      tree_.init(this, t, &Watcher::handleTree);
      handleInitialized();
   }
   void handleInitialized() {
      // Writes made here notify, but the handlers are still inert.
      if (auto* t = const_cast<Tree*>(tree_.get())) t->nameIs("initializing");
      initialized_ = true;
   }
   void treeIs(Ptr<Tree> const& t) { tree_.assign(this, t, &Watcher::handleTree); }

   void handleTree() {
      if (!initialized_) return;
      ++treeCalls;
   }
   void handleName() {
      if (!initialized_) return;
      ++nameCalls;
      if (deleteSelfOnName) {
         owner->reset();
         // Still safe to touch members after the last reference went away.
         ++nameCalls;
         const_cast<Tree*>(tree_.get())->countInc();
      }
   }
   void handleCount() {
      if (!initialized_) return;
      ++countCalls;
   }
   void handleTag(std::string const& k) {
      if (!initialized_) return;
      tagKeys.push_back(k);
   }
   void handleBaseValue() {
      if (!initialized_) return;
      ++baseCalls;
   }
   void handleLeaf(U32 const& id) {
      if (!initialized_) return;
      auto leaf = tree_.get()->leaf(id);
      if (leaf) leafReactors_.is(id, this, leaf, id, &Watcher::handleLeafMember);
      else leafReactors_.del(id);
   }
   void handleLeafMember(U32 const& id) { memberCalls.push_back(id); }

   int treeCalls = 0, nameCalls = 0, countCalls = 0, baseCalls = 0;
   std::vector<std::string> tagKeys;
   std::vector<U32> memberCalls;
   bool deleteSelfOnName = false;
   Ptr<Watcher>* owner = nullptr;

 private:
   Vek::ReactorColl<U32, Leaf::MemberReactor<Watcher, U32>> leafReactors_;
   Vek::Input<Tree::Reactor<Watcher>> tree_;
};

}  // namespace

TEST(Entity, WritesNotifyOnlyOnChange) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   Ptr<Tree> tree(new Tree);
   auto w = Watcher::WatcherIs(tree);
   // The write inside handleInitialized() reached an inert handler.
   EXPECT_EQ(0, w->nameCalls);
   EXPECT_EQ("initializing", tree->name());

   tree->nameIs("a");
   tree->nameIs("a");
   EXPECT_EQ(1, w->nameCalls);
   tree->countInc(0);
   tree->countInc(2);
   EXPECT_EQ(1, w->countCalls);
   EXPECT_EQ(2u, tree->count());

   tree->tagIs("x", 1);
   tree->tagIs("x", 1);
   tree->tagIs("x", 2);
   tree->tagDel("absent");
   tree->tagIs("y", 3);
   EXPECT_EQ((std::vector<std::string>{"x", "x", "y"}), w->tagKeys);
   w->tagKeys.clear();
   tree->tagDelAll();
   EXPECT_EQ(2u, w->tagKeys.size());
   tree->tagDelAll();
   EXPECT_EQ(2u, w->tagKeys.size());
   EXPECT_EQ(0, tree->tag("x"));

   // An attribute of the base entity reaches the derived entity's reactor.
   tree->baseValueIs(5);
   EXPECT_EQ(1, w->baseCalls);
}

TEST(Entity, InputAssignmentAndMemberReactors) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   auto w = Watcher::WatcherIs(nullptr);
   Ptr<Tree> tree(new Tree);
   tree->nameIs("before");
   EXPECT_EQ(0, w->nameCalls);  // no reactor for a null input
   w->treeIs(tree);
   EXPECT_EQ(1, w->treeCalls);  // assignment runs the keyless handler once
   w->treeIs(tree);
   EXPECT_EQ(1, w->treeCalls);  // the same pointer again does nothing
   tree->nameIs("after");
   EXPECT_EQ(1, w->nameCalls);

   tree->leafIs(1, red_);
   tree->leafIs(2, green_);
   tree->leaf(1)->valueIs(10);
   tree->leaf(2)->hitsInc();
   EXPECT_EQ((std::vector<U32>{1, 2}), w->memberCalls);
   tree->leafDel(1);
   EXPECT_EQ(nullptr, tree->leaf(1));
   EXPECT_EQ("2", tree->leaf(2)->entityName());
   EXPECT_EQ("2", tree->leaf(2)->fullName());

   // Same key, other constructor value: a fault with the runtime's text.
   try {
      tree->leafIs(2, red_);
      FAIL();
   } catch (Vek::RangeException const& e) {
      EXPECT_EQ(std::string("Reinstantiating the pointer interface where constructor parameter "
                            "attribute _colour has a different value of red_"),
                e.what());
   }
   EXPECT_EQ(tree->leaf(2), tree->leafIs(2, green_));

   w->treeIs(nullptr);
   tree->nameIs("gone");
   EXPECT_EQ(1, w->nameCalls);
   EXPECT_EQ(0u, tree->notifieeCount());
}

TEST(Entity, MachineDeletingItselfInItsHandler) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   Ptr<Tree> tree(new Tree);
   auto w = Watcher::WatcherIs(tree);
   Ptr<Watcher> other = Watcher::WatcherIs(tree);
   w->deleteSelfOnName = true;
   w->owner = &w;
   Watcher* raw = w.ptr();
   tree->nameIs("boom");
   EXPECT_EQ(nullptr, w);
   // The other machine saw the change and the count written by the dying one.
   EXPECT_EQ(1, other->nameCalls);
   EXPECT_EQ(1, other->countCalls);
   EXPECT_EQ(1u, tree->notifieeCount());
   (void)raw;
}

TEST(Entity, IterationSurvivesDeletion) {
   Vek::HashMap<U32, int> m;
   for (U32 i = 0; i < 100; ++i) m.emplace(i, static_cast<int>(i));
   int seen = 0;
   for (auto it = m.begin(); it; ++it) {
      U32 k = it.key();
      m.erase(k);                       // the member we stand on
      if (k + 1 < 100) m.erase(k + 1);  // and the next one
      ++seen;
   }
   EXPECT_EQ(50, seen);
   EXPECT_TRUE(m.empty());

   // A bookmark resumes at its key, or from the start when the key is gone.
   for (U32 i = 0; i < 10; ++i) m.emplace(i, 0);
   EXPECT_EQ(5u, m.iterFrom(5).key());
   m.erase(5);
   EXPECT_EQ(m.begin().key(), m.iterFrom(5).key());

   // Two maps built the same way walk in the same order.
   Vek::HashMap<std::string, int> a, b;
   for (int i = 0; i < 50; ++i) {
      a.emplace("k" + std::to_string(i), i);
      b.emplace("k" + std::to_string(i), i);
   }
   auto ib = b.begin();
   for (auto ia = a.begin(); ia; ++ia, ++ib) EXPECT_EQ(ia.key(), ib.key());

   Vek::OrderedMap<U32, int> o;
   for (U32 i = 0; i < 10; ++i) o.emplace(i, 0);
   std::vector<U32> keys;
   for (auto it = o.begin(); it; it.advance()) {
      U32 k = it.key();
      keys.push_back(k);
      o.erase(k);
      if (k == 4) o.erase(5);
   }
   EXPECT_EQ((std::vector<U32>{0, 1, 2, 3, 4, 6, 7, 8, 9}), keys);
}

namespace {

// A machine whose cleanup counts, with an optional child of its own kind.
class Cleaner : public Ldp::LdpSm {
 public:
   Cleaner(int* deletes, bool withChild) : LdpSm(1), deletes_(deletes), child_(this) {
      if (withChild) child_.is(Vek::makeSm<Cleaner>(deletes, false));
      initialized_ = true;
   }
   Cleaner* child() const { return child_.get(); }

 protected:
   void handleDelete() override {
      ++*deletes_;
      initialized_ = false;
   }

 private:
   int* deletes_;
   Vek::SmChild<Cleaner> child_;
};

}  // namespace

TEST(Entity, HandleDeleteRunsOnceForParentAndChild) {
   int deletes = 0;
   auto parent = Vek::makeSm<Cleaner>(&deletes, true);
   // A child kept alive by someone else runs its cleanup when the last holder lets go.
   Ptr<Cleaner> held(parent->child());
   parent = nullptr;
   EXPECT_EQ(1, deletes);
   EXPECT_TRUE(held->markedForDeletion());
   held = nullptr;
   EXPECT_EQ(2, deletes);

   // A child that dies with its parent cleans up too, once.
   deletes = 0;
   parent = Vek::makeSm<Cleaner>(&deletes, true);
   parent = nullptr;
   EXPECT_EQ(2, deletes);
}

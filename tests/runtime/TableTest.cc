// Table entries: handles, notifications through the owner, the part made on
// first use, and handles that outlive their entry.
#include <gtest/gtest.h>

#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"
#include "tests/runtime/TestEntities.h"

using namespace VekTest;
using Vek::Ptr;

namespace {

// Watches a table: one reactor for all its entries.
class TableWatcher : public Ldp::LdpSm {
 public:
   explicit TableWatcher(Ptr<Table> const& t) : LdpSm(1) {
      r_.init(this, t);
      initialized_ = true;
   }
   void handleRow(U32 const& id) { log.push_back("row " + std::to_string(id)); }
   void handleRowWeight(U32 const& id) { log.push_back("weight " + std::to_string(id)); }
   void handleRowLabel(U32 const& id, U32 const& l) {
      log.push_back("label " + std::to_string(id) + "/" + std::to_string(l));
   }
   void handleRowNote(U32 const& id) { log.push_back("note " + std::to_string(id)); }
   std::vector<std::string> log;

 private:
   Vek::Input<Table::Reactor<TableWatcher>> r_;
};

struct ThrowingAsserts {
   ThrowingAsserts() { Vek::assertHandlerIs(Vek::throwingAssertHandler); }
   ~ThrowingAsserts() { Vek::assertHandlerIs(nullptr); }
};

}  // namespace

TEST(Table, EntriesNotifyThroughTheirTable) {
   Ptr<Table> t(new Table);
   auto w = Vek::makeSm<TableWatcher>(t);
   auto r = t->rowIs(5);
   r->weightIs(3);
   r->weightIs(3);  // unchanged: silent
   r->labelIs(100, 1);
   r->labelIs(100, 1);
   r->labelDel(100);
   r->labelDel(100);
   r->hitsInc(2);   // nobody handles hits: still fine
   EXPECT_EQ((std::vector<std::string>{"row 5", "weight 5", "label 5/100", "label 5/100"}), w->log);
   EXPECT_EQ(2u, t->row(5)->hits());
   // A const view reads the entry in place.
   Ptr<Table const> ct(t);
   EXPECT_EQ(3u, ct->row(5)->weight());
   EXPECT_EQ(nullptr, ct->row(6));
   EXPECT_FALSE(t->row(6));

   // The rarely used fields: read as their defaults until written.
   EXPECT_EQ(7u, r->note());
   EXPECT_FALSE(r->get().extra_);
   r->noteIs(7);
   r->flagDel(1);
   EXPECT_FALSE(r->get().extra_);
   r->noteIs(8);
   EXPECT_TRUE(r->get().extra_);
   EXPECT_EQ(8u, t->row(5)->note());
   r->flagIs(1, true);
   EXPECT_TRUE(r->flagHas(1));
   t->rowDel(5);
   EXPECT_EQ("row 5", w->log.back());
}

TEST(Table, HandleOutlivesItsEntryAndPinsTheTable) {
   ThrowingAsserts asserts;
   Ptr<Table> t(new Table);
   for (U32 i = 0; i < 100; ++i) t->rowIs(i)->weightIs(i);
   auto r = t->row(50);
   // The table keeps every entry in place while a handle lives, through
   // deletions that would otherwise pack it and inserts that would reuse slots.
   for (U32 i = 0; i < 100; ++i)
      if (i != 50) t->rowDel(i);
   for (U32 i = 200; i < 300; ++i) t->rowIs(i);
   EXPECT_EQ(50u, r->weight());
   t->rowDel(50);
   EXPECT_FALSE(r);
   EXPECT_THROW(r->weight(), Vek::AssertionFailure);
   r = {};
   // Without handles, the table packs itself.
   for (U32 i = 200; i < 290; ++i) t->rowDel(i);
   EXPECT_EQ(10u, t->rowSize());
   for (U32 i = 290; i < 300; ++i) EXPECT_TRUE(t->row(i));
}

TEST(Table, SmallCollectionsWalkInOrderThroughDeletion) {
   Ptr<Table> t(new Table);
   for (auto k : {"d", "b", "a", "c", "e"}) t->tagIs(k, 1);
   std::string seen;
   for (auto it = t->tagIter(); it; ++it) {
      seen += it.key();
      if (it.key() == "b") {
         t->tagDel("b");
         t->tagDel("c");
      }
   }
   EXPECT_EQ("abde", seen);
   EXPECT_EQ(3u, t->tagSize());
}

TEST(Table, SingleMembersLiveInsideTheirCollection) {
   Vek::SmallMap<U32, U32> m;
   EXPECT_EQ(12u, sizeof m);
   m.emplace(5, 50);
   EXPECT_EQ(0u, m.bytes());
   m.emplace(3, 30);
   m.emplace(9, 90);
   EXPECT_GT(m.bytes(), 0u);
   std::vector<U32> keys;
   for (auto it = m.begin(); it; ++it) {
      keys.push_back(it.key());
      if (it.key() == 3) m.erase(5);
   }
   EXPECT_EQ((std::vector<U32>{3, 9}), keys);
   m.erase(3);
   EXPECT_EQ(0u, m.bytes());
   EXPECT_EQ(90u, *m.find(9));

   Ptr<Flags> f(new Flags);
   f->colourIs(green_, true);
   f->colourIs(red_, true);
   EXPECT_EQ(2u, f->colourSize());
   f->colourDel(green_);
   EXPECT_TRUE(f->colourHas(red_));
   EXPECT_FALSE(f->colourHas(green_));
   EXPECT_EQ(red_, f->colourIter().key());
}

// The runtime's hash map: bookmarked walks under deletion, shrinking, and the
// refusal to read a deleted member through an iterator.
#include <gtest/gtest.h>

#include <set>

#include "runtime/vek/HashMap.h"

namespace {

struct ThrowingAsserts {
   ThrowingAsserts() { Vek::assertHandlerIs(Vek::throwingAssertHandler); }
   ~ThrowingAsserts() { Vek::assertHandlerIs(nullptr); }
};

}  // namespace

TEST(HashMap, BookmarkedWalkGoesOnWhenItsMemberIsDeleted) {
   Vek::HashMap<U32, int> m;
   for (U32 i = 0; i < 1000; ++i) m.emplace(i, 0);
   // Walk in slices of 10; between slices the member the walk is to visit
   // next, and some others, go away and new ones arrive. Every member that
   // was there throughout is visited, and the walk ends.
   std::set<U32> seen;
   Vek::Bookmark<U32> bm;
   U32 fresh = 100000;
   int slices = 0;
   for (;;) {
      auto it = m.iterFrom(bm);
      for (int n = 0; it && n < 10; ++it, ++n) seen.insert(it.key());
      if (!it) break;
      bm = it.bookmark();
      m.erase(bm.key);
      m.erase(bm.key + 1);
      m.emplace(fresh++, 0);
      ASSERT_LT(++slices, 200) << "the walk restarts";
   }
   for (U32 i = 0; i < 1000; ++i) {
      bool deleted = !m.contains(i);
      if (!deleted) EXPECT_TRUE(seen.count(i)) << i;
   }
   // An unset bookmark, or one whose member has gone after the map packed
   // itself, starts from the beginning.
   EXPECT_EQ(m.begin().key(), m.iterFrom(Vek::Bookmark<U32>()).key());
}

TEST(HashMap, ShrinksAndDrainsFromTheFront) {
   Vek::HashMap<U32, U64> m;
   EXPECT_EQ(0u, m.bytes());
   for (U32 i = 0; i < 200000; ++i) m.emplace(i, i);
   std::size_t full = m.bytes();
   // Drained from the front, entry by entry, as a work queue is.
   U64 sum = 0;
   while (m.size() > 1) {
      auto it = m.begin();
      sum += it.value();
      m.erase(U32(it.key()));
   }
   EXPECT_EQ(U64(199999) * 199998 / 2, sum);
   EXPECT_LT(m.bytes(), full / 1000);
   EXPECT_EQ(199999u, m.begin().key());
   m.erase(199999);
   EXPECT_EQ(0u, m.bytes());

   // A walk that deletes everything keeps its place; the map packs itself
   // only once the walk is over.
   for (U32 i = 0; i < 1000; ++i) m.emplace(i, i);
   std::size_t before = m.bytes();
   int visited = 0;
   for (auto it = m.begin(); it; ++it) {
      if (it.key() % 100 != 0) m.erase(U32(it.key()));
      EXPECT_EQ(before, m.bytes());
      ++visited;
   }
   EXPECT_EQ(1000, visited);
   EXPECT_LT(m.bytes(), before);
   EXPECT_EQ(10u, m.size());
   for (U32 i = 0; i < 1000; i += 100) EXPECT_EQ(U64(i), *m.find(i));
}

TEST(HashMap, DeletedMemberIsNotReadThroughAnIterator) {
   ThrowingAsserts asserts;
   Vek::HashMap<std::string, int> m;
   m.emplace("a", 1);
   m.emplace("b", 2);
   auto it = m.iterAt("a");
   m.erase("a");
   EXPECT_FALSE(it.valid());
   EXPECT_THROW(it.key(), Vek::AssertionFailure);
   EXPECT_THROW(it.value(), Vek::AssertionFailure);
   ++it;
   EXPECT_EQ("b", it.key());

   Vek::OrderedMap<U32, int> o;
   o.emplace(1, 1);
   o.emplace(2, 2);
   auto oit = o.begin();
   o.erase(1);
   EXPECT_THROW(oit.key(), Vek::AssertionFailure);
   oit.advance();
   EXPECT_EQ(2u, oit.key());
}

// The runtime's hash map: bookmarked walks under deletion, shrinking, and the
// refusal to read a deleted member through an iterator.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

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

// The ordered map against std::map under a random mix of inserts and erases,
// in order and out of order, with walks that delete and insert as they go:
// the contents, the order, the range walks and the shrinking to nothing.
TEST(OrderedMap, AgreesWithStdMapUnderRandomChange) {
   std::mt19937 rng(7);
   Vek::OrderedMap<U32, std::string> o;
   std::map<U32, std::string> ref;
   auto check = [&] {
      ASSERT_EQ(ref.size(), o.size());
      auto r = ref.begin();
      for (auto it = o.begin(); it; ++it, ++r) {
         ASSERT_NE(r, ref.end());
         ASSERT_EQ(r->first, it.key());
         ASSERT_EQ(r->second, it.value());
      }
      ASSERT_EQ(r, ref.end());
   };
   // Keys in order fill the leaves; then random keys split them anywhere.
   for (U32 i = 0; i < 3000; ++i) {
      o.emplace(i * 4, std::to_string(i));
      ref.emplace(i * 4, std::to_string(i));
   }
   check();
   for (int round = 0; round < 20000; ++round) {
      U32 k = rng() % 20000;
      if (rng() % 3) {
         bool ins = o.emplace(k, std::to_string(k)).second;
         EXPECT_EQ(ref.emplace(k, std::to_string(k)).second, ins);
      } else {
         std::string out;
         bool gone = o.erase(k, &out);
         auto r = ref.find(k);
         EXPECT_EQ(r != ref.end(), gone);
         if (r != ref.end()) {
            EXPECT_EQ(r->second, out);
            ref.erase(r);
         }
      }
   }
   check();
   for (U32 k = 0; k < 20000; k += 7) {
      auto it = o.iterFrom(k);
      auto r = ref.lower_bound(k);
      ASSERT_EQ(r == ref.end(), !it);
      if (r != ref.end()) {
         EXPECT_EQ(r->first, it.key());
      }
      EXPECT_EQ(ref.count(k) != 0, o.contains(k));
   }
   // A walk that erases what it stands on and inserts behind and ahead of
   // itself sees every member that was ahead of it once, and the new ones
   // ahead of it.
   std::vector<U32> seen;
   for (auto it = o.begin(); it; ++it) {
      U32 k = it.key();
      seen.push_back(k);
      if (k % 2 == 0) {
         o.erase(k);
         ref.erase(k);
      }
      if (k % 10 == 1) {
         o.emplace(k + 1, "ahead");
         ref.emplace(k + 1, "ahead");
         o.emplace(k - 1, "behind");
         ref.emplace(k - 1, "behind");
      }
   }
   EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
   EXPECT_EQ(seen.end(), std::adjacent_find(seen.begin(), seen.end()));
   check();
   while (!ref.empty()) {
      auto r = std::next(ref.begin(), rng() % ref.size());
      EXPECT_TRUE(o.erase(r->first));
      ref.erase(r);
   }
   check();
   EXPECT_FALSE(o.begin());
   o.emplace(5, "again");
   EXPECT_EQ("again", *o.find(5));
}

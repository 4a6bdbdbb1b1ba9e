// Cost of the runtime's basic operations: attribute writes with and without a
// reactor, a keyed insert and delete seen by a reactor, and a timer armed and
// fired on virtual time.
#include <benchmark/benchmark.h>

#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"
#include "tests/runtime/TestEntities.h"

using namespace VekTest;
using Vek::Ptr;

namespace {

class Counter : public Ldp::LdpSm {
 public:
   explicit Counter(Ptr<Tree> const& t) : LdpSm(1) {
      tree_.init(this, t);
      initialized_ = true;
   }
   void handleCount() { ++n; }
   void handleTag(std::string const&) { ++n; }
   void handleQueue(U32 const&) { ++n; }
   U64 n = 0;

 private:
   Vek::Input<Tree::Reactor<Counter>> tree_;
};

class Fire : public Ldp::LdpSm {
 public:
   explicit Fire(Ptr<Hesk::TaskScheduler> const& s) : LdpSm(1) {
      timer = Hesk::timerTaskIs(this, &Fire::handleTimer, s, 2, "BenchTimer");
      initialized_ = true;
   }
   void handleTimer() { ++n; }
   Ptr<Hesk::TimerTask> timer;
   U64 n = 0;
};

void BM_ScalarWriteNoReactor(benchmark::State& st) {
   Ptr<Tree> t(new Tree);
   U32 v = 0;
   for (auto _ : st) t->countIs(++v);
   benchmark::DoNotOptimize(t->count());
}
BENCHMARK(BM_ScalarWriteNoReactor);

void BM_ScalarWriteOneReactor(benchmark::State& st) {
   Ptr<Tree> t(new Tree);
   auto c = Vek::makeSm<Counter>(t);
   U32 v = 0;
   for (auto _ : st) t->countIs(++v);
   benchmark::DoNotOptimize(c->n);
}
BENCHMARK(BM_ScalarWriteOneReactor);

void BM_ScalarWriteSameValue(benchmark::State& st) {
   Ptr<Tree> t(new Tree);
   auto c = Vek::makeSm<Counter>(t);
   for (auto _ : st) t->countIs(7);
   benchmark::DoNotOptimize(c->n);
}
BENCHMARK(BM_ScalarWriteSameValue);

// Insert and delete of a U32 key in an ordered-free hash collection.
void BM_KeyedInsertDeleteOneReactor(benchmark::State& st) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   Ptr<Tree> t(new Tree);
   auto c = Vek::makeSm<Counter>(t);
   std::vector<std::string> keys;
   for (int i = 0; i < 1024; ++i) keys.push_back("key" + std::to_string(i));
   std::size_t i = 0;
   for (auto _ : st) {
      std::string const& k = keys[i++ & 1023];
      t->tagIs(k, 1);
      t->tagDel(k);
   }
   benchmark::DoNotOptimize(c->n);
}
BENCHMARK(BM_KeyedInsertDeleteOneReactor);

void BM_HashMapInsertDeleteU32(benchmark::State& st) {
   Vek::HashMap<U32, U32> m;
   for (U32 i = 0; i < 100000; ++i) m.emplace(i * 7, i);
   U32 k = 1;
   for (auto _ : st) {
      m.emplace(k, k);
      m.erase(k);
      k += 7;
      if (k > 700000) k = 1;
   }
}
BENCHMARK(BM_HashMapInsertDeleteU32);

void BM_TimerArmAndFire(benchmark::State& st) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   Ptr<Hesk::TaskScheduler> s(new Hesk::TaskScheduler("bench", &am));
   auto f = Vek::makeSm<Fire>(s);
   for (auto _ : st) {
      f->timer->scheduleTaskDelay(1.0);
      am.runFor(1.0);
   }
   benchmark::DoNotOptimize(f->n);
}
BENCHMARK(BM_TimerArmAndFire);

// Re-arming a timer that is already pending, as a hold timer does on every PDU.
void BM_TimerRearmAmong1000(benchmark::State& st) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   Ptr<Hesk::TaskScheduler> s(new Hesk::TaskScheduler("bench", &am));
   std::vector<Ptr<Fire>> fs;
   for (int i = 0; i < 1000; ++i) {
      fs.push_back(Vek::makeSm<Fire>(s));
      fs.back()->timer->scheduleTaskDelay(10.0 + i);
   }
   std::size_t i = 0;
   for (auto _ : st) fs[i++ % 1000]->timer->scheduleTaskDelay(15.0);
}
BENCHMARK(BM_TimerRearmAmong1000);

}  // namespace

BENCHMARK_MAIN();

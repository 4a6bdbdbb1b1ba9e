#pragma once
// Hash collections of the runtime.
//
// HashMap keeps its entries in a slot array and an open-addressing index of
// slot numbers. An empty map is one pointer: the storage is made on the first
// insert. Walks go by slot number, so an iterator survives the deletion of the
// member it stands on (the slot just becomes empty) and of any other member,
// and a walk resumes from a bookmark even when the bookmarked member has gone
// meanwhile. The walk order depends only on the history of inserts and
// deletes, never on addresses, and is the same from run to run.
//
// The map shrinks: when most of its slots are empty it packs the entries
// (keeping their order) and gives the room back, unless an iterator is alive,
// in which case it waits until none is. While an iterator is alive, inserts
// also leave empty slots alone and append, so that nothing moves under a walk.
#include <algorithm>
#include <bit>
#include <concepts>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/vek/Exception.h"
#include "runtime/vek/OrderedMap.h"
#include "runtime/vek/Types.h"

namespace Vek {

template <class K>
struct Hasher {
   U64 operator()(K const& k) const {
      if constexpr (requires { { k.hash() } -> std::convertible_to<U64>; }) {
         return hashMix(k.hash());
      } else if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
         return hashMix(static_cast<U64>(k));
      } else if constexpr (std::is_same_v<K, std::string>) {
         return hashBytes(k.data(), k.size());
      } else if constexpr (std::is_floating_point_v<K>) {
         U64 b = 0;
         double d = k;
         std::memcpy(&b, &d, sizeof b);
         return hashMix(b);
      } else {
         return hashMix(std::hash<K>()(k));
      }
   }
};

// Where a bookmarked walk stands: the member it was to visit next, and that
// member's slot, so that the walk goes on from there even if the member has
// been deleted. A bookmark that is not set starts a walk at the beginning.
template <class K>
struct Bookmark {
   K key{};
   U32 slot = 0;
   U32 epoch = 0;
   bool set = false;
   void clear() { set = false; }
};

// Whether a value type carries its own key (a table entry does): the map then
// stores the value alone and reads the key from it.
template <class K, class V>
concept KeyInValue = requires(V const& v) {
   { v.key() } -> std::convertible_to<K const&>;
} && std::is_constructible_v<V, K const&>;

template <class K, class V, class H = Hasher<K>>
class HashMap {
   static constexpr U32 kNone = 0xffffffffu;
   static constexpr bool kKeyInValue = KeyInValue<K, V>;
   // Small plain keys hash faster than a stored hash can be read; others keep
   // theirs in the slot.
   static constexpr bool kStoreHash = !(std::is_trivially_copyable_v<K> && sizeof(K) <= 16);
   struct Pair {
      K k;
      V v;
   };
   using Payload = std::conditional_t<kKeyInValue, V, Pair>;
   static constexpr std::size_t kRoom = sizeof(Payload) < 4 ? 4 : sizeof(Payload);
   // A slot holds a member when its bit in the occupancy map is set; a free
   // slot keeps the number of the next free one where the member would be.
   struct SlotBody {
      alignas(Payload) unsigned char p[kRoom];
   };
   struct SlotHash {
      U32 hash;
      alignas(Payload) unsigned char p[kRoom];
   };
   struct Slot : std::conditional_t<kStoreHash, SlotHash, SlotBody> {
      Payload& payload() { return *std::launder(reinterpret_cast<Payload*>(this->p)); }
      K const& key() {
         if constexpr (kKeyInValue) return payload().key();
         else return payload().k;
      }
      V& value() {
         if constexpr (kKeyInValue) return payload();
         else return payload().v;
      }
      U32 nextFree() const {
         U32 n;
         std::memcpy(&n, this->p, sizeof n);
         return n;
      }
      void nextFreeIs(U32 n) { std::memcpy(this->p, &n, sizeof n); }
   };
   struct Body {
      Slot* slots = nullptr;
      U64* occupied = nullptr;  // one bit per slot
      U32* index = nullptr;
      U32 size = 0;
      U32 used = 0;       // slots ever used, the high-water mark of the walk
      U32 capacity = 0;   // slots allocated
      U32 mask = 0;       // index buckets - 1
      U32 freeHead = kNone;
      U32 first = 0;      // no member lies below this slot
      U32 live = 0;       // iterators and handles alive
      U32 epoch = 0;      // packings so far
      bool has(U32 s) const { return occupied[s >> 6] >> (s & 63) & 1; }
      void hasIs(U32 s, bool b) {
         if (b) occupied[s >> 6] |= 1ull << (s & 63);
         else occupied[s >> 6] &= ~(1ull << (s & 63));
      }
   };

 public:
   HashMap() = default;
   HashMap(HashMap const&) = delete;
   HashMap& operator=(HashMap const&) = delete;
   ~HashMap() { release(); }

   std::size_t size() const { return b_ ? b_->size : 0; }
   bool empty() const { return size() == 0; }

   V* find(K const& k) {
      U32 s = lookup(k);
      return s == kNone ? nullptr : &b_->slots[s].value();
   }
   V const* find(K const& k) const { return const_cast<HashMap*>(this)->find(k); }
   bool contains(K const& k) const { return lookup(k) != kNone; }

   // Inserts k with a value made from args unless k is present; returns the
   // value and whether it was inserted.
   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      auto [s, inserted] = emplaceSlot(k, std::forward<A>(args)...);
      return {&b_->slots[s].value(), inserted};
   }
   // The same, with the slot of the member.
   template <class... A>
   std::pair<U32, bool> emplaceSlot(K const& k, A&&... args) {
      U32 h = hashOf(k);
      U32 s = lookupHashed(k, h);
      if (s != kNone) return {s, false};
      if (!b_) b_ = new Body;
      Body& b = *b_;
      if ((b.size + 1) * 4 > (b.mask + 1) * 3 || b.mask == 0) growIndex();
      if (b.live == 0 && b.freeHead != kNone) {
         s = b.freeHead;
         b.freeHead = b.slots[s].nextFree();
      } else {
         if (b.used == b.capacity) growSlots();
         s = b.used++;
      }
      Slot& sl = b.slots[s];
      if constexpr (kKeyInValue) new (sl.p) V(k, std::forward<A>(args)...);
      else new (sl.p) Pair{k, V(std::forward<A>(args)...)};
      if constexpr (kStoreHash) sl.hash = h;
      b.hasIs(s, true);
      place(s, h);
      ++b.size;
      if (s < b.first) b.first = s;
      return {s, true};
   }

   // Removes k; returns whether it was there. The removed value is returned
   // through out, if given, so that its destruction can happen after the map
   // is consistent again.
   bool erase(K const& k, V* out = nullptr) {
      if (!b_ || b_->size == 0) return false;
      U32 h = hashOf(k);
      Body& b = *b_;
      for (U32 i = h & b.mask;; i = (i + 1) & b.mask) {
         U32 s = b.index[i];
         if (s == kNone) return false;
         Slot& sl = b.slots[s];
         if (hashMatches(sl, h) && sl.key() == k) {
            unplace(i);
            std::optional<V> dead;
            if (out) *out = std::move(sl.value());
            else dead.emplace(std::move(sl.value()));
            destroy(s);
            sl.nextFreeIs(b.freeHead);
            b.freeHead = s;
            --b.size;
            maybeShrink();
            return true;
         }
      }
   }

   // Removes every member; the storage goes too unless a walk is under way.
   void clear() {
      if (!b_) return;
      Body& b = *b_;
      for (U32 s = 0; s < b.used; ++s)
         if (b.has(s)) destroy(s);
      b.size = 0;
      if (b.live == 0) {
         release();
         return;
      }
      // A walk is under way: the emptied slots stay as they are until it ends.
      b.freeHead = kNone;
      std::fill(b.index, b.index + b.mask + 1, kNone);
   }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(HashMap const* m, U32 i) : m_(m), i_(i) {
         enter();
         skip();
      }
      Iterator(Iterator const& o) : m_(o.m_), i_(o.i_) { enter(); }
      Iterator& operator=(Iterator const& o) {
         if (this == &o) return *this;
         leave();
         m_ = o.m_;
         i_ = o.i_;
         enter();
         return *this;
      }
      ~Iterator() { leave(); }

      explicit operator bool() const { return m_ && m_->b_ && i_ < m_->b_->used; }
      // Reading the member of an iterator whose member has been deleted is a
      // fault of the caller: advance first.
      K const& key() const { return member().key(); }
      V const& value() const { return member().value(); }
      V& value() { return member().value(); }
      bool valid() const { return *this && m_->b_->has(i_); }
      U32 slot() const { return i_; }
      Iterator& operator++() {
         ++i_;
         skip();
         return *this;
      }
      // Moves to the next member; a deleted current member is simply skipped.
      void advance() { ++*this; }
      bool operator==(Iterator const& o) const {
         return (!*this && !o) || (m_ == o.m_ && i_ == o.i_);
      }
      // For range-for loops.
      std::pair<K const&, V const&> operator*() const { return {key(), value()}; }
      // Where the walk stands, to resume it later from this member, or from
      // its place if it has gone by then.
      Bookmark<K> bookmark() const {
         Bookmark<K> b;
         if (!valid()) return b;
         b.key = key();
         b.slot = i_;
         b.epoch = m_->b_->epoch;
         b.set = true;
         return b;
      }

    private:
      Slot& member() const {
         VEK_ASSERT(valid() && "Internal Error: iterator on a deleted member");
         return m_->b_->slots[i_];
      }
      void skip() {
         if (!m_ || !m_->b_) return;
         Body const& b = *m_->b_;
         // Whole words of empty slots are passed at once.
         while (i_ < b.used) {
            U64 w = b.occupied[i_ >> 6] >> (i_ & 63);
            if (w) {
               i_ += static_cast<U32>(std::countr_zero(w));
               return;
            }
            i_ = (i_ | 63) + 1;
         }
      }
      // A live iterator keeps the map from moving its members.
      void enter() {
         counted_ = m_ && m_->b_;
         if (counted_) ++m_->b_->live;
      }
      void leave() {
         if (counted_ && --m_->b_->live == 0) const_cast<HashMap*>(m_)->maybeShrink();
         counted_ = false;
         m_ = nullptr;
      }
      HashMap const* m_ = nullptr;
      U32 i_ = 0;
      bool counted_ = false;
   };

   Iterator begin() const {
      if (!b_) return Iterator();
      if (b_->live == 0) const_cast<HashMap*>(this)->maybeShrink();
      if (!b_) return Iterator();
      Body& b = *b_;
      // Members drained from the front leave empty slots that no walk needs
      // to visit again.
      Iterator it(this, b.first);
      b.first = it ? it.slot() : b.used;
      return it;
   }
   Iterator end() const { return Iterator(); }
   // The walk position of k, or the first member when k is absent.
   Iterator iterFrom(K const& k) const {
      U32 s = lookup(k);
      return s == kNone ? begin() : Iterator(this, s);
   }
   // Resumes a bookmarked walk: at the bookmarked member, or where it stood
   // if it has gone. Only a packing of the map since the bookmark, which
   // happens once the map has shrunk to a quarter, makes a walk whose member
   // has gone start over.
   Iterator iterFrom(Bookmark<K> const& bm) const {
      if (!bm.set || !b_) return begin();
      if (bm.epoch == b_->epoch) return Iterator(this, std::max(bm.slot, b_->first));
      U32 s = lookup(bm.key);
      return s == kNone ? begin() : Iterator(this, s);
   }
   Iterator iterAt(K const& k) const {
      U32 s = lookup(k);
      return s == kNone ? Iterator() : Iterator(this, s);
   }

   // Members by slot, for handles that must not look a member up on every
   // use. A pinned map moves no member; a handle pins the map it points into.
   U32 slotOf(K const& k) const { return lookup(k); }
   bool slotValid(U32 s) const { return b_ && s < b_->used && b_->has(s); }
   V& atSlot(U32 s) const {
      VEK_ASSERT(slotValid(s) && "Internal Error: handle on a deleted member");
      return b_->slots[s].value();
   }
   void pin() const {
      if (!b_) const_cast<HashMap*>(this)->b_ = new Body;
      ++b_->live;
   }
   void unpin() const {
      if (b_ && --b_->live == 0) const_cast<HashMap*>(this)->maybeShrink();
   }

   // Bytes held by the map, for the memory figures.
   std::size_t bytes() const {
      if (!b_) return 0;
      return sizeof(Body) + b_->capacity * sizeof(Slot) + (b_->capacity + 63) / 64 * 8 +
             (b_->mask + 1) * sizeof(U32);
   }

 private:
   static U32 hashOf(K const& k) { return static_cast<U32>(H()(k)); }
   static bool hashMatches(Slot& sl, U32 h) {
      if constexpr (kStoreHash) return sl.hash == h;
      else return true;
   }
   static U32 slotHash(Slot& sl) {
      if constexpr (kStoreHash) return sl.hash;
      else return hashOf(sl.key());
   }
   U32 lookup(K const& k) const { return b_ && b_->size ? lookupHashed(k, hashOf(k)) : kNone; }
   U32 lookupHashed(K const& k, U32 h) const {
      if (!b_ || b_->size == 0) return kNone;
      Body const& b = *b_;
      for (U32 i = h & b.mask;; i = (i + 1) & b.mask) {
         U32 s = b.index[i];
         if (s == kNone) return kNone;
         Slot& sl = b.slots[s];
         if (hashMatches(sl, h) && sl.key() == k) return s;
      }
   }
   void place(U32 slot, U32 h) {
      Body& b = *b_;
      U32 i = h & b.mask;
      while (b.index[i] != kNone) i = (i + 1) & b.mask;
      b.index[i] = slot;
   }
   // Backward-shift deletion keeps probe chains whole without tombstones.
   void unplace(U32 i) {
      Body& b = *b_;
      U32 j = i;
      for (;;) {
         j = (j + 1) & b.mask;
         U32 s = b.index[j];
         if (s == kNone) break;
         U32 home = slotHash(b.slots[s]) & b.mask;
         // Move s back to i when its home is not in the cyclic range (i, j].
         bool between = (i <= j) ? (i < home && home <= j) : (i < home || home <= j);
         if (!between) {
            b.index[i] = s;
            i = j;
         }
      }
      b.index[i] = kNone;
   }
   void rebuildIndex(U32 buckets) {
      Body& b = *b_;
      std::free(b.index);
      b.index = static_cast<U32*>(std::malloc(buckets * sizeof(U32)));
      if (!b.index) throw std::bad_alloc();
      b.mask = buckets - 1;
      std::fill(b.index, b.index + buckets, kNone);
      for (U32 s = 0; s < b.used; ++s)
         if (b.has(s)) place(s, slotHash(b.slots[s]));
   }
   void growIndex() {
      U32 n = b_->mask ? (b_->mask + 1) * 2 : 4;
      rebuildIndex(n);
   }
   void reallocSlots(U32 capacity) {
      Body& b = *b_;
      Slot* n = static_cast<Slot*>(std::malloc(std::size_t(capacity) * sizeof(Slot)));
      U64* occ = static_cast<U64*>(std::calloc((capacity + 63) / 64, sizeof(U64)));
      if (!n || !occ) throw std::bad_alloc();
      for (U32 s = 0; s < b.used; ++s) {
         Slot& from = b.slots[s];
         if (b.has(s)) {
            new (n[s].p) Payload(std::move(from.payload()));
            if constexpr (kStoreHash) n[s].hash = from.hash;
            from.payload().~Payload();
            occ[s >> 6] |= 1ull << (s & 63);
         } else {
            n[s].nextFreeIs(from.nextFree());
         }
      }
      std::free(b.slots);
      std::free(b.occupied);
      b.slots = n;
      b.occupied = occ;
      b.capacity = capacity;
   }
   // Large maps grow by a quarter, small ones by half.
   void growSlots() {
      U32 c = b_->capacity;
      reallocSlots(c < 4 ? 4 : c < 4096 ? c + c / 2 : c + c / 4);
   }
   void destroy(U32 s) {
      b_->slots[s].payload().~Payload();
      b_->hasIs(s, false);
   }
   // Packs the members into the front slots, in their order, and gives the
   // room back, when a quarter or less of the used slots hold a member.
   void maybeShrink() {
      if (!b_ || b_->live) return;
      Body& b = *b_;
      if (b.size == 0) {
         release();
         return;
      }
      if (b.used < 16 || b.size * 4 > b.used) return;
      U32 to = 0;
      for (U32 s = 0; s < b.used; ++s) {
         if (!b.has(s)) continue;
         if (s != to) {
            Slot& from = b.slots[s];
            new (b.slots[to].p) Payload(std::move(from.payload()));
            if constexpr (kStoreHash) b.slots[to].hash = from.hash;
            b.hasIs(to, true);
            destroy(s);
         }
         ++to;
      }
      b.used = to;
      b.freeHead = kNone;
      b.first = 0;
      ++b.epoch;
      reallocSlots(std::max<U32>(4, to + to / 2));
      U32 buckets = 4;
      while (buckets * 3 < to * 4) buckets *= 2;
      rebuildIndex(buckets * 2 <= b.mask + 1 ? buckets * 2 : b.mask + 1);
   }
   void release() {
      if (!b_) return;
      for (U32 s = 0; s < b_->used; ++s)
         if (b_->has(s)) b_->slots[s].payload().~Payload();
      std::free(b_->slots);
      std::free(b_->occupied);
      std::free(b_->index);
      delete b_;
      b_ = nullptr;
   }

   Body* b_ = nullptr;
};

}  // namespace Vek

#pragma once
// A small collection kept as one sorted array: an empty one is one pointer,
// and the usual handful of members costs one allocation. It serves the
// collections inside table entries (a FEC's next hops, its labels), where a
// hash map's storage would dwarf the members.
//
// Iteration is in key order. An iterator survives deletions and inserts: when
// the map changed under it, it finds its place again by key, and a deleted
// member's place is its successor.
#include <algorithm>
#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Vek {

template <class K, class V>
class SmallMap {
   struct Elem {
      K key;
      V value;
   };
   struct alignas(8) Block {
      U32 size;
      U32 cap;
      U32 version;  // changes with every insert and delete, never repeats
      Elem* elems() { return reinterpret_cast<Elem*>(this + 1); }
   };
   static_assert(alignof(Elem) <= alignof(Block));
   static U32 nextVersion() {
      static U32 v = 0;
      return ++v ? v : ++v;
   }

 public:
   SmallMap() = default;
   SmallMap(SmallMap const&) = delete;
   SmallMap& operator=(SmallMap const&) = delete;
   SmallMap(SmallMap&& o) noexcept : b_(o.b_) { o.b_ = nullptr; }
   SmallMap& operator=(SmallMap&& o) noexcept {
      if (this != &o) {
         release();
         b_ = o.b_;
         o.b_ = nullptr;
      }
      return *this;
   }
   ~SmallMap() { release(); }

   std::size_t size() const { return b_ ? b_->size : 0; }
   bool empty() const { return size() == 0; }

   V* find(K const& k) {
      U32 i = lowerBound(k);
      return i < size() && b_->elems()[i].key == k ? &b_->elems()[i].value : nullptr;
   }
   V const* find(K const& k) const { return const_cast<SmallMap*>(this)->find(k); }
   bool contains(K const& k) const { return find(k) != nullptr; }

   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      U32 i = lowerBound(k);
      if (i < size() && b_->elems()[i].key == k) return {&b_->elems()[i].value, false};
      U32 n = U32(size());
      if (!b_ || n == b_->cap) grow();
      Elem* e = b_->elems();
      if (i < n) {
         new (&e[n]) Elem{std::move(e[n - 1].key), std::move(e[n - 1].value)};
         for (U32 j = n - 1; j > i; --j) e[j] = std::move(e[j - 1]);
         e[i].~Elem();
      }
      new (&e[i]) Elem{k, V(std::forward<A>(args)...)};
      ++b_->size;
      b_->version = nextVersion();
      return {&e[i].value, true};
   }

   bool erase(K const& k, V* out = nullptr) {
      U32 i = lowerBound(k);
      if (i >= size() || !(b_->elems()[i].key == k)) return false;
      Elem* e = b_->elems();
      std::optional<V> dead;
      if (out) *out = std::move(e[i].value);
      else dead.emplace(std::move(e[i].value));
      U32 n = b_->size;
      for (U32 j = i; j + 1 < n; ++j) e[j] = std::move(e[j + 1]);
      e[n - 1].~Elem();
      --b_->size;
      b_->version = nextVersion();
      if (b_->size == 0) release();
      return true;
   }

   void clear() { release(); }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(SmallMap const* m, U32 i) : m_(m), i_(i) { pin(); }
      explicit operator bool() const {
         refresh();
         return m_ && i_ < m_->size();
      }
      K const& key() const { return elem().key; }
      V const& value() const { return elem().value; }
      bool valid() const {
         refresh();
         return m_ && i_ < m_->size() && !moved_;
      }
      void advance() {
         refresh();
         if (!m_ || i_ >= m_->size()) return;
         // The member we stood on went away: we stand on its successor.
         if (moved_) moved_ = false;
         else ++i_;
         pin();
      }
      Iterator& operator++() {
         advance();
         return *this;
      }
      bool operator==(Iterator const& o) const { return !*this && !o; }
      std::pair<K const&, V const&> operator*() const { return {key(), value()}; }

    private:
      Elem const& elem() const {
         VEK_ASSERT(valid() && "Internal Error: iterator on a deleted member");
         return m_->b_->elems()[i_];
      }
      void pin() {
         version_ = m_ && m_->b_ ? m_->b_->version : 0;
         if (m_ && i_ < m_->size()) key_ = m_->b_->elems()[i_].key;
      }
      // The map changed: find our member, or where it stood.
      void refresh() const {
         if (!m_ || !key_) return;
         U32 v = m_->b_ ? m_->b_->version : 0;
         if (v == version_ && m_->b_) return;
         version_ = v;
         i_ = m_->lowerBound(*key_);
         bool there = i_ < m_->size() && m_->b_->elems()[i_].key == *key_;
         moved_ = moved_ || !there;
         if (i_ < m_->size()) key_ = m_->b_->elems()[i_].key;
         else key_.reset();
      }
      SmallMap const* m_ = nullptr;
      mutable U32 i_ = 0;
      mutable U32 version_ = 0;
      mutable std::optional<K> key_;
      mutable bool moved_ = false;
   };

   Iterator begin() const { return Iterator(this, 0); }
   Iterator end() const { return Iterator(); }
   Iterator iterFrom(K const& k) const { return Iterator(this, lowerBound(k)); }

   std::size_t bytes() const { return b_ ? sizeof(Block) + b_->cap * sizeof(Elem) : 0; }

 private:
   U32 lowerBound(K const& k) const {
      if (!b_) return 0;
      Elem const* e = b_->elems();
      U32 lo = 0, hi = b_->size;
      while (lo < hi) {
         U32 mid = (lo + hi) / 2;
         if (e[mid].key < k) lo = mid + 1;
         else hi = mid;
      }
      return lo;
   }
   void grow() {
      U32 n = b_ ? b_->size : 0;
      U32 cap = b_ ? (b_->cap < 4 ? b_->cap + 1 : b_->cap + b_->cap / 2) : 1;
      auto* nb = static_cast<Block*>(std::malloc(sizeof(Block) + cap * sizeof(Elem)));
      if (!nb) throw std::bad_alloc();
      nb->size = n;
      nb->cap = cap;
      nb->version = b_ ? b_->version : 0;
      for (U32 i = 0; i < n; ++i) {
         new (&nb->elems()[i]) Elem{std::move(b_->elems()[i].key), std::move(b_->elems()[i].value)};
         b_->elems()[i].~Elem();
      }
      std::free(b_);
      b_ = nb;
   }
   void release() {
      if (!b_) return;
      Block* b = b_;
      b_ = nullptr;
      for (U32 i = 0; i < b->size; ++i) b->elems()[i].~Elem();
      std::free(b);
   }

   Block* b_ = nullptr;
};

}  // namespace Vek

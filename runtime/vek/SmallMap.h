#pragma once
// Small collections for the inside of table entries (a FEC's next hops, its
// labels, its reasons to exist), where a hash map's storage would dwarf the
// members.
//
// SmallMap keeps its members sorted in one array. A single member lives
// inside the map itself; two or more take one allocation. Iteration is in key
// order, and an iterator survives deletions and inserts: when the map changed
// under it, it finds its place again by key, and a deleted member's place is
// its successor.
//
// BitSet is a set of small enumerators, one bit each, with the interface of a
// collection of bool.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Vek {

// The member of a small map: a key with its value, or a key alone in a set
// (a map of bool, whose members are true).
template <class K, class V>
struct SmallElem {
   K key;
   V value;
   SmallElem(K k, V v) : key(std::move(k)), value(std::move(v)) {}
   V& val() { return value; }
};
template <class K>
struct SmallElem<K, bool> {
   K key;
   SmallElem(K k, bool v) : key(std::move(k)) {
      VEK_ASSERT(v && "Internal Error: a set holds its members as true");
   }
   bool& val() {
      static bool member;
      member = true;
      return member;
   }
};

template <class K, class V>
class SmallMap {
   using Elem = SmallElem<K, V>;
   struct alignas(8) Block {
      U32 cap;
      Elem* elems() { return reinterpret_cast<Elem*>(this + 1); }
   };
   static_assert(alignof(Elem) <= alignof(Block));
   // Room for one member, or for the address of the block (copied in and out
   // byte by byte, so that the map needs no more than its members' alignment).
   static constexpr std::size_t kRoom = sizeof(Elem) > sizeof(Block*) ? sizeof(Elem) : sizeof(Block*);

 public:
   SmallMap() = default;
   SmallMap(SmallMap const&) = delete;
   SmallMap& operator=(SmallMap const&) = delete;
   SmallMap(SmallMap&& o) noexcept { take(o); }
   SmallMap& operator=(SmallMap&& o) noexcept {
      if (this != &o) {
         release();
         take(o);
      }
      return *this;
   }
   ~SmallMap() { release(); }

   std::size_t size() const { return n_; }
   bool empty() const { return n_ == 0; }

   V* find(K const& k) {
      U32 i = lowerBound(k);
      return i < n_ && data()[i].key == k ? &data()[i].val() : nullptr;
   }
   V const* find(K const& k) const { return const_cast<SmallMap*>(this)->find(k); }
   bool contains(K const& k) const { return find(k) != nullptr; }

   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      U32 i = lowerBound(k);
      if (i < n_ && data()[i].key == k) return {&data()[i].val(), false};
      if (n_ == 0) {
         new (room_) Elem(k, V(std::forward<A>(args)...));
         n_ = 1;
         return {&data()[0].val(), true};
      }
      if (n_ == 1) {
         // The one member moves out of the map into a block, with the new one.
         Block* b = newBlock(4);
         Elem* one = data();
         Elem* e = b->elems();
         new (&e[i == 0 ? 1 : 0]) Elem(std::move(*one));
         one->~Elem();
         new (&e[i]) Elem(k, V(std::forward<A>(args)...));
         blockIs(b);
         n_ = 2;
         return {&e[i].val(), true};
      }
      VEK_ASSERT(n_ < 0xffff && "Internal Error: a small collection holds at most 65535 members");
      if (n_ == block()->cap) grow(n_ + n_ / 2);
      Elem* e = data();
      if (i < n_) {
         new (&e[n_]) Elem(std::move(e[n_ - 1]));
         for (U32 j = n_ - 1; j > i; --j) e[j] = std::move(e[j - 1]);
         e[i].~Elem();
      }
      new (&e[i]) Elem(k, V(std::forward<A>(args)...));
      ++n_;
      return {&e[i].val(), true};
   }

   bool erase(K const& k, V* out = nullptr) {
      U32 i = lowerBound(k);
      if (i >= n_ || !(data()[i].key == k)) return false;
      Elem* e = data();
      std::optional<V> dead;
      if (out) *out = std::move(e[i].val());
      else dead.emplace(std::move(e[i].val()));
      for (U32 j = i; j + 1 < n_; ++j) e[j] = std::move(e[j + 1]);
      e[n_ - 1].~Elem();
      if (--n_ == 1) toInline();
      return true;
   }

   void clear() { release(); }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(SmallMap const* m, U32 i) : m_(m), i_(i) { pin(); }
      explicit operator bool() const {
         refresh();
         return m_ && i_ < m_->n_;
      }
      K const& key() const { return elem().key; }
      V const& value() const { return const_cast<Elem&>(elem()).val(); }
      bool valid() const {
         refresh();
         return m_ && i_ < m_->n_ && !moved_;
      }
      void advance() {
         refresh();
         if (!m_ || i_ >= m_->n_) return;
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
         return m_->data()[i_];
      }
      void pin() {
         if (!m_) return;
         if (i_ < m_->n_) key_ = m_->data()[i_].key;
         else key_.reset();
      }
      // The map changed under us when our member is no longer where we stood:
      // find it, or the place where it stood.
      void refresh() const {
         if (!m_ || !key_) return;
         if (i_ < m_->n_ && m_->data()[i_].key == *key_) return;
         i_ = m_->lowerBound(*key_);
         bool there = i_ < m_->n_ && m_->data()[i_].key == *key_;
         moved_ = moved_ || !there;
         if (i_ < m_->n_) key_ = m_->data()[i_].key;
         else key_.reset();
      }
      SmallMap const* m_ = nullptr;
      mutable U32 i_ = 0;
      mutable std::optional<K> key_;
      mutable bool moved_ = false;
   };

   Iterator begin() const { return Iterator(this, 0); }
   Iterator end() const { return Iterator(); }
   Iterator iterFrom(K const& k) const { return Iterator(this, lowerBound(k)); }

   // Bytes allocated beside the map itself.
   std::size_t bytes() const { return n_ >= 2 ? sizeof(Block) + block()->cap * sizeof(Elem) : 0; }

 private:
   Block* block() const {
      Block* b;
      std::memcpy(&b, room_, sizeof b);
      return b;
   }
   void blockIs(Block* b) { std::memcpy(room_, &b, sizeof b); }
   Elem* data() const {
      if (n_ >= 2) return block()->elems();
      return std::launder(reinterpret_cast<Elem*>(const_cast<unsigned char*>(room_)));
   }
   U32 lowerBound(K const& k) const {
      Elem const* e = data();
      U32 lo = 0, hi = n_;
      while (lo < hi) {
         U32 mid = (lo + hi) / 2;
         if (e[mid].key < k) lo = mid + 1;
         else hi = mid;
      }
      return lo;
   }
   static Block* newBlock(U32 cap) {
      auto* b = static_cast<Block*>(std::malloc(sizeof(Block) + cap * sizeof(Elem)));
      if (!b) throw std::bad_alloc();
      b->cap = cap;
      return b;
   }
   // The last member left in a block moves into the map.
   void toInline() {
      Block* b = block();
      new (room_) Elem(std::move(b->elems()[0]));
      b->elems()[0].~Elem();
      std::free(b);
   }
   void grow(U32 cap) {
      Block* old = block();
      Block* b = newBlock(cap);
      for (U32 i = 0; i < n_; ++i) {
         new (&b->elems()[i]) Elem(std::move(old->elems()[i]));
         old->elems()[i].~Elem();
      }
      std::free(old);
      blockIs(b);
   }
   void release() {
      Elem* e = data();
      for (U32 i = 0; i < n_; ++i) e[i].~Elem();
      if (n_ >= 2) std::free(block());
      n_ = 0;
   }
   void take(SmallMap& o) {
      n_ = o.n_;
      if (n_ == 1) {
         new (room_) Elem(std::move(*o.data()));
         o.data()->~Elem();
      } else if (n_ >= 2) {
         blockIs(o.block());
      }
      o.n_ = 0;
   }

   alignas(Elem) unsigned char room_[kRoom];
   U16 n_ = 0;
};

// A set of enumerators below 8, one bit each, with the interface of a
// collection of bool (a value written is always true).
template <class K>
class BitSet {
   static constexpr U32 kBits = 8;
 public:
   std::size_t size() const { return std::popcount(bits_); }
   bool empty() const { return bits_ == 0; }
   bool const* find(K const& k) const { return contains(k) ? &kTrue : nullptr; }
   bool contains(K const& k) const { return bits_ >> bit(k) & 1; }
   std::pair<bool*, bool> emplace(K const& k, bool v = true) {
      VEK_ASSERT(v && "Internal Error: a set holds its members as true");
      bool fresh = !contains(k);
      bits_ = U8(bits_ | 1u << bit(k));
      static bool member;
      member = true;
      return {&member, fresh};
   }
   bool erase(K const& k, bool* out = nullptr) {
      if (!contains(k)) return false;
      bits_ = U8(bits_ & ~(1u << bit(k)));
      if (out) *out = true;
      return true;
   }
   void clear() { bits_ = 0; }
   U8 bits() const { return bits_; }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(BitSet const* s, U32 from) : s_(s), at_(from) { skip(); }
      explicit operator bool() const { return s_ && at_ < kBits && (s_->bits_ >> at_ & 1); }
      K key() const {
         VEK_ASSERT(*this && "Internal Error: iterator on a deleted member");
         return static_cast<K>(at_);
      }
      bool const& value() const { return kTrue; }
      bool valid() const { return bool(*this); }
      // Members go by number: a deleted one is simply passed.
      void advance() {
         ++at_;
         skip();
      }
      Iterator& operator++() {
         advance();
         return *this;
      }
      bool operator==(Iterator const& o) const { return !*this && !o; }

    private:
      void skip() {
         while (s_ && at_ < kBits && !(s_->bits_ >> at_ & 1)) ++at_;
         if (at_ >= kBits) s_ = nullptr;
      }
      BitSet const* s_ = nullptr;
      U32 at_ = 0;
   };
   Iterator begin() const { return Iterator(this, 0); }
   Iterator end() const { return Iterator(); }
   Iterator iterFrom(K const& k) const { return Iterator(this, bit(k)); }
   std::size_t bytes() const { return 0; }

 private:
   static U32 bit(K const& k) {
      U32 b = static_cast<U32>(k);
      VEK_ASSERT(b < kBits && "Internal Error: a bit set holds enumerators below 8");
      return b;
   }
   static constexpr bool kTrue = true;
   U8 bits_ = 0;
};

}  // namespace Vek

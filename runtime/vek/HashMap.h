#pragma once
// Hash collections of the runtime. Entries live in a dense slot array and an
// open-addressing index points into it. Walks go by slot number, so an
// iterator survives the deletion of the member it stands on (the slot just
// becomes empty) and of any other member; the walk order depends only on the
// history of inserts and deletes, never on addresses, and is the same from run
// to run.
#include <concepts>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

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

template <class K, class V, class H = Hasher<K>>
class HashMap {
   struct Entry {
      K key;
      V value;
      U32 hash;
   };

 public:
   HashMap() = default;
   HashMap(HashMap const&) = delete;
   HashMap& operator=(HashMap const&) = delete;

   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   V* find(K const& k) {
      U32 s = lookup(k);
      return s == kNone ? nullptr : &slots_[s]->value;
   }
   V const* find(K const& k) const { return const_cast<HashMap*>(this)->find(k); }
   bool contains(K const& k) const { return lookup(k) != kNone; }

   // Inserts k with a value made from args unless k is present; returns the
   // value and whether it was inserted.
   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      U64 h = H()(k);
      U32 s = lookupHashed(k, h);
      if (s != kNone) return {&slots_[s]->value, false};
      if ((size_ + 1) * 2 > index_.size()) grow();
      U32 slot;
      if (!free_.empty()) {
         slot = free_.back();
         free_.pop_back();
         slots_[slot].emplace(Entry{k, V(std::forward<A>(args)...), static_cast<U32>(h)});
      } else {
         slot = static_cast<U32>(slots_.size());
         slots_.emplace_back(Entry{k, V(std::forward<A>(args)...), static_cast<U32>(h)});
      }
      place(slot, h);
      ++size_;
      return {&slots_[slot]->value, true};
   }

   // Removes k; returns whether it was there. The removed value is returned
   // through out, if given, so that its destruction can happen after the map
   // is consistent again.
   bool erase(K const& k, V* out = nullptr) {
      U64 h = H()(k);
      std::size_t mask = index_.size() - 1;
      if (index_.empty()) return false;
      for (std::size_t i = h & mask;; i = (i + 1) & mask) {
         U32 s = index_[i];
         if (s == kNone) return false;
         auto& e = *slots_[s];
         if (e.hash == static_cast<U32>(h) && e.key == k) {
            unplace(i);
            std::optional<Entry> dead;
            dead.swap(slots_[s]);
            free_.push_back(s);
            --size_;
            if (out) *out = std::move(dead->value);
            return true;
         }
      }
   }

   void clear() {
      slots_.clear();
      index_.clear();
      free_.clear();
      size_ = 0;
   }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(HashMap const* m, std::size_t i) : m_(m), i_(i) { skip(); }
      explicit operator bool() const { return m_ && i_ < m_->slots_.size(); }
      K const& key() const { return (*m_->slots_[i_]).key; }
      V const& value() const { return (*m_->slots_[i_]).value; }
      V& value() { return const_cast<V&>((*m_->slots_[i_]).value); }
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

    private:
      void skip() {
         while (m_ && i_ < m_->slots_.size() && !m_->slots_[i_]) ++i_;
      }
      HashMap const* m_ = nullptr;
      std::size_t i_ = 0;
   };

   Iterator begin() const { return Iterator(this, 0); }
   Iterator end() const { return Iterator(); }
   // The walk position of k, or the first member when k is absent: how a
   // bookmarked walk resumes.
   Iterator iterFrom(K const& k) const {
      U32 s = lookup(k);
      return Iterator(this, s == kNone ? 0 : s);
   }
   Iterator iterAt(K const& k) const {
      U32 s = lookup(k);
      return s == kNone ? Iterator() : Iterator(this, s);
   }

 private:
   static constexpr U32 kNone = 0xffffffffu;

   U32 lookup(K const& k) const { return lookupHashed(k, H()(k)); }
   U32 lookupHashed(K const& k, U64 h) const {
      if (index_.empty()) return kNone;
      std::size_t mask = index_.size() - 1;
      for (std::size_t i = h & mask;; i = (i + 1) & mask) {
         U32 s = index_[i];
         if (s == kNone) return kNone;
         auto const& e = *slots_[s];
         if (e.hash == static_cast<U32>(h) && e.key == k) return s;
      }
   }
   void place(U32 slot, U64 h) {
      std::size_t mask = index_.size() - 1;
      std::size_t i = h & mask;
      while (index_[i] != kNone) i = (i + 1) & mask;
      index_[i] = slot;
   }
   // Backward-shift deletion keeps probe chains whole without tombstones.
   void unplace(std::size_t i) {
      std::size_t mask = index_.size() - 1;
      std::size_t j = i;
      for (;;) {
         j = (j + 1) & mask;
         U32 s = index_[j];
         if (s == kNone) break;
         std::size_t home = slots_[s]->hash & mask;
         // Move s back to i when its home is not in the cyclic range (i, j].
         bool between = (i <= j) ? (i < home && home <= j) : (i < home || home <= j);
         if (!between) {
            index_[i] = s;
            i = j;
         }
      }
      index_[i] = kNone;
   }
   void grow() {
      std::size_t n = index_.empty() ? 8 : index_.size() * 2;
      // The index keys on the low 32 bits of the hash; the table never needs more.
      index_.assign(n, kNone);
      for (U32 s = 0; s < slots_.size(); ++s)
         if (slots_[s]) place(s, slots_[s]->hash);
   }

   std::vector<std::optional<Entry>> slots_;
   std::vector<U32> index_;
   std::vector<U32> free_;
   std::size_t size_ = 0;
};

// An ordered map whose iterator survives deletions: it remembers its key and
// finds its successor again when the map changed under it.
template <class K, class V>
class OrderedMap {
 public:
   std::size_t size() const { return m_.size(); }
   bool empty() const { return m_.empty(); }
   V* find(K const& k) {
      auto it = m_.find(k);
      return it == m_.end() ? nullptr : &it->second;
   }
   V const* find(K const& k) const { return const_cast<OrderedMap*>(this)->find(k); }
   bool contains(K const& k) const { return m_.count(k) != 0; }
   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      auto [it, ins] = m_.try_emplace(k, std::forward<A>(args)...);
      return {&it->second, ins};
   }
   bool erase(K const& k, V* out = nullptr) {
      auto it = m_.find(k);
      if (it == m_.end()) return false;
      if (out) *out = std::move(it->second);
      m_.erase(it);
      ++version_;
      return true;
   }
   void clear() {
      m_.clear();
      ++version_;
   }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(OrderedMap const* m, typename std::map<K, V>::const_iterator it)
         : m_(m), it_(it), version_(m->version_) {
         if (it_ != m_->m_.end()) key_ = it_->first;
      }
      explicit operator bool() const {
         refresh();
         return m_ && it_ != m_->m_.end();
      }
      K const& key() const { refresh(); return it_->first; }
      V const& value() const { refresh(); return it_->second; }
      void advance() {
         refresh();
         if (it_ == m_->m_.end()) return;
         // The member we stood on went away: we already stand on its successor.
         if (moved_) { moved_ = false; return; }
         ++it_;
         if (it_ != m_->m_.end()) key_ = it_->first;
      }
      Iterator& operator++() { advance(); return *this; }
      bool operator==(Iterator const& o) const { return !*this && !o; }
      std::pair<K const&, V const&> operator*() const { return {key(), value()}; }

    private:
      // After a deletion the stored iterator may dangle: find the first key not
      // below the remembered one.
      void refresh() const {
         if (!m_ || version_ == m_->version_) return;
         version_ = m_->version_;
         if (!key_) { it_ = m_->m_.end(); return; }
         it_ = m_->m_.lower_bound(*key_);
         moved_ = it_ == m_->m_.end() || it_->first != *key_;
         if (it_ != m_->m_.end()) key_ = it_->first;
      }
      OrderedMap const* m_ = nullptr;
      mutable typename std::map<K, V>::const_iterator it_;
      mutable U64 version_ = 0;
      mutable std::optional<K> key_;
      mutable bool moved_ = false;
   };

   Iterator begin() const { return Iterator(this, m_.begin()); }
   Iterator end() const { return Iterator(); }
   Iterator iterFrom(K const& k) const { return Iterator(this, m_.lower_bound(k)); }
   Iterator iterAt(K const& k) const {
      auto it = m_.find(k);
      return it == m_.end() ? Iterator() : Iterator(this, it);
   }

 private:
   std::map<K, V> m_;
   U64 version_ = 0;
};

}  // namespace Vek

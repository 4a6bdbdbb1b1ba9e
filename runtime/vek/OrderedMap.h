#pragma once
// OrderedMap: an ordered map kept as a B+ tree, for tables that grow with
// FECs and are read in key ranges (the published binding tables). Entries
// sit in sorted arrays in the leaves, which are chained for walks, so an
// entry costs about its key and value and a share of one node, rather than a
// tree node of its own and the allocator's overhead on it.
//
// An iterator survives any change of the map: it remembers its key, and when
// the map has changed under it, it finds its place again by that key (or
// the key's successor, when the member it stood on has gone). Pointers from
// find() and emplace() are valid until the next insert or erase.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Vek {

template <class K, class V>
class OrderedMap {
   // Node capacities: a leaf of about 512 bytes of entries, at least 8.
   static constexpr U32 kLeafCap = std::max<U32>(8, std::min<U32>(64, 512 / (sizeof(K) + sizeof(V))));
   static constexpr U32 kInnerCap = 32;

   struct Node {
      U16 n = 0;
      bool leaf;
      explicit Node(bool l) : leaf(l) {}
   };
   struct Leaf : Node {
      Leaf() : Node(true) {}
      Leaf* next = nullptr;
      Leaf* prev = nullptr;
      K keys[kLeafCap];
      V vals[kLeafCap];
   };
   // Child i holds the keys from keys[i-1] (inclusive) to keys[i] (exclusive).
   struct Inner : Node {
      Inner() : Node(false) {}
      K keys[kInnerCap];
      Node* kids[kInnerCap + 1];
   };
   struct Step {
      Inner* node;
      U32 kid;
   };
   static constexpr U32 kMaxDepth = 24;

 public:
   OrderedMap() = default;
   OrderedMap(OrderedMap const& o) {
      for (auto it = o.begin(); it; ++it) emplace(it.key(), it.value());
   }
   OrderedMap(OrderedMap&& o) noexcept
      : root_(o.root_), head_(o.head_), size_(o.size_), depth_(o.depth_) {
      o.root_ = nullptr;
      o.head_ = nullptr;
      o.size_ = 0;
      o.depth_ = 0;
      ++o.version_;
   }
   OrderedMap& operator=(OrderedMap const& o) {
      if (this != &o) {
         clear();
         for (auto it = o.begin(); it; ++it) emplace(it.key(), it.value());
      }
      return *this;
   }
   OrderedMap& operator=(OrderedMap&& o) noexcept {
      if (this != &o) {
         clear();
         std::swap(root_, o.root_);
         std::swap(head_, o.head_);
         std::swap(size_, o.size_);
         std::swap(depth_, o.depth_);
         ++o.version_;
      }
      return *this;
   }
   ~OrderedMap() { freeNode(root_); }

   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   V* find(K const& k) {
      Leaf* l = leafFor(k, nullptr);
      if (!l) return nullptr;
      U32 i = lowerIn(l, k);
      return i < l->n && !(k < l->keys[i]) ? &l->vals[i] : nullptr;
   }
   V const* find(K const& k) const { return const_cast<OrderedMap*>(this)->find(k); }
   bool contains(K const& k) const { return find(k) != nullptr; }

   template <class... A>
   std::pair<V*, bool> emplace(K const& k, A&&... args) {
      if (!root_) {
         Leaf* l = new Leaf;
         root_ = head_ = l;
         depth_ = 0;
      }
      Step path[kMaxDepth];
      Leaf* l = leafFor(k, path);
      U32 i = lowerIn(l, k);
      if (i < l->n && !(k < l->keys[i])) return {&l->vals[i], false};
      V v(std::forward<A>(args)...);
      ++version_;
      ++size_;
      if (l->n < kLeafCap) return {insertInLeaf(l, i, k, std::move(v)), true};
      // A full leaf splits. Appending past the last key leaves it full, so
      // that keys arriving in order pack the leaves.
      Leaf* r = new Leaf;
      U32 keep = (i == kLeafCap && !l->next) ? kLeafCap : kLeafCap / 2;
      moveRange(l, keep, l->n, r, 0);
      r->n = U16(l->n - keep);
      l->n = U16(keep);
      r->next = l->next;
      r->prev = l;
      if (l->next) l->next->prev = r;
      l->next = r;
      // After an even split the left leaf has room, and a key at the split
      // point goes to its end; after an append the new key starts the right.
      bool toLeft = keep < kLeafCap && i <= keep;
      V* out = toLeft ? insertInLeaf(l, i, k, std::move(v)) : insertInLeaf(r, i - keep, k, std::move(v));
      insertInParent(path, depth_, l, r->keys[0], r);
      return {out, true};
   }

   bool erase(K const& k, V* out = nullptr) {
      if (!root_) return false;
      Step path[kMaxDepth];
      Leaf* l = leafFor(k, path);
      U32 i = lowerIn(l, k);
      if (i >= l->n || k < l->keys[i]) return false;
      if (out) *out = std::move(l->vals[i]);
      for (U32 j = i + 1; j < l->n; ++j) {
         l->keys[j - 1] = std::move(l->keys[j]);
         l->vals[j - 1] = std::move(l->vals[j]);
      }
      --l->n;
      l->keys[l->n] = K{};
      l->vals[l->n] = V{};
      --size_;
      ++version_;
      rebalance(path, depth_, l);
      return true;
   }

   void clear() {
      freeNode(root_);
      root_ = nullptr;
      head_ = nullptr;
      size_ = 0;
      depth_ = 0;
      ++version_;
   }

   class Iterator {
    public:
      Iterator() = default;
      Iterator(OrderedMap const* m, Leaf* l, U32 i) : m_(m), leaf_(l), idx_(i), version_(m->version_) {
         if (leaf_) key_ = leaf_->keys[idx_];
      }
      explicit operator bool() const {
         refresh();
         return leaf_ != nullptr;
      }
      K const& key() const {
         refresh();
         VEK_ASSERT(leaf_ && !moved_ && "Internal Error: iterator on a deleted member");
         return leaf_->keys[idx_];
      }
      V const& value() const {
         refresh();
         VEK_ASSERT(leaf_ && !moved_ && "Internal Error: iterator on a deleted member");
         return leaf_->vals[idx_];
      }
      void advance() {
         refresh();
         if (!leaf_) return;
         // The member we stood on went away: we already stand on its successor.
         if (moved_) {
            moved_ = false;
            return;
         }
         if (++idx_ >= leaf_->n) {
            leaf_ = leaf_->next;
            idx_ = 0;
         }
         if (leaf_) key_ = leaf_->keys[idx_];
      }
      Iterator& operator++() {
         advance();
         return *this;
      }
      bool operator==(Iterator const& o) const { return !*this && !o; }
      std::pair<K const&, V const&> operator*() const { return {key(), value()}; }

    private:
      // After a change of the map the stored place may be stale: find the
      // first key not below the remembered one.
      void refresh() const {
         if (!m_ || version_ == m_->version_) return;
         version_ = m_->version_;
         if (!leaf_) return;
         auto [l, i] = m_->lowerBound(key_);
         leaf_ = l;
         idx_ = i;
         moved_ = moved_ || !leaf_ || key_ < leaf_->keys[idx_];
         if (leaf_) key_ = leaf_->keys[idx_];
      }
      OrderedMap const* m_ = nullptr;
      mutable Leaf* leaf_ = nullptr;
      mutable U32 idx_ = 0;
      mutable U64 version_ = 0;
      mutable K key_{};
      mutable bool moved_ = false;
   };

   Iterator begin() const { return Iterator(this, head_ && head_->n ? head_ : nullptr, 0); }
   Iterator end() const { return Iterator(); }
   // A walk resumes at k or, when k has gone, at its successor.
   Iterator iterFrom(K const& k) const {
      auto [l, i] = lowerBound(k);
      return Iterator(this, l, i);
   }
   Iterator iterAt(K const& k) const {
      auto [l, i] = lowerBound(k);
      return l && !(k < l->keys[i]) ? Iterator(this, l, i) : Iterator();
   }

 private:
   static U32 lowerIn(Leaf const* l, K const& k) {
      return U32(std::lower_bound(l->keys, l->keys + l->n, k) - l->keys);
   }
   static U32 kidFor(Inner const* in, K const& k) {
      return U32(std::upper_bound(in->keys, in->keys + in->n, k) - in->keys);
   }

   // The leaf whose range holds k, recording the way down when asked.
   Leaf* leafFor(K const& k, Step* path) const {
      Node* n = root_;
      if (!n) return nullptr;
      for (U32 d = 0; !n->leaf; ++d) {
         auto* in = static_cast<Inner*>(n);
         U32 c = kidFor(in, k);
         if (path) path[d] = Step{in, c};
         n = in->kids[c];
      }
      return static_cast<Leaf*>(n);
   }

   // The first entry whose key is not below k, or (nullptr, 0) at the end.
   std::pair<Leaf*, U32> lowerBound(K const& k) const {
      Leaf* l = leafFor(k, nullptr);
      if (!l) return {nullptr, 0};
      U32 i = lowerIn(l, k);
      if (i < l->n) return {l, i};
      return {l->next, 0};
   }

   static V* insertInLeaf(Leaf* l, U32 i, K const& k, V&& v) {
      for (U32 j = l->n; j > i; --j) {
         l->keys[j] = std::move(l->keys[j - 1]);
         l->vals[j] = std::move(l->vals[j - 1]);
      }
      l->keys[i] = k;
      l->vals[i] = std::move(v);
      ++l->n;
      return &l->vals[i];
   }

   static void moveRange(Leaf* from, U32 b, U32 e, Leaf* to, U32 at) {
      for (U32 j = b; j < e; ++j, ++at) {
         to->keys[at] = std::move(from->keys[j]);
         to->vals[at] = std::move(from->vals[j]);
         from->keys[j] = K{};
         from->vals[j] = V{};
      }
   }

   // Puts right, whose keys start at sep, beside left in left's parent
   // (path[depth-1]), splitting inner nodes up the way as they fill.
   void insertInParent(Step* path, U32 depth, Node* left, K sep, Node* right) {
      while (true) {
         if (depth == 0) {
            auto* root = new Inner;
            root->n = 1;
            root->keys[0] = std::move(sep);
            root->kids[0] = left;
            root->kids[1] = right;
            root_ = root;
            ++depth_;
            VEK_ASSERT(depth_ < kMaxDepth && "Internal Error: ordered map too deep");
            return;
         }
         Inner* p = path[depth - 1].node;
         U32 c = path[depth - 1].kid;  // left is p->kids[c]
         if (p->n < kInnerCap) {
            for (U32 j = p->n; j > c; --j) {
               p->keys[j] = std::move(p->keys[j - 1]);
               p->kids[j + 1] = p->kids[j];
            }
            p->keys[c] = std::move(sep);
            p->kids[c + 1] = right;
            ++p->n;
            return;
         }
         // Split a full inner node: gather its keys and children with the
         // new one, keep the lower half, move the upper half to a new node,
         // and push the middle key up.
         K keys[kInnerCap + 1];
         Node* kids[kInnerCap + 2];
         for (U32 j = 0, o = 0; j <= kInnerCap; ++j) {
            if (j == c) keys[o++] = std::move(sep);
            if (j < kInnerCap) keys[o++] = std::move(p->keys[j]);
         }
         for (U32 j = 0, o = 0; j <= kInnerCap; ++j) {
            kids[o++] = p->kids[j];
            if (j == c) kids[o++] = right;
         }
         U32 mid = (kInnerCap + 1) / 2;
         auto* q = new Inner;
         p->n = U16(mid);
         for (U32 j = 0; j < mid; ++j) p->keys[j] = std::move(keys[j]);
         for (U32 j = 0; j <= mid; ++j) p->kids[j] = kids[j];
         for (U32 j = mid; j < kInnerCap; ++j) p->keys[j] = K{};
         q->n = U16(kInnerCap - mid);
         for (U32 j = 0; j < q->n; ++j) q->keys[j] = std::move(keys[mid + 1 + j]);
         for (U32 j = 0; j <= q->n; ++j) q->kids[j] = kids[mid + 1 + j];
         sep = std::move(keys[mid]);
         left = p;
         right = q;
         --depth;
      }
   }

   // After an erase from leaf l: an empty leaf goes; a thin one merges with a
   // sibling when both fit in one leaf, so that deletions give room back.
   void rebalance(Step* path, U32 depth, Leaf* l) {
      if (depth == 0) {
         if (l->n == 0) clear();
         return;
      }
      Inner* p = path[depth - 1].node;
      U32 c = path[depth - 1].kid;
      if (l->n == 0) {
         unlinkLeaf(l);
         removeKid(path, depth - 1, c);
         return;
      }
      if (l->n >= kLeafCap / 4) return;
      if (c > 0) {
         auto* left = static_cast<Leaf*>(p->kids[c - 1]);
         if (left->n + l->n <= kLeafCap) {
            moveRange(l, 0, l->n, left, left->n);
            left->n = U16(left->n + l->n);
            l->n = 0;
            unlinkLeaf(l);
            removeKid(path, depth - 1, c);
            return;
         }
      }
      if (c < p->n) {
         auto* right = static_cast<Leaf*>(p->kids[c + 1]);
         if (right->n + l->n <= kLeafCap) {
            moveRange(right, 0, right->n, l, l->n);
            l->n = U16(l->n + right->n);
            right->n = 0;
            unlinkLeaf(right);
            removeKid(path, depth - 1, c + 1);
         }
      }
   }

   void unlinkLeaf(Leaf* l) {
      if (l->prev) l->prev->next = l->next;
      else head_ = l->next;
      if (l->next) l->next->prev = l->prev;
      delete l;
   }

   // Takes child c (already freed) out of the inner node at path[d]; an inner
   // node left without children goes too, and a root with one child hands
   // the root to it.
   void removeKid(Step* path, U32 d, U32 c) {
      while (true) {
         Inner* p = path[d].node;
         if (p->n == 0) {
            // c was its only child.
            delete p;
            if (d == 0) {
               root_ = nullptr;
               head_ = nullptr;
               depth_ = 0;
               return;
            }
            c = path[d - 1].kid;
            --d;
            continue;
         }
         U32 ki = c > 0 ? c - 1 : 0;
         for (U32 j = ki + 1; j < p->n; ++j) p->keys[j - 1] = std::move(p->keys[j]);
         for (U32 j = c + 1; j <= p->n; ++j) p->kids[j - 1] = p->kids[j];
         --p->n;
         p->keys[p->n] = K{};
         break;
      }
      while (root_ && !root_->leaf && root_->n == 0) {
         auto* in = static_cast<Inner*>(root_);
         root_ = in->kids[0];
         delete in;
         --depth_;
      }
   }

   static void freeNode(Node* n) {
      if (!n) return;
      if (n->leaf) {
         delete static_cast<Leaf*>(n);
         return;
      }
      auto* in = static_cast<Inner*>(n);
      for (U32 j = 0; j <= in->n; ++j) freeNode(in->kids[j]);
      delete in;
   }

   Node* root_ = nullptr;
   Leaf* head_ = nullptr;
   std::size_t size_ = 0;
   U32 depth_ = 0;
   U64 version_ = 0;
};

}  // namespace Vek

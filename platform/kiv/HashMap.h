// Kiv::HashMap: the keyed collection behind every framework collection.
//
// Contract:
// - The bucket of a key is taken from the top bits of kivHash(key), found by
//   argument-dependent lookup. Keys provide kivHash as the bit-reversal of
//   their own hash, so the top bits are the well-mixed low bits of that hash.
// - Iteration visits entries in ascending (kivHash, key) order. That order
//   does not depend on the table size or on the history of inserts, so it is
//   the same on every run for the same contents.
// - An iterator keeps a bookmark (the hash and key of its entry). Erasing any
//   entry, the current one included, or inserting during a walk is safe: the
//   next ++ continues after the bookmark, so nothing is skipped or repeated
//   among the entries that were there all along.
// - Erase unlinks an entry before destroying it, so a value whose destructor
//   touches the same map sees a consistent map.
// Not thread-safe; owned and used by the event-loop thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "platform/kiv/Exception.h"

namespace Kiv {

template <class K, class V>
class HashMap {
  struct Node {
    std::uint32_t rh;
    std::pair<const K, V> kv;
    Node* next;
  };

 public:
  using Entry = std::pair<const K, V>;

  class Iterator {
   public:
    Iterator() = default;
    explicit operator bool() const { return map_ && !atEnd_; }
    const K& key() const { return node()->kv.first; }
    V& value() const { return node()->kv.second; }
    Entry& operator*() const { return node()->kv; }
    Entry* operator->() const { return &node()->kv; }
    Iterator& operator++() {
      if (!map_ || atEnd_) return *this;
      Node* n = (version_ == map_->version_ && node_) ? map_->successor(node_)
                                                      : map_->seekAfter(rh_, bookmark_);
      position(n);
      return *this;
    }
    struct End {};
    bool operator!=(End) const { return bool(*this); }
    bool operator==(End) const { return !bool(*this); }

   private:
    friend class HashMap;
    Iterator(const HashMap* m, Node* n) : map_(m) { position(n); }
    void position(Node* n) {
      node_ = n;
      version_ = map_->version_;
      atEnd_ = n == nullptr;
      if (n) {
        rh_ = n->rh;
        bookmark_ = n->kv.first;
      }
    }
    Node* node() const {
      if (!map_ || atEnd_) throw RangeException("iterator past the end");
      if (version_ != map_->version_) {
        node_ = map_->findNode(rh_, bookmark_);
        version_ = map_->version_;
        if (!node_) throw RangeException("iterator on a deleted entry");
      }
      return node_;
    }
    const HashMap* map_ = nullptr;
    mutable Node* node_ = nullptr;
    mutable std::uint64_t version_ = 0;
    bool atEnd_ = true;
    std::uint32_t rh_ = 0;
    K bookmark_{};
  };

  HashMap() : buckets_(1, nullptr) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  ~HashMap() { clear(); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  V* find(const K& k) {
    Node* n = findNode(kivHash(k), k);
    return n ? &n->kv.second : nullptr;
  }
  const V* find(const K& k) const { return const_cast<HashMap*>(this)->find(k); }
  bool contains(const K& k) const { return find(k) != nullptr; }

  // Inserts (k, v) unless k is present; returns the stored value and whether
  // it was inserted. Strong guarantee: if an allocation throws, the map is
  // unchanged (its table may have grown).
  std::pair<V*, bool> insert(const K& k, V v) {
    std::uint32_t rh = kivHash(k);
    if (Node* n = findNode(rh, k)) return {&n->kv.second, false};
    if (size_ + 1 > buckets_.size()) grow();
    Node* n = new Node{rh, Entry(k, std::move(v)), nullptr};
    link(n);
    ++size_;
    ++version_;
    return {&n->kv.second, true};
  }

  bool erase(const K& k) {
    std::uint32_t rh = kivHash(k);
    Node** pp = &buckets_[bucketOf(rh)];
    for (; *pp; pp = &(*pp)->next) {
      if ((*pp)->rh == rh && (*pp)->kv.first == k) {
        Node* n = *pp;
        *pp = n->next;
        --size_;
        ++version_;
        delete n;
        return true;
      }
    }
    return false;
  }
  bool erase(Iterator& it) { return it ? erase(it.bookmark_) : false; }

  // Bucket by bucket, so clearing is linear (restarting each erase from the
  // first bucket made it quadratic). Each entry is unlinked before it is
  // destroyed; the outer loop picks up entries a destructor inserted, and
  // stops when a pass finds nothing, whatever size_ says.
  void clear() {
    for (bool found = true; size_ && found;) {
      found = false;
      for (std::size_t b = 0; b < buckets_.size(); ++b) {
        found = found || buckets_[b];
        while (Node* n = buckets_[b]) {
          buckets_[b] = n->next;
          --size_;
          ++version_;
          delete n;
        }
      }
    }
    size_ = 0;  // nodes a failed growth lost (none since growth is safe)
  }

  Iterator iterator() const { return Iterator(this, first(0)); }
  Iterator begin() const { return iterator(); }
  typename Iterator::End end() const { return {}; }

 private:
  static bool before(std::uint32_t rh, const K& k, const Node* n) {
    return rh < n->rh || (rh == n->rh && k < n->kv.first);
  }
  std::size_t bucketOf(std::uint32_t rh) const { return bits_ ? rh >> (32 - bits_) : 0; }

  Node* findNode(std::uint32_t rh, const K& k) const {
    for (Node* n = buckets_[bucketOf(rh)]; n; n = n->next)
      if (n->rh == rh && n->kv.first == k) return n;
    return nullptr;
  }
  Node* first(std::size_t bucket) const {
    for (; bucket < buckets_.size(); ++bucket)
      if (buckets_[bucket]) return buckets_[bucket];
    return nullptr;
  }
  Node* successor(const Node* n) const { return n->next ? n->next : first(bucketOf(n->rh) + 1); }
  // First entry ordered after (rh, k), whether or not (rh, k) is present.
  Node* seekAfter(std::uint32_t rh, const K& k) const {
    std::size_t b = bucketOf(rh);
    for (Node* n = buckets_[b]; n; n = n->next)
      if (before(rh, k, n)) return n;
    return first(b + 1);
  }
  // Keeps each bucket sorted by (rh, key), which makes the global order.
  void link(Node* n) {
    Node** pp = &buckets_[bucketOf(n->rh)];
    while (*pp && !before(n->rh, n->kv.first, *pp)) pp = &(*pp)->next;
    n->next = *pp;
    *pp = n;
  }
  // Strong guarantee: everything that can throw (both allocations) happens
  // before the table changes; moving the nodes cannot fail. A failure then
  // leaves the map as it was, so a later clear() still finds every node.
  void grow() {
    std::vector<Node*> grown(buckets_.size() * 2, nullptr);
    std::vector<Node**> tails(grown.size());
    grown.swap(buckets_);
    ++bits_;
    // Walking the old table in order and appending keeps every bucket sorted.
    for (std::size_t i = 0; i < buckets_.size(); ++i) tails[i] = &buckets_[i];
    for (Node* head : grown) {
      while (head) {
        Node* next = head->next;
        std::size_t b = bucketOf(head->rh);
        head->next = nullptr;
        *tails[b] = head;
        tails[b] = &head->next;
        head = next;
      }
    }
  }

  std::vector<Node*> buckets_;
  unsigned bits_ = 0;
  std::size_t size_ = 0;
  std::uint64_t version_ = 0;
};

}  // namespace Kiv

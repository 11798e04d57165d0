// A hash table from values to values with a fixed number of buckets.
//
// The iteration order (bucket by bucket, in each bucket the newest entry first) is the order of the
// entries on the wire and therefore part of the format. Copies keep it.
//
// All entries hang on one chain in just that order. A map of more than a few entries also knows the
// last entry of each bucket, which is where the next bucket's part of the chain begins. So the
// small maps that records are cost no more than their entries.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lumo/allocator.h"
#include "lumo/hash.h"
#include "lumo/value.h"

namespace TAVU::lumo {

class Map : public FromDefaultAllocator {
 public:
  struct Node : FromDefaultAllocator {
    Node* next = nullptr;
    std::uint32_t bucket = 0;
    Value key;
    Value value;
  };

  class Iterator {
   public:
    explicit Iterator(const Node* node) noexcept : node_(node) {}
    const Node& operator*() const noexcept { return *node_; }
    const Node* operator->() const noexcept { return node_; }
    Iterator& operator++() noexcept {
      node_ = node_->next;
      return *this;
    }
    bool operator==(const Iterator& other) const noexcept = default;

   private:
    const Node* node_;  // null at the end
  };

  Map() noexcept = default;
  Map(const Map& other, CopyDepth depth);  // the same entries in the same order
  Map(const Map&) = delete;
  Map& operator=(const Map&) = delete;
  ~Map() { Clear(); }

  // Puts the pair in, or returns false and changes nothing when the key is there already. Arguments
  // that are copied are copied shallowly (the map then borrows); moved ones the map keeps.
  bool Insert(Value key, Value value);

  // The entry with an equal key, or null. Valid until the map is cleared or destroyed.
  [[nodiscard]] const Node* Find(const Value& key) const;
  [[nodiscard]] const Node* Find(std::int32_t key) const { return Find(Value::Int(key)); }

  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  [[nodiscard]] Iterator begin() const noexcept { return Iterator(first_); }
  [[nodiscard]] Iterator end() const noexcept { return Iterator(nullptr); }
  void Clear() noexcept;

 private:
  friend class ContentRelease;

  // Where a bucket's entries stand or would stand in the chain: behind `before`, or first of all.
  struct Place {
    Node* before;
    Node* first;  // the bucket's first entry, or that of a later bucket, or null
  };
  [[nodiscard]] Place PlaceOf(std::uint32_t bucket) const noexcept;
  [[nodiscard]] static Node* FindFrom(Node* first, std::uint32_t bucket, const Value& key);
  void IndexBuckets();

  Node* first_ = nullptr;
  Node** last_of_bucket_ = nullptr;  // kBucketCount of them; null while the map is small
  union {
    std::size_t count_ = 0;
    Map* next_released_;  // while the map waits to be freed
  };
};

}  // namespace TAVU::lumo

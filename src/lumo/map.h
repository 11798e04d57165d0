// A hash table from values to values with a fixed number of buckets.
//
// The iteration order (bucket by bucket, each chain from its head, new entries at the head) is the
// order of the entries on the wire and therefore part of the format. Copies keep it.
#pragma once

#include <array>
#include <cstddef>

#include "lumo/allocator.h"
#include "lumo/hash.h"
#include "lumo/value.h"

namespace TAVU::lumo {

class Map : public FromDefaultAllocator {
 public:
  struct Node : FromDefaultAllocator {
    Node* next = nullptr;
    Value key;
    Value value;
  };

  class Iterator {
   public:
    Iterator(const Map* map, std::size_t bucket, const Node* node) noexcept
        : map_(map), bucket_(bucket), node_(node) {}
    const Node& operator*() const noexcept { return *node_; }
    const Node* operator->() const noexcept { return node_; }
    Iterator& operator++() noexcept;
    bool operator==(const Iterator& other) const noexcept { return node_ == other.node_; }

   private:
    const Map* map_;
    std::size_t bucket_;
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
  [[nodiscard]] Iterator begin() const noexcept;
  [[nodiscard]] Iterator end() const noexcept { return Iterator(this, kBucketCount, nullptr); }
  void Clear() noexcept;

 private:
  friend class ContentRelease;

  std::array<Node*, kBucketCount> buckets_ = {};
  std::size_t count_ = 0;
};

}  // namespace TAVU::lumo

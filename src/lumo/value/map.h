// A hash table from values to values with a fixed number of buckets.
//
// The iteration order (bucket by bucket, in each bucket the newest entry first) is the order of the
// entries on the wire. Whoever compares records byte by byte depends on it, so copies keep it.
//
// All entries hang on one chain in just that order, so that the small maps that records are cost no
// more than their entries. A map of more than a few entries has an index besides, which finds a key
// and its place in the chain without a walk. The entries' memory comes in blocks that the map keeps
// until it is cleared.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/allocator.h"
#include "lumo/value/hash.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

class Map : public base::FromDefaultAllocator {
 public:
  struct Node {
    Node* next = nullptr;
    std::uint32_t hash = 0;
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
  // The same entries in the same order. A deep copy of a key with a big integer in it has a null
  // there; such keys are sorted in anew, and of those that have become equal one stays.
  Map(const Map& other, CopyDepth depth);
  Map(const Map&) = delete;
  Map& operator=(const Map&) = delete;
  ~Map() { Clear(); }

  // Puts the pair in, or returns false and changes nothing when the key is there already. Arguments
  // that are copied are copied shallowly (the map then borrows); moved ones the map keeps.
  bool Insert(Value key, Value value);

  // The entry with an equal key, or null. Valid until the map is cleared or destroyed. A double
  // that is equal only within the tolerance is found if it lies in the same bucket, and else is
  // not.
  [[nodiscard]] const Node* Find(const Value& key) const noexcept;
  [[nodiscard]] const Node* Find(std::int32_t key) const noexcept { return Find(Value::Int(key)); }

  // What Find gives for the key of `entry`, which belongs to another map.
  [[nodiscard]] const Node* FindTwin(const Node& entry) const noexcept {
    return Find(entry.key, entry.hash, PlaceOf(entry.bucket));
  }

  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  [[nodiscard]] Iterator begin() const noexcept { return Iterator(first_); }
  [[nodiscard]] Iterator end() const noexcept { return Iterator(nullptr); }
  void Clear() noexcept;

  // Makes room in one block of memory for what is about to come: so many more entries, and `bytes`
  // for Room. A caller that knows both saves a small map all blocks but one.
  void Reserve(std::size_t entries, std::size_t bytes = 0);

  // For a decoder, which saves a block of memory per text and does not move values about.
  // The spare entry lies in the map's memory, but does not belong to it until InsertSpare, which
  // does with its key and value as Insert does; after false both are null again.
  [[nodiscard]] Node& Spare() { return spare_ != nullptr ? *spare_ : MakeSpare(); }
  bool InsertSpare();
  // Memory for bytes that the values of this map borrow; it lasts until the map is cleared.
  [[nodiscard]] std::byte* Room(std::size_t size) {
    size = (size + alignof(Node) - 1) / alignof(Node) * alignof(Node);
    if (size > static_cast<std::size_t>(room_end_ - room_)) AddBlock(size);
    std::byte* room = room_;
    room_ += size;
    return room;
  }

 private:
  friend class ContentRelease;

  struct Block {
    Block* next;
    std::size_t size;  // with this header
  };

  // Where a bucket's entries stand or would stand in the chain: after `before`, or first of all.
  struct Place {
    Node* before;
    Node* first;  // the bucket's first entry, or that of a later bucket, or null
  };

  struct Index;

  [[nodiscard]] Place PlaceOf(std::uint32_t bucket) const noexcept;
  // `place` is that of the hash's bucket.
  [[nodiscard]] Node* Find(const Value& key, std::uint32_t hash, const Place& place) const noexcept;
  void InsertAnew();
  void IndexFor(std::size_t count);
  Node& MakeSpare();
  void AddBlock(std::size_t size);

  Node* first_ = nullptr;
  Index* index_ = nullptr;  // null while the map is small
  Node* spare_ = nullptr;
  Block* blocks_ = nullptr;    // the newest one first
  std::byte* room_ = nullptr;  // what is left of the newest
  std::byte* room_end_ = nullptr;
  union {
    std::size_t count_ = 0;
    Map* next_released_;  // while the map waits to be freed
  };
};

}  // namespace TAVU::lumo

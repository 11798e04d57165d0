#include "lumo/value/map.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <utility>

#include "lumo/value/content_release.h"
#include "lumo/value/value_equality.h"

namespace TAVU::lumo {

namespace {

// Up to here walking the chain costs less than an index would.
constexpr std::size_t kMostWithoutIndex = 16;

// Blocks double in size between these.
constexpr std::size_t kFirstBlock = 240;
constexpr std::size_t kLargestBlock = 0x8000;

std::uint32_t BucketOf(std::uint32_t hash) noexcept {
  return hash % std::uint32_t{kBucketCount};
}

// Equal keys of these types have equal hashes. Equal doubles need not, because they are equal
// within a tolerance, and so with containers, which may hold doubles or the same entries in another
// order.
bool HashDecides(const Value& key) noexcept {
  return key.type() <= ValueType::kBinary && key.type() != ValueType::kDouble;
}

}  // namespace

// The last entry of each bucket, after which the next bucket's begin, and a table of all entries
// whose hash decides: open addressing, at most half full.
struct Map::Index {
  // Made as one block of memory, the slots after the object. Their number is a power of two.
  static Index* Make(std::size_t slot_count) {
    void* memory = base::DefaultAllocator::Allocate(sizeof(Index) + slot_count * sizeof(void*));
    Index& index = *::new (memory) Index{{}, slot_count - 1};
    std::uninitialized_fill_n(index.slots(), slot_count, nullptr);
    return &index;
  }

  [[nodiscard]] Node** slots() noexcept { return reinterpret_cast<Node**>(this + 1); }

  // The entry with that key; null when there is none.
  [[nodiscard]] Node* Find(const Value& key, std::uint32_t hash) noexcept {
    std::size_t i = hash & mask;
    while (slots()[i] != nullptr && !(slots()[i]->hash == hash && AreEqual(slots()[i]->key, key))) {
      i = (i + 1) & mask;
    }
    return slots()[i];
  }

  void Empty() noexcept {
    std::fill_n(last_of_bucket, kBucketCount, nullptr);
    std::fill_n(slots(), mask + 1, nullptr);
  }

  void Add(Node* node) noexcept {
    if (!HashDecides(node->key)) return;
    std::size_t i = node->hash & mask;
    while (slots()[i] != nullptr) i = (i + 1) & mask;
    slots()[i] = node;
  }

  Node* last_of_bucket[kBucketCount];
  std::size_t mask;
};

Map::Map(const Map& other, CopyDepth depth) : Map() {
  bool may_lose_big_integers = false;
  Node** link = &first_;
  for (const Node& entry : other) {
    Node& copy = Spare();
    copy.hash = entry.hash;
    copy.bucket = entry.bucket;
    copy.key = Value(entry.key, depth);
    copy.value = Value(entry.value, depth);
    *link = std::exchange(spare_, nullptr);
    link = &copy.next;
    ++count_;
    may_lose_big_integers = may_lose_big_integers || entry.key.type() > ValueType::kBinary;
  }
  if (count_ > kMostWithoutIndex) IndexFor(count_);
  if (may_lose_big_integers && depth == CopyDepth::kDeep) InsertAnew();
}

// Takes all entries out and inserts them again, each bucket's oldest first. There is an index that
// is large enough already, so that nothing fails with entries outside.
void Map::InsertAnew() {
  Node* oldest = nullptr;
  while (first_ != nullptr) {
    Node* node = std::exchange(first_, first_->next);
    node->next = std::exchange(oldest, node);
  }
  count_ = 0;
  if (index_ != nullptr) index_->Empty();
  while (oldest != nullptr) {
    spare_ = std::exchange(oldest, oldest->next);
    static_cast<void>(InsertSpare());
  }
}

bool Map::Insert(Value key, Value value) {
  Node& entry = Spare();
  entry.key = std::move(key);
  entry.value = std::move(value);
  return InsertSpare();
}

bool Map::InsertSpare() {
  Node& entry = Spare();
  entry.hash = Hash(entry.key, kInitialHash);
  entry.bucket = BucketOf(entry.hash);
  if (count_ >= kMostWithoutIndex) IndexFor(count_ + 1);
  const Place place = PlaceOf(entry.bucket);
  if (Find(entry.key, entry.hash, place) != nullptr) {
    entry.key.Clear();
    entry.value.Clear();
    return false;
  }
  // From here on nothing fails.
  entry.next = place.first;
  (place.before == nullptr ? first_ : place.before->next) = &entry;
  if (index_ != nullptr) {
    index_->Add(&entry);
    Node*& last = index_->last_of_bucket[entry.bucket];
    if (last == nullptr) last = &entry;
  }
  spare_ = nullptr;
  ++count_;
  return true;
}

const Map::Node* Map::Find(const Value& key) const noexcept {
  const std::uint32_t hash = Hash(key, kInitialHash);
  return Find(key, hash, PlaceOf(BucketOf(hash)));
}

void Map::Clear() noexcept {
  if (blocks_ == nullptr) return;
  ContentRelease release;
  release.Empty(*this);
}

Map::Place Map::PlaceOf(std::uint32_t bucket) const noexcept {
  Node* before = nullptr;
  if (index_ != nullptr) {
    for (std::uint32_t i = bucket; i > 0 && before == nullptr; --i) {
      before = index_->last_of_bucket[i - 1];
    }
    return {before, before == nullptr ? first_ : before->next};
  }
  Node* node = first_;
  while (node != nullptr && node->bucket < bucket) {
    before = node;
    node = node->next;
  }
  return {before, node};
}

Map::Node* Map::Find(const Value& key, std::uint32_t hash, const Place& place) const noexcept {
  const bool hash_decides = HashDecides(key);
  if (index_ != nullptr && hash_decides) return index_->Find(key, hash);
  const std::uint32_t bucket = BucketOf(hash);
  Node* node = place.first;
  for (; node != nullptr && node->bucket == bucket; node = node->next) {
    if (hash_decides && node->hash != hash) continue;
    if (AreEqual(node->key, key)) return node;
  }
  return nullptr;
}

// Makes an index that serves `count` entries, if there is none yet.
void Map::IndexFor(std::size_t count) {
  const std::size_t slot_count = std::bit_ceil(count * 2);
  if (index_ != nullptr && slot_count <= index_->mask + 1) return;
  Index* index = Index::Make(slot_count);
  for (Node* node = first_; node != nullptr; node = node->next) {
    index->last_of_bucket[node->bucket] = node;
    index->Add(node);
  }
  base::DefaultAllocator::Free(index_);
  index_ = index;
}

void Map::Reserve(std::size_t entries, std::size_t bytes) {
  constexpr std::size_t kLargest = PTRDIFF_MAX / 2;
  if (entries > kLargest / sizeof(Node) || bytes > kLargest) throw base::BadAllocation();
  const std::size_t size = entries * sizeof(Node) + bytes;
  if (size > static_cast<std::size_t>(room_end_ - room_)) AddBlock(size);
}

Map::Node& Map::MakeSpare() {
  spare_ = ::new (Room(sizeof(Node))) Node;
  return *spare_;
}

void Map::AddBlock(std::size_t size) {
  std::size_t block_size =
      blocks_ == nullptr ? kFirstBlock : std::min(blocks_->size * 2, kLargestBlock);
  block_size = std::max(block_size, sizeof(Block) + size);
  auto* memory = static_cast<std::byte*>(base::DefaultAllocator::Allocate(block_size));
  blocks_ = ::new (memory) Block{blocks_, block_size};
  room_ = memory + sizeof(Block);
  room_end_ = memory + block_size;
}

}  // namespace TAVU::lumo

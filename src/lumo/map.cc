#include "lumo/map.h"

#include <algorithm>
#include <utility>

#include "lumo/content_release.h"
#include "lumo/value_equality.h"

namespace TAVU::lumo {

namespace {

// Up to here walking the chain costs less than an index would.
constexpr std::size_t kMostWithoutIndex = 16;

std::uint32_t BucketOf(const Value& key) noexcept {
  return Hash(key, kInitialHash) % std::uint32_t{kBucketCount};
}

}  // namespace

Map::Map(const Map& other, CopyDepth depth) : Map() {
  if (other.last_of_bucket_ != nullptr) IndexBuckets();
  Node** link = &first_;
  for (const Node& entry : other) {
    Node* copy = new Node;
    *link = copy;
    link = &copy->next;
    copy->bucket = entry.bucket;
    copy->key = Value(entry.key, depth);
    copy->value = Value(entry.value, depth);
    if (last_of_bucket_ != nullptr) last_of_bucket_[copy->bucket] = copy;
    ++count_;
  }
}

bool Map::Insert(Value key, Value value) {
  const std::uint32_t bucket = BucketOf(key);
  if (FindFrom(PlaceOf(bucket).first, bucket, key) != nullptr) return false;
  if (count_ == kMostWithoutIndex && last_of_bucket_ == nullptr) IndexBuckets();
  Node* node = new Node;  // from here on nothing fails
  const Place place = PlaceOf(bucket);
  node->next = place.first;
  node->bucket = bucket;
  node->key = std::move(key);
  node->value = std::move(value);
  (place.before == nullptr ? first_ : place.before->next) = node;
  if (last_of_bucket_ != nullptr && last_of_bucket_[bucket] == nullptr) {
    last_of_bucket_[bucket] = node;
  }
  ++count_;
  return true;
}

const Map::Node* Map::Find(const Value& key) const {
  const std::uint32_t bucket = BucketOf(key);
  return FindFrom(PlaceOf(bucket).first, bucket, key);
}

void Map::Clear() noexcept {
  ContentRelease release;
  release.Empty(*this);
}

Map::Place Map::PlaceOf(std::uint32_t bucket) const noexcept {
  Node* before = nullptr;
  if (last_of_bucket_ != nullptr) {
    for (std::uint32_t i = bucket; i > 0 && before == nullptr; --i) before = last_of_bucket_[i - 1];
    return {before, before == nullptr ? first_ : before->next};
  }
  Node* node = first_;
  while (node != nullptr && node->bucket < bucket) {
    before = node;
    node = node->next;
  }
  return {before, node};
}

Map::Node* Map::FindFrom(Node* first, std::uint32_t bucket, const Value& key) {
  for (Node* node = first; node != nullptr && node->bucket == bucket; node = node->next) {
    if (AreEqual(node->key, key)) return node;
  }
  return nullptr;
}

void Map::IndexBuckets() {
  auto** index = static_cast<Node**>(DefaultAllocator::Allocate(kBucketCount * sizeof(Node*)));
  std::fill_n(index, kBucketCount, nullptr);
  for (Node* node = first_; node != nullptr; node = node->next) index[node->bucket] = node;
  last_of_bucket_ = index;
}

}  // namespace TAVU::lumo

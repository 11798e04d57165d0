#include "lumo/value/content_release.h"

#include <utility>

#include "lumo/value/big_int.h"

namespace TAVU::lumo {

namespace {

// The owned content of a value is the value's to change; only the accessors see it as const.
template <typename Content>
Content* Owned(const void* pointer) noexcept {
  return static_cast<Content*>(const_cast<void*>(pointer));
}

}  // namespace

void ContentRelease::Take(Value& value) noexcept {
  base::DefaultAllocator::Free(value.text_cache_);
  if (!value.owns_) return;
  const void* content = value.payload_.content.pointer;
  switch (value.type_) {
    case ValueType::kString:
    case ValueType::kBinary:
      base::DefaultAllocator::Free(Owned<void>(content));
      return;
    case ValueType::kBigInt:
      delete Owned<BigInt>(content);
      return;
    case ValueType::kList: {
      List* list = Owned<List>(content);
      list->next_released_ = lists_;
      lists_ = list;
      return;
    }
    case ValueType::kMap: {
      Map* map = Owned<Map>(content);
      map->next_released_ = maps_;
      maps_ = map;
      return;
    }
    case ValueType::kTable: {
      Table* table = Owned<Table>(content);
      table->next_released_ = tables_;
      tables_ = table;
      return;
    }
    default:
      return;  // no other type has content
  }
}

void ContentRelease::Empty(List& list) noexcept {
  for (std::size_t i = 0; i < list.count_; ++i) TakeIfAny(list.data_[i]);
  // The elements have given up what they owned: their memory goes without their destructors.
  base::DefaultAllocator::Free(list.data_);
  list.data_ = nullptr;
  list.count_ = 0;
  list.capacity_ = 0;
}

void ContentRelease::Empty(Map& map) noexcept {
  if (Map::Node* spare = std::exchange(map.spare_, nullptr)) {
    spare->next = map.first_;
    map.first_ = spare;
  }
  for (Map::Node* node = map.first_; node != nullptr; node = node->next) {
    TakeIfAny(node->key);
    TakeIfAny(node->value);
  }
  for (Map::Block* block = map.blocks_; block != nullptr;) {
    base::DefaultAllocator::Free(std::exchange(block, block->next));  // as with a list's elements
  }
  base::DefaultAllocator::Free(map.index_);
  map.first_ = nullptr;
  map.index_ = nullptr;
  map.blocks_ = nullptr;
  map.room_ = map.room_end_ = nullptr;
  map.count_ = 0;
}

void ContentRelease::Empty(Table& table) noexcept {
  for (List& row : table.rows_) Empty(row);
  Empty(table.index_);
}

void ContentRelease::Drain() noexcept {
  for (;;) {
    if (List* list = lists_) {
      lists_ = list->next_released_;
      Empty(*list);
      delete list;
    } else if (Map* map = maps_) {
      maps_ = map->next_released_;
      Empty(*map);
      delete map;
    } else if (Table* table = tables_) {
      tables_ = table->next_released_;
      Empty(*table);
      delete table;
    } else {
      return;
    }
  }
}

}  // namespace TAVU::lumo

#include "lumo/value/list.h"

#include <memory>
#include <utility>

#include "lumo/value/content_release.h"

namespace TAVU::lumo {

namespace {
constexpr std::size_t kFirstCapacity = 4;
}  // namespace

List::List(const List& other, CopyDepth depth) : List() {
  Reserve(other.count_);
  for (const Value& element : other) Append(Value(element, depth));
}

List::List(List&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      count_(std::exchange(other.count_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

List& List::operator=(List&& other) noexcept {
  if (this == &other) return *this;
  List taken(std::move(other));  // first: `other` may lie in what is cleared
  Clear();
  std::swap(data_, taken.data_);
  std::swap(count_, taken.count_);
  std::swap(capacity_, taken.capacity_);
  return *this;
}

void List::Grow() {
  SetCapacity(capacity_ == 0 ? kFirstCapacity : capacity_ * 2);
}

void List::Reserve(std::size_t capacity) {
  if (capacity <= capacity_) return;
  SetCapacity(capacity);
}

void List::ShrinkToFit() {
  if (count_ == capacity_) return;
  if (count_ == 0) return Clear();
  SetCapacity(count_);
}

void List::SetCapacity(std::size_t capacity) {
  if (capacity > static_cast<std::size_t>(PTRDIFF_MAX) / sizeof(Value)) throw base::BadAllocation();
  // A value holds no pointer into itself, so that its bytes can be moved as they are.
  data_ = static_cast<Value*>(base::DefaultAllocator::Reallocate(data_, capacity * sizeof(Value)));
  capacity_ = capacity;
}

void List::Clear() noexcept {
  if (data_ == nullptr) return;
  ContentRelease release;
  release.Empty(*this);
}

}  // namespace TAVU::lumo

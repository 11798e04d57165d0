#include "lumo/codec/memory_writer.h"

#include <cstdint>
#include <cstring>

#include "base/allocator.h"

namespace TAVU::lumo {

MemoryWriter::MemoryWriter()
    : data_(static_cast<std::byte*>(base::DefaultAllocator::Allocate(kInitialCapacity))) {
  window_ = data_;
  window_end_ = data_ + kInitialCapacity;
}

MemoryWriter::~MemoryWriter() {
  base::DefaultAllocator::Free(data_);
}

std::ptrdiff_t MemoryWriter::Accept(const std::byte* data, std::size_t size) {
  Grow(size);
  std::memcpy(window_, data, size);
  window_ += size;
  return static_cast<std::ptrdiff_t>(size);
}

void MemoryWriter::Grow(std::size_t more) {
  const std::size_t used = size();
  if (more > static_cast<std::size_t>(PTRDIFF_MAX) / 2 - used) throw base::BadAllocation();
  std::size_t room = capacity();
  while (room < used + more) room *= 2;
  data_ = static_cast<std::byte*>(base::DefaultAllocator::Reallocate(data_, room));
  window_ = data_ + used;
  window_end_ = data_ + room;
}

}  // namespace TAVU::lumo

#include "api/frame/instance_registry.h"

#include <span>
#include <utility>

namespace TAVU::api {
namespace {

Handle HandleOf(const InstanceRecord* record) noexcept {
  return reinterpret_cast<Handle>(record);
}

}  // namespace

std::size_t InstanceRegistry::BucketOf(Handle handle) noexcept {
  return lumo::Lookup2(std::as_bytes(std::span(&handle, 1)), lumo::kInitialHash) %
         lumo::kBucketCount;
}

// What points to the handle's entry; the end of its bucket's chain when there is none.
InstanceRegistry::Entry** InstanceRegistry::FindLink(Handle handle) noexcept {
  Entry** link = &buckets_[BucketOf(handle)];
  while (*link != nullptr && HandleOf((*link)->record) != handle) link = &(*link)->next;
  return link;
}

Handle InstanceRegistry::RegisterInstance(const ApiLock::Guard& /*held*/,
                                          std::unique_ptr<InstanceRecord> record) {
  const Handle handle = HandleOf(record.get());
  if (*FindLink(handle) != nullptr) return 0;
  Entry*& head = buckets_[BucketOf(handle)];
  head = new Entry{head, record.get()};
  static_cast<void>(record.release());  // the entry has it
  return handle;
}

InstanceRecord* InstanceRegistry::AcquireInstance(const ApiLock::Guard& /*held*/,
                                                  Handle handle) noexcept {
  const Entry* entry = *FindLink(handle);
  if (entry == nullptr) return nullptr;
  ++entry->record->refCount;
  return entry->record;
}

void InstanceRegistry::ReleaseInstance(const ApiLock::Guard& /*held*/, Handle handle) noexcept {
  Entry** link = FindLink(handle);
  Entry* entry = *link;
  if (entry == nullptr || --entry->record->refCount != 0) return;
  *link = entry->next;
  delete entry->record;
  delete entry;
}

void InstanceRegistry::DropCreationReference(const ApiLock::Guard& /*held*/,
                                             InstanceRecord* record) noexcept {
  if (--record->refCount == 0) delete record;
}

}  // namespace TAVU::api

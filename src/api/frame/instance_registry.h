// The instances that exist, by handle, and how a call holds on to one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "api/frame/api_lock.h"
#include "api/frame/instance_record.h"
#include "base/singleton.h"
#include "lumo/value/hash.h"

namespace TAVU::api {

// A handle as a number: the address of a record, 0 for none. Never dereferenced before the registry
// has found it.
using Handle = std::uint64_t;

// A hash table of 101 buckets over the handle's 8 bytes. Needs the ApiLock for everything: the
// guard in the signatures is the proof. Records still in it at process exit are not destroyed.
class InstanceRegistry {
 public:
  // The one of the process. Throws std::logic_error after process exit has destroyed it.
  [[nodiscard]] static InstanceRegistry& Get() { return base::Singleton<InstanceRegistry>::Get(); }

  // Takes the record over and returns its handle; 0 when the handle is there already (the record is
  // destroyed then). May throw std::bad_alloc; the record is destroyed then too.
  [[nodiscard]] Handle RegisterInstance(const ApiLock::Guard& held,
                                        std::unique_ptr<InstanceRecord> record);

  // Finds and pins the record; null for an unknown handle. Balanced by ReleaseInstance.
  [[nodiscard]] InstanceRecord* AcquireInstance(const ApiLock::Guard& held, Handle handle) noexcept;

  // Takes one pin off; the last one destroys the record and erases the handle. An unknown handle is
  // ignored.
  void ReleaseInstance(const ApiLock::Guard& held, Handle handle) noexcept;

  // Takes the creation reference off a pinned record. The pin still held keeps the record alive, so
  // that the handle is erased by the ReleaseInstance that follows.
  void DropCreationReference(const ApiLock::Guard& held, InstanceRecord* record) noexcept;

  [[nodiscard]] static std::size_t BucketOf(Handle handle) noexcept;

 private:
  friend class base::Singleton<InstanceRegistry>;
  InstanceRegistry() noexcept = default;

  struct Entry {
    Entry* next;
    InstanceRecord* record;  // its address is the key
  };

  [[nodiscard]] Entry** FindLink(Handle handle) noexcept;

  std::array<Entry*, lumo::kBucketCount> buckets_ = {};
};

// A record pinned for a scope: the usual way for an export to hold its instance.
class PinnedInstance {
 public:
  PinnedInstance(const ApiLock::Guard& held, Handle handle)
      : held_(held),
        handle_(handle),
        record_(InstanceRegistry::Get().AcquireInstance(held, handle)) {}
  PinnedInstance(const PinnedInstance&) = delete;
  PinnedInstance& operator=(const PinnedInstance&) = delete;
  ~PinnedInstance() {
    if (record_ != nullptr) InstanceRegistry::Get().ReleaseInstance(held_, handle_);
  }

  explicit operator bool() const noexcept { return record_ != nullptr; }
  [[nodiscard]] InstanceRecord* operator->() const noexcept { return record_; }
  [[nodiscard]] InstanceRecord& operator*() const noexcept { return *record_; }

  // Leaves the pin on the record for good. After some failures the public header lets the handle
  // stay valid past TAVU_Destroy; a host may go on to set its server and send.
  void KeepPinned() noexcept { record_ = nullptr; }

 private:
  const ApiLock::Guard& held_;
  Handle handle_;
  InstanceRecord* record_;
};

}  // namespace TAVU::api

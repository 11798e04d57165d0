#include "crash/filter/filter_installation.h"

namespace TAVU::crash {

InstallResult FilterInstallation::Install(const api::ApiLock::Guard& /*held*/, api::Handle owner,
                                          LPTOP_LEVEL_EXCEPTION_FILTER filter) noexcept {
  if (owner_ != 0 || earlier_ != nullptr) return InstallResult::kOccupied;
  earlier_ = ::SetUnhandledExceptionFilter(filter);
  static_cast<void>(guard_.Patch());  // unguarded is better than not at all
  // Where no filter was before there is none to put back: this one stays, guarded and without an
  // owner, and the host sees a start that failed without a code. A second attempt ends here too,
  // because its call above lands in the guard; the bytes that it has saved as the entry's are then
  // those of the patch itself.
  if (earlier_ == nullptr) return InstallResult::kOrphaned;
  owner_ = owner;
  return InstallResult::kInstalled;
}

bool FilterInstallation::Uninstall(const api::ApiLock::Guard& /*held*/,
                                   api::Handle owner) noexcept {
  if (owner_ == 0 || owner != owner_) return false;
  // First the entry, so that the next call reaches the real function again.
  static_cast<void>(guard_.Restore());
  ::SetUnhandledExceptionFilter(earlier_);
  earlier_ = nullptr;
  owner_ = 0;
  return true;
}

}  // namespace TAVU::crash

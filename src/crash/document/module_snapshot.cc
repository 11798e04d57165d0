#include "crash/document/module_snapshot.h"

namespace TAVU::crash {

MODULEENTRY32W ModuleSnapshot::entry_ = {};

const MODULEENTRY32W* ModuleSnapshot::Next() noexcept {
  if (!snapshot_) return nullptr;
  entry_.dwSize = sizeof entry_;
  const BOOL found = started_ ? ::Module32NextW(snapshot_.get(), &entry_)
                              : ::Module32FirstW(snapshot_.get(), &entry_);
  started_ = true;
  return found ? &entry_ : nullptr;
}

}  // namespace TAVU::crash

// Reports that could not be delivered, kept in the user's local application data until they can be.
//
// Each has a folder of its own, named after the moment of keeping, so that the order of names is
// that of age: "report.txt", the pairs of the report's identity, and copies of the two files. A
// folder appears with its whole content at once. At most 10 reports and 64 MiB are kept, each for
// 30 days; the oldest give way.
//
// Only what was written here is touched: folders whose names have this form, and in them the files
// that report.txt names. What else somebody puts there stays, and reparse points are left alone.
//
// Several reporters may work here at once. Only one at a time sends and deletes: the holder of the
// Lock, which ends with its process at the latest.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "report.h"
#include "scoped.h"

namespace crash_reporter {

struct KeptReport {
  std::filesystem::path folder;
  CrashReport report;  // its paths lead to the copies
};

class KeptReports {
 public:
  KeptReports();  // below %LOCALAPPDATA%

  // Copies what there is of the two files. The folder, or nothing when it could not be filled, or
  // would exceed the bound by itself.
  [[nodiscard]] std::optional<std::filesystem::path> Keep(const CrashReport& report) const;

  // The oldest first. Of one application, or of all when `software_id` is empty; without those that
  // name no server and so will never be delivered.
  [[nodiscard]] std::vector<KeptReport> List(const std::wstring& software_id) const;

  class Lock {
   public:
    explicit operator bool() const noexcept { return file_ != nullptr; }

   private:
    friend class KeptReports;
    explicit Lock(HANDLE file) : file_(file) {}
    ScopedHandle file_;
  };
  // Empty when another reporter holds it, when nothing was ever kept, or when there is no place.
  [[nodiscard]] Lock TryLock() const;

  void Remove(const Lock& held, const KeptReport& kept) const;
  // What exceeds the bounds of number, size and age.
  void RemoveSurplus(const Lock& held) const;

 private:
  [[nodiscard]] bool HasPlace() const noexcept;

  std::filesystem::path root_;  // made with the first report; empty: no place
};

}  // namespace crash_reporter

// Objects of a bucket, as files in a folder.
#pragma once

#include <filesystem>
#include <string>

#include "nats_handles.h"

namespace TAVU::records {

class ObjectReader {
 public:
  // `jet_stream` is not owned. The folder is made when it is missing.
  ObjectReader(jsCtx* jet_stream, std::string bucket, std::filesystem::path folder);

  // Stores the object under its name in the folder, whole and synced, or leaves nothing there.
  // `sha256`: in hexadecimal digits, what the record tells. Empty, or why there is no such object;
  // throws Failure when that cannot be said now.
  [[nodiscard]] std::string Fetch(const std::string& name, const std::string& sha256) const;

 private:
  jsCtx* const jet_stream_;
  const std::string bucket_;
  const std::filesystem::path folder_;
};

}  // namespace TAVU::records

// How NATS's clients lay objects out in a stream, so that any of them reads what another stored.
//
// A bucket B is the stream OBJ_B. An object has a unique identifier: its bytes are the messages of
// the subject $O.B.C.IDENTIFIER in their order, and what there is to know about it is the last
// message of the subject $O.B.M.NAME, the name in URL-safe base64, as JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sha256.h"

namespace TAVU::collector {

// What the clients take for the size of a chunk unless told otherwise.
inline constexpr std::size_t kObjectChunk = std::size_t{128} * 1024;

struct ObjectFacts {
  std::string name;
  std::string identifier;
  std::uint64_t size = 0;
  std::uint64_t chunks = 0;
  Sha256::Digest digest = {};
};

[[nodiscard]] std::string BucketStream(std::string_view bucket);
// All subjects of the bucket's stream, with wildcards.
[[nodiscard]] std::vector<std::string> BucketSubjects(std::string_view bucket);
[[nodiscard]] std::string ChunkSubject(std::string_view bucket, std::string_view identifier);
[[nodiscard]] std::string FactsSubject(std::string_view bucket, std::string_view name);
[[nodiscard]] std::string DescribeObject(std::string_view bucket, const ObjectFacts& facts);
// As it stands in the facts.
[[nodiscard]] std::string DigestText(const Sha256::Digest& digest);

}  // namespace TAVU::collector

#include "object_layout.h"

#include <openssl/evp.h>

#include <algorithm>
#include <span>

#include "json_text.h"

namespace TAVU::collector {
namespace {

// With padding.
std::string UrlSafeBase64(std::span<const unsigned char> bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  std::replace(text.begin(), text.end(), '+', '-');
  std::replace(text.begin(), text.end(), '/', '_');
  return text;
}

constexpr std::string_view kChunks = ".C.";
constexpr std::string_view kFacts = ".M.";

std::string Subject(std::string_view bucket, std::string_view part, std::string_view last) {
  std::string subject("$O.");
  ((subject += bucket) += part) += last;
  return subject;
}

}  // namespace

std::string BucketStream(std::string_view bucket) {
  return std::string("OBJ_").append(bucket);
}

std::vector<std::string> BucketSubjects(std::string_view bucket) {
  return {Subject(bucket, kChunks, ">"), Subject(bucket, kFacts, ">")};
}

std::string ChunkSubject(std::string_view bucket, std::string_view identifier) {
  return Subject(bucket, kChunks, identifier);
}

std::string FactsSubject(std::string_view bucket, std::string_view name) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(name.data());
  return Subject(bucket, kFacts, UrlSafeBase64({bytes, name.size()}));
}

std::string DescribeObject(std::string_view bucket, const ObjectFacts& facts) {
  JsonText json;
  json.BeginObject();
  json.Key("name");
  json.Text(facts.name);
  json.Key("options");
  json.BeginObject();
  json.Key("max_chunk_size");
  json.Number(static_cast<std::int64_t>(kObjectChunk));
  json.EndObject();
  json.Key("bucket");
  json.Text(bucket);
  json.Key("nuid");
  json.Text(facts.identifier);
  json.Key("size");
  json.Number(static_cast<std::int64_t>(facts.size));
  json.Key("mtime");  // readers take the time of the message
  json.Text("0001-01-01T00:00:00Z");
  json.Key("chunks");
  json.Number(static_cast<std::int64_t>(facts.chunks));
  json.Key("digest");
  json.Text(DigestText(facts.digest));
  json.EndObject();
  return json.Take();
}

std::string DigestText(const Sha256::Digest& digest) {
  return "SHA-256=" + UrlSafeBase64(digest);
}

}  // namespace TAVU::collector

#include "lumo/codec.h"

#include <gtest/gtest.h>

#include <string>

#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::BytesOf;
using test::Hex;
using test::Json;
using test::LoadVectors;
using test::ValueOf;

const Json& Vectors() {
  static const Json vectors = LoadVectors("codec.json");
  return vectors;
}

std::string NameOf(const Json& vector) { return vector["name"].get<std::string>(); }

std::string Encoded(const Value& value) {
  MemoryWriter writer;
  EXPECT_TRUE(WriteValue(writer, value));
  return Hex(writer.data(), writer.size());
}

TEST(Codec, WritesTheReferenceBytesAndReadsThemBack) {
  for (const Json& vector : Vectors()["encode"]) {
    SCOPED_TRACE(NameOf(vector));
    const Value value = ValueOf(vector["value"]);
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    EXPECT_EQ(Encoded(value), Hex(bytes.data(), bytes.size()));
    MemoryReader reader(bytes);
    Value read;
    ASSERT_TRUE(ReadValue(reader, read));
    EXPECT_EQ(reader.remaining(), 0u);
    if (!vector.contains("one_way")) EXPECT_EQ(Compare(read, value), 0);
  }
}

TEST(Codec, AcceptsWhatOthersWrite) {
  for (const Json& vector : Vectors()["decode"]) {
    SCOPED_TRACE(NameOf(vector));
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    MemoryReader reader(bytes);
    Value read;
    ASSERT_TRUE(ReadValue(reader, read));
    EXPECT_EQ(reader.position(), vector["used"].get<std::size_t>());
    EXPECT_EQ(Compare(read, ValueOf(vector["value"])), 0);
  }
}

TEST(Codec, RefusesBrokenBytes) {
  for (const Json& vector : Vectors()["refused"]) {
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    MemoryReader reader(bytes);
    Value read;
    EXPECT_FALSE(ReadValue(reader, read)) << NameOf(vector);
  }
}

TEST(Codec, RefusesTypesWithoutAnEncoding) {
  for (const Json& notation : Vectors()["unencodable"]) {
    MemoryWriter writer;
    EXPECT_FALSE(WriteValue(writer, ValueOf(notation))) << notation;
  }
}

}  // namespace
}  // namespace TAVU::lumo

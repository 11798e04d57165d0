#include <benchmark/benchmark.h>

#include <span>
#include <utility>

#include "library_codec.h"
#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/value.h"

namespace TAVU::bench {
namespace {

using lumo::Value;

Value BuildNumbers(const Numbers& numbers) {
  auto list = std::make_unique<lumo::List>();
  list->Reserve(numbers.size());
  for (const std::int32_t number : numbers) list->Append(Value::Int(number));
  return Value::AdoptList(std::move(list));
}

Value BuildNamedNumbers(const NamedNumbers& numbers) {
  auto map = std::make_unique<lumo::Map>();
  for (const auto& [name, number] : numbers) {
    map->Insert(Value::BorrowString(name), Value::Double(number));
  }
  return Value::AdoptMap(std::move(map));
}

Value BuildTree(const Shapes& shapes, Shape shape) {
  switch (shape) {
    case Shape::kLog: {
      auto map = std::make_unique<lumo::Map>();
      for (const auto& [key, text] : shapes.log) {
        map->Insert(Value::Int(key), Value::BorrowString(text));
      }
      return Value::AdoptMap(std::move(map));
    }
    case Shape::kAttachment:
      return Value::BorrowBinary(shapes.attachment);
    case Shape::kNumbers:
      return BuildNumbers(shapes.numbers);
    case Shape::kNamedNumbers:
      return BuildNamedNumbers(shapes.named_numbers);
    case Shape::kNested: {
      auto map = std::make_unique<lumo::Map>();
      map->Insert(Value::BorrowString("numbers"), BuildNumbers(shapes.numbers));
      map->Insert(Value::BorrowString("named"), BuildNamedNumbers(shapes.named_numbers));
      return Value::AdoptMap(std::move(map));
    }
  }
  return {};
}

class Codec final : public LibraryCodec {
 public:
  Codec(const Shapes& shapes, Shape shape)
      : shapes_(shapes), shape_(shape), tree_(BuildTree(shapes, shape)) {
    lumo::MemoryWriter writer;
    if (lumo::WriteValue(writer, tree_))
      bytes_.assign(writer.data(), writer.data() + writer.size());
  }

  void Build() override {
    const Value tree = BuildTree(shapes_, shape_);
    benchmark::DoNotOptimize(&tree);
  }
  void Encode() override {
    lumo::MemoryWriter writer;
    bool written = lumo::WriteValue(writer, tree_);
    benchmark::DoNotOptimize(written);
    benchmark::DoNotOptimize(writer.data());
    benchmark::ClobberMemory();
  }
  void Decode() override {
    lumo::MemoryReader reader(bytes_);
    Value tree;
    bool read = lumo::ReadValue(reader, tree);
    benchmark::DoNotOptimize(read);
    benchmark::DoNotOptimize(&tree);
    benchmark::ClobberMemory();
  }
  std::size_t encoded_size() const override { return bytes_.size(); }

 private:
  const Shapes& shapes_;
  const Shape shape_;
  const Value tree_;
  Bytes bytes_;
};

}  // namespace

std::unique_ptr<LibraryCodec> LumoCodec(const Shapes& shapes, Shape shape) {
  return std::make_unique<Codec>(shapes, shape);
}

}  // namespace TAVU::bench

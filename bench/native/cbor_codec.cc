#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>

#include "library_codec.h"

namespace TAVU::bench {
namespace {

using nlohmann::json;

json BuildNamedNumbers(const NamedNumbers& numbers) {
  json map = json::object();
  for (const auto& [name, number] : numbers) map.emplace(name, number);
  return map;
}

// Its maps have text keys only, and it copies what it is given.
json BuildTree(const Shapes& shapes, Shape shape) {
  switch (shape) {
    case Shape::kLog: {
      json map = json::object();
      for (const auto& [key, text] : shapes.log) map.emplace(std::to_string(key), text);
      return map;
    }
    case Shape::kAttachment: {
      const auto* begin = reinterpret_cast<const std::uint8_t*>(shapes.attachment.data());
      return json::binary({begin, begin + shapes.attachment.size()});
    }
    case Shape::kNumbers:
      return shapes.numbers;
    case Shape::kNamedNumbers:
      return BuildNamedNumbers(shapes.named_numbers);
    case Shape::kNested:
      return {{"numbers", shapes.numbers}, {"named", BuildNamedNumbers(shapes.named_numbers)}};
  }
  return {};
}

class Codec final : public LibraryCodec {
 public:
  Codec(const Shapes& shapes, Shape shape)
      : shapes_(shapes),
        shape_(shape),
        tree_(BuildTree(shapes, shape)),
        bytes_(json::to_cbor(tree_)) {}

  void Build() override {
    const json tree = BuildTree(shapes_, shape_);
    benchmark::DoNotOptimize(&tree);
  }
  void Encode() override {
    const std::vector<std::uint8_t> bytes = json::to_cbor(tree_);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  void Decode() override {
    const json tree = json::from_cbor(bytes_);
    benchmark::DoNotOptimize(&tree);
    benchmark::ClobberMemory();
  }
  std::size_t encoded_size() const override { return bytes_.size(); }

 private:
  const Shapes& shapes_;
  const Shape shape_;
  const json tree_;
  const std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::unique_ptr<LibraryCodec> CborCodec(const Shapes& shapes, Shape shape) {
  return std::make_unique<Codec>(shapes, shape);
}

}  // namespace TAVU::bench

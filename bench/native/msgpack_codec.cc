#include <benchmark/benchmark.h>

#include <msgpack.hpp>
#include <unordered_map>

#include "library_codec.h"

namespace TAVU::bench {
namespace {

template <typename Element>
Element* MakeArray(msgpack::zone& zone, std::size_t count) {
  return static_cast<Element*>(zone.allocate_align(count * sizeof(Element), alignof(Element)));
}

msgpack::object Text(std::string_view text) {
  msgpack::object object;
  object.type = msgpack::type::STR;
  object.via.str = {static_cast<std::uint32_t>(text.size()), text.data()};
  return object;
}

template <typename Pairs, typename MakeKey, typename MakeValue>
msgpack::object Map(msgpack::zone& zone, const Pairs& pairs, MakeKey key_of, MakeValue value_of) {
  auto* entry = MakeArray<msgpack::object_kv>(zone, pairs.size());
  msgpack::object object;
  object.type = msgpack::type::MAP;
  object.via.map = {static_cast<std::uint32_t>(pairs.size()), entry};
  for (const auto& [key, value] : pairs) *entry++ = {key_of(key), value_of(value)};
  return object;
}

msgpack::object BuildNumbers(msgpack::zone& zone, const Numbers& numbers) {
  auto* element = MakeArray<msgpack::object>(zone, numbers.size());
  msgpack::object object;
  object.type = msgpack::type::ARRAY;
  object.via.array = {static_cast<std::uint32_t>(numbers.size()), element};
  for (const std::int32_t number : numbers) *element++ = msgpack::object(number);
  return object;
}

msgpack::object BuildNamedNumbers(msgpack::zone& zone, const NamedNumbers& numbers) {
  return Map(zone, numbers, Text, [](double number) { return msgpack::object(number); });
}

msgpack::object BuildTree(msgpack::zone& zone, const Shapes& shapes, Shape shape) {
  switch (shape) {
    case Shape::kLog:
      return Map(
          zone, shapes.log, [](std::int32_t key) { return msgpack::object(key); }, Text);
    case Shape::kAttachment: {
      msgpack::object object;
      object.type = msgpack::type::BIN;
      object.via.bin = {static_cast<std::uint32_t>(shapes.attachment.size()),
                        reinterpret_cast<const char*>(shapes.attachment.data())};
      return object;
    }
    case Shape::kNumbers:
      return BuildNumbers(zone, shapes.numbers);
    case Shape::kNamedNumbers:
      return BuildNamedNumbers(zone, shapes.named_numbers);
    case Shape::kNested: {
      const std::pair<std::string_view, msgpack::object> entries[] = {
          {"numbers", BuildNumbers(zone, shapes.numbers)},
          {"named", BuildNamedNumbers(zone, shapes.named_numbers)}};
      return Map(zone, std::span(entries), Text,
                 [](const msgpack::object& value) { return value; });
    }
  }
  return {};
}

// Into containers of the C++ library that own everything and find a key by its hash.
void Convert(const msgpack::object& object, Shape shape) {
  using Named = std::unordered_map<std::string, double>;
  const auto keep = [](const auto& converted) { benchmark::DoNotOptimize(&converted); };
  switch (shape) {
    case Shape::kLog:
      return keep(object.as<std::unordered_map<std::int32_t, std::string>>());
    case Shape::kAttachment:
      return keep(object.as<std::vector<char>>());
    case Shape::kNumbers:
      return keep(object.as<Numbers>());
    case Shape::kNamedNumbers:
      return keep(object.as<Named>());
    case Shape::kNested: {
      const auto entries = object.as<std::unordered_map<std::string, msgpack::object>>();
      keep(entries.at("numbers").as<Numbers>());
      keep(entries.at("named").as<Named>());
      return;
    }
  }
}

class Codec final : public LibraryCodec {
 public:
  Codec(const Shapes& shapes, Shape shape, Msgpack decoded)
      : shapes_(shapes), shape_(shape), decoded_(decoded), tree_(BuildTree(zone_, shapes, shape)) {
    msgpack::pack(bytes_, tree_);
  }

  void Build() override {
    msgpack::zone zone;
    const msgpack::object tree = BuildTree(zone, shapes_, shape_);
    benchmark::DoNotOptimize(&tree);
  }
  void Encode() override {
    msgpack::sbuffer bytes;
    msgpack::pack(bytes, tree_);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
  void Decode() override {
    const msgpack::object_handle tree = msgpack::unpack(bytes_.data(), bytes_.size());
    if (decoded_ == Msgpack::kConverted) Convert(tree.get(), shape_);
    benchmark::DoNotOptimize(&tree);
    benchmark::ClobberMemory();
  }
  std::size_t encoded_size() const override { return bytes_.size(); }

 private:
  const Shapes& shapes_;
  const Shape shape_;
  const Msgpack decoded_;
  msgpack::zone zone_;
  const msgpack::object tree_;
  msgpack::sbuffer bytes_;
};

}  // namespace

std::unique_ptr<LibraryCodec> MsgpackCodec(const Shapes& shapes, Shape shape, Msgpack decoded) {
  return std::make_unique<Codec>(shapes, shape, decoded);
}

}  // namespace TAVU::bench

#include <array>
#include <bit>

#include "lumo/value/big_int.h"
#include "lumo/value/hash.h"
#include "lumo/value/list.h"
#include "lumo/value/lookup2.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

namespace {

static_assert(std::endian::native == std::endian::little,
              "numbers are hashed as their bytes lie in memory, lowest first");

// With the initial value of all maps, where speed counts, the hash of a type's tag is ready.
constexpr auto kTagHashes = [] {
  std::array<std::uint32_t, 256> hashes = {};
  for (std::uint32_t i = 0; i < 256; ++i) {
    hashes[i] = Lookup2(static_cast<std::uint8_t>(i), kInitialHash);
  }
  return hashes;
}();

std::uint32_t HashTag(ValueType type, std::uint32_t initial) noexcept {
  const auto value_tag = static_cast<std::uint8_t>(type);
  return initial == kInitialHash ? kTagHashes[value_tag] : Lookup2(value_tag, initial);
}

template <typename Number>
std::uint32_t HashNumber(const Number& number, std::uint32_t initial) noexcept {
  return Lookup2(std::as_bytes(std::span(&number, 1)), initial);
}

std::uint32_t HashText(std::string_view text, std::uint32_t initial) noexcept {
  return Lookup2(std::as_bytes(std::span(text)), initial);
}

std::uint32_t HashList(const List& list, std::uint32_t hash) noexcept {
  for (const Value& element : list) hash = Hash(element, hash);
  return hash;
}

std::uint32_t HashMap(const Map& map, std::uint32_t hash) noexcept {
  for (const Map::Node& entry : map) hash = Hash(entry.key, hash);
  for (const Map::Node& entry : map) hash = Hash(entry.value, hash);
  return hash;
}

std::uint32_t HashTable(const Table& table, std::uint32_t hash) noexcept {
  for (std::size_t i = 0; i < table.column_count(); ++i) {
    const ColumnInfo& column = table.column(i);
    hash = HashNumber(std::uint32_t{static_cast<std::uint8_t>(column.type)},
                      HashText(column.name, hash));
  }
  for (std::size_t i = 0; i < table.row_count(); ++i) hash = HashList(table.row(i), hash);
  return hash;
}

}  // namespace

std::uint32_t Hash(const Value& value, std::uint32_t initial) noexcept {
  const std::uint32_t hash = HashTag(value.type(), initial);
  switch (value.type()) {
    case ValueType::kBool:
    case ValueType::kChar:
      return HashNumber(value.byte(), hash);
    case ValueType::kInt:
      return HashNumber(value.int_value(), hash);
    case ValueType::kLong:
    case ValueType::kDate:
      return HashNumber(value.long_value(), hash);
    case ValueType::kDouble:
      return HashNumber(value.double_value(), hash);
    case ValueType::kString:
    case ValueType::kBinary:
      return Lookup2(value.bytes(), hash);
    case ValueType::kBigInt:
      return Lookup2(std::as_bytes(std::span(value.big_int().limbs())), hash);
    case ValueType::kList:
      return HashList(value.list(), hash);
    case ValueType::kMap:
      return HashMap(value.map(), hash);
    case ValueType::kTable:
      return HashTable(value.table(), hash);
    default:
      return hash;  // null and the types without content: the tag is all there is
  }
}

}  // namespace TAVU::lumo

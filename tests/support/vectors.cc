#include "support/vectors.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "lumo/big_int.h"
#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/table.h"

namespace TAVU::test {

using lumo::Value;
using lumo::ValueType;

namespace {

std::string Repeated(const std::string& piece, std::size_t count) {
  std::string all;
  all.reserve(piece.size() * count);
  for (std::size_t i = 0; i < count; ++i) all += piece;
  return all;
}

std::string RawBytesOf(const Json& notation) {
  if (notation.is_string()) {
    const auto& digits = notation.get_ref<const std::string&>();
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
      bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
  }
  if (notation.size() == 3 && notation[0] == "repeat") {
    return Repeated(RawBytesOf(notation[1]), notation[2].get<std::size_t>());
  }
  std::string bytes;
  for (const Json& piece : notation) bytes += RawBytesOf(piece);
  return bytes;
}

std::span<const std::byte> AsBytes(const std::string& raw) {
  return std::as_bytes(std::span(raw.data(), raw.size()));
}

std::string Latin1Of(const std::string& utf8) {
  std::string bytes;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    if (byte < 0x80) {
      bytes += utf8[i];
    } else {
      const auto low = static_cast<unsigned char>(utf8[++i]);
      bytes += static_cast<char>(((byte & 3) << 6) | (low & 0x3F));
    }
  }
  return bytes;
}

Value TableOf(const Json& notation) {
  auto table = std::make_unique<lumo::Table>();
  for (const Json& column : notation["columns"]) {
    const ValueType type = column[1].is_string() ? lumo::TypeFromName(column[1].get<std::string>())
                                                 : static_cast<ValueType>(column[1].get<int>());
    table->AddColumn(Latin1Of(column[0].get<std::string>()), type);
  }
  for (const Json& cells : notation["rows"]) {
    lumo::List& row = table->AddRow();
    for (const Json& cell : cells) row.Append(ValueOf(cell));
  }
  return Value::AdoptTable(std::move(table));
}

}  // namespace

Json LoadVectors(const std::string& file) {
  const std::string path = std::string(TAVU_TEST_DATA) + "/" + file;
  std::ifstream stream(path);
  if (!stream) {
    std::cerr << "cannot open " << path << '\n';
    std::exit(2);
  }
  return Json::parse(stream);
}

std::vector<std::byte> BytesOf(const Json& notation) {
  const std::string raw = RawBytesOf(notation);
  const auto bytes = AsBytes(raw);
  return {bytes.begin(), bytes.end()};
}

std::string Hex(const void* data, std::size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

std::string TextOf(const Json& notation) {
  if (notation.is_string()) return notation.get<std::string>();
  return Repeated(notation[1].get<std::string>(), notation[2].get<std::size_t>());
}

Value ValueOf(const Json& notation) {
  const std::string kind = notation[0].get<std::string>();
  if (kind == "null") return Value();
  if (kind == "bool") return Value::Bool(notation[1].get<bool>());
  if (kind == "char") return Value::Char(static_cast<signed char>(notation[1].get<int>()));
  if (kind == "int") return Value::Int(notation[1].get<std::int32_t>());
  if (kind == "long") return Value::Long(std::stoll(notation[1].get<std::string>()));
  if (kind == "date") return Value::Date(std::stoll(notation[1].get<std::string>()));
  if (kind == "double") {
    const std::uint64_t bits = std::stoull(notation[1].get<std::string>(), nullptr, 16);
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return Value::Double(value);
  }
  if (kind == "bigint") {
    const auto number = lumo::BigInt::FromDecimal(notation[1].get<std::string>());
    return Value::AdoptBigInt(std::make_unique<lumo::BigInt>(number.value()));
  }
  if (kind == "string") return Value::CopyString(TextOf(notation[1]));
  if (kind == "string-hex") return Value::CopyString(RawBytesOf(notation[1]));
  if (kind == "binary") return Value::CopyBinary(AsBytes(RawBytesOf(notation[1])));
  if (kind == "string-repeat" || kind == "binary-repeat") {
    const std::string raw = Repeated(RawBytesOf(notation[1]), notation[2].get<std::size_t>());
    return kind[0] == 's' ? Value::CopyString(raw) : Value::CopyBinary(AsBytes(raw));
  }
  if (kind == "list") {
    auto list = std::make_unique<lumo::List>();
    for (const Json& element : notation[1]) list->Append(ValueOf(element));
    return Value::AdoptList(std::move(list));
  }
  if (kind == "map") {
    auto map = std::make_unique<lumo::Map>();
    for (const Json& pair : notation[1]) map->Insert(ValueOf(pair[0]), ValueOf(pair[1]));
    return Value::AdoptMap(std::move(map));
  }
  if (kind == "table") return TableOf(notation[1]);
  Value nameless;
  nameless.Reset(lumo::TypeFromName(kind));
  return nameless;
}

}  // namespace TAVU::test

#include "support/vectors.h"

#include <bit>
#include <fstream>
#include <memory>
#include <span>

#include "lumo/value/big_int.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace TAVU::test {

using lumo::Value;
using lumo::ValueType;

namespace {

std::string Repeated(const std::string& piece, const Json& count) {
  std::string all;
  for (auto left = count.get<std::size_t>(); left != 0; --left) all += piece;
  return all;
}

std::string RawBytesOf(const Json& notation) {
  std::string bytes;
  if (notation.is_string()) {
    const auto& digits = notation.get_ref<const std::string&>();
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
      bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
  }
  if (notation.size() == 3 && notation[0] == "repeat") {
    return Repeated(RawBytesOf(notation[1]), notation[2]);
  }
  for (const Json& piece : notation) bytes += RawBytesOf(piece);
  return bytes;
}

std::span<const std::byte> AsBytes(const std::string& raw) {
  return std::as_bytes(std::span(raw));
}

std::string Latin1Of(const std::string& utf8) {
  std::string bytes;
  for (const char byte : utf8) {
    if ((byte & 0xC0) == 0x80) {
      bytes.back() = static_cast<char>((bytes.back() & 3) << 6 | (byte & 0x3F));
    } else {
      bytes += byte;
    }
  }
  return bytes;
}

Value TableOf(const Json& notation) {
  auto table = std::make_unique<lumo::Table>();
  for (const Json& column : notation["columns"]) {
    const ValueType type = column[1].is_string() ? lumo::TypeFromName(column[1].get<std::string>())
                                                 : static_cast<ValueType>(column[1].get<int>());
    table->AddColumn(Latin1Of(column[0]), type);
  }
  for (const Json& cells : notation["rows"]) {
    lumo::List& row = table->AddRow();
    for (const Json& cell : cells) row.Append(ValueOf(cell));
  }
  return Value::AdoptTable(std::move(table));
}

}  // namespace

Json LoadVectors(const std::string& file) {
  std::ifstream stream(std::string(TAVU_TEST_DATA) + "/" + file);
  return Json::parse(stream);  // throws, and ends the program, when there is no such file
}

std::vector<std::byte> BytesOf(const Json& notation) {
  const std::string raw = RawBytesOf(notation);
  return {AsBytes(raw).begin(), AsBytes(raw).end()};
}

std::string Hex(const void* data, std::size_t size) {
  std::string text;
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    for (const int digit : {bytes[i] >> 4, bytes[i] & 15}) text += "0123456789abcdef"[digit];
  }
  return text;
}

std::string TextOf(const Json& notation) {
  if (notation.is_string()) return notation;
  return Repeated(notation[1], notation[2]);
}

Value ValueOf(const Json& notation) {
  const std::string kind = notation[0];
  if (kind == "bool") return Value::Bool(notation[1]);
  if (kind == "char") return Value::Char(static_cast<signed char>(notation[1].get<int>()));
  if (kind == "int") return Value::Int(notation[1]);
  if (kind == "long") return Value::Long(std::stoll(notation[1].get<std::string>()));
  if (kind == "date") return Value::Date(std::stoll(notation[1].get<std::string>()));
  if (kind == "double") {
    return Value::Double(
        std::bit_cast<double>(std::stoull(notation[1].get<std::string>(), nullptr, 16)));
  }
  if (kind == "bigint") {
    const auto number = lumo::BigInt::FromDecimal(notation[1].get<std::string>());
    return Value::AdoptBigInt(std::make_unique<lumo::BigInt>(number.value()));
  }
  if (kind == "string") return Value::CopyString(TextOf(notation[1]));
  if (kind == "string-hex") return Value::CopyString(RawBytesOf(notation[1]));
  if (kind == "binary") return Value::CopyBinary(AsBytes(RawBytesOf(notation[1])));
  if (kind == "string-repeat" || kind == "binary-repeat") {
    const std::string raw = Repeated(RawBytesOf(notation[1]), notation[2]);
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
  if (kind != "null") nameless.Reset(lumo::TypeFromName(kind));
  return nameless;
}

}  // namespace TAVU::test

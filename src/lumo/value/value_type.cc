#include "lumo/value/value_type.h"

namespace TAVU::lumo {

namespace {

struct NamedType {
  ValueType type;
  const char* name;
};

// Both directions read this one table.
constexpr NamedType kNamedTypes[] = {
    {ValueType::kNull, "null"},     {ValueType::kBool, "bool"},     {ValueType::kChar, "char"},
    {ValueType::kInt, "int"},       {ValueType::kLong, "long"},     {ValueType::kDouble, "double"},
    {ValueType::kDate, "date"},     {ValueType::kString, "string"}, {ValueType::kBinary, "binary"},
    {ValueType::kBigInt, "bigint"}, {ValueType::kXml, "xml"},       {ValueType::kRemote, "remote"},
    {ValueType::kRef, "ref"},       {ValueType::kList, "list"},     {ValueType::kMap, "map"},
    {ValueType::kTable, "table"},   {ValueType::kNumber, "number"}, {ValueType::kEnd, "end"},
};

}  // namespace

const char* TypeName(ValueType type) noexcept {
  for (const NamedType& entry : kNamedTypes) {
    if (entry.type == type) return entry.name;
  }
  return "unknown";
}

ValueType TypeFromName(std::string_view name) noexcept {
  for (const NamedType& entry : kNamedTypes) {
    if (name == entry.name) return entry.type;
  }
  return ValueType::kNull;
}

}  // namespace TAVU::lumo

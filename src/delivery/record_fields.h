// Putting fields into the records that travel to the server.
#pragma once

#include <string_view>
#include <utility>

#include "delivery/record/record_keys.h"
#include "lumo/value/map.h"
#include "lumo/value/value.h"

namespace TAVU::delivery {

// Puts one field into a record that does not have it yet. The record borrows what a borrowing value
// borrows and keeps what an owning one owns. Throws base::BadAllocation.
inline void PutField(lumo::Map& record, RecordKey key, lumo::Value value) {
  record.Insert(lumo::Value::Int(NumberOf(key)), std::move(value));
}

// The same for a text that outlives the record.
inline void PutText(lumo::Map& record, RecordKey key, std::string_view text) {
  PutField(record, key, lumo::Value::BorrowString(text));
}

}  // namespace TAVU::delivery

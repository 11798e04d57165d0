// The fields that every record of a reporting instance carries.
#pragma once

#include <cstdint>
#include <string_view>

#include "api/frame/instance_record.h"
#include "lumo/value/map.h"

namespace TAVU::delivery {

// Puts the keys 0 to 4 and 6 to 8 into `record`; the record's kind is the sender's own choice. The
// record borrows the texts of `instance`, `logType` and `message` (both percent-encoded UTF-8), all
// of which must outlive it. `level` is 0 to 7. Needs an open connection, or one opened before: only
// then does the instance know its local address. Throws base::BadAllocation.
void AddCommonFields(lumo::Map& record, const api::InstanceRecord& instance, std::int32_t level,
                     std::string_view logType, std::string_view message);

}  // namespace TAVU::delivery

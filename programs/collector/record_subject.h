// Under which subject of a stream a record goes.
#pragma once

#include <string>
#include <string_view>

namespace TAVU::collector {

// Whether a character may stand in the name of a stream, and in each part of a subject: a letter, a
// digit, "-" or "_".
[[nodiscard]] bool IsNameCharacter(char character) noexcept;

// STREAM.KIND.SOFTWARE. Of the software's identifier, which is a peer's, letters, digits, "-" and
// "_" stand for themselves, each other byte is "_", and 64 bytes are enough: whatever a peer says,
// the subject has three parts and is one of the stream's.
[[nodiscard]] std::string RecordSubject(std::string_view stream, std::string_view kind,
                                        std::string_view software);

}  // namespace TAVU::collector

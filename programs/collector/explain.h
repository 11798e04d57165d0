// What the collector has to say to its operator: one line on standard error for each event.
// Standard output is for records alone.
//
// A flood of one kind of event, which anybody can send, neither fills the log nor hides the others:
// of each topic a few lines are written at once and then one a second, with a count of what was
// left out. A line for which standard error has no room at once is left out as well, so that
// nobody who does not read it stops the service.
//
// Used by the one thread that runs the io_context.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TAVU::collector {

enum class Topic : std::uint8_t {
  kService,      // the collector itself: written whenever there is room
  kBadRequest,   // bytes that are no request
  kUnfinished,   // a request whose end did not come
  kPressure,     // a peer that had to go to make room for others
  kNotKept,      // a record, or an attachment, that is lost
  kConnections,  // accepting them
};
inline constexpr int kTopics = 6;

void Explain(Topic topic, std::string_view text);
void ExplainPeer(Topic topic, std::string_view transport, std::string_view peer,
                 std::string_view text);

// Tells of lines left out some time ago. To be called now and then.
void ExplainLeftOut();

// Of all topics, since the start.
[[nodiscard]] std::uint64_t LinesLeftOut() noexcept;

}  // namespace TAVU::collector

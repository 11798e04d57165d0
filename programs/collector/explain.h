// What the collector has to say to its operator: one line on standard error for each event.
// Standard output is for records alone.
#pragma once

#include <string>
#include <string_view>

namespace TAVU::collector {

void Explain(std::string_view text);
void ExplainPeer(std::string_view transport, std::string_view peer, std::string_view text);

}  // namespace TAVU::collector

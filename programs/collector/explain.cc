#include "explain.h"

#include <algorithm>
#include <chrono>

#include "platform.h"

namespace TAVU::collector {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::string_view kTopicNames[kTopics] = {
    "the service",      "bad requests", "unfinished requests", "peers that had to make room",
    "records not kept", "connections"};

constexpr double kLinesAtOnce = 20;
constexpr double kLinesPerSecond = 1;
constexpr auto kSummaryPause = 10s;

struct TopicState {
  double allowed = kLinesAtOnce;
  Clock::time_point latest = Clock::now();
  Clock::time_point latest_summary = Clock::now();
  std::uint64_t left_out = 0;
};

TopicState topics[kTopics];
std::uint64_t all_left_out = 0;

// Whether the line has been written.
bool WriteLine(std::string_view text) {
  std::string line = "tavu_collector: ";
  line += text;
  line += '\n';
  return WriteStandardError(line);
}

bool IsAllowed(TopicState& state) {
  const Clock::time_point now = Clock::now();
  const std::chrono::duration<double> passed = now - state.latest;
  state.latest = now;
  state.allowed = std::min(kLinesAtOnce, state.allowed + kLinesPerSecond * passed.count());
  if (state.allowed < 1) return false;
  state.allowed -= 1;
  return true;
}

}  // namespace

void Explain(Topic topic, std::string_view text) {
  TopicState& state = topics[static_cast<int>(topic)];
  if ((topic == Topic::kService || IsAllowed(state)) && WriteLine(text)) return;
  if (state.left_out == 0) state.latest_summary = Clock::now();
  ++state.left_out;
  ++all_left_out;
}

void ExplainPeer(Topic topic, std::string_view transport, std::string_view peer,
                 std::string_view text) {
  std::string line(transport);
  line += ' ';
  line += peer;
  line += ": ";
  line += text;
  Explain(topic, line);
}

void ExplainLeftOut() {
  const Clock::time_point now = Clock::now();
  for (int topic = 0; topic < kTopics; ++topic) {
    TopicState& state = topics[topic];
    if (state.left_out == 0 || now - state.latest_summary < kSummaryPause) continue;
    state.latest_summary = now;
    const std::string lines = state.left_out == 1 ? " line about " : " lines about ";
    if (WriteLine(std::to_string(state.left_out) + lines + std::string(kTopicNames[topic]) +
                  (state.left_out == 1 ? " was left out" : " were left out"))) {
      state.left_out = 0;
    }
  }
}

std::uint64_t LinesLeftOut() noexcept {
  return all_left_out;
}

}  // namespace TAVU::collector

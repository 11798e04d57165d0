// Where the collector sees a request end. What it makes of whole requests is seen in
// collector_test.py.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "body_scanner.h"
#include "lumo/codec/codec.h"
#include "record_subject.h"
#include "request_scanner.h"
#include "support/vectors.h"

namespace TAVU::collector {
namespace {

using test::BytesOf;
using Bytes = std::vector<std::byte>;

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A call of "s" with one argument.
Bytes BodyWith(const Bytes& argument) {
  return Joined({BytesOf("6301006d000173"), argument, BytesOf("7a")});
}

Bytes InPackets(const Bytes& body, std::size_t packet) {
  Bytes request = BytesOf("cf100004");
  for (std::size_t at = 0; at < body.size(); at += packet) {
    const std::size_t size = std::min(packet, body.size() - at);
    request.push_back(static_cast<std::byte>(size >> 8));
    request.push_back(static_cast<std::byte>(size));
    request.insert(request.end(), &body[at], &body[at] + size);
  }
  return Joined({request, BytesOf("0000")});
}

// Feeds in pieces of three bytes; `used` is how many bytes the scanner took.
std::pair<ScanState, std::string> Scan(const Bytes& request, std::size_t& used,
                                       std::size_t limit = std::size_t{1} << 30) {
  RequestScanner scanner(limit);
  used = 0;
  while (used < request.size() && scanner.state() == ScanState::kIncomplete) {
    used += scanner.Feed(
        std::span(request).subspan(used, std::min<std::size_t>(3, request.size() - used)));
  }
  return {scanner.state(), scanner.reason()};
}

TEST(RequestScanner, RefusesAsEarlyAsItCan) {
  const struct {
    Bytes request;
    std::size_t used;  // bytes looked at
    const char* reason;
  } kCases[] = {
      {BytesOf("474554202f"), 1, "not a request"},
      {BytesOf("cf100003ff"), 4, "malformed header"},
      {BytesOf("cf10000400057201004e7a0000"), 7, "not a call"},
      {InPackets(BytesOf("6301006d0001737a"), 99), 14, "call without an argument"},
      {InPackets(BodyWith(BytesOf("4e4e")), 99), 15, "more than one argument"},
      {InPackets(BytesOf("6301006d0001734e"), 99), 16, "the body ends inside the call"},
      {InPackets(Joined({BodyWith(BytesOf("4e")), BytesOf("00")}), 99), 15,
       "bytes after the end of the call"},
      {InPackets(BodyWith(BytesOf("738001")), 99), 16, "chunk too long"},
      {InPackets(BodyWith(BytesOf({{"repeat", "56", lumo::kDeepestNesting + 1}})), 2000), 1014,
       "values nested too deeply"},
      {InPackets(BodyWith(BytesOf({"56", {"repeat", "4d7a", 70000}})), 60000), 125017,
       "too many values"},
      {InPackets(BodyWith(BytesOf({"4d", {"repeat", "4e4e", 1001}})), 9000), 2015,
       "map with too many entries"},
      {InPackets(BodyWith(BytesOf({"4d", {"repeat", {"56", {"repeat", "4e", 9998}, "7a4e"}, 2}})),
                 65000),
       20016, "keys too costly to compare"},
  };
  std::size_t used = 0;
  for (const auto& test : kCases) {
    EXPECT_EQ(Scan(test.request, used), std::pair(ScanState::kRefused, std::string(test.reason)));
    EXPECT_EQ(used, test.used) << test.reason;
  }
  const Bytes request = InPackets(BodyWith(BytesOf("4e")), 99);
  EXPECT_EQ(Scan(request, used, request.size()).first, ScanState::kComplete);
  EXPECT_EQ(Scan(request, used, request.size() - 1).second, "request larger than 16 bytes");
}

TEST(RecordSubject, IsTheStreamsOwnWhateverThePeerSays) {
  const std::pair<std::string, std::string> kCases[] = {
      {"my-game_2", "S.log.my-game_2"},
      {"", "S.log._"},
      {"a.b", "S.log.a_b"},
      {"*", "S.log._"},
      {">\r\nPUB x", "S.log.___PUB_x"},
      {std::string(99, 'x'), "S.log." + std::string(64, 'x')}};
  for (const auto& [software, subject] : kCases) {
    EXPECT_EQ(RecordSubject("S", "log", software), subject);
  }
}

}  // namespace
}  // namespace TAVU::collector

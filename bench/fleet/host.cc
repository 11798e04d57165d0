// The load of scripts/fleet: a host that repeats each call until it succeeds, and tells of each
// try.
//
// usage: tavu_fleet_host PORT NAME RECORDS UPLOADS DATAGRAMS
//
// Prints a line for each call: kind, identifier, try, 1 or 0 for its result, when it began
// (milliseconds since 1970) and how long it took (milliseconds). The identifier is the record's
// message. An upload's content follows from it: lines of identifier and number, up to a size that
// follows from the number of the upload.
#include <tavu/tavu.h>
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kMostTries = 300;
constexpr DWORD kPause = 100;            // milliseconds, after a failure
constexpr std::int32_t kTimeout = 3000;  // the library's default

// Multiples of it, from a few bytes to several chunks of an object.
constexpr std::uint32_t kSizeStep = 7919;
constexpr std::uint32_t kSizeBound = 300007;

std::uint64_t Now() {
  FILETIME time;
  ::GetSystemTimeAsFileTime(&time);
  const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  return ticks / 10000 - 11644473600000;
}

template <typename Call>
bool Report(const char* kind, const char* id, int attempt, Call call) {
  const std::uint64_t begun = Now();
  const bool success = call();
  std::printf("%s %s %d %d %llu %llu\n", kind, id, attempt, success ? 1 : 0,
              static_cast<unsigned long long>(begun),
              static_cast<unsigned long long>(Now() - begun));
  return success;
}

template <typename Call>
bool Repeat(const char* kind, const char* id, Call call) {
  for (int attempt = 1; attempt <= kMostTries; ++attempt) {
    if (Report(kind, id, attempt, call)) return true;
    ::Sleep(kPause);
  }
  return false;
}

std::string Content(const char* id, std::uint32_t number) {
  const std::size_t size = std::size_t{number} * kSizeStep % kSizeBound;
  std::string content;
  for (unsigned line = 0; content.size() < size; ++line) {
    content += id;
    content += ' ' + std::to_string(line) + '\n';
  }
  content.resize(size);
  return content;
}

// Whether it is time for the next of `part` events, spread over `all` records.
bool IsTurn(std::uint32_t record, std::uint32_t part, std::uint32_t all) {
  return std::uint64_t{record} * part / all != std::uint64_t{record + 1} * part / all;
}

std::string Identifier(const char* name, char kind, std::uint32_t number) {
  char text[64];
  std::snprintf(text, sizeof text, "%s-%c%06u", name, kind, static_cast<unsigned>(number));
  return text;
}

TAVU_HANDLE CreateInstance(const char* version, std::uint16_t port, const char* name) {
  const TAVU_HANDLE tavu = TAVU_CreateA("fleet-host", version, "a host of the fleet's proof");
  const bool ready = tavu != nullptr && TAVU_SetReportServerA(tavu, "127.0.0.1", port) &&
                     TAVU_SetUserIDA(tavu, name) && TAVU_SetTimeout(tavu, kTimeout);
  return ready ? tavu : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: tavu_fleet_host PORT NAME RECORDS UPLOADS DATAGRAMS\n");
    return 2;
  }
  const auto number = [argv](int i) {
    return static_cast<std::uint32_t>(std::strtoul(argv[i], nullptr, 10));
  };
  const char* name = argv[2];
  const std::uint32_t records = number(3);
  std::uint32_t uploads = 0;
  std::uint32_t datagrams = 0;
  bool all_kept = true;

  const char* const versions[] = {"1.0.0", "1.0.1", "1.1.0"};
  TAVU_HANDLE instances[3];
  for (std::size_t i = 0; i < 3; ++i) {
    instances[i] = CreateInstance(versions[i], static_cast<std::uint16_t>(number(1)), name);
    if (instances[i] == nullptr) return 1;
  }
  for (std::uint32_t i = 0; i < records; ++i) {
    const TAVU_HANDLE tavu = instances[i % 3];
    const auto level = static_cast<std::int32_t>(i % 8);
    const std::string id = Identifier(name, 'r', i);
    all_kept &= Repeat("record", id.c_str(), [&] {
      return TAVU_SendLog_TCPA(tavu, level, "fleet", nullptr, id.c_str());
    });
    if (IsTurn(i, number(4), records)) {
      const std::string file = Identifier(name, 'f', uploads);
      const std::string content = Content(file.c_str(), uploads++);
      all_kept &= Repeat("upload", file.c_str(), [&] {
        return TAVU_SendFileA(tavu, content.size(), content.data(), "content", file.c_str());
      });
    }
    if (IsTurn(i, number(5), records)) {
      const std::string datagram = Identifier(name, 'u', datagrams++);
      Report("datagram", datagram.c_str(), 1,
             [&] { return TAVU_SendLog_UDPA(tavu, level, "fleet", nullptr, datagram.c_str()); });
    }
  }
  for (const TAVU_HANDLE tavu : instances) TAVU_Destroy(tavu);
  std::printf("end %s 1 1 %llu 0\n", name, static_cast<unsigned long long>(Now()));
  return all_kept ? 0 : 1;
}

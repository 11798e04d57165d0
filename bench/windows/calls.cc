#include <windows.h>
#include <winsock2.h>

#include <memory>
#include <vector>

#include "measures.h"
#include "pairs.h"
#include "sockets.h"

namespace TAVU::bench {
namespace {

// Of many short runs, for one call.
template <typename Call>
void PrintCall(const char* name, int calls, double units_per_second, const char* unit,
               Call&& call) {
  std::vector<double> samples;
  for (int i = 0; i < 101; ++i) {
    samples.push_back(SecondsOf([&] {
      for (int j = 0; j < calls; ++j) call();
    }));
  }
  PrintRow(name, LowerQuartile(std::move(samples)) / calls * units_per_second, unit);
}

bool Post(TAVU_LUADUMP_SENDER sender) {
  return TAVU_LUADUMP_SendLuaDumpW(sender, 7, 42, 1003, L"attempt to index a nil value",
                                   L"stack traceback: main.lua:12: in function 'update'",
                                   L"kim lee", L"arena");
}

// Of a batch, for one call.
template <typename Call>
double BatchSeconds(Call&& call) {
  constexpr int kBatch = 100;
  return SecondsOf([&] {
           for (int i = 0; i < kBatch; ++i) call();
         }) /
         kBatch;
}

void MeasurePosts() {
  // Nobody answers, so that what is posted stays in the queue.
  const BoundSocket server(SOCK_STREAM);
  const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", server.port(), true);
  Require(sender != nullptr, "TAVU_LUADUMP_Create");
  const auto post = [sender] { Require(Post(sender), "a post"); };
  // What a queue cannot do without: memory of the same size for each record.
  std::vector<std::unique_ptr<char[]>> kept;
  const auto keep = [&kept] { kept.emplace_back(new char[1200])[1199] = 0; };
  const auto measure = [&](const char* name) {
    kept.reserve(kept.size() + 1000);
    ComparePairs(
        name, 10, 1e6, "us", [&] { return BatchSeconds(post); },
        [&] { return BatchSeconds(keep); });
  };
  measure("post/few_queued");
  for (int i = 0; i < 50000; ++i) post();
  measure("post/50000_queued");
  TAVU_LUADUMP_Destroy(sender);

  // Each of these meets a worker that waits for work: it fails to connect at once, then waits
  // again.
  std::uint16_t closed_port = 0;
  {
    const BoundSocket closed(SOCK_STREAM);
    closed_port = closed.port();
  }
  const TAVU_LUADUMP_SENDER idle = TAVU_LUADUMP_Create("127.0.0.1", closed_port, true);
  Require(idle != nullptr, "TAVU_LUADUMP_Create");
  std::vector<double> samples;
  for (int i = 0; i < 201; ++i) {
    ::Sleep(5);
    samples.push_back(SecondsOf([&] { Require(Post(idle), "a post"); }));
  }
  PrintRow("post/idle_worker", LowerQuartile(std::move(samples)) * 1e6, "us");
  TAVU_LUADUMP_Destroy(idle);
}

}  // namespace

void MeasureCalls(TAVU_HANDLE instance) {
  PrintCall("setter/number", 10000, 1e9, "ns", [&] { TAVU_SetTimeout(instance, 3000); });
  PrintCall("setter/text", 1000, 1e9, "ns", [&] { TAVU_SetUserIDW(instance, L"kim lee"); });
  PrintCall("last_error", 10000, 1e9, "ns", [] { TAVU_GetLastError(); });
  MeasurePosts();
}

}  // namespace TAVU::bench

// The formatting engine against the C library's.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "lumo/text/basic_string.h"
#include "lumo/text/formatter.h"

namespace TAVU::bench {
namespace {

struct Arguments {
  const char* text = "lobby";
  int small = -17;
  unsigned large = 4000000000;
};

void FormatWithLumo(benchmark::State& state) {
  Arguments arguments;
  lumo::BasicString<char> target;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(arguments);
    target.Clear();
    lumo::Format(target, "%s: %d of %u (%08x)", arguments.text, arguments.small, arguments.large,
                 arguments.large);
    benchmark::DoNotOptimize(target.c_str());
  }
}
BENCHMARK(FormatWithLumo)->Name("format/line/lumo");

void FormatWithSnprintf(benchmark::State& state) {
  Arguments arguments;
  char target[64];
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(arguments);
    std::snprintf(target, sizeof target, "%s: %d of %u (%08x)", arguments.text, arguments.small,
                  arguments.large, arguments.large);
    benchmark::DoNotOptimize(&target[0]);
  }
}
BENCHMARK(FormatWithSnprintf)->Name("format/line/snprintf");

}  // namespace
}  // namespace TAVU::bench

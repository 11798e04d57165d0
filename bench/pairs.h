// Measures two pieces of work in turn, so that whatever else the machine does meets both alike, and
// prints one row for scripts/bench: the name, ours, the other's (or "-") and the unit, separated by
// tabs. Of many samples a row has the lower quartile: what the work takes when nothing gets in its
// way for long. On a quiet machine it lies close to the median; on a busy one the median tells of
// the others.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace TAVU::bench {

// A benchmark that did not do its work has no result.
inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "bench: %s failed\n", what);
  std::exit(1);
}

template <typename Work>
double SecondsOf(Work&& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

inline double LowerQuartile(std::vector<double> samples) {
  const auto quartile = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 4);
  std::nth_element(samples.begin(), quartile, samples.end());
  return *quartile;
}

inline void PrintRow(const char* name, double ours, const char* unit) {
  std::printf("%s\t%.6g\t-\t%s\n", name, ours, unit);
  std::fflush(stdout);
}

inline void PrintRow(const char* name, double ours, double other, const char* unit) {
  std::printf("%s\t%.6g\t%.6g\t%s\n", name, ours, other, unit);
  std::fflush(stdout);
}

// Both return seconds.
template <typename Ours, typename Other>
void ComparePairs(const char* name, int rounds, double units_per_second, const char* unit,
                  Ours&& ours, Other&& other) {
  std::vector<double> our_seconds;
  std::vector<double> other_seconds;
  for (int i = 0; i < rounds; ++i) {
    // Who comes first changes, too.
    if (i % 2 == 0) our_seconds.push_back(ours());
    other_seconds.push_back(other());
    if (i % 2 != 0) our_seconds.push_back(ours());
  }
  PrintRow(name, LowerQuartile(our_seconds) * units_per_second,
           LowerQuartile(other_seconds) * units_per_second, unit);
}

}  // namespace TAVU::bench

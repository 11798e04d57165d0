// Measures pieces of work in turn, so that whatever else the machine does meets both alike, and
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
#include <functional>
#include <utility>
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

// The lower quartile of the seconds that each work takes, in their order. All are measured in turn,
// and who comes first changes, so that rows that are to be read together have met the same.
inline std::vector<double> MeasureInTurns(int rounds,
                                          const std::vector<std::function<double()>>& works) {
  std::vector<std::vector<double>> samples(works.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t turn = 0; turn < works.size(); ++turn) {
      const std::size_t work = (turn + static_cast<std::size_t>(round)) % works.size();
      samples[work].push_back(works[work]());
    }
  }
  std::vector<double> seconds;
  for (std::vector<double>& of_work : samples) seconds.push_back(LowerQuartile(std::move(of_work)));
  return seconds;
}

// Both return seconds.
inline void ComparePairs(const char* name, int rounds, double units_per_second, const char* unit,
                         const std::function<double()>& ours,
                         const std::function<double()>& other) {
  const std::vector<double> seconds = MeasureInTurns(rounds, {ours, other});
  PrintRow(name, seconds[0] * units_per_second, seconds[1] * units_per_second, unit);
}

}  // namespace TAVU::bench

// The values that every library builds, encodes and decodes, as plain data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace TAVU::bench {

using Bytes = std::vector<std::byte>;

// The fields of a log record as a host sends it.
using LogFields = std::vector<std::pair<std::int32_t, std::string>>;
using Numbers = std::vector<std::int32_t>;
using NamedNumbers = std::vector<std::pair<std::string, double>>;

struct Shapes {
  LogFields log = {
      {5, "3"},        {301, R"({"level":"arena","attempt":3,"players":12})"},
      {0, "0"},        {1, "my-game"},
      {2, "1.0.3"},    {3, "3"},
      {4, "net"},      {6, "kim%20lee"},
      {7, "10.0.0.9"}, {8, "connection%20to%20the%20lobby%20was%20lost%20after%2020%20seconds"}};
  Bytes attachment;
  Numbers numbers;             // 1,000, of all sizes
  NamedNumbers named_numbers;  // 1,000

  Shapes() {
    std::uint32_t state = 1;
    const auto next = [&state] { return state = state * 1664525 + 1013904223; };
    for (int i = 0; i < 1 << 20; ++i) attachment.push_back(static_cast<std::byte>(next() >> 24));
    for (int i = 0; i < 1000; ++i) {
      numbers.push_back(static_cast<std::int32_t>(next() >> (next() >> 27)));
      named_numbers.emplace_back("key-" + std::to_string(next() % 1000) + "-" + std::to_string(i),
                                 static_cast<double>(next()) / 7.0);
    }
  }
};

}  // namespace TAVU::bench

// What all fuzzers share. Each is a program of one source, which includes this and defines Check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What a fuzzer asserts. Unlike assert() it is there in every build.
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: broken\n", file, line);
  std::abort();
}

using Bytes = std::span<const std::byte>;

void Check(Bytes input);

inline std::string_view TextOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Check(std::as_bytes(std::span(data, size)));
  return 0;
}

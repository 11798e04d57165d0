// What a fuzzer asserts. Unlike assert() it is there in every build.
#pragma once

#include <cstdio>
#include <cstdlib>

#define TAVU_PROPERTY(condition)                                                   \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)

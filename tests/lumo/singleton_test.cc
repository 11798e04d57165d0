// The process-wide objects: made once, destroyed at exit, missed aloud after that.
#include "lumo/singleton.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace TAVU::lumo {
namespace {

struct Late {
  ~Late() { std::fputs("destroyed; ", stderr); }
};

[[noreturn]] void UseAfterDestruction() {
  try {
    static_cast<void>(Singleton<Late>::Get());
    std::fputs("no exception", stderr);
  } catch (const std::logic_error& error) {
    std::fputs(error.what(), stderr);
  }
  std::fflush(stderr);
  std::_Exit(0);
}

TEST(SingletonDeathTest, ThrowsWhenUsedAfterItsDestruction) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // Registered before the singleton registers its destruction, and therefore run after it.
        std::atexit([] { UseAfterDestruction(); });
        static_cast<void>(Singleton<Late>::Get());
        std::exit(1);
      },
      testing::ExitedWithCode(0),
      "destroyed; \\[Corvane::KTL::Singleton\\] Dead reference detected\\.$");
}

TEST(Singleton, IsMadeOnceAndTriesAgainAfterAFailure) {
  static int attempts;
  struct Reluctant {
    Reluctant() {
      if (++attempts == 1) throw std::bad_alloc();
    }
  };
  EXPECT_THROW(static_cast<void>(Singleton<Reluctant>::Get()), std::bad_alloc);
  Reluctant* const made = &Singleton<Reluctant>::Get();  // the failure has left the lock free
  EXPECT_EQ(made, &Singleton<Reluctant>::Get());
  EXPECT_EQ(attempts, 2);
}

}  // namespace
}  // namespace TAVU::lumo

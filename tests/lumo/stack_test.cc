// The deepest values on a thread with exactly the stack that the codec promises to do with.
#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/reference.h"

namespace TAVU::lumo {
namespace {

#ifdef TAVU_FRAMES_ARE_LARGER
constexpr std::size_t kStack = 8 << 20;
#else
constexpr std::size_t kStack = 256 << 10;
#endif

// Reads a value, writes it and frees it.
struct RoundTrip {
  std::vector<std::byte> bytes;
  bool done = false;

  void Run() {
    MemoryReader reader(bytes);
    MemoryWriter writer;
    Value value;
    done = ReadValue(reader, value) && reader.remaining() == 0 && WriteValue(writer, value);
  }
};

#ifdef _WIN32
void RunOnItsStack(RoundTrip& trip) {
  const auto run = [](void* argument) -> DWORD {
    static_cast<RoundTrip*>(argument)->Run();
    return 0;
  };
  const HANDLE thread =
      ::CreateThread(nullptr, kStack, run, &trip, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
  ASSERT_NE(thread, nullptr);
  ::WaitForSingleObject(thread, INFINITE);
  ::CloseHandle(thread);
}
#else
void RunOnItsStack(RoundTrip& trip) {
  const auto run = [](void* argument) -> void* {
    static_cast<RoundTrip*>(argument)->Run();
    return nullptr;
  };
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  ::pthread_attr_setstacksize(&attributes, kStack);
  pthread_t thread{};
  ASSERT_EQ(::pthread_create(&thread, &attributes, run, &trip), 0);
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
}
#endif

// Twice in a map, the inner values are keys that have to be compared to their last level.
TEST(Codec, DoesWithTheStackThatItPromises) {
  for (const Json& test : Cases(R"([
    // one level's opening and end, levels of a repetition
    ["56", "7a", 1],
    ["4d4e", "7a", 1],
    ["4d", "4e7a", 1],
    ["566c00000001", "7a", 1],
    ["5a566c000000007a566c0000000156", "7a7a7a", 1],
    ["4d56", "7a4e7a", 2],
    ["4d5a566c000000007a566c0000000156", "7a7a7a4e7a", 2],
    ["4d564d4e5a566c000000007a566c0000000156", "7a7a7a7a7a4e7a", 4]
  ])")) {
    const int levels = test[2];
    const int times = 999 / levels;
    const Json nested = {{"repeat", test[0], times}, "4e", {"repeat", test[1], times}};
    for (const Json& whole : {Json{"56", nested, "7a"}, Json{"4d", nested, "4e", nested, "4e7a"}}) {
      RoundTrip trip{BytesOf(whole)};
      RunOnItsStack(trip);
      EXPECT_TRUE(trip.done) << test;
    }
  }
}

}  // namespace
}  // namespace TAVU::lumo
